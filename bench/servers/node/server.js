// The service's job for a request in a Node.js server: parse it, take out the function name, add a
// member and answer with the card. Usage: node server.js PORT REPLY, where REPLY is the reply of the
// service, whose "data" is served from here on.

import { arch } from 'node:process';
import { WebSocketServer } from 'ws';

const [port, reply] = process.argv.slice(2);
const card = JSON.parse(reply).data;

function answer(message) {
  const { fid, ...command } = JSON.parse(message);
  command.platform ??= arch;
  const served = typeof fid === 'string' && fid !== '' && command.platform !== '';
  return JSON.stringify(
    served ? { result: 'true', fid, data: card } : { result: 'false', errmsg: 'no function' },
  );
}

const server = new WebSocketServer({
  host: '127.0.0.1',
  port: Number(port),
  handleProtocols: (offered) => (offered.has('ws') ? 'ws' : false),
});
server.on('connection', (socket) => {
  socket.on('message', (message) => socket.send(answer(message.toString())));
  socket.on('error', () => socket.terminate());
});
process.on('SIGINT', () => process.exit(0));

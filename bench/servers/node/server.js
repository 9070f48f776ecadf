// The service's job for a request in a Node.js server: parse it, take out the function name, add the
// platform, let the reader library answer, append the name where its reply lacks it, and send the
// reply in UTF-8. Usage: node server.js PORT LIBRARY, where LIBRARY serves every function.

import { machine } from 'node:os';
import iconv from 'iconv-lite';
import koffi from 'koffi';
import { WebSocketServer } from 'ws';

const REPLY_SIZE = 1024;

const [port, path] = process.argv.slice(2);
const library = koffi.load(path);
const scommand = library.func('int32_t scommand(const char *name, const char *command, void *reply)');
library.func('int32_t init(const char *parameter)')('');

const platform = machine();
const buffer = Buffer.alloc(REPLY_SIZE);

function answer(message) {
  const { fid, ...command } = JSON.parse(message);
  if (typeof fid !== 'string' || fid === '') return JSON.stringify({ result: 'false', errmsg: 'no function name' });
  command.platform ??= platform;
  buffer.fill(0);
  scommand(fid.toLowerCase(), JSON.stringify(command), buffer);
  const reply = iconv.decode(buffer.subarray(0, buffer.indexOf(0)), 'gbk');
  return reply.includes('"fid"') ? reply : JSON.stringify({ ...JSON.parse(reply), fid });
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

// Opens an https page in a real Chromium that trusts what the browser store of HOME holds, and lets
// the page ask the service over wss://localhost. Prints the service's reply, or "refused" when the
// browser turns the certificate down.
//
// Usage: node tls_page.mjs FOLDER-OF-CERTIFICATE SERVICE-PORT PROFILE-PARENT
import { spawn } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { createServer } from 'node:https';

const kLimitMs = 60_000;
const [folder, servicePort, profileParent] = process.argv.slice(2);
const page = `<!doctype html><script>
  const report = (text) => fetch('/report', { method: 'POST', body: text });
  const socket = new WebSocket('wss://localhost:${servicePort}', 'ws');
  socket.onopen = () => socket.send('{"fid":"getconfig"}');
  socket.onmessage = (event) => report(event.data);
  socket.onerror = () => report('no connection to the service');
</script>`;

const server = createServer({
  cert: readFileSync(`${folder}/localhost-100y.cert`),
  key: readFileSync(`${folder}/localhost-100y.key`),
});
const outcome = new Promise((resolve) => {
  server.on('tlsClientError', (error) => {
    if (/certificate|unknown.ca/i.test(`${error.code} ${error.message}`)) resolve('refused');
  });
  server.on('request', async (request, response) => {
    if (request.url === '/report') {
      let text = '';
      for await (const chunk of request) text += chunk;
      resolve(text);
    }
    response.setHeader('content-type', 'text/html');
    response.end(request.url === '/' ? page : '');
  });
  setTimeout(() => resolve('no word from the browser'), kLimitMs).unref();
});

await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
const browser = spawn('chromium', ['--headless=new', '--no-sandbox', '--disable-gpu',
  `--user-data-dir=${profileParent}/profile`, `https://localhost:${server.address().port}/`],
{ stdio: 'ignore' });
const exited = new Promise((resolve) => browser.on('exit', resolve));
console.log(await outcome);
browser.kill();
await exited;
process.exit();

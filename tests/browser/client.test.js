// quorvel.js on pages that the service did not deliver: development servers, policies, examples.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {once} from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import {after, before, it} from 'node:test';
import {WebSocket} from 'ws';
import {bundleExample, EXAMPLES} from '../client/examples.js';
import {Service} from '../client/service.js';
import {expectText, launch, openPage} from './chromium.js';

const STAGE = process.env.QUORVEL_STAGE;
const CLIENT = fs.readFileSync(path.join(STAGE, 'client/quorvel.js'));

let browser, service, site, origin;
let files = {};     // path → [media type, content]
let headers = {};
before(async () => {
  browser = await launch();
  service = await Service.started();
  site = http.createServer(({url}, response) => {
    const [type, content] = files[url] ?? ['text/html', '<!DOCTYPE html><title>shop</title><div id="app"></div>'];
    response.writeHead(200, {'content-type': type, ...headers}).end(content);
  }).listen(0, '127.0.0.1').unref();
  await once(site, 'listening');
  origin = `http://localhost:${site.address().port}`;
  files = {'/quorvel.js': ['text/javascript', CLIENT]};
});
after(async () => {
  await browser.close();
  site.close();
  await service.remove();
});

it('looks for the service at its own port, not at that of a development server', async () => {
  const {page} = await openPage(browser, origin);
  const urls = await page.evaluate(async () => {
    const {Quorvel} = await import('/quorvel.js');
    return [new Quorvel().url, new Quorvel({tls: true}).url];
  });
  assert.deepEqual(urls, ['ws://127.0.0.1:47392/', 'wss://127.0.0.1:47392/']);
});

it('tells at once that the page\'s policy blocks the connection, in a page and in a worker', async () => {
  headers = {'content-security-policy': "default-src 'self'; connect-src 'self'"};
  files['/worker.js'] = ['text/javascript', `
    import {Quorvel} from '/quorvel.js';
    onmessage = ({data}) => new Quorvel({url: data}).connect().catch(({kind, message}) => postMessage([kind, message]));`];
  const {page} = await openPage(browser, origin);
  const outcomes = await page.evaluate(async (url) => {
    const {Quorvel} = await import('/quorvel.js');
    const q = new Quorvel({url, lang: 'zh'});
    const {kind, message} = await q.connect({timeout: 5000}).catch((error) => error);
    const worker = new Worker('/worker.js', {type: 'module'});
    worker.postMessage(url);
    return [[kind, message, q.state], await new Promise((resolve) => { worker.onmessage = ({data}) => resolve(data); })];
  }, service.url);
  headers = {};
  assert.deepEqual(outcomes, [
    ['permission', `本页 Content-Security-Policy 的 connect-src 缺少 ${service.url}`, 'idle'],
    ['permission', `${service.url} is missing in connect-src of this page's Content-Security-Policy`],
  ]);
});

it('runs the examples', async () => {
  const project = fs.mkdtempSync(path.join(os.tmpdir(), 'quorvel-examples-'));
  const tarball = fs.readdirSync(`${STAGE}/client`).find((name) => name.endsWith('.tgz'));
  const options = ['--offline', '--no-audit', '--no-fund', '--prefix', project];
  execFileSync('npm', ['install', ...options, `${STAGE}/client/${tarball}`]);
  files['/page.html'] = ['text/html', fs.readFileSync(`${STAGE}/client/examples/page.html`)];
  files['/app.html'] = ['text/html', '<!DOCTYPE html><div id="app"></div><script type="module" src="page.js"></script>'];
  for (const example of EXAMPLES) {
    files['/page.js'] = ['text/javascript', await bundleExample(example, project)];
    const page = await browser.newPage();
    // The examples take the usual address, at which another service may run: they are led to this one.
    await page.routeWebSocket('ws://127.0.0.1:47392/', (route) => {
      const socket = new WebSocket(service.url, 'ws');
      const queue = once(socket, 'open');
      route.onMessage((text) => queue.then(() => socket.send(text)));
      socket.on('message', (data) => route.send(String(data)));
      route.onClose(() => socket.close());
    });
    await page.goto(`${origin}${example.file === 'page.js' ? '/page.html' : '/app.html'}`);
    await page.getByRole('button', {name: '读卡'}).click();
    await expectText(page, '[role=status]', '张三，999999199001010014');
    await page.close();
  }
  fs.rmSync(project, {recursive: true});
});

// quorvel.js on pages that the service did not deliver: the browser's permission, policies, examples.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import fs from 'node:fs';
import {createRequire} from 'node:module';
import {fileURLToPath} from 'node:url';
import {after, before, it} from 'node:test';
import {build} from 'esbuild';
import {WebSocket} from 'ws';
import {Project} from '../client/project.js';
import {makeCertificate, Service} from '../client/service.js';
import {expectText, launch, openPage, startSite} from './chromium.js';

const NODE_MODULES = fileURLToPath(new URL('../../node_modules', import.meta.url));
const {compileScript, parse} = createRequire(import.meta.url)('vue/compiler-sfc');
const APPLICATION = '<!DOCTYPE html><div id="app"></div><script type="module" src="page.js"></script>';
// Each example with its page, and what an application writes to show it in #app.
const EXAMPLES = [
  ['page.js', 'page.html', 'import "EXAMPLE";'],
  ['react.jsx', undefined, `
    import {createElement} from 'react';
    import {createRoot} from 'react-dom/client';
    import {CardReader} from 'EXAMPLE';
    createRoot(document.getElementById('app')).render(createElement(CardReader));`],
  ['CardReader.vue', undefined, `
    import {createApp} from 'vue';
    import CardReader from 'EXAMPLE';
    createApp(CardReader).mount('#app');`],
];
const singleFileComponents = {
  name: 'vue',
  setup: ({onLoad}) => onLoad({filter: /\.vue$/}, ({path}) => ({
    contents: compileScript(parse(fs.readFileSync(path, 'utf8')).descriptor, {id: 'example', inlineTemplate: true}).content,
    loader: 'js',
  })),
};

/** The program as one script, as an application's build makes it. */
async function bundled(program, resolveDir) {
  const {outputFiles: [{text}]} = await build({
    stdin: {contents: program, resolveDir}, nodePaths: [NODE_MODULES], plugins: [singleFileComponents],
    bundle: true, write: false, minify: true, format: 'esm', jsx: 'automatic', logLevel: 'silent',
    define: {'process.env.NODE_ENV': '"production"', __VUE_OPTIONS_API__: 'false', __VUE_PROD_DEVTOOLS__: 'false',
             __VUE_PROD_HYDRATION_MISMATCH_DETAILS__: 'false'},
  });
  return text;
}

let browser, service, project, local, shop;
before(async () => {
  service = await Service.started();
  project = new Project();
  local = await startSite({'/quorvel.js': fs.readFileSync(project.path('quorvel.js'))});
  shop = await startSite({'/lib/quorvel.js': fs.readFileSync(service.file('mount-origin/quorvel.js'))},
                         makeCertificate(service.file('shop')));
  browser = await launch('--host-resolver-rules=MAP shop.test 127.0.0.1',
                         `--ip-address-space-overrides=127.0.0.1:${shop.port}=public`);
});
after(async () => {
  await browser.close();
  local.close();
  shop.close();
  project.remove();
  await service.remove();
});

for (const [permissions, outcome] of [[['local-network-access'], {data: {present: 'true'}, state: 'open'}],
                                      [[], {kind: 'permission', permission: 'denied', state: 'idle'}]]) {
  it(permissions.length ? 'works once the browser allows it' : 'is told that the browser forbids it', async () => {
    const {page} = await openPage(browser, `https://shop.test:${shop.port}`, {permissions});
    const got = await page.evaluate(async (url) => {
      const {Quorvel} = await import('/lib/quorvel.js');
      const q = new Quorvel({url});
      const {kind, permission, data} = await q.call('cardpresent').catch((error) => error);
      return JSON.stringify({kind, permission, data, state: q.state, usual: new Quorvel().url});
    }, service.url);
    assert.deepEqual(JSON.parse(got), {...outcome, usual: 'ws://127.0.0.1:47392/'});
  });
}

it('tells at once that the page\'s policy blocks the connection, in a page and in a worker', async () => {
  const policy = 'content-security-policy';
  local.headers[policy] = "default-src 'self'; connect-src 'self'";
  local.files['/worker.js'] = `
    import {Quorvel} from '/quorvel.js';
    onmessage = ({data}) => new Quorvel({url: data}).connect().catch(({kind, message}) => postMessage([kind, message]));`;
  const {page} = await openPage(browser, `http://localhost:${local.port}`);
  const outcomes = await page.evaluate(async (url) => {
    const {Quorvel} = await import('/quorvel.js');
    const q = new Quorvel({url, lang: 'zh'});
    const {kind, message} = await q.connect().catch((error) => error);
    const worker = new Worker('/worker.js', {type: 'module'});
    worker.postMessage(url);
    return [[kind, message, q.state], await new Promise((resolve) => { worker.onmessage = ({data}) => resolve(data); })];
  }, service.url);
  delete local.headers[policy];
  assert.deepEqual(outcomes, [
    ['permission', `本页 Content-Security-Policy 的 connect-src 缺少 ${service.url}`, 'idle'],
    ['permission', `${service.url} is missing in connect-src of this page's Content-Security-Policy`],
  ]);
});

for (const [file, html, main] of EXAMPLES) {
  it(`runs the example ${file}`, async () => {
    const folder = project.path('examples');
    local.files['/page.html'] = html ? fs.readFileSync(`${folder}/${html}`) : APPLICATION;
    local.files['/page.js'] = await bundled(main.replace('EXAMPLE', `./${file}`), folder);
    const {page} = await openPage(browser, 'about:blank');
    // The examples take the usual address, at which another service may run: they are led to this one.
    await page.routeWebSocket('ws://127.0.0.1:47392/', (route) => {
      const socket = new WebSocket(service.url, 'ws');
      const queue = once(socket, 'open');
      route.onMessage((text) => queue.then(() => socket.send(text)));
      socket.on('message', (data) => route.send(String(data)));
      route.onClose(() => socket.close());
    });
    await page.goto(`http://localhost:${local.port}/page.html`);
    await page.getByRole('button', {name: '读卡'}).click();
    await expectText(page, '[role=status]', '张三，999999199001010014');
  });
}

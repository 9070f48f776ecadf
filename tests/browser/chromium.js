// Chromium as the tests drive it, and sites for it to visit.

import {once} from 'node:events';
import http from 'node:http';
import https from 'node:https';
import {chromium} from 'playwright-core';

const FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
               '--disable-background-networking', '--disable-component-update', '--disable-sync'];
const LIMIT_MS = 60_000;

export const launch = (...flags) => chromium.launch({executablePath: '/usr/bin/chromium', args: [...FLAGS, ...flags]});

/**
 * Opens `url`; `complaints` collects what the page throws or writes as an error. With `ownTime` the
 * test can let the page's time run ahead (page.clock).
 */
export async function openPage(where, url, {ownTime = false, ...options} = {}) {
  const page = await where.newPage({ignoreHTTPSErrors: true, locale: 'en-US', ...options});
  page.setDefaultTimeout(LIMIT_MS);
  if (ownTime) await page.clock.install();
  const complaints = [];
  page.on('pageerror', (error) => complaints.push(error.message));
  page.on('console', (message) => message.type() === 'error' && complaints.push(message.text()));
  await page.goto(url);
  return {page, complaints};
}

export const connected = (page) => page.waitForSelector('#connection[data-state=open]');

/** Waits for text in which `wanted` occurs, or for none if it is ''. */
export const expectText = (page, selector, wanted) => page.waitForFunction(([place, part]) => {
  const {textContent} = document.querySelector(place);
  return part === '' ? textContent === '' : textContent.includes(part);
}, [selector, wanted]);

/** Waits for text that comes with time, of which much passes on the page meanwhile. */
export async function expectLater(page, selector, wanted) {
  for (const end = Date.now() + LIMIT_MS; !(await page.textContent(selector)).includes(wanted);) {
    if (Date.now() > end) throw new Error(`${selector} never says: ${wanted}`);
    await page.clock.fastForward(1000);
  }
}

/** Sends a request text with the page's form. */
export async function send(page, request) {
  await page.fill('#request-text', request);
  await page.press('#request-text', 'Control+Enter');
}

/**
 * A web site at a free `port` of this machine, over https when `tls` has key and certificate. `files`
 * holds contents by path; every other path is a page. Both `files` and `headers` may be changed.
 */
export async function startSite(files, tls) {
  const headers = {};
  const answer = ({url}, response) => {
    const type = url.endsWith('.js') ? 'text/javascript' : 'text/html';
    response.writeHead(200, {'content-type': type, ...headers})
      .end(files[url] ?? '<!DOCTYPE html><title>shop</title><div id="app"></div>');
  };
  const server = tls ? https.createServer(tls, answer) : http.createServer(answer);
  await once(server.listen(0, '127.0.0.1').unref(), 'listening');
  return {port: server.address().port, files, headers, close: () => server.close()};
}

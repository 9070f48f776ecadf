// Chromium as the tests drive it.

import {chromium} from 'playwright-core';

const FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
               '--disable-background-networking', '--disable-component-update', '--disable-sync'];

export const launch = (...flags) => chromium.launch({executablePath: '/usr/bin/chromium', args: [...FLAGS, ...flags]});

/** Opens `url`; `complaints` collects what the page throws or writes as an error. */
export async function openPage(where, url, options = {}) {
  const page = await where.newPage({ignoreHTTPSErrors: true, locale: 'en-US', ...options});
  const complaints = [];
  page.on('pageerror', (error) => complaints.push(error.message));
  page.on('console', (message) => message.type() === 'error' && complaints.push(message.text()));
  await page.goto(url);
  return {page, complaints};
}

export const connected = (page) => page.waitForSelector('#connection[data-state=open]');

export const expectText = (page, selector, wanted) => page.waitForFunction(
  ([place, part]) => document.querySelector(place).textContent.includes(part), [selector, wanted]);

/** Sends a request text with the page's form. */
export async function send(page, request) {
  await page.fill('#request-text', request);
  await page.press('#request-text', 'Control+Enter');
}

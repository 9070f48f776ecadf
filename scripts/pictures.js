// Draws the pictures of the page in docs/ anew, from a build's installation, in Chromium. It needs
// the service's usual port, which is in the pictures.
//
// Usage: node scripts/pictures.js BUILD

import fs from 'node:fs';
import path from 'node:path';
import {fileURLToPath} from 'node:url';
import {connected, expectText, launch, openPage, send} from '../tests/browser/chromium.js';
import {Service} from '../tests/client/service.js';

const DOCS = fileURLToPath(new URL('../docs', import.meta.url));
const MARGIN = 8;  // CSS pixels below what is drawn last, less than the gap between two cards
const CARDS = '\n[patient]\nname=patient\nkind=3\ndelay_ms=15000\n';

async function read(page) {
  await page.locator('#examples button').first().click();
  await page.click('#read-card');
  await expectText(page, '#members', '张三');
}

async function startReading(page) {
  await read(page);
  const request = await page.inputValue('#request-text');
  await send(page, '{"fid":"readcardbas","data":{"person":"patient"}}');
  await page.fill('#request-text', request);
  await expectText(page, '.library-state', '工作中');
  await page.waitForFunction(() => parseInt(document.getElementById('seconds').textContent) >= 3);
}

// Name, what is done on the page, the title of the last card that is seen, and how the page is opened.
const WIDE = {width: 1200, height: 800};
const PICTURES = [
  ['page', read, 'libraries-title', {viewport: WIDE}],
  ['page-dark', read, 'libraries-title', {viewport: WIDE, colorScheme: 'dark'}],
  ['page-narrow', read, 'reply-title', {viewport: {width: 375, height: 720}}],
  ['page-reading', startReading, 'libraries-title', {viewport: WIDE, locale: 'zh-CN'}],
];

process.env.QUORVEL_STAGE = path.resolve(process.argv[2], 'stage');
const service = await Service.started({cards: CARDS, port: 47392});
const browser = await launch();
try {
  const ini = service.file('bin/quorvel_service.ini');
  fs.writeFileSync(ini, fs.readFileSync(ini, 'utf8').replace(';lib1=30', 'lib1=30'));
  await service.restrict('listen=loopback', 'origin1=https://portal.example');
  for (const [name, act, last, options] of PICTURES) {
    const {page} = await openPage(browser, service.page, options);
    await connected(page);
    await act(page);
    await page.mouse.move(0, 0);
    await page.evaluate(() => document.activeElement.blur());
    const {y, height} = await page.locator(`[aria-labelledby=${last}]`).first().boundingBox();
    await page.setViewportSize({...options.viewport, height: Math.ceil(y + height) + MARGIN});
    await page.screenshot({path: `${DOCS}/${name}.png`, animations: 'disabled'});
    await page.close();
  }
} finally {
  await browser.close();
  await service.remove();
}

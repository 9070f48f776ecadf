// A clerk's day at the page: one person after another, slow cards, a service that hangs.
// QUORVEL_SCREENSHOTS=FOLDER writes the pictures for the README as well.

import assert from 'node:assert/strict';
import {after, before, beforeEach, afterEach, describe, it} from 'node:test';
import {Service} from '../client/service.js';
import {connected, expectText, launch, openPage, send} from './chromium.js';

const FOLDER = process.env.QUORVEL_SCREENSHOTS;
const CARDS = '\n[slow]\nname=slow\nkind=3\ndelay_ms=8000\n';
const SLOW = '{"fid":"readcardbas","data":{"person":"slow"}}';
const NARROW = {viewport: {width: 375, height: 700}};

let browser, service;
before(async () => {
  browser = await launch();
  service = await Service.started({cards: CARDS, port: FOLDER && 47392});
});
after(async () => {
  await browser.close();
  await service.remove();
});

let page;
const open = async (options) => {
  service.replaceCard('zhangsan');
  ({page} = await openPage(browser, service.page, options));
  await connected(page);
};
const readFirst = async () => {
  await page.click('#read-card');
  await expectText(page, '#members', '张三');
};
const shown = (selector) => page.locator(selector).isVisible();
afterEach(() => page.close());

for (const [name, options] of [['at 1280 px', {}], ['at 375 px', NARROW]]) {
  it(`shows nothing of the person before while a card is read, ${name}`, async () => {
    await open(options);
    await readFirst();
    // From the very click on, whatever the page draws is looked at.
    await page.evaluate(() => {
      window.drawn = [];
      const look = () => {
        window.drawn.push(document.body.textContent);
        requestAnimationFrame(look);
      };
      addEventListener('click', look);
      addEventListener('keydown', ({key}) => { if (key === 'Enter') look(); });
    });
    await send(page, SLOW);
    await expectText(page, '#state', 'Reading the card');
    await expectText(page, '#seconds', '2 s');
    for (const [selector, attribute, wanted] of [
      ['#reply', 'aria-busy', 'true'], ['#state', 'role', 'status'], ['#read-card', 'aria-disabled', 'true'],
    ]) assert.equal(await page.getAttribute(selector, attribute), wanted, selector);
    const [cancel, read] = [await page.locator('#cancel-read').boundingBox(), await page.locator('#read-card').boundingBox()];
    assert.ok(Math.abs(cancel.y - read.y) < 4 && cancel.x >= 0 && read.x + read.width <= page.viewportSize().width);
    await page.click('#history button', {force: true});  // the reply before can't be called up either
    await expectText(page, '#state', 'No reply yet');
    assert.ok(await shown('#help'));
    await page.keyboard.press('Escape');
    await expectText(page, '#outcome', 'Cancelled');
    const drawn = await page.evaluate(() => window.drawn);
    assert.ok(drawn.length > 10);
    const telling = drawn.findIndex((text) => text.includes('张三') || text.includes('999999199001010014'));
    assert.equal(telling, -1, `of ${drawn.length}: ${drawn[telling]}`);
    // What the service still has in hand is neither shown late nor taken for a hang of the page's own.
    await expectText(page, '#state', 'does not answer');
    await connected(page);
    assert.equal(await page.getAttribute('#reply', 'aria-busy'), 'false');
    assert.deepEqual([await page.textContent('#members'), await page.textContent('#raw-reply')], ['', 'No reply']);
    await readFirst();
  });
}

it('says within seconds that the service does not answer, and notices when it does again', async () => {
  await open();
  service.hang(true);
  const start = Date.now();
  await expectText(page, '#state', 'does not answer');
  assert.match(await page.textContent('#state-detail'), /reading a card, for this page or another/);
  assert.match(await page.textContent('#help-clerk'), /administrator/);
  await page.click('#read-card');
  await expectText(page, '#state', 'No reply yet');
  assert.ok(Date.now() - start < 20_000, `${Date.now() - start} ms`);
  service.hang(false);
  await expectText(page, '#members', '张三');
  await connected(page);
});

it('waits for a card and reads it', async () => {
  await open();
  service.replaceCard('');
  await page.click('#wait-card');
  await expectText(page, '#state', 'Put the card on the reader');
  await expectText(page, '#seconds', '1 s');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'cancel-read');
  service.replaceCard('lisi');
  await expectText(page, '#members', '李四');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'read-card');
});

describe('for everybody', () => {
  beforeEach(() => open(NARROW));

  it('fits a narrow window, marks Chinese in English and keeps the focus', async () => {
    await readFirst();
    const clipped = await page.evaluate(() => [...document.querySelectorAll('main *')]
      .filter((element) => element.scrollWidth > element.clientWidth + 1 && element.clientWidth > 1)
      .map((element) => element.id || element.tagName + element.className));
    assert.deepEqual(clipped.filter((name) => !name.startsWith('CODE')), []);
    assert.equal(await page.locator('#members dd:has-text("张三")').getAttribute('lang'), 'zh-CN');
    assert.equal(await page.locator('#members dd:has-text("1990-")').getAttribute('lang'), null);
    await page.click('#clear');
    assert.equal(await page.evaluate(() => document.activeElement.id), 'history-title');
    await page.getByRole('button', {name: '中文'}).click();
    assert.equal(await page.locator('#members dd:has-text("张三")').getAttribute('lang'), null);
  });

  it('prints the reply alone on one page', async () => {
    await page.emulateMedia({colorScheme: 'dark'});
    await readFirst();
    const pdf = (await page.pdf({format: 'A4'})).toString('latin1');
    assert.equal(pdf.match(/\/Type\s*\/Page\b/g).length, 1);
    await page.emulateMedia({media: 'print', colorScheme: 'dark'});
    for (const part of ['.bar', '#connection', '.history', '#request-form', '#settings-form', 'footer']) {
      assert.ok(!await shown(part), part);
    }
    assert.ok(await shown('#members'));
    const colours = await page.evaluate(() =>
      ['body', '.reply'].map((part) => getComputedStyle(document.querySelector(part)).backgroundColor));
    assert.deepEqual(colours, ['rgb(255, 255, 255)', 'rgb(255, 255, 255)']);
  });

  it('keeps the lamp in forced colours', async () => {
    const lamp = () => page.evaluate(() => getComputedStyle(document.querySelector('.lamp')).backgroundColor);
    await page.emulateMedia({forcedColors: 'active'});
    const open = await lamp();
    service.hang(true);
    await page.waitForSelector('#connection[data-state=silent]');
    const silent = await lamp();
    service.hang(false);
    const ground = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    assert.equal(new Set([open, silent, ground]).size, 3);
  });
});

it('draws the pictures for the README', {skip: !FOLDER}, async () => {
  const picture = async (name, act, options) => {
    await open(options);
    await act();
    await page.mouse.move(0, 0);
    await page.evaluate(() => { document.activeElement.blur(); scrollTo(0, 0); });
    await page.screenshot({path: `${FOLDER}/${name}.png`});
    await page.close();
  };
  const reading = async () => {
    await readFirst();
    await send(page, SLOW);
    await page.fill('#request-text', '{"fid":"readcardbas","data":{"itype":3,"bae140":"3"}}');
    await expectText(page, '#seconds', '3');
  };
  await picture('page', async () => {
    await send(page, '{"fid":"readcardbas","data":{"person":"nocard"}}');
    await expectText(page, '#outcome', '未检测到卡片');
    await page.getByRole('button', {name: 'Read basic data'}).click();
    await readFirst();
  }, {viewport: {width: 1200, height: 780}});
  await picture('page-reading', reading, {viewport: {width: 1200, height: 420}, locale: 'zh-CN'});
  await picture('page-dark', readFirst, {viewport: {width: 1200, height: 640}, colorScheme: 'dark'});
  await picture('page-narrow', readFirst, {viewport: {width: 375, height: 720}, locale: 'zh-CN'});
  await open();
});

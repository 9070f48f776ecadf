// A clerk's day at the page: one person after another, a service that hangs.

import assert from 'node:assert/strict';
import {after, before, beforeEach, afterEach, describe, it} from 'node:test';
import {Service} from '../client/service.js';
import {connected, expectLater, expectText, launch, openPage, send} from './chromium.js';

const NARROW = {viewport: {width: 375, height: 700}};

let browser, service;
before(async () => {
  browser = await launch();
  service = await Service.started();
});
after(async () => {
  await browser.close();
  await service.remove();
});

let page;
const open = async (options) => {
  service.replaceCard('zhangsan');
  ({page} = await openPage(browser, service.page, {...options, ownTime: true}));
  await connected(page);
};
const readFirst = async () => {
  await page.click('#read-card');
  await expectText(page, '#members', '张三');
};
const shown = (selector) => page.locator(selector).isVisible();
afterEach(async () => {
  service.hang(false);
  await page.close();
});

for (const [name, options, cancelBy] of [
  ['at 1280 px', {}, () => page.keyboard.press('Escape')],
  ['at 375 px', NARROW, () => page.click('#cancel-read')],
]) {
  it(`shows nothing of the person before until the service, which hangs, has read anew, ${name}`, async () => {
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
    service.hang(true);
    await send(page, 'readcardbas');
    await expectText(page, '#state', 'Reading the card');
    await expectLater(page, '#seconds', '2');
    for (const [selector, attribute, wanted] of [
      ['#reply', 'aria-busy', 'true'], ['#state', 'role', 'status'], ['#read-card', 'aria-disabled', 'true'],
    ]) assert.equal(await page.getAttribute(selector, attribute), wanted, selector);
    // At once, since what stands above them changes by itself.
    const [cancel, read] = await page.evaluate(() =>
      ['cancel-read', 'read-card'].map((id) => document.getElementById(id).getBoundingClientRect().toJSON()));
    assert.ok(Math.abs(cancel.y - read.y) < 4 && cancel.x >= 0 && read.right <= page.viewportSize().width);
    await page.click('#history button', {force: true});  // the reply before can't be called up either
    await expectLater(page, '#state', 'No reply yet');
    assert.match(await page.textContent('#help-clerk'), /administrator/);
    await page.waitForFunction(() => window.drawn.length > 10);
    await cancelBy();
    await expectText(page, '#outcome', 'Cancelled');
    assert.ok(!await shown('#cancel-read'));
    await expectLater(page, '#state', 'does not answer');
    assert.match(await page.textContent('#state-detail'), /reading a card, for this page or another/);
    assert.ok(await shown('#help'));
    // What the service still has in hand is not shown late.
    service.hang(false);
    await connected(page);
    assert.equal(await page.getAttribute('#reply', 'aria-busy'), 'false');
    assert.deepEqual([await page.textContent('#members'), await page.textContent('#raw-reply')], ['', 'No reply']);
    const drawn = await page.evaluate(() => window.drawn);
    const telling = drawn.findIndex((text) => text.includes('张三') || text.includes('999999199001010014'));
    assert.equal(telling, -1, `of ${drawn.length}: ${drawn[telling]}`);
    await readFirst();
  });
}

it('says by itself that the service does not answer, in forced colours too, and shows what it answers then', async () => {
  const lamp = () => page.evaluate(() => getComputedStyle(document.querySelector('.lamp')).backgroundColor);
  await open({forcedColors: 'active'});
  const running = await lamp();
  service.hang(true);
  await expectLater(page, '#state', 'does not answer');
  const ground = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  assert.equal(new Set([running, await lamp(), ground]).size, 3);
  await send(page, 'readcardbas');
  await page.click('#cancel');
  await expectText(page, '#outcome', 'Cancelled');
  await page.click('#read-card');
  await expectLater(page, '#state', 'No reply yet');
  service.hang(false);
  await expectText(page, '#members', '张三');
  await connected(page);
});

it('waits for a card and reads it', async () => {
  await open();
  service.replaceCard('');
  await page.click('#wait-card');
  await expectText(page, '#state', 'Put the card on the reader');
  await expectLater(page, '#seconds', '1');
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
});

// The status and test page and quorvel.js in a real browser, against the installed service.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import net from 'node:net';
import {after, before, describe, it} from 'node:test';
import {freePort, Service} from '../client/service.js';
import {connected, expectText, launch, openPage, send} from './chromium.js';

// Texts of util/text/messages.h.in that are the reason of no reply.
const LOGGED_ONLY = new Set(['kInitFailed', 'kNotInitialised', 'kNoLibraryName', 'kAlreadyLoaded', 'kCannotLoad',
                             'kMissingEntryPoint', 'kUnrecognisedLine', 'kLibraryInitFailed', 'kPathTooLong',
                             'kNoLibraryFile']);

let browser;
before(async () => { browser = await launch(); });
after(() => browser.close());

for (const tls of [false, true]) {
  describe(`over ${tls ? 'https' : 'http'}`, () => {
    let service, page, complaints;
    before(async () => {
      service = await Service.started({tls});
      ({page, complaints} = await openPage(browser, service.page));
      await connected(page);
    });
    after(() => service.remove());

    it('shows the card, explains failures and remembers both, with nothing refused by the browser', async () => {
      await page.click('#read-card');
      await expectText(page, '#members', '张三');
      for (const [request, outcome] of [
        ['{"fid":"nosuch"}', 'No reader library offers this function'],
        ['hello', 'A request is a JSON object'],
        ['{"fid":"readcardbas","data":{"person":"nocard"}}', '未检测到卡片'],
        ['readcardbas', 'Success'],
      ]) {
        await send(page, request);
        await expectText(page, '#outcome', outcome);
      }
      assert.match(await page.textContent('#raw-reply'), /^\{"result":"true",.*"name":"张三"/);
      assert.equal(await page.locator('#history tr').count(), 5);
      await page.getByRole('button', {name: /^Show nosuch of/}).click();
      await expectText(page, '#outcome', '不支持该功能');
      await page.getByRole('button', {name: '中文'}).click();
      await expectText(page, '#outcome', '没有任何读卡库提供此功能');
      assert.equal(await page.getAttribute('html', 'lang'), 'zh-CN');
      await expectText(page, '.library', '可用');
      await page.getByRole('button', {name: 'English'}).click();
      await page.getByRole('button', {name: 'cardpresent', exact: true}).click();
      await page.keyboard.press('Control+Enter');
      await expectText(page, '#members', 'Card present');
      assert.deepEqual(complaints, []);
    });

    it('explains every reason that the service gives, and so does the protocol\'s description', async () => {
      const source = fs.readFileSync(new URL('../../util/text/messages.h.in', import.meta.url), 'utf8');
      const reasons = [...source.matchAll(/ (k\w+)\{"(.*)"\};/g)].filter(([, name]) => !LOGGED_ONLY.has(name));
      assert.ok(reasons.length > 10);
      const description = fs.readFileSync(new URL('../../docs/protocol.md', import.meta.url), 'utf8');
      for (const [, name, reason] of reasons) {
        assert.ok(description.includes(`\`${reason}\``), name);
        const explained = await page.evaluate(async (errmsg) => {
          const {explain} = await import('/reasons.js');
          return explain({reply: {result: 'false', errmsg}}).original === errmsg;
        }, reason.replace('%-4d', '80  ').replaceAll('%s', 'x'));
        assert.ok(explained, name);
      }
    });

    it('shows the server address and changes it to one that answers only', async () => {
      const server = net.createServer().listen(0, '127.0.0.1').unref();
      await expectText(page, '#stored', '192.168.100.100:47392');
      for (const [ip, port, place, words] of [
        ['127.0.0.256', 70000, '#ip-error', 'IPv4 address'],
        ...['70000', '0x50', '1e3', '0', ''].flatMap((wrong) => [
          ['127.0.0.1', wrong, '#port-error', '1 to 65535'], ['127.0.0.256', 80, '#port-error', '']]),
        ['127.0.0.1', await freePort(), '#settings-outcome', 'has not changed'],
        ['127.0.0.1', server.address().port, '#settings-outcome', 'Saved'],
      ]) {
        await page.fill('#ip', ip);
        await page.fill('#port', String(port));
        await page.click('#save');
        await expectText(page, place, words);
      }
      await page.click('#reload');
      await expectText(page, '#stored', `127.0.0.1:${server.address().port}`);
      server.close();
    });

    it('helps when the service stops and is back by itself after a restart', async () => {
      await service.stop();
      await page.waitForSelector('#help');
      await expectText(page, '#libraries-empty', 'no connection');
      await expectText(page, '#state-detail', 'next attempt in');
      await page.click('#read-card');
      await expectText(page, '#outcome', 'service is not running');
      await service.start();
      await connected(page);
      await page.waitForSelector('#help', {state: 'hidden'});
      await expectText(page, '.library', 'Ready');
      await page.click('#read-card');
      await expectText(page, '#outcome', 'Success');
    });

    it('lets a page use the delivered quorvel.js without an address', async () => {
      const reply = await page.evaluate(async () => {
        const {Quorvel} = await import('/quorvel.js');
        const q = new Quorvel();
        return {url: q.url, ...await q.call('cardpresent')};
      });
      assert.deepEqual(reply, {url: `${service.url}/`, result: 'true', fid: 'cardpresent', data: {present: 'true'}});
    });
  });
}

// Who may use the service, as real browsers meet it: sites that are named and others, the service's
// own page, and a page that has its name lead to this machine.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import {after, before, describe, it} from 'node:test';
import {firefox} from 'playwright-core';
import {makeCertificate, Service} from '../client/service.js';
import {connected, expectText, launch, openPage, startSite} from './chromium.js';

const LONGEST_RETRY_MS = 10_000;
const BROWSERS = {
  Chromium: {
    start: () => launch('--host-resolver-rules=MAP *.test 127.0.0.1'),
    options: {permissions: ['local-network-access']},
    refused: 'refused',
  },
  Firefox: {
    start: () => firefox.launch({
      executablePath: '/usr/bin/firefox-esr',
      channel: 'moz-firefox',
      firefoxUserPrefs: {'network.dns.localDomains': 'portal.test,other.test'},
    }),
    options: {},
    // Firefox would ask the user before it let the client find out.
    refused: 'unavailable',
  },
};

/** A service and a site whose pages can have quorvel.js; `origin` names the latter under another host. */
async function startBoth(test, scheme, tls) {
  const service = await Service.started({tls});
  test.after(() => service.remove());
  const site = await startSite({'/quorvel.js': fs.readFileSync(service.file('mount-origin/quorvel.js'))},
                               scheme === 'https' && makeCertificate(service.file('site')));
  test.after(() => site.close());
  return {service, origin: (host) => `${scheme}://${host}.test:${site.port}`};
}

/** What a page's call of the service comes to; the page keeps its client. */
const called = (page, url) => page.evaluate(async (address) => {
  const {Quorvel} = await import('/quorvel.js');
  window.q = new Quorvel({url: address});
  const {kind, data} = await window.q.call('cardpresent').catch((error) => error);
  return kind ?? data.present;
}, url);

for (const [name, {start, options, refused}] of Object.entries(BROWSERS)) {
  describe(name, () => {
    let browser;
    before(async () => { browser = await start(); });
    after(() => browser.close());

    for (const [scheme, tls] of [['http', false], ['https', false], ['https', true]]) {
      it(`lets in whom the service names, from ${scheme} pages, ${tls ? 'over TLS' : 'without TLS'}`, async (test) => {
        const {service, origin} = await startBoth(test, scheme, tls);
        await service.restrict('listen=loopback', `origin1=${origin('portal')}`);
        const {page} = await openPage(browser, origin('portal'), options);
        assert.equal(await called(page, service.url), 'true');
        await page.goto(origin('other'));
        assert.equal(await called(page, service.url), refused);
        await page.goto(service.page);
        await connected(page);
        await expectText(page, '#access', origin('portal'));
        // Its name leads to this machine, and it would be the service's own page.
        const rebound = await page.goto(service.page.replace('localhost', 'other.test'));
        assert.equal(rebound.status(), 403);
        assert.doesNotMatch(await page.content(), /quorvel/i);
        await page.close();
      });
    }

    if (name !== 'Chromium') return;
    it('serves a refused page without a reload once its site or host is named', async (test) => {
      const {service, origin} = await startBoth(test, 'http', false);
      const own = await openPage(browser, service.page.replace('localhost', 'other.test'), {ownTime: true});
      await connected(own.page);
      await service.restrict('origin1=https://another.test');
      const {page} = await openPage(browser, origin('portal'), {ownTime: true});
      assert.equal(await called(page, service.url), 'refused');
      assert.match(await page.evaluate(() => window.q.error.message), new RegExp(`quorvel-policy ${origin('portal')}`));
      await expectText(own.page, '#state', 'does not admit');
      await expectText(own.page, '#help-host', 'host1=other.test');
      await service.restrict(`origin1=${origin('portal')}`, 'host1=other.test');
      for (const {clock} of [page, own.page]) await clock.fastForward(LONGEST_RETRY_MS);
      await page.waitForFunction(() => window.q.state === 'open');
      await connected(own.page);
      await expectText(own.page, '#access', origin('portal'));
    });
  });
}

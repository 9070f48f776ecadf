// Opens the service's own https page in Chromium, which trusts what the browser store of HOME holds,
// and has the page ask the service. Prints the reply, or "refused" when the browser turns the
// certificate down.
//
// Usage: node tls_page.mjs URL PROFILE
import {chromium} from 'playwright-core';

const [url, profile] = process.argv.slice(2);
const browser = await chromium.launchPersistentContext(profile, {executablePath: '/usr/bin/chromium', args: ['--no-sandbox']});
const page = await browser.newPage();
try {
  await page.goto(url);
  console.log(await page.evaluate(async () => {
    const {Quorvel} = await import('/quorvel.js');
    return new Quorvel().request('{"fid":"getconfig"}');
  }));
} catch (error) {
  console.log(error.message.includes('ERR_CERT_') ? 'refused' : error.message);
}
await browser.close();

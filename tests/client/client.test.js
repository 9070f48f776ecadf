// quorvel.js with the installed service and with the mock: the same cases for both, so that the mock
// can't drift.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import {after, afterEach, before, beforeEach, describe, it} from 'node:test';
import {setTimeout as sleep} from 'node:timers/promises';
import {WebSocket} from 'ws';
import {QuorvelMock} from '../../client/mock.js';
import {Quorvel} from '../../client/quorvel.js';
import {freePort, Service} from './service.js';

const [, VERSION] = /VERSION ([\d.]+) LANG/.exec(fs.readFileSync(new URL('../../CMakeLists.txt', import.meta.url), 'utf8'));
const DELAYS_MS = {brief: 400, slow: 3000};
const CARDS = `\n[brief]\nname=brief\nkind=3\ndelay_ms=${DELAYS_MS.brief}\n`;
const NAMES = {zhangsan: '张三', lisi: '李四'};
const NO_CARD = {result: 'false', errcode: '1002', errmsg: '未检测到卡片，请放好卡片后重试。'};
const FUNCTIONS = {
  cardpresent({platform, data: {person} = {}, ...others}) {
    assert.ok(platform && !('FID' in others));
    return person === 'noreader' ? NO_CARD : {fid: 'cardpresent', data: {present: String(person !== 'nocard')}};
  },
  'quorvel.own': {},
  async readcardbas({data: {person = 'zhangsan'}}) {
    if (person === 'nocard') return NO_CARD;
    if (person in DELAYS_MS) await sleep(DELAYS_MS[person]);
    return {data: {name: NAMES[person] ?? person}};
  },
};
const read = (person) => ['readcardbas', {data: {person}}];

/** As a browser opens it for a page of the site, whose server is asked as the browser asks it. */
class PageSocket extends WebSocket {
  static fetch = fetch;
  constructor(url, protocol) { super(url, protocol, {origin: 'https://site.example'}); }
}

/** What the cases need of a service: url and WebSocket for a client, hang(), stop(), start() and admit(). */
async function installed() {
  const service = await Service.started({cards: CARDS});
  const admit = (yes) => service.restrict(`origin1=https://${yes ? 'site' : 'other'}.example`);
  return Object.assign(service, {WebSocket: PageSocket, admit});
}

async function mocked() {
  const mock = new QuorvelMock({functions: FUNCTIONS, reachable: (ip, port) => port === reachable.port});
  return {
    url: 'ws://127.0.0.1:47392',
    WebSocket: mock.WebSocket,
    hang(yes) { mock.answering = !yes; },
    stop() {
      Object.assign(mock, {answering: true, running: false});
      mock.drop();
    },
    start() { mock.running = true; },
    admit(yes) {
      this.stop();
      Object.assign(mock, {running: true, admitting: yes});
    },
    remove() {},
  };
}

async function stateOf(client, wanted) {
  while (client.state !== wanted) await once(client, 'statechange');
}

const reachable = {};
const server = net.createServer();
before(async () => {
  await once(server.listen(0, '127.0.0.1'), 'listening');
  reachable.port = server.address().port;
});
after(() => server.close());

const failure = (errmsg, more) => ({result: 'false', errmsg, ...more});
const config = (members) => JSON.stringify({fid: 'config', ...members});
const NO_NAME = failure('未传入服务名！');
const UNRECOGNISED = failure('错误信息:无法识别的指令');
const NO_ADDRESS = failure('取参数ip:地址失败');
const NO_PORT = failure('取参数:端口失败');
const PRESENT = {result: 'true', fid: 'cardpresent', data: {present: 'true'}};

for (const [name, start] of [['the installed service', installed], ['the mock', mocked]]) {
  describe(name, () => {
    let service, q, other;
    before(async () => { service = await start(); });
    after(() => service.remove());
    beforeEach(() => {
      [q, other] = [1, 2].map(() => new Quorvel({url: service.url, WebSocket: service.WebSocket}));
    });
    afterEach(() => {
      q.close();
      other.close();
    });

    it('answers each text with its reply', async () => {
      const closed = await freePort();
      for (const [text, expected] of [
        ['hello', UNRECOGNISED], ['', UNRECOGNISED], ['{"a":', UNRECOGNISED], [' {"fid":"cardpresent"}', UNRECOGNISED],
        ['{"a":1}', NO_NAME], ['{"fid":7}', NO_NAME], ['{"fid":""}', NO_NAME], ['{"fid":"x"', NO_NAME],
        [`{"fid":"${'n'.repeat(100)}"}`, failure('服务名过长！')],
        [`{"fid":"${'n'.repeat(99)}"}`, failure('不支持该功能.', {fid: 'n'.repeat(99)})],
        [`{"fid":"cardpresent"}${' '.repeat(102_400 - 21)}`, failure('请求内容过长！')],
        ['{"fid":"cardpresent"}', PRESENT], ['{"FID":"CardPresent","fid":"x"}', PRESENT],
        ['{"fid":"NoSuch"}', failure('不支持该功能.', {fid: 'NoSuch'})],
        ['{"fid":"quorvel.own"}', failure('不支持该功能.', {fid: 'quorvel.own'})],
        [`{"fid":"${'卡'.repeat(34)}"}`, failure('服务名过长！')],
        ['{"fid":"GetConfig"}', failure('不支持该功能.', {fid: 'GetConfig'})],
        ['{"fid":"Quorvel.Status"}', failure('不支持该功能.', {fid: 'Quorvel.Status'})],
        ['{"fid":"getconfig"}', {result: 'true', ip: '192.168.100.100', port: '47392'}],
        [config({port: 80}), NO_ADDRESS], [config({ip: 7, port: 80}), NO_ADDRESS],
        [config({ip: '1'.repeat(40), port: 80}), NO_ADDRESS], [config({ip: '[1]', port: 80}), NO_ADDRESS],
        [config({ip: '127.0.0.1', port: '80'}), NO_PORT], [config({ip: '127.0.0.1', port: 0.5}), NO_PORT],
        [config({ip: '1\t', port: 80}), NO_ADDRESS],
        [config({ip: 'localhost', port: 80}), failure('请检网络-连接localhost:80  失败！')],
        [config({ip: 'localhost', port: reachable.port}), failure(`请检网络-连接localhost:${reachable.port}失败！`)],
        [config({ip: '127.0.0.1', port: closed}), failure(`请检网络-连接127.0.0.1:${closed}失败！`)],
        [config({IP: '127.0.0.1', port: reachable.port + 0.5}), {result: 'true'}],
        ['{"fid":"getconfig"}', {result: 'true', ip: '127.0.0.1', port: String(reachable.port)}],
      ]) {
        assert.deepEqual(JSON.parse(await q.request(text)), expected, text.slice(0, 80));
      }
      const canned = JSON.parse(await q.request('readcardbas, whatever follows'));
      assert.deepEqual([canned.result, canned.data.name], ['true', '张三']);
      const {uptime, libraries: [{file, functions, ...library}], ...status} = await q.status();
      assert.deepEqual({...status, ...library}, {result: 'true', version: VERSION, ready: 'true', access: {listen: 'all'},
                                                 key: 'lib1', state: 'ready', isolated: 'false', restarts: '0', waiting: '0'});
      assert.deepEqual([/^\d+$/.test(uptime), file.slice(-3), functions.includes('cardpresent')], [true, '.so', true]);
    });

    it('gives each of many calls its own reply, one at a time, and the reasons of a failure', async () => {
      await Promise.all([q.connect(), other.connect()]);
      const persons = ['brief', ...Array.from({length: 40}, (_, i) => (i % 3 ? 'zhangsan' : 'lisi'))];
      const ended = [];
      const reading = (client, person) =>
        client.call(...read(person)).then(({data}) => { ended.push(data.name); return data.name; });
      const names = persons.map((person) => reading(q, person));
      await sleep(DELAYS_MS.brief / 4);
      await reading(other, 'lisi');
      assert.equal(ended[0], 'brief');
      assert.deepEqual(await Promise.all(names), persons.map((person) => NAMES[person] ?? person));
      await assert.rejects(q.call('readcardbas', {fid: 'getconfig', data: {person: 'nocard'}}),
                           {kind: 'failure', sent: true, message: NO_CARD.errmsg, reply: {...NO_CARD, fid: 'readcardbas'}});
    });

    it('tells how far a call has come', async () => {
      const seen = [];
      await q.connect();
      await Promise.all([
        q.call(...read('slow')),
        q.call(...read('lisi'), {onProgress: (progress) => { seen.push(progress); }}),
        assert.rejects(q.call('getconfig', {}, {timeout: 100}), {kind: 'timeout', sent: false, message: /^Not sent/}),
      ]);
      assert.deepEqual(seen.at(0), {sent: false, ahead: 1, seconds: 0});
      assert.ok(seen.some(({sent, ahead, seconds}) => !sent && ahead === 1 && seconds >= 2), JSON.stringify(seen));
      assert.deepEqual({...seen.at(-1), seconds: 3}, {sent: true, ahead: 0, seconds: 3});
    });

    it('waits for a card, not while the page is hidden, and until it is aborted', async () => {
      const page = globalThis.document = Object.assign(new EventTarget(), {hidden: true, documentElement: {lang: ''}});
      try {
        const wait = (person, options) =>
          q.waitFor('cardpresent', undefined, {members: {data: {person}}, interval: 20, ...options});
        let polls = 0;
        const stop = new AbortController();
        const onProgress = ({sent}) => { polls += sent; };
        const waiting = assert.rejects(wait('nocard', {signal: stop.signal, onProgress}), {kind: 'aborted'});
        await assert.rejects(wait('nocard', {signal: AbortSignal.timeout(100), onProgress}), {kind: 'aborted'});
        assert.equal(polls, 0);
        page.hidden = false;
        page.dispatchEvent(new Event('visibilitychange'));
        while (polls < 3) await sleep(10);
        stop.abort();
        await waiting;
        assert.equal((await wait('lisi')).data.present, 'true');
        await assert.rejects(wait('noreader'), {kind: 'failure'});
      } finally {
        delete globalThis.document;
      }
    });

    it('keeps late replies of ended calls from the next call', async () => {
      await q.connect();
      const timedOut = assert.rejects(q.call(...read('brief'), {timeout: 100}), {kind: 'timeout', sent: true});
      assert.equal((await q.call(...read('lisi'))).data.name, '李四');
      const stop = new AbortController();
      const aborted = q.call(...read('brief'), {signal: stop.signal});
      const next = q.call(...read('zhangsan'));
      setTimeout(() => stop.abort('enough'), 50);
      await assert.rejects(aborted, {kind: 'aborted', sent: true, cause: 'enough'});
      assert.equal((await next).data.name, '张三');
      await assert.rejects(q.call('getconfig', {}, {signal: stop.signal}), {kind: 'aborted', sent: false});
      await timedOut;
    });

    it('hangs, and goes on with what has come meanwhile', async () => {
      await q.connect();
      service.hang(true);
      await assert.rejects(q.call('cardpresent', {}, {timeout: 200}), {kind: 'timeout', sent: true});
      const patient = other.connect({timeout: 0});
      await assert.rejects(other.connect({timeout: 200}), {kind: 'timeout', sent: false});
      await assert.rejects(other.connect({signal: AbortSignal.timeout(50)}), {kind: 'aborted', sent: false});
      service.hang(false);
      await patient;
      assert.equal((await q.call('getconfig')).fid, undefined);
    });

    it('refuses a site, and serves it once it is admitted', async () => {
      await service.admit(false);
      await assert.rejects(q.call('cardpresent'), {kind: 'refused', sent: false});
      assert.ok(q.retryAt - Date.now() > 9000, `${q.retryAt - Date.now()} ms`);
      await service.admit(true);
      assert.deepEqual(await q.call('cardpresent'), PRESENT);
    });

    it('is lost during a call, refuses connections, and is found by itself when it is started again', async () => {
      const lost = assert.rejects(q.call(...read('brief')), {kind: 'closed', sent: true});
      await sleep(DELAYS_MS.brief / 4);
      service.hang(true);
      const gone = service.stop();
      await Promise.all([lost, gone]);
      await assert.rejects(q.call('cardpresent'), {kind: 'unavailable', sent: false});
      await assert.rejects(q.connect(), {kind: 'unavailable'});
      assert.equal(q.state, 'waiting');
      assert.ok(q.retryAt > Date.now() - 1000 && q.error);
      await service.start();
      await stateOf(q, 'open');
      assert.equal(q.error, null);
      assert.deepEqual(await q.call('cardpresent'), PRESENT);
    });
  });
}

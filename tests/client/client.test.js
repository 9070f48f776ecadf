// quorvel.js against the installed service, and against a scripted one for faults that the real
// one does not show.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import net from 'node:net';
import {after, before, describe, it} from 'node:test';
import {setTimeout as sleep} from 'node:timers/promises';
import {WebSocket, WebSocketServer} from 'ws';
import {Quorvel} from '../../client/quorvel.js';
import {freePort, Service} from './service.js';

const CARDS = '\n[brief]\nname=brief\nkind=3\ndelay_ms=400\n';
const read = (person) => ['readcardbas', {data: {person}}];

/** Runs `use` with a client of `url` and closes the client. */
async function withClient(url, use, options = {}) {
  const client = new Quorvel({url, WebSocket, ...options});
  try {
    await use(client);
  } finally {
    client.close();
  }
}

async function stateOf(client, wanted) {
  while (client.state !== wanted) await once(client, 'statechange');
}

describe('with the installed service', () => {
  let service;
  before(async () => { service = await Service.started({cards: CARDS}); });
  after(() => service.remove());

  it('gives each of many calls made at once its own reply', () => withClient(service.url, async (q) => {
    const persons = Array.from({length: 40}, (_, i) => (i % 3 ? 'zhangsan' : 'lisi'));
    const replies = await Promise.all(persons.map((person) => q.call(...read(person))));
    const names = {zhangsan: '张三', lisi: '李四'};
    assert.deepEqual(replies.map((reply) => reply.data.name), persons.map((person) => names[person]));
    assert.equal(q.state, 'open');
  }));

  it('rejects a failure reply with its reason and keeps the whole reply', () => withClient(service.url, async (q) => {
    for (const [fid, members, message, reply] of [
      ['nosuch', {}, /^不支持该功能/, {result: 'false', fid: 'nosuch'}],
      ['', {}, /^未传入服务名/, {result: 'false'}],
      ['readcardbas', {fid: 'getconfig', data: {person: 'nocard'}}, /未检测到卡片/, {errcode: '1002'}],
      ['config', {ip: '127.0.0.1'}, /^取参数:端口失败/, {result: 'false'}],
    ]) {
      await assert.rejects(q.call(fid, members), (error) => {
        assert.match(error.message, message);
        assert.equal(error.reply.errmsg, error.message);
        assert.deepEqual({...error.reply, ...reply}, error.reply);
        return error.kind === 'failure' && error.sent;
      });
    }
    assert.deepEqual(JSON.parse(await q.request('readcardbas')), await q.call(...read('zhangsan')));
  }));

  it('tells how far a call has come', () => withClient(service.url, async (q) => {
    const seen = [];
    await Promise.all([
      q.call(...read('slow')),
      q.call(...read('lisi'), {onProgress: (progress) => { seen.push(progress); }}),
    ]);
    assert.deepEqual(seen.at(0), {sent: false, ahead: 1, seconds: 0});
    assert.ok(seen.some(({sent, ahead, seconds}) => !sent && ahead === 1 && seconds >= 2), JSON.stringify(seen));
    assert.deepEqual({...seen.at(-1), seconds: 3}, {sent: true, ahead: 0, seconds: 3});
  }));

  it('waits for a card, not while the page is hidden, and until it is aborted', () => withClient(service.url, async (q) => {
    const page = globalThis.document = Object.assign(new EventTarget(), {hidden: true, documentElement: {lang: ''}});
    try {
      const wait = (person, options) =>
        q.waitFor('cardpresent', undefined, {members: {data: {person}}, interval: 20, ...options});
      let polls = 0;
      const stop = new AbortController();
      const onProgress = ({sent}) => { polls += sent; };
      const waiting = assert.rejects(wait('nocard', {signal: stop.signal, onProgress}), {kind: 'aborted'});
      await sleep(100);
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
  }));

  it('keeps late replies of ended calls from the next call', () => withClient(service.url, async (q) => {
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
  }));

  it('connects again by itself after a restart', () => withClient(service.url, async (q) => {
    await q.connect();
    await service.stop();
    await stateOf(q, 'waiting');
    assert.ok(q.retryAt > Date.now() - 1000 && q.error);
    await assert.rejects(q.call('getconfig'), {kind: 'unavailable', sent: false});
    await assert.rejects(q.connect(), {kind: 'unavailable'});
    await service.start();
    await stateOf(q, 'open');
    assert.equal((await q.call('getconfig')).result, 'true');
    assert.equal(q.error, null);
  }));
});

it('refuses an address that no WebSocket can have, and names it', () => {
  for (const url of ['http://127.0.0.1', '127.0.0.1:47392', '', 'ws://127.0.0.1/#a', 5]) {
    assert.throws(() => new Quorvel({url, WebSocket}), {name: 'TypeError', message: new RegExp(`url.*: ${url}$`)});
  }
  assert.equal(new Quorvel({WebSocket}).url, 'ws://127.0.0.1:47392/');
  assert.equal(new Quorvel({WebSocket, tls: true}).url, 'wss://127.0.0.1:47392/');
});

describe('with a scripted service', () => {
  let server, heard, answer;
  before(async () => {
    server = new WebSocketServer({port: await freePort(), host: '127.0.0.1'});
    server.on('connection', (socket) => socket.on('message', (data) => {
      heard.push(JSON.parse(data).fid);
      answer(socket, heard.at(-1));
    }));
  });
  after(() => server.close());

  const script = (answers, use, options) => {
    heard = [];
    answer = (socket, fid) => answers[fid]?.(socket);
    return withClient(`ws://127.0.0.1:${server.options.port}`, use, options);
  };
  const saying = (text) => (socket) => socket.send(text);

  it('never sends a call that ended in the queue, and leaves a connection whose reply is lost', () =>
    script({good: saying('{"result":"true"}')}, async (q) => {
      const stop = new AbortController();
      const calls = [
        assert.rejects(q.call('silent', {}, {timeout: 100}), {kind: 'timeout', sent: true}),
        assert.rejects(q.call('aborted', {}, {signal: stop.signal}), {kind: 'aborted', sent: false}),
        assert.rejects(q.call('expired', {}, {timeout: 150}), {kind: 'timeout', sent: false}),
        q.call('good'),
      ];
      stop.abort();
      await Promise.all(calls);
      assert.deepEqual(heard, ['silent', 'good']);
    }));

  it('rejects every pending call when the connection drops and when it is closed', async () => {
    await script({drop: (socket) => socket.terminate()}, async (q) => {
      const [first, second] = await Promise.allSettled([q.call('drop'), q.call('queued')]);
      assert.deepEqual([first.reason.kind, first.reason.sent], ['closed', true]);
      assert.deepEqual([second.reason.kind, second.reason.sent], ['closed', false]);
    }, {reconnect: false});
    await script({}, async (q) => {
      await q.connect();
      const calls = Promise.allSettled([q.call('silent'), q.call('queued')]);
      q.close();
      assert.deepEqual((await calls).map(({reason}) => [reason.kind, reason.sent]), [['closed', true], ['closed', false]]);
      await assert.rejects(q.call('late'), {kind: 'closed'});
    });
  });

  it('tells replies that break the rules', () =>
    script({text: saying('错误类型'), none: saying('{"fid":"none"}'), bool: saying('{"result":true}')}, async (q) => {
      await assert.rejects(q.call('text'), {kind: 'badreply', text: '错误类型'});
      await assert.rejects(q.call('none'), {kind: 'protocol', reply: {fid: 'none'}});
      await assert.rejects(q.call('bool'), {kind: 'protocol', reply: {result: true}});
    }));

  it('rejects what can\'t be sent and goes on', () => script({good: saying('{"result":"true"}')}, async (q) => {
    for (const wrong of [{fid: 'x'}, undefined, new Uint8Array(8)]) await assert.rejects(q.request(wrong), TypeError);
    await assert.rejects(q.call('x', {n: 1n}), TypeError);
    assert.equal((await q.call('good')).result, 'true');
    assert.deepEqual(heard, ['good']);
  }));

  it('speaks the language it is told', async () => {
    for (const [lang, message] of [['zh-CN', /毫秒内没有应答$/], ['en', /^No reply within/], [undefined, /^No reply/]]) {
      await script({}, async (q) => {
        await q.connect();
        await assert.rejects(q.call('silent', {}, {timeout: 20}), {kind: 'timeout', message});
      }, {lang});
    }
  });

  it('ends a connect() that takes too long, and one that is aborted', () => script({}, async (q) => {
    const deaf = net.createServer().listen(0, '127.0.0.1');
    await once(deaf, 'listening');
    await withClient(`ws://127.0.0.1:${deaf.address().port}`, async (other) => {
      await assert.rejects(other.connect({timeout: 50}), {kind: 'timeout', sent: false});
      await assert.rejects(other.connect({signal: AbortSignal.timeout(50)}), {kind: 'aborted'});
    });
    deaf.close();
    await q.connect({timeout: 5000});
  }));
});

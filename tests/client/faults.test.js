// quorvel.js against a scripted service, for faults that the real one does not show.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import {after, afterEach, before, it} from 'node:test';
import {WebSocket, WebSocketServer} from 'ws';
import {QuorvelMock} from '../../client/mock.js';
import {Quorvel} from '../../client/quorvel.js';

const GOOD = '{"result":"true"}';
let server, replies, heard, q;
before(async () => {
  server = new WebSocketServer({port: 0, host: '127.0.0.1'});
  await once(server, 'listening');
  server.on('connection', (socket) => socket.on('message', (data) => {
    const {fid} = JSON.parse(data);
    heard.push(fid);
    if (fid === 'drop') socket.terminate();
    else if (fid in replies) socket.send(replies[fid]);
  }));
});
after(() => server.close());
afterEach(() => q.close());

/** Makes q a client of a service that has these replies, by function, breaks off at "drop" and is silent else. */
function script(answers, options = {}) {
  replies = answers;
  heard = [];
  q = new Quorvel({url: `ws://127.0.0.1:${server.address().port}`, WebSocket, ...options});
}

// Comes first: connections of other cases that still end would set timers of their own.
it('tries again after pauses that double up to a limit, and anew after a connection', async () => {
  const {setTimeout, clearTimeout} = globalThis;
  const timers = new Map();
  globalThis.setTimeout = (act, ms) => { timers.set(act, ms); return act; };
  globalThis.clearTimeout = (act) => timers.delete(act);
  try {
    const mock = new QuorvelMock();
    mock.running = false;
    q = new Quorvel({WebSocket: mock.WebSocket});
    const connecting = assert.rejects(q.connect({timeout: 2 ** 40}), {kind: 'unavailable'});
    assert.deepEqual([...timers.values()], [2 ** 31 - 1]);
    await connecting;
    const pauses = [];
    for (const state of [...Array(6).fill('waiting'), 'open']) {
      const [[retry, pause]] = timers;
      pauses.push(pause);
      mock.running = state === 'open';
      retry();
      while (q.state !== state) await once(q, 'statechange');
    }
    mock.drop();
    assert.deepEqual([...pauses, ...timers.values()], [500, 1000, 2000, 4000, 8000, 10_000, 10_000, 500]);
    q.close();
    assert.equal(timers.size, 0);
  } finally {
    Object.assign(globalThis, {setTimeout, clearTimeout});
  }
});

it('refuses an address that no WebSocket can have, and names it', () => {
  for (const url of ['http://127.0.0.1', '127.0.0.1:47392', '', 'ws://127.0.0.1/#a', 5]) {
    assert.throws(() => new Quorvel({url, WebSocket}), {name: 'TypeError', message: new RegExp(`url.*: ${url}$`)});
  }
  q = new Quorvel({WebSocket});
  assert.equal(q.url, 'ws://127.0.0.1:47392/');
  assert.equal(new Quorvel({WebSocket, tls: true}).url, 'wss://127.0.0.1:47392/');
});

it('never sends a call that ended in the queue, and leaves a connection whose reply is lost', async () => {
  script({good: GOOD});
  await q.connect();
  const stop = new AbortController();
  const calls = [
    assert.rejects(q.call('silent', {}, {timeout: 100}), {kind: 'timeout', sent: true}),
    assert.rejects(q.call('aborted', {}, {signal: stop.signal}), {kind: 'aborted', sent: false}),
    assert.rejects(q.call('expired', {}, {timeout: 150}), {kind: 'timeout', sent: false}),
    q.call('good'),
  ];
  calls[0].then(() => stop.abort());
  await Promise.all(calls);
  assert.deepEqual(heard, ['silent', 'good']);
});

it('rejects every pending call when the connection drops and when it is closed', async () => {
  for (const [fid, end] of [['silent', () => q.close()], ['drop', () => {}]]) {
    script({good: GOOD}, {reconnect: false});
    await q.connect();
    const calls = Promise.allSettled([q.call(fid), q.call('queued')]);
    end();
    assert.deepEqual((await calls).map(({reason}) => [reason.kind, reason.sent]), [['closed', true], ['closed', false]]);
  }
  await q.call('good');
  assert.ok(!heard.includes('queued'), heard.join());
  q.close();
  await assert.rejects(q.call('late'), {kind: 'closed'});
  script({});
  await assert.rejects(q.call('good', {}, {onProgress: () => q.close()}), {kind: 'closed', sent: false});
  assert.equal(q.state, 'closed');
});

it('stays closed, whatever an attempt still learns', async () => {
  const mock = new QuorvelMock();
  mock.admitting = false;
  let answer;
  const answered = new Promise((resolve) => { answer = resolve; });
  const asked = new Promise((resolve) => {
    mock.WebSocket.fetch = () => { resolve(); return answered; };
  });
  q = new Quorvel({WebSocket: mock.WebSocket});
  const connecting = assert.rejects(q.connect(), {kind: 'closed'});
  await asked;
  const states = [];
  q.addEventListener('statechange', () => { states.push(q.state); });
  q.close();
  q.close();
  answer();
  await connecting;
  await new Promise(setImmediate);
  assert.deepEqual([states, q.error, q.retryAt], [['closed'], null, null]);
});

it('tries and asks no more than the browser lets the page', async () => {
  const mock = new QuorvelMock();
  mock.running = false;
  try {
    for (const [state, isSecureContext, kind, message, then, wantedProbes, url] of [
      ['denied', true, 'permission', /^The browser does not let this page reach/, 'idle', 1],
      ['denied', false, 'permission', /without https/, 'idle', 1],
      ['prompt', true, 'unavailable', /^No card-reading service/, 'idle', 0],
      ['granted', true, 'unavailable', /^No card-reading service/, 'waiting', 1],
      [undefined, true, 'unavailable', /^No card-reading service/, 'waiting', 0],
      [undefined, true, 'unavailable', /^No card-reading service/, 'waiting', 1, 'ws://site.example'],
    ]) {
      let probes = 0;
      mock.WebSocket.fetch = async () => { probes += 1; throw new TypeError('fetch failed'); };
      const answer = {state};
      const query = async () => { if (state) return answer; throw new TypeError('unknown name'); };
      Object.defineProperty(globalThis, 'navigator', {value: {permissions: {query}}, configurable: true});
      Object.assign(globalThis, {location: {hostname: 'site.example'}, isSecureContext});
      q = new Quorvel({url, WebSocket: mock.WebSocket});
      await assert.rejects(q.connect(), {kind, message, permission: state});
      assert.deepEqual([q.state, probes], [then, wantedProbes], state);
      answer.onchange?.();
      assert.equal(q.state, state ? 'connecting' : 'waiting');
      q.close();
    }
  } finally {
    for (const name of ['location', 'isSecureContext', 'navigator']) delete globalThis[name];
  }
});

it('tells replies that break the rules', async () => {
  script({text: '错误$&', none: '{"fid":"none"}', bool: '{"result":true}', other: '{"result":"other"}'});
  await assert.rejects(q.call('text'), {kind: 'badreply', text: '错误$&', message: 'The reply is not JSON: 错误$&'});
  await assert.rejects(q.call('none'), {kind: 'protocol', reply: {fid: 'none'}});
  await assert.rejects(q.call('bool'), {kind: 'protocol', reply: {result: true}});
  await assert.rejects(q.call('other'), {kind: 'failure', message: '{"result":"other"}'});
});

it('rejects what can\'t be sent and goes on', async () => {
  script({good: GOOD});
  for (const wrong of [{fid: 'x'}, undefined, new Uint8Array(8)]) await assert.rejects(q.request(wrong), TypeError);
  await assert.rejects(q.call('x', {n: 1n}), TypeError);
  assert.equal((await q.call('good')).result, 'true');
  assert.deepEqual(heard, ['good']);
});

it('speaks the language it is told', async () => {
  for (const [lang, message] of [['zh-CN', /毫秒内没有应答$/], ['en', /^No reply within/], [undefined, /^No reply/]]) {
    script({}, {lang});
    await q.connect();
    await assert.rejects(q.call('silent', {}, {timeout: 20}), {kind: 'timeout', message});
    q.close();
  }
});

it('is told by the mock what else the service does', async () => {
  const mock = new QuorvelMock({functions: {odd() { throw new RangeError('x'); }}});
  q = new Quorvel({WebSocket: mock.WebSocket});
  await assert.rejects(q.call('odd'), {kind: 'failure', message: '错误类型：RangeError 错误信息 ：x '});
  const socket = new mock.WebSocket(q.url, 'other');
  const [{type}] = await Promise.race([once(socket, 'open'), once(socket, 'close')]);
  assert.equal(type, 'close');
});

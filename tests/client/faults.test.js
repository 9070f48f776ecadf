// quorvel.js against a scripted service, for faults that the real one does not show.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import net from 'node:net';
import {after, afterEach, before, it} from 'node:test';
import {WebSocket, WebSocketServer} from 'ws';
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
  stop.abort();
  await Promise.all(calls);
  assert.deepEqual(heard, ['silent', 'good']);
});

it('rejects every pending call when the connection drops and when it is closed', async () => {
  for (const [fid, end] of [['drop', () => {}], ['silent', () => q.close()]]) {
    script({}, {reconnect: false});
    await q.connect();
    const calls = Promise.allSettled([q.call(fid), q.call('queued')]);
    end();
    assert.deepEqual((await calls).map(({reason}) => [reason.kind, reason.sent]), [['closed', true], ['closed', false]]);
  }
  await assert.rejects(q.call('late'), {kind: 'closed'});
});

it('tells replies that break the rules', async () => {
  script({text: '错误类型', none: '{"fid":"none"}', bool: '{"result":true}'});
  await assert.rejects(q.call('text'), {kind: 'badreply', text: '错误类型'});
  await assert.rejects(q.call('none'), {kind: 'protocol', reply: {fid: 'none'}});
  await assert.rejects(q.call('bool'), {kind: 'protocol', reply: {result: true}});
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

it('ends a connect() that takes too long, and one that is aborted', async () => {
  const deaf = net.createServer().listen(0, '127.0.0.1');
  await once(deaf, 'listening');
  q = new Quorvel({url: `ws://127.0.0.1:${deaf.address().port}`, WebSocket});
  await assert.rejects(q.connect({timeout: 50}), {kind: 'timeout', sent: false});
  await assert.rejects(q.connect({signal: AbortSignal.timeout(50)}), {kind: 'aborted'});
  deaf.close();
});

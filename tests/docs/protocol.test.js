// Every example of docs/protocol.md ("> " a request, "< " its reply), in order, against the installed
// service. The example port stands for the service's own and port 80 for one where nothing listens.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import {after, before, describe, it} from 'node:test';
import {WebSocket} from 'ws';
import {Service} from '../client/service.js';

const DOCUMENT = new URL('../../docs/protocol.md', import.meta.url);
const FIRST_PORT = 80, LAST_PORT = 99;  // two digits, since replies pad the port

async function refusingPort() {
  for (let port = FIRST_PORT; port <= LAST_PORT; port++) {
    const socket = net.connect(port, '127.0.0.1');
    const refused = await once(socket, 'connect').then(() => false, () => true);
    socket.destroy();
    if (refused) return port;
  }
  throw new Error(`something listens on every port from ${FIRST_PORT} to ${LAST_PORT}`);
}

/** The text with "...  (102,400 bytes)" at its end filled up to that length. */
function written(text) {
  const [, start, size] = /^(.*)\.\.\. +\(([\d,]+) bytes\)$/.exec(text) ?? [];
  return start ? start.padEnd(Number(size.replaceAll(',', '')) - 2, 'x') + '"}' : text;
}

describe('docs/protocol.md', () => {
  let service, socket, closed;
  before(async () => {
    service = await Service.started();
    closed = await refusingPort();
    socket = new WebSocket(service.url, 'ws');
    await once(socket, 'open');
  });
  after(() => {
    socket.terminate();
    return service.remove();
  });

  const lines = fs.readFileSync(DOCUMENT, 'utf8').split('\n');
  const requests = lines.flatMap((line, i) => (line.startsWith('> ') ? [i] : []));
  it('has examples, each with its reply', () => {
    assert.ok(requests.length > 0);
    assert.deepEqual(requests.map((i) => lines[i + 1].slice(0, 2)), requests.map(() => '< '));
    assert.equal(lines.filter((line) => line.startsWith('< ')).length, requests.length);
  });

  for (const i of requests) {
    it(`line ${i + 1}: ${lines[i]}`, async () => {
      const here = (text) => text.slice(2).replace('"port":47392', `"port":${service.port}`)
        .replace('"uptime":"86400"', '"uptime":"0"').replace('"port":80', `"port":${closed}`).replace('127.0.0.1:80 ', `127.0.0.1:${closed} `);
      socket.send(written(here(lines[i])));
      const [data] = await once(socket, 'message');
      const reply = data.toString().replace(/"uptime":"\d+"/, '"uptime":"0"');
      const [expected, rest] = here(lines[i + 1]).split(' ...');
      assert.equal(rest === undefined ? reply : reply.slice(0, expected.length), expected);
    });
  }

  it('has the status of a file that is not there, and of one of an unknown kind', async () => {
    fs.writeFileSync(service.file('mount-origin/card.unknown'), '');
    for (const [file, status] of [['missing.html', 404], ['card.unknown', 415]]) {
      assert.ok(lines.some((line) => line.startsWith(`| status ${status} |`)));
      assert.equal((await fetch(service.page + file)).status, status);
    }
  });
});

// The installed service in a temporary copy, on a free port. QUORVEL_STAGE names the installation.

import {execFileSync, spawnSync} from 'node:child_process';
import dgram from 'node:dgram';
import {once} from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import {setTimeout as sleep} from 'node:timers/promises';

const LIMIT_MS = 60_000;
const POLL_MS = 25;

async function until(what, condition) {
  for (const end = Date.now() + LIMIT_MS; !await condition(); await sleep(POLL_MS)) {
    if (Date.now() > end) throw new Error(`not within ${LIMIT_MS} ms: ${what}`);
  }
}

/**
 * A TCP port of 127.0.0.1 at which nothing listens; below those of outgoing connections, one of
 * which could have it when the service is started again. Other tests know it as taken by the UDP
 * socket of the same number.
 */
export async function freePort() {
  for (;;) {
    const port = 10000 + Math.floor(Math.random() * 22000);
    const mark = dgram.createSocket('udp4').unref();
    const server = net.createServer();
    const opened = (socket) => once(socket, 'listening').then(() => true, () => false);
    mark.bind(port, '127.0.0.1');
    const free = await opened(mark) && await opened(server.listen(port, '127.0.0.1'));
    server.close();
    if (free) return port;
    mark.close();
  }
}

/** Makes FILE.key and FILE.cert for localhost and returns what they hold. */
export function makeCertificate(file) {
  execFileSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes', '-days', '2',
                           '-subj', '/CN=localhost', '-keyout', `${file}.key`, '-out', `${file}.cert`], {stdio: 'ignore'});
  return {key: fs.readFileSync(`${file}.key`), cert: fs.readFileSync(`${file}.cert`)};
}

export class Service {
  /** A running service; `cards` is appended to the demo library's card file. */
  static async started({tls = false, cards = '', port} = {}) {
    const stage = process.env.QUORVEL_STAGE;
    if (!stage) throw new Error('QUORVEL_STAGE must name the directory of an installed service');
    const service = new Service();
    service.tls = tls;
    service.port = port ?? await freePort();
    service.dir = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'quorvel-js-')));
    for (const part of ['bin', 'mount-origin']) fs.cpSync(path.join(stage, part), service.file(part), {recursive: true});
    const ini = service.file('bin/quorvel_service.ini');
    fs.writeFileSync(ini, fs.readFileSync(ini, 'latin1').replace(/^localport=.*/m, `localport=${service.port}`), 'latin1');
    fs.appendFileSync(service.file('bin/demo_cards.ini'), cards);
    if (tls) makeCertificate(service.file('localhost-100y'));
    await service.start();
    return service;
  }

  file(name) { return path.join(this.dir, name); }
  get url() { return `${this.tls ? 'wss' : 'ws'}://localhost:${this.port}`; }
  get page() { return `${this.tls ? 'https' : 'http'}://localhost:${this.port}/`; }

  async start() {
    const log = fs.openSync(this.file('log'), 'w');
    execFileSync('bin/quorvelserver', this.tls ? ['-s'] : [], {cwd: this.dir, stdio: ['ignore', log, log]});
    fs.closeSync(log);
    await until('the service listens', () => fs.readFileSync(this.file('log'), 'latin1').includes('Server RUNNING'));
    this.pid = this.process();
  }

  /** The number of its process, 0 when there is none that runs. */
  process() { return Number(spawnSync('pidof', [this.file('bin/quorvelserver')]).stdout); }

  async stop() {
    if (!this.pid) return;
    this.hang(false);
    process.kill(this.pid, 'SIGINT');
    await until('the service ends', () => !this.process());
    this.pid = undefined;
  }

  /** Starts again with these lines as the section [ACCESS]. */
  async restrict(...lines) {
    await this.stop();
    const ini = this.file('bin/quorvel_service.ini');
    const [others] = fs.readFileSync(ini, 'latin1').split('[ACCESS]');
    fs.writeFileSync(ini, `${others}[ACCESS]\n${lines.join('\n')}\n`, 'latin1');
    await this.start();
  }

  /** Stops the process where it is, its connections open, or lets it go on. */
  hang(yes) { process.kill(this.pid, yes ? 'SIGSTOP' : 'SIGCONT'); }

  /** Puts the card of that section of the card file on the demo reader; '' takes it away. */
  replaceCard(section) {
    const file = this.file('bin/demo_cards.ini');
    const text = fs.readFileSync(file, 'latin1').replace(/^card=.*/m, `card=${section}`);
    // In one step: the service may be reading it.
    fs.writeFileSync(`${file}.new`, text, 'latin1');
    fs.renameSync(`${file}.new`, file);
  }

  async remove() {
    await this.stop();
    fs.rmSync(this.dir, {recursive: true});
  }
}

// The card-reading service for unit tests of web pages, without a network (see mock.d.ts).
//
// It answers by promises alone, without timers, so that it works under a test runner's fake clock.

const CANNED_NAME = 'readcardbas';
const CANNED_REQUEST = {data: {itype: 3, bae140: '3'}};
const SHORTEST_REQUEST = 6;      // bytes, as are the limits below
const REQUEST_LIMIT = 102_400;
const NAME_LIMIT = 100;
const ADDRESS_LIMIT = 40;
const IPV4 = /^(?:(?:25[0-5]|2[0-4]\d|1?\d?\d)(?:\.(?!$)|$)){4}$/;
const PLATFORM = 'x86_64';
const VERSION = '3.6.0.01';      // of the service
const RESERVED_PREFIX = /^quorvel\./i;
const ABNORMAL_CLOSURE = 1006;

const byteLength = (text) => new TextEncoder().encode(text).length;
const failure = (errmsg) => ({result: 'false', errmsg});

/** The request's member of that name in any letter case, the first of several. */
function member(request, name) {
  const key = Object.keys(request).find((known) => known.toLowerCase() === name);
  return key === undefined ? undefined : request[key];
}

function parseRequest(text) {
  if (text.startsWith(CANNED_NAME)) return {fid: CANNED_NAME, ...CANNED_REQUEST};
  try {
    return JSON.parse(text);
  } catch {
    return {};
  }
}

/** One end of a connection: what a WebSocket of a browser is to the client. */
class MockSocket extends EventTarget {
  readyState = 0;
  #service;

  constructor(url, protocol, service) {
    super();
    Object.assign(this, {url, protocol: protocol ?? ''});
    this.#service = service;
    service.connect(this);
  }

  send(text) {
    if (this.readyState === 0) throw new Error('The connection is still being made');
    if (this.readyState === 1) this.#service.receive(this, text);
  }

  close() {
    this.ended(1000);
  }

  opened() {
    if (this.readyState !== 0) return;
    this.readyState = 1;
    this.dispatchEvent(new Event('open'));
  }

  replied(data) {
    if (this.readyState === 1) this.dispatchEvent(new MessageEvent('message', {data}));
  }

  ended(code = ABNORMAL_CLOSURE) {
    if (this.readyState === 3) return;
    if (this.readyState === 0) this.dispatchEvent(new Event('error'));
    this.readyState = 3;
    this.dispatchEvent(Object.assign(new Event('close'), {code}));
  }
}

export class QuorvelMock {
  requests = [];
  running = true;
  admitting = true;
  #sockets = new Set();
  #steps = [];        // what waits for the service's one thread
  #busy = false;
  #awake = Promise.resolve();
  #wake = null;       // ends the time in which nothing is answered

  constructor({functions = {}, settings = {ip: '192.168.100.100', port: '47392'},
               reachable = () => true, libraries} = {}) {
    Object.assign(this, {functions, settings, reachable, libraries});
    const service = {
      connect: (socket) => this.#connect(socket),
      receive: (socket, text) => this.#receive(socket, text),
    };
    const probed = () => this.#probed();
    this.WebSocket = class extends MockSocket {
      static fetch = probed;
      constructor(url, protocol) { super(url, protocol, service); }
    };
  }

  get answering() { return this.#wake === null; }

  set answering(wanted) {
    if (wanted === this.answering) return;
    if (wanted) {
      this.#wake();
      this.#wake = null;
    } else {
      this.#awake = new Promise((resolve) => { this.#wake = resolve; });
    }
  }

  drop() {
    for (const socket of this.#sockets) socket.ended();
    this.#sockets.clear();
  }

  /** Does `step` when its turn has come: one at a time, whatever the connection. */
  async #run(step) {
    this.#steps.push(step);
    if (this.#busy) return;
    this.#busy = true;
    while (this.#steps.length > 0) {
      await this.#awake;
      await this.#steps.shift()();
    }
    this.#busy = false;
  }

  /** Where no service runs, the machine itself refuses, at once. */
  #connect(socket) {
    if (this.running) this.#run(() => this.#accept(socket));
    else queueMicrotask(() => socket.ended());
  }

  /** Any HTTP request: answered, whatever the answer, where a service runs. */
  async #probed() {
    if (!this.running) throw new TypeError('fetch failed');
    await this.#awake;
  }

  #accept(socket) {
    if (!this.admitting || !['', 'ws'].includes(socket.protocol)) {
      socket.ended();
      return;
    }
    this.#sockets.add(socket);
    socket.inbox = [];
    socket.opened();
  }

  /** Takes a message; a connection has one in hand and lets others go first before its next. */
  #receive(socket, text) {
    socket.inbox.push(text);
    if (socket.inbox.length === 1) this.#run(() => this.#serve(socket));
  }

  async #serve(socket) {
    const text = socket.inbox[0];
    this.requests.push(text);
    const reply = await this.#answer(text);
    await this.#awake;
    socket.replied(typeof reply === 'string' ? reply : JSON.stringify(reply));
    socket.inbox.shift();
    if (socket.inbox.length > 0) this.#run(() => this.#serve(socket));
  }

  #answer(text) {
    const size = byteLength(text);
    if (!text.startsWith(CANNED_NAME) && (text[0] !== '{' || size < SHORTEST_REQUEST)) {
      return failure('错误信息:无法识别的指令');
    }
    if (size >= REQUEST_LIMIT) return failure('请求内容过长！');
    const request = parseRequest(text);
    const fid = member(request, 'fid');
    if (typeof fid !== 'string' || fid === '') return failure('未传入服务名！');
    if (byteLength(fid) >= NAME_LIMIT) return failure('服务名过长！');
    if (fid === 'getconfig') return {result: 'true', ...this.settings};
    if (fid === 'config') return this.#configure(request);
    if (fid === 'quorvel.status') return this.#status();
    return this.#forward(fid, request);
  }

  #configure(request) {
    const ip = member(request, 'ip');
    const port = member(request, 'port');
    if (typeof ip !== 'string' || byteLength(ip) >= ADDRESS_LIMIT || /[\p{Cc}]|\[.*\]/u.test(ip)) {
      return failure('取参数ip:地址失败');
    }
    const wanted = typeof port === 'number' ? Math.trunc(port) : 0;
    if (wanted === 0) return failure('取参数:端口失败');
    if (!IPV4.test(ip) || !this.reachable(ip, wanted)) {
      return failure(`请检网络-连接${ip}:${String(wanted).padEnd(4)}失败！`);
    }
    this.settings = {ip, port: String(wanted)};
    return {result: 'true'};
  }

  /** By default there is one library, with the scripted functions. */
  #status() {
    const libraries = this.libraries ??
      [{key: 'lib1', file: 'libmock.so', state: 'ready', isolated: 'false', restarts: '0', waiting: '0',
        functions: Object.keys(this.functions)}];
    const ready = libraries.length > 0 && libraries.every(({state}) => /^(ready|working)$/.test(state));
    return {result: 'true', version: VERSION, uptime: '0', ready: String(ready),
            access: {listen: 'all'}, libraries};
  }

  /** The reply of the scripted function, completed as the service does. */
  async #forward(fid, request) {
    const name = fid.toLowerCase();
    if (RESERVED_PREFIX.test(name) || !Object.hasOwn(this.functions, name)) {
      return {...failure('不支持该功能.'), fid};
    }
    const scripted = this.functions[name];
    const passed = {platform: PLATFORM, ...request};
    delete passed[Object.keys(passed).find((key) => key.toLowerCase() === 'fid')];
    try {
      const reply = typeof scripted === 'function' ? await scripted(passed) : scripted;
      return typeof reply === 'string' ? reply : {result: 'true', fid, ...reply};
    } catch (error) {
      return failure(`错误类型：${error.name} 错误信息 ：${error.message} `);
    }
  }
}

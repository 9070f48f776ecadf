// Client of the Quorvel card-reading service for web pages and Node.
//
//   const q = new Quorvel();
//   await q.waitFor('cardpresent');
//   const reply = await q.call('readcardbas', {data: {itype: 3, bae140: '3'}});
//
// The service answers the requests of a connection strictly in order and names no request in its
// reply, so a reply is known by its place alone. This client therefore has one request in hand and
// keeps the others in a queue of its own. A call that ends early (time-out, abort) while it still
// waits there never reaches a card; one that was sent keeps its place until its late reply has
// come and been dropped, so that the next call is not handed that reply.

// True in the copy that the service delivers: the build sets it there.
const DELIVERED = false;
const DEFAULT_PORT = 47392;
const SUBPROTOCOL = 'ws';
const DEFAULT_TIMEOUT_MS = 30_000;
const LONGEST_TIMER_MS = 2 ** 31 - 1;
// Every client has a service of its own, on the same machine: no crowd to spread, hence no jitter.
const FIRST_RETRY_MS = 500;
const LONGEST_RETRY_MS = 10_000;
const PROBE_MS = 3000;
const SECOND_MS = 1000;
// What browsers call the permission to reach this machine, newest name first.
const PERMISSION_NAMES = ['loopback-network', 'local-network-access'];

// What is said in English and in Chinese, {} standing for the detail, and the error's kind where it
// is not the row's name.
const REASONS = {
  aborted: ['The call was aborted', '调用已取消'],
  closed: ['The client was closed', '客户端已关闭'],
  lost: ['The connection to {} was lost', '与 {} 的连接中断', 'closed'],
  unavailable: ['No card-reading service answers at {}', '{} 没有读卡服务应答'],
  refused: ['The service refuses this site; the administrator enters it: quorvel-policy {}',
            '服务拒绝本网站，请管理员登记：quorvel-policy {}'],
  denied: ['The browser does not let this page reach this machine', '浏览器不允许本页访问本机',
           'permission'],
  insecure: ['The browser does not let a page without https reach this machine',
             '浏览器不允许非 https 页面访问本机', 'permission'],
  policy: ["{} is missing in connect-src of this page's Content-Security-Policy",
           '本页 Content-Security-Policy 的 connect-src 缺少 {}', 'permission'],
  blocked: ['The browser refuses the connection: {}', '浏览器拒绝连接：{}', 'permission'],
  unconnected: ['No connection within {} ms', '{} 毫秒内没有连上', 'timeout'],
  unsent: ['Not sent within {} ms: an earlier reply is due',
           '{} 毫秒内没有发送：前一应答未到', 'timeout'],
  unanswered: ['No reply within {} ms', '{} 毫秒内没有应答', 'timeout'],
  badreply: ['The reply is not JSON: {}', '应答不是 JSON：{}'],
  protocol: ['The reply has no text "result": {}', '应答没有文本 "result"：{}'],
};

/** Why a connection or a call failed; `kind` is what a program branches on (see quorvel.d.ts). */
export class QuorvelError extends Error {
  constructor(kind, message, details = {}) {
    super(message);
    Object.assign(this, {name: 'QuorvelError', kind, sent: false}, details);
  }
}

/** `url` as a WebSocket's address. */
function checkedUrl(url) {
  try {
    const parsed = new URL(url);
    if (/^wss?:$/.test(parsed.protocol) && !parsed.hash) return parsed;
  } catch {
    // The same as an address of another kind.
  }
  throw new TypeError(`url is not a ws: or wss: address: ${url}`);
}

function isLoopback(host) {
  return host === '[::1]' || host.startsWith('127.') ||
    host === 'localhost' || host.endsWith('.localhost');
}

/** The service that delivered this file when one did, else the usual port of this machine. */
function defaultUrl(tls) {
  const page = globalThis.location;
  const served = DELIVERED && page && import.meta.url === `${page.origin}/quorvel.js` &&
    (isLoopback(page.hostname) || Number(page.port) === DEFAULT_PORT);
  const scheme = tls || (served && page.protocol === 'https:') ? 'wss' : 'ws';
  return `${scheme}://${served ? page.host : `127.0.0.1:${DEFAULT_PORT}`}`;
}

/** The browser's PermissionStatus for this machine; null where nothing has to be granted, undefined
    where the browser does not say. */
async function loopbackPermission({hostname}) {
  const page = globalThis.location;
  if (!page || isLoopback(page.hostname) || page.hostname === hostname) return null;
  for (const name of isLoopback(hostname) ? PERMISSION_NAMES : []) {
    try {
      return await navigator.permissions.query({name});
    } catch {
      // This browser does not know the name.
    }
  }
}

/** Resolves after `ms`, and not while the page is hidden; at once when `signal` fires. */
function pause(ms, signal) {
  return new Promise((resolve) => {
    const page = globalThis.document;
    let due = false;
    const check = () => {
      if (!signal?.aborted && (!due || page?.hidden)) return;
      clearTimeout(timer);
      page?.removeEventListener('visibilitychange', check);
      signal?.removeEventListener('abort', check);
      resolve();
    };
    const timer = setTimeout(() => { due = true; check(); }, ms);
    page?.addEventListener('visibilitychange', check);
    signal?.addEventListener('abort', check);
  });
}

const cardIsPresent = (reply) => reply.data?.present === 'true';

export class Quorvel extends EventTarget {
  #url;
  #WebSocket;
  #timeout;
  #reconnect;
  #lang;

  #state = 'idle';
  #error = null;
  #retryAt = null;
  #retryDelay = FIRST_RETRY_MS;
  #retryTimer;
  #permission = null;  // watched after a failure: a changed answer of the user starts an attempt

  #socket = null;
  #connects = [];      // connect() calls that wait for the outcome of the attempt
  #queue = [];         // calls that have not been sent
  #inHand = null;      // the call whose reply is outstanding, also when it has ended early

  constructor({url, tls = false, timeout = DEFAULT_TIMEOUT_MS, reconnect = true, lang,
               WebSocket = globalThis.WebSocket} = {}) {
    super();
    if (!WebSocket) {
      throw new TypeError('Pass a class as {WebSocket}: there is none here');
    }
    this.#url = checkedUrl(url ?? defaultUrl(tls));
    this.#WebSocket = WebSocket;
    this.#timeout = timeout;
    this.#reconnect = reconnect;
    this.#lang = lang;
  }

  get url() { return this.#url.href; }
  get state() { return this.#state; }
  get error() { return this.#error; }
  get retryAt() { return this.#retryAt; }

  async connect(options = {}) {
    if (this.#state !== 'open') await this.#wait(this.#connects, {}, options);
  }

  async call(fid, members = {}, options = {}) {
    const text = JSON.stringify(Object.assign({fid}, members, {fid}));
    return this.#parseReply(await this.request(text, options));
  }

  status(options) { return this.call('quorvel.status', {}, options); }

  async request(text, options = {}) {
    if (typeof text !== 'string') throw new TypeError('request() takes a text');
    return this.#wait(this.#queue, {text}, options);
  }

  async waitFor(fid, wanted = cardIsPresent, {members, interval = SECOND_MS, ...options} = {}) {
    for (let ms = 0; ; ms = interval) {
      await pause(ms, options.signal);
      const reply = await this.call(fid, members, options);
      if (wanted(reply)) return reply;
    }
  }

  close() {
    if (this.#state === 'closed') return;
    this.#endAll('closed');
    this.#drop();
    this.#setState('closed', null);
  }

  /** The error of a row of REASONS. */
  #fault(reason, part, details) {
    const [english, chinese, kind = reason] = REASONS[reason];
    const lang = this.#lang ?? globalThis.document?.documentElement.lang;
    const message = /^zh/i.test(lang) ? chinese : english;
    return new QuorvelError(kind, message.replace('{}', () => part), details);
  }

  #parseReply(text) {
    let reply;
    try {
      reply = JSON.parse(text);
    } catch (cause) {
      throw this.#fault('badreply', text, {text, cause, sent: true});
    }
    const details = {reply, sent: true};
    if (typeof reply?.result !== 'string') throw this.#fault('protocol', text, details);
    if (reply.result === 'true') return reply;
    throw new QuorvelError('failure', reply.errmsg || text, details);
  }

  /** Adds `entry` to `list` and waits for its outcome, its signal and its time-out. */
  async #wait(list, entry, {signal, timeout = this.#timeout, onProgress}) {
    if (this.#state === 'closed') throw this.#fault('closed');
    const isSent = () => entry === this.#inHand;
    const aborted = () => this.#fault('aborted', '', {sent: isSent(), cause: signal.reason});
    if (signal?.aborted) throw aborted();

    const start = Date.now();
    const onAbort = () => this.#giveUp(list, entry, aborted());
    const onTimeout = () => {
      const reason = isSent() ? 'unanswered' : this.#inHand ? 'unsent' : 'unconnected';
      this.#giveUp(list, entry, this.#fault(reason, timeout, {sent: isSent()}));
    };
    // Asynchronous, so that what the listener throws is the page's own error and no call's.
    entry.report = async () => onProgress?.({
      sent: isSent(),
      ahead: list.indexOf(entry) + (this.#inHand ? 1 : 0),
      seconds: Math.round((Date.now() - start) / SECOND_MS),
    });
    const outcome = new Promise((resolve, reject) => Object.assign(entry, {resolve, reject}));
    const timer = timeout > 0 && setTimeout(onTimeout, Math.min(timeout, LONGEST_TIMER_MS));
    const clock = onProgress && setInterval(entry.report, SECOND_MS);
    signal?.addEventListener('abort', onAbort);
    list.push(entry);
    entry.report();
    this.#open();
    this.#sendNext();
    try {
      return await outcome;
    } finally {
      clearTimeout(timer);
      clearInterval(clock);
      signal?.removeEventListener('abort', onAbort);
    }
  }

  #setState(state, error, retryAt = null) {
    this.#state = state;
    this.#error = error;
    this.#retryAt = retryAt;
    const watch = state === 'connecting' ? 'addEventListener' : 'removeEventListener';
    globalThis[watch]?.('securitypolicyviolation', this.#onViolation);
    this.dispatchEvent(new Event('statechange'));
  }

  /** Chromium fires no "close" at a socket that the page's own policy blocks. */
  #onViolation = ({disposition, blockedURI}) => {
    const {origin} = this.#url;
    if (disposition !== 'enforce' || !blockedURI.startsWith(origin)) return;
    this.#drop();
    this.#failed('policy', origin, {});
  };

  #open() {
    if (this.#socket || this.#state === 'closed') return;
    this.#stopWaiting();
    let socket;
    try {
      socket = new this.#WebSocket(this.#url.href, SUBPROTOCOL);
    } catch (cause) {
      // So do browsers refuse a plain ws: address from an https page.
      this.#failed('blocked', cause.message, {cause});
      return;
    }
    this.#socket = socket;
    let cause;
    const current = (act) => (event) => { if (socket === this.#socket) act(event); };
    socket.addEventListener('open', current(() => this.#opened()));
    socket.addEventListener('message', current(({data}) => this.#replied(data)));
    socket.addEventListener('error', (event) => { cause = event.error; });
    socket.addEventListener('close', current(() => this.#lost(cause)));
    this.#setState('connecting', this.#error);
  }

  #opened() {
    this.#retryDelay = FIRST_RETRY_MS;
    for (const {resolve} of this.#connects.splice(0)) resolve();
    this.#setState('open', null);
    this.#sendNext();
  }

  #sendNext() {
    if (this.#state !== 'open' || this.#inHand || this.#queue.length === 0) return;
    this.#inHand = this.#queue.shift();
    this.#socket.send(this.#inHand.text);
    this.#reportAll();
  }

  #reportAll() {
    for (const entry of [this.#inHand, ...this.#queue]) entry?.report();
  }

  #replied(text) {
    const call = this.#inHand;
    this.#inHand = null;
    call?.resolve(text);  // dropped when the call has ended
    this.#sendNext();
  }

  #giveUp(list, call, error) {
    const place = list.indexOf(call);
    if (place >= 0) list.splice(place, 1);
    call.ended = true;
    call.reject(error);
    // Waiting out its whole time behind a call that had ended means that the earlier reply may
    // never come. A new connection starts with a clean order.
    if (place >= 0 && error.kind === 'timeout' && this.#inHand?.ended) {
      this.#drop();
      this.#open();
    }
    this.#reportAll();
  }

  async #lost(cause) {
    const socket = this.#socket;
    if (this.#state === 'open') {
      this.#socket = null;
      this.#failed('lost', this.url, {cause});
      return;
    }
    const permission = await loopbackPermission(this.#url);
    const answers = await this.#answers(permission);
    if (socket !== this.#socket) return;
    this.#socket = null;
    this.#permission = permission;
    if (permission) permission.onchange = () => this.#open();
    const details = {cause, permission: permission?.state};
    if (answers) this.#failed('refused', globalThis.location?.origin ?? '', details);
    else if (details.permission !== 'denied') this.#failed('unavailable', this.url, details);
    else this.#failed(globalThis.isSecureContext ? 'denied' : 'insecure', '', details);
  }

  /** Whether something answers there, although it has taken no WebSocket. Not asked where the
      browser might put a question to the user; a WebSocket class of the page's own is asked itself. */
  async #answers(permission) {
    const {fetch} = this.#WebSocket === globalThis.WebSocket ? globalThis : this.#WebSocket;
    if (!fetch || permission === undefined || permission?.state === 'prompt') return false;
    const options = {mode: 'no-cors', cache: 'no-store', signal: AbortSignal.timeout(PROBE_MS)};
    return fetch(this.#url.origin.replace('ws', 'http'), options).then(() => true, () => false);
  }

  /** Ends every call and tries again later, unless an attempt would ask the user once more:
      browsers deny for good after a few dismissed questions. */
  #failed(reason, part, details) {
    this.#endAll(reason, part, details);
    const error = this.#fault(reason, part, details);
    if (!this.#reconnect || error.kind === 'permission' || details.permission === 'prompt') {
      this.#setState('idle', error);
      return;
    }
    // Only an administrator can change a refusal.
    const delay = reason === 'refused' ? LONGEST_RETRY_MS : this.#retryDelay;
    this.#retryDelay = Math.min(2 * delay, LONGEST_RETRY_MS);
    this.#retryTimer = setTimeout(() => this.#open(), delay);
    this.#setState('waiting', error, Date.now() + delay);
  }

  #endAll(reason, part, details) {
    const error = (sent) => this.#fault(reason, part, {...details, sent});
    this.#inHand?.reject(error(true));
    this.#inHand = null;
    const waiting = [...this.#connects.splice(0), ...this.#queue.splice(0)];
    for (const {reject} of waiting) reject(error(false));
  }

  #stopWaiting() {
    clearTimeout(this.#retryTimer);
    if (this.#permission) this.#permission.onchange = null;
    this.#permission = null;
  }

  /** Leaves the connection: nothing that still arrives on it counts. */
  #drop() {
    this.#stopWaiting();
    const socket = this.#socket;
    this.#socket = null;
    this.#inHand = null;
    socket?.close();
  }
}

// Client of the Quorvel card-reading service for web pages and Node.
//
//   const q = new Quorvel();
//   const reply = await q.call('readcardbas', {data: {itype: 3, bae140: '3'}});
//
// The service answers the requests of a connection strictly in order and names no request in its
// reply, so a reply is known by its place alone. This client therefore has one request in hand and
// keeps the others in a queue of its own. A call that ends early (time-out, abort) while it still
// waits there never reaches a card; one that was sent keeps its place until its late reply has
// come and been dropped, so that the next call is not handed that reply.

const DEFAULT_PORT = 47392;
const SUBPROTOCOL = 'ws';
const DEFAULT_TIMEOUT_MS = 30_000;
const LONGEST_TIMER_MS = 2 ** 31 - 1;
// Every client has a service of its own, on the same machine: no crowd to spread, hence no jitter.
const FIRST_RETRY_MS = 500;
const LONGEST_RETRY_MS = 10_000;
// What browsers call the permission to reach this machine, newest name first.
const PERMISSION_NAMES = ['loopback-network', 'local-network-access'];

/** Why a connection or a call failed; `kind` is what a program branches on (see quorvel.d.ts). */
export class QuorvelError extends Error {
  constructor(kind, message, details = {}) {
    super(message);
    Object.assign(this, {name: 'QuorvelError', kind, sent: false}, details);
  }
}

function isLoopback(host) {
  return host === '[::1]' || host.startsWith('127.') ||
    host === 'localhost' || host.endsWith('.localhost');
}

/** The service that delivered this file when one did, else the usual port of this machine. */
function defaultUrl(tls) {
  const page = globalThis.location;
  const served = page && import.meta.url === `${page.origin}/quorvel.js` &&
    (isLoopback(page.hostname) || Number(page.port) === DEFAULT_PORT);
  if (served) return `${page.protocol === 'https:' ? 'wss' : 'ws'}://${page.host}`;
  return `${tls ? 'wss' : 'ws'}://127.0.0.1:${DEFAULT_PORT}`;
}

/** The browser's PermissionStatus for this machine, or null where nothing has to be granted. */
async function loopbackPermission(url) {
  const page = globalThis.location;
  const permissions = globalThis.navigator?.permissions;
  if (!page || !permissions || isLoopback(page.hostname) || !isLoopback(url.hostname)) return null;
  for (const name of PERMISSION_NAMES) {
    try {
      return await permissions.query({name});
    } catch {
      // This browser does not know the name.
    }
  }
  return null;
}

function parseReply(fid, text) {
  let reply;
  try {
    reply = JSON.parse(text);
  } catch (cause) {
    throw new QuorvelError('badreply', `The reply to ${fid} is not JSON: ${text}`,
                           {text, cause, sent: true});
  }
  if (reply?.result !== 'true') {
    const message = reply?.errmsg ?? `The reply to ${fid} has no "result":"true": ${text}`;
    throw new QuorvelError('failure', message, {reply, sent: true});
  }
  return reply;
}

export class Quorvel extends EventTarget {
  #url;
  #WebSocket;
  #timeout;
  #reconnect;

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

  constructor({url, tls = false, timeout = DEFAULT_TIMEOUT_MS, reconnect = true,
               WebSocket = globalThis.WebSocket} = {}) {
    super();
    if (!WebSocket) {
      throw new TypeError('No WebSocket here; pass one, as in new Quorvel({WebSocket})');
    }
    this.#url = new URL(url ?? defaultUrl(tls));
    this.#WebSocket = WebSocket;
    this.#timeout = timeout;
    this.#reconnect = reconnect;
  }

  get url() { return this.#url.href; }
  get state() { return this.#state; }
  get error() { return this.#error; }
  get retryAt() { return this.#retryAt; }

  async connect() {
    if (this.#state === 'open') return;
    this.#refuseWhenClosed();
    await new Promise((resolve, reject) => {
      this.#connects.push({resolve, reject});
      this.#open();
    });
  }

  async call(fid, members = {}, options = {}) {
    const text = JSON.stringify(Object.assign({fid}, members, {fid}));
    return parseReply(fid, await this.request(text, options));
  }

  async request(text, {signal, timeout = this.#timeout} = {}) {
    this.#refuseWhenClosed();
    const aborted = (sent) =>
      new QuorvelError('aborted', 'The call was aborted', {sent, cause: signal.reason});
    if (signal?.aborted) throw aborted(false);

    const call = {text, ended: false};
    const reply = new Promise((resolve, reject) => Object.assign(call, {resolve, reject}));
    const onAbort = () => this.#giveUp(call, aborted(call === this.#inHand));
    const onTimeout = () => this.#giveUp(call, this.#timeoutError(call, timeout));
    const timer = timeout > 0 && setTimeout(onTimeout, Math.min(timeout, LONGEST_TIMER_MS));
    signal?.addEventListener('abort', onAbort);
    this.#queue.push(call);
    this.#open();
    this.#sendNext();
    try {
      return await reply;
    } finally {
      clearTimeout(timer);
      signal?.removeEventListener('abort', onAbort);
    }
  }

  close() {
    if (this.#state === 'closed') return;
    this.#endAll('closed', 'The client was closed');
    this.#drop();
    this.#setState('closed', null);
  }

  #refuseWhenClosed() {
    if (this.#state === 'closed') throw new QuorvelError('closed', 'The client was closed');
  }

  #setState(state, error, retryAt = null) {
    this.#state = state;
    this.#error = error;
    this.#retryAt = retryAt;
    this.dispatchEvent(new Event('statechange'));
  }

  #open() {
    if (this.#socket || this.#state === 'closed') return;
    this.#stopWaiting();
    let socket;
    try {
      socket = new this.#WebSocket(this.#url.href, SUBPROTOCOL);
    } catch (cause) {
      // So do browsers refuse a plain ws: address from an https page.
      this.#failed('permission', `The browser refuses ${this.url}: ${cause.message}`, {cause});
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
  }

  #replied(text) {
    const call = this.#inHand;
    this.#inHand = null;
    if (!call?.ended) call?.resolve(text);
    this.#sendNext();
  }

  #giveUp(call, error) {
    const place = this.#queue.indexOf(call);
    if (place >= 0) this.#queue.splice(place, 1);
    call.ended = true;
    call.reject(error);
    // Waiting out its whole time behind a call that had ended means that the earlier reply may
    // never come. A new connection starts with a clean order.
    if (place >= 0 && error.kind === 'timeout' && this.#inHand?.ended) {
      this.#drop();
      this.#open();
    }
  }

  #timeoutError(call, timeout) {
    const sent = call === this.#inHand;
    let what = 'no connection';
    if (sent) what = 'no reply';
    else if (this.#inHand) what = 'not sent, an earlier request is still being answered';
    return new QuorvelError('timeout', `Time-out after ${timeout} ms: ${what}`, {sent});
  }

  async #lost(cause) {
    const socket = this.#socket;
    if (this.#state === 'open') {
      this.#socket = null;
      this.#failed('closed', `The connection to ${this.url} was lost`, {cause});
      return;
    }
    const permission = await loopbackPermission(this.#url);
    if (socket !== this.#socket) return;
    this.#socket = null;
    this.#permission = permission;
    if (permission) permission.onchange = () => this.#open();
    const details = {cause, permission: permission?.state};
    if (permission?.state === 'denied') {
      const why = globalThis.isSecureContext ? '' : ': it was not loaded over https';
      this.#failed('permission', `The browser does not let this page reach this machine${why}`, details);
    } else {
      this.#failed('unavailable', `No card-reading service answers at ${this.url}`, details);
    }
  }

  /** Ends every call and tries again later, unless an attempt would ask the user once more:
      browsers deny for good after a few dismissed questions. */
  #failed(kind, message, details) {
    this.#endAll(kind, message, details);
    const error = new QuorvelError(kind, message, details);
    if (!this.#reconnect || kind === 'permission' || details.permission === 'prompt') {
      this.#setState('idle', error);
      return;
    }
    const delay = this.#retryDelay;
    this.#retryDelay = Math.min(2 * delay, LONGEST_RETRY_MS);
    this.#retryTimer = setTimeout(() => this.#open(), delay);
    this.#setState('waiting', error, Date.now() + delay);
  }

  #endAll(kind, message, details) {
    const error = (sent) => new QuorvelError(kind, message, {...details, sent});
    this.#inHand?.reject(error(true));
    this.#inHand = null;
    for (const waiting of [this.#connects, this.#queue]) {
      for (const {reject} of waiting.splice(0)) reject(error(false));
    }
  }

  #stopWaiting() {
    clearTimeout(this.#retryTimer);
    if (this.#permission) this.#permission.onchange = null;
    this.#permission = null;
  }

  /** Leaves the connection: nothing that still arrives on it counts. */
  #drop() {
    this.#stopWaiting();
    this.#socket?.close();
    this.#socket = null;
    this.#inHand = null;
  }
}

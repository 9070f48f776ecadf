/** A reply as the service sent it. `result` is a string, never a boolean. */
export interface QuorvelReply {
  result: string;
  /** The reason, in Chinese, when `result` is "false". */
  errmsg?: string;
  /** The function's name; absent from the replies to "getconfig" and "config". */
  fid?: string;
  [member: string]: unknown;
}

export type QuorvelErrorKind =
  /** Nothing answers at the address: the service is not running, or not there. */
  | 'unavailable'
  /** The browser keeps this page from reaching this machine. */
  | 'permission'
  /** The reply says "result":"false"; see `reply`. */
  | 'failure'
  /** The reply is not JSON; see `text`. */
  | 'badreply'
  /** The call's time ran out. */
  | 'timeout'
  /** The call's AbortSignal fired; see `cause`. */
  | 'aborted'
  /** The connection was lost during the call, or close() was called. */
  | 'closed';

export class QuorvelError extends Error {
  readonly name: 'QuorvelError';
  readonly kind: QuorvelErrorKind;
  /** Whether the request had been sent. When it had and no reply came, it may have been carried out. */
  readonly sent: boolean;
  /** kind "failure": the whole reply. */
  readonly reply?: QuorvelReply;
  /** kind "badreply": the reply's text. */
  readonly text?: string;
  /** kinds "unavailable" and "permission": what the browser says of its permission, where it asks for one. */
  readonly permission?: 'granted' | 'denied' | 'prompt';
  readonly cause?: unknown;
}

export interface QuorvelOptions {
  /**
   * ws: or wss: address of the service. Default: the page's own host when the service delivered
   * quorvel.js to it, else ws://127.0.0.1:47392.
   */
  url?: string | URL;
  /** Use wss: in the default address. Default: false. */
  tls?: boolean;
  /** Milliseconds for each call, from call() to its reply, connecting and queueing included.
      0 means no limit. Default: 30,000. */
  timeout?: number;
  /** Connect again by itself after a failure, after 0.5 s and then at growing intervals of up to
      10 s. Not done while it would make the browser ask the user. Default: true. */
  reconnect?: boolean;
  /** The WebSocket class, for a Node without one of its own, such as that of the package "ws". */
  WebSocket?: new (url: string, protocol: string) => unknown;
}

export interface CallOptions {
  signal?: AbortSignal;
  /** Milliseconds, in place of the client's own. */
  timeout?: number;
}

/**
 * One connection to the service. It is opened by the first call and kept. Calls are sent one at a
 * time in the order in which they were made. Dispatches "statechange" whenever `state`, `error` or
 * `retryAt` has changed.
 */
export class Quorvel extends EventTarget {
  constructor(options?: QuorvelOptions);

  readonly url: string;
  /** "waiting": disconnected, with the next attempt at `retryAt`. "closed" is final. */
  readonly state: 'idle' | 'connecting' | 'open' | 'waiting' | 'closed';
  /** Why the last attempt or connection failed; null once connected. */
  readonly error: QuorvelError | null;
  /** Time of the next attempt as Date.now() counts, or null. */
  readonly retryAt: number | null;

  /** Resolves when connected, rejects with a QuorvelError when this attempt fails. */
  connect(): Promise<void>;

  /**
   * Calls a function of the service or of its reader libraries.
   * @param fid the function's name
   * @param members further members of the request, such as {data: {...}}
   * @returns the reply, whose `result` is "true"; everything else rejects with a QuorvelError.
   */
  call(fid: string, members?: object, options?: CallOptions): Promise<QuorvelReply>;

  /** Sends a text as it is and returns the reply's text as it is, whatever it says. */
  request(text: string, options?: CallOptions): Promise<string>;

  /** Ends the connection for good; calls under way reject with kind "closed". */
  close(): void;
}

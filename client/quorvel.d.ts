/** A reply as the service sent it. */
export interface QuorvelReply {
  /** "true" after success, "false" after failure: a text, never a boolean. */
  result: string;
  /** The reason, in Chinese, when `result` is "false". */
  errmsg?: string;
  /** The function's name; absent from the replies of the service's own functions. */
  fid?: string;
  [member: string]: unknown;
}

/** Which card the demo library shall read, in place of the one on its reader. */
interface Person {
  person?: string;
}

interface Reading extends Person {
  /** 1 contact, 2 contactless, 3 either. */
  itype?: 1 | 2 | 3;
  /** The kind of card that is wanted. */
  bae140?: string;
}

/** Who may use the service. */
export interface QuorvelAccess {
  /** From which machines. */
  listen: 'all' | 'loopback';
  /** Whose pages, such as "https://portal.example.org"; without it those of every site. */
  sites?: string[];
  /** There was no room in the reply for all sites. */
  truncated?: 'true';
}

/** A reader library that the service is set up with. Texts, as all that replies hold. */
export interface QuorvelLibrary {
  /** Its place in the service's set-up: "lib1" to "lib20". */
  key: string;
  /** Name of its file. */
  file: string;
  /** "restarting": requests wait until it has been started anew. "failed": they are refused. */
  state: 'ready' | 'working' | 'restarting' | 'failed';
  /** Why it has failed, in Chinese or in the words of the system. */
  reason?: string;
  /** Whether it runs in a process of its own. */
  isolated: 'true' | 'false';
  /** Seconds that a call may take, if it does. */
  limit?: string;
  /** How often it was started anew. */
  restarts: string;
  /** Requests that wait while it works. */
  waiting: string;
  /** The functions that it serves. */
  functions?: string[];
  /** There was no room in the reply for `reason`, or for `functions`. */
  truncated?: 'true';
}

/**
 * What is known of each function: the members of its request beside "fid", and the members of a
 * successful reply beside "result" and "fid". Add those of another reader library so:
 *
 *   declare module 'quorvel' {
 *     interface QuorvelFunctions {
 *       'acme.serial': {request: {}; reply: {serial: string}};
 *     }
 *   }
 */
export interface QuorvelFunctions {
  /** The stored address of the back-end server; "" for what is not stored. */
  getconfig: {request: {}; reply: {ip: string; port: string}};
  /** Stores the address of the back-end server if it accepts connections there. */
  config: {request: {ip: string; port: number}; reply: {}};
  /** The service itself. "ready": it lists libraries, and each of them serves. */
  'quorvel.status': {
    request: {};
    reply: {
      version: string;
      uptime: string;
      ready: 'true' | 'false';
      access: QuorvelAccess;
      libraries: QuorvelLibrary[];
    };
  };
  readcardbas: {
    request: {data?: Reading};
    reply: {
      data: {
        name: string;
        sex: string;
        nation: string;
        birth: string;
        idnumber: string;
        address: string;
        cardnumber: string;
        issuer: string;
        expires: string;
      };
    };
  };
  cardpresent: {request: {data?: Person}; reply: {data: {present: 'true' | 'false'}}};
  /** The reference of the photo, "" when there is none. */
  readphotoref: {request: {data?: Person}; reply: {data: {photo: string}}};
  /** Refused by the demo library, so there is no successful reply. */
  writecardbas: {request: {data?: Reading & {name?: string; address?: string}}; reply: never};
}

interface ErrorBase<Kind extends string> extends Error {
  readonly name: 'QuorvelError';
  readonly kind: Kind;
  /** Whether the request had been sent. When it had and no reply came, it may have been carried out. */
  readonly sent: boolean;
  readonly cause?: unknown;
}

/** Nothing answers at the address: the service is not running, or not there. */
interface UnavailableError extends ErrorBase<'unavailable'> {
  /** What the browser says of its permission, where it asks for one. */
  readonly permission?: PermissionState;
}

/**
 * The service is there and does not admit the page's site, which an administrator enters with
 * quorvel-policy. Told where it can be found out without a question to the user; else the kind is
 * "unavailable".
 */
interface RefusedError extends ErrorBase<'refused'> {
  readonly permission?: PermissionState;
}

/** The browser, or the Content-Security-Policy of the page, keeps it from reaching this machine. */
interface PermissionError extends ErrorBase<'permission'> {
  readonly permission?: PermissionState;
}

/** The reply says that the function failed; `message` is its "errmsg". */
interface FailureError extends ErrorBase<'failure'> {
  readonly reply: QuorvelReply;
}

/** The reply is JSON without a text "result". */
interface ProtocolError extends ErrorBase<'protocol'> {
  readonly reply: unknown;
}

/** The reply is not JSON. */
interface BadReplyError extends ErrorBase<'badreply'> {
  readonly text: string;
}

/** The time ran out. */
interface TimeoutError extends ErrorBase<'timeout'> {}

/** The AbortSignal fired; `cause` is its reason. */
interface AbortedError extends ErrorBase<'aborted'> {}

/** The connection was lost, or close() was called. */
interface ClosedError extends ErrorBase<'closed'> {}

type PermissionState = 'granted' | 'denied' | 'prompt';

/** Why a connection or a call failed. A comparison of `kind` tells which members there are. */
export type QuorvelError = UnavailableError | RefusedError | PermissionError | FailureError | ProtocolError |
  BadReplyError | TimeoutError | AbortedError | ClosedError;
export type QuorvelErrorKind = QuorvelError['kind'];
export const QuorvelError: {
  readonly prototype: QuorvelError;
  new (kind: QuorvelErrorKind, message: string, details?: object): QuorvelError;
};

export interface QuorvelOptions {
  /**
   * ws: or wss: address of the service; the constructor throws a TypeError for any other. Default:
   * the page's own host when the service delivered quorvel.js to it, else ws://127.0.0.1:47392.
   */
  url?: string | URL;
  /** Use wss: in the default address. Default: as the page that the service delivered, else false. */
  tls?: boolean;
  /** Milliseconds for each call, from call() to its reply, connecting and queueing included, and for
      each connect(). 0 means no limit. Default: 30,000. */
  timeout?: number;
  /** Connect again by itself after a failure, after 0.5 s and then at growing intervals of up to
      10 s, of 10 s at once when the service refuses the site. Not done while it would make the browser ask the user. Default: true. */
  reconnect?: boolean;
  /** Language of the errors' messages, Chinese for "zh" and "zh-...", English for any other.
      Default: that of the document when the error occurs. */
  lang?: string;
  /** The WebSocket class, for a Node without one of its own, such as that of the package "ws", or
      for tests, that of quorvel/mock. */
  WebSocket?: new (url: string, protocol: string) => unknown;
}

/** How far a call has come. */
export interface QuorvelProgress {
  /** Whether the request has left. */
  sent: boolean;
  /** Requests before this one, the one that is being answered included. */
  ahead: number;
  /** Whole seconds since the call was made. */
  seconds: number;
}

export interface ConnectOptions {
  signal?: AbortSignal;
  /** Milliseconds, in place of the client's own. */
  timeout?: number;
}

export interface CallOptions extends ConnectOptions {
  /** Called when the call is queued, moves up and is sent, and then every second until it ends. */
  onProgress?: (progress: QuorvelProgress) => void;
}

export interface WaitOptions<Members = object> extends CallOptions {
  /** Further members of the requests. */
  members?: Members;
  /** Milliseconds from a reply to the next request. Default: 1,000. */
  interval?: number;
}

export interface QuorvelEventMap {
  /** `state`, `error` or `retryAt` has changed. */
  statechange: Event;
}

type Known = keyof QuorvelFunctions;
/** A name without an entry in QuorvelFunctions. */
type Other<Name extends string> = Name extends Known ? never : Name;
type Request<Name extends Known> = QuorvelFunctions[Name]['request'];
type ReplyTo<Name extends Known> = QuorvelReply & QuorvelFunctions[Name]['reply'];
type Arguments<Members> = {} extends Members
  ? [members?: Members, options?: CallOptions]
  : [members: Members, options?: CallOptions];

/**
 * One connection to the service. It is opened by the first call and kept. Calls are sent one at a
 * time in the order in which they were made.
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
  connect(options?: ConnectOptions): Promise<void>;

  /**
   * Calls a function of the service or of its reader libraries.
   * @param fid the function's name
   * @param members further members of the request, such as {data: {...}}
   * @returns the reply, whose `result` is "true"; everything else rejects with a QuorvelError.
   */
  call<Name extends Known>(fid: Name, ...rest: Arguments<Request<Name>>): Promise<ReplyTo<Name>>;
  call<Reply extends object = {}, Name extends string = string>(
    fid: Other<Name>, members?: object, options?: CallOptions): Promise<QuorvelReply & Reply>;

  /** Asks what the service can do at present. The same as call('quorvel.status'). */
  status(options?: CallOptions): Promise<ReplyTo<'quorvel.status'>>;

  /** Sends a text as it is and returns the reply's text as it is, whatever it says. */
  request(text: string, options?: CallOptions): Promise<string>;

  /**
   * Calls a function again and again until `wanted` likes its reply, which it returns; rejects as
   * soon as a call does. Rests while the page is hidden. Without `wanted` it waits for a card,
   * that is for a reply whose data.present is "true".
   */
  waitFor<Name extends Known>(fid: Name, wanted?: (reply: ReplyTo<Name>) => boolean,
                              options?: WaitOptions<Request<Name>>): Promise<ReplyTo<Name>>;
  waitFor<Reply extends object = {}, Name extends string = string>(
    fid: Other<Name>, wanted?: (reply: QuorvelReply & Reply) => boolean,
    options?: WaitOptions): Promise<QuorvelReply & Reply>;

  /** Ends the connection for good; calls under way reject with kind "closed". */
  close(): void;

  addEventListener<Type extends keyof QuorvelEventMap>(
    type: Type, listener: ((this: Quorvel, event: QuorvelEventMap[Type]) => void) | EventListenerObject | null,
    options?: boolean | AddEventListenerOptions): void;
  removeEventListener<Type extends keyof QuorvelEventMap>(
    type: Type, listener: ((this: Quorvel, event: QuorvelEventMap[Type]) => void) | EventListenerObject | null,
    options?: boolean | EventListenerOptions): void;
}

import type {QuorvelLibrary} from './quorvel.js';

/** The members of a reply ("result" "true" and "fid" are added when they lack them), or a text that
    is sent as it is. */
export type MockReply = object | string;

/** A reply, or what makes it from a request. While a promise is pending, the reader is at work. */
export type MockFunction = MockReply | ((request: Record<string, any>) => MockReply | Promise<MockReply>);

/**
 * The service for unit tests, without a network: one service on one machine.
 *
 *   const service = new QuorvelMock({functions: {cardpresent: {data: {present: 'true'}}}});
 *   const q = new Quorvel({WebSocket: service.WebSocket});
 *
 * It answers as the service does: one request at a time over all connections, in order, with the
 * service's own failures in its words, its own functions and the short form included.
 */
export class QuorvelMock {
  constructor(options?: {
    /** By name, in lower case. */
    functions?: Record<string, MockFunction>;
    /** What "getconfig" tells and "config" changes. */
    settings?: {ip: string; port: string};
    /** Whether something accepts connections there, which "config" asks. Default: always. */
    reachable?: (ip: string, port: number) => boolean;
    /** What "quorvel.status" tells of them. Default: one, ready, with the scripted functions. */
    libraries?: QuorvelLibrary[];
  });

  /** For the client's option of that name. */
  readonly WebSocket: new (url: string, protocol?: string) => EventTarget & {
    readonly url: string;
    readonly protocol: string;
    readonly readyState: number;
    send(text: string): void;
    close(): void;
  };
  /** The scripted functions; may be changed at any time. */
  functions: Record<string, MockFunction>;
  settings: {ip: string; port: string};
  reachable: (ip: string, port: number) => boolean;
  libraries?: QuorvelLibrary[];
  /** False: new connections are refused, as by a machine on which no service runs. */
  running: boolean;
  /** False: the page's site is refused. */
  admitting: boolean;
  /** False: nothing is answered, as by a service that hangs, until it is true again. */
  answering: boolean;
  /** The texts of the requests that have reached the service, in order. */
  readonly requests: string[];

  /** Breaks every connection, as a service does that ends. */
  drop(): void;
}

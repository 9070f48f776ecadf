// What a web developer writes in strict TypeScript, and under each @ts-expect-error what must not compile.
import {Quorvel, QuorvelError, type QuorvelReply} from 'quorvel';
import {QuorvelMock} from 'quorvel/mock';

declare module 'quorvel' {
  interface QuorvelFunctions {
    'acme.serial': {request: {data: {slot: number}}; reply: {serial: string}};
  }
}

export async function allowed(signal: AbortSignal): Promise<string[]> {
  const url = new URL('wss://localhost:47392');
  const q = new Quorvel({url, lang: 'zh', timeout: 0, WebSocket: new QuorvelMock().WebSocket});
  q.addEventListener('statechange', () => q.error?.kind);
  await q.connect({signal, timeout: 1000});
  await q.waitFor('cardpresent', ({data}) => data.present === 'true', {signal, interval: 500});
  const card = await q.call('readcardbas', {data: {itype: 3}}, {signal, onProgress: ({ahead}) => ahead + 1});
  const serial = await q.call('acme.serial', {data: {slot: 1}});
  const other = await q.call<{level: number}>('other.battery', {data: 1});
  const plain: QuorvelReply = await q.call('other.unknown');
  await q.call('getconfig', {}, {timeout: 5});
  const {libraries: [library]} = await q.status({signal});
  library?.functions?.includes('x');
  other.level.toFixed();
  return [card.data.name, serial.serial, plain.result];
}

export function explained(error: unknown): string {
  if (!(error instanceof QuorvelError)) return 'not of the client';
  switch (error.kind) {
    case 'failure': return `${error.reply.errcode}: ${error.reply.errmsg}`;
    case 'badreply': return error.text.slice(0, 9);
    case 'permission': case 'refused': case 'unavailable': return error.permission ?? '';
    case 'protocol': return typeof error.reply;
    case 'timeout': case 'aborted': case 'closed': return String(error.sent);
    default: return error satisfies never;
  }
}

export async function refused(q: Quorvel, error: QuorvelError): Promise<void> {
  // @ts-expect-error: no such option
  new Quorvel({adress: 'ws://127.0.0.1'});
  // @ts-expect-error: no such event
  q.addEventListener('stateChange', () => {});
  // @ts-expect-error: the port is a number
  await q.call('config', {ip: '127.0.0.1', port: '80'});
  // @ts-expect-error: the address is needed
  await q.call('config');
  // @ts-expect-error: added above with another request
  await q.call('acme.serial', {data: {slot: 'a'}});
  // @ts-expect-error: no such member of the reply
  (await q.call('readcardbas')).data.nme;
  // @ts-expect-error: texts only
  await q.request({fid: 'cardpresent'});
  // @ts-expect-error: not before the kind is known
  error.reply;
  // @ts-expect-error: no such kind
  error.kind === 'offline';
  // @ts-expect-error: read only
  q.state = 'open';
}

// docs/asyncapi.yaml: it is AsyncAPI, it describes the traffic of the installed service, and the
// client's types say the same.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import {after, before, describe, it} from 'node:test';
import specs from '@asyncapi/specs';
import Ajv from 'ajv';
import {WebSocket} from 'ws';
import {parse} from 'yaml';
import {Quorvel} from '../../client/quorvel.js';
import {freePort, Service} from './service.js';
import {compile} from './typescript.js';

const document = parse(fs.readFileSync(new URL('../../docs/asyncapi.yaml', import.meta.url), 'utf8'));
const at = (ref) => ref.slice(2).split('/').reduce((node, key) => node[key], document);
const resolve = (node) => (node.$ref ? resolve(at(node.$ref)) : node);
const nameOf = ({$ref}) => $ref.split('/').at(-1);

const ajv = new Ajv({allErrors: true, strictTypes: false, strictRequired: false});
ajv.addKeyword('components');
ajv.addSchema({$id: 'doc', components: document.components});
const validators = Object.fromEntries(Object.keys(document.components.messages).map((name) =>
  [name, ajv.compile({$ref: `doc#/components/messages/${name}/payload`})]));
/** The names of those messages that describe `payload`. */
const fitting = (references, payload) => references.map(nameOf).filter((name) => validators[name](payload));

it('is a valid AsyncAPI document whose operations use every message', () => {
  const meta = new Ajv({strict: false, validateFormats: false});
  const valid = meta.validate(specs.schemasWithoutId['3.0.0'], document);
  assert.ok(valid, meta.errorsText());
  const used = Object.values(document.operations).flatMap(({messages, reply}) => [...messages, ...reply.messages]);
  for (const reference of used) resolve(reference);
  assert.deepEqual(new Set(used.map(nameOf)), new Set(Object.keys(document.components.messages)));
});

describe('real traffic', () => {
  let service, client, server;
  before(async () => {
    service = await Service.started();
    client = new Quorvel({url: service.url, WebSocket});
    server = net.createServer().listen(0, '127.0.0.1');
    await once(server, 'listening');
  });
  after(async () => {
    client.close();
    server.close();
    await service.remove();
  });

  it('is described in both directions, and what the requests\' schemas refuse the service refuses', async () => {
    const open = {ip: '127.0.0.1', port: server.address().port};
    // Operation, request, the message that describes it if any, the message that describes the reply.
    for (const [operation, request, requestName, replyName] of [
      ['getconfig', {}, 'getconfigRequest', 'getconfigReply'],
      ['config', open, 'configRequest', 'configReply'],
      ['config', {...open, port: await freePort()}, 'configRequest', 'serviceFailure'],
      ['config', {...open, port: String(open.port)}, undefined, 'serviceFailure'],
      ['config', {port: open.port}, undefined, 'serviceFailure'],
      ['config', {...open, ip: 'localhost'}, undefined, 'serviceFailure'],
      ['readcardbas', 'readcardbas', 'shortRequest', 'readcardbasReply'],
      ['readcardbas', {}, 'readcardbasRequest', 'readcardbasReply'],
      ['readcardbas', {data: {itype: 1, bae140: '3', person: 'lisi'}}, 'readcardbasRequest', 'readcardbasReply'],
      ['readcardbas', {data: {person: 'lost'}, platform: 'mine'}, 'readcardbasRequest', 'libraryFailure'],
      ['readcardbas', {data: {itype: 4}}, undefined, 'libraryFailure'],
      ['readcardbas', {data: {bae140: 3}}, undefined, 'libraryFailure'],
      ['quorvel.status', {}, 'quorvel.statusRequest', 'quorvel.statusReply'],
      ['cardpresent', {}, 'cardpresentRequest', 'cardpresentReply'],
      ['cardpresent', {data: {person: 'nocard'}}, 'cardpresentRequest', 'cardpresentReply'],
      ['cardpresent', {data: {itype: 3}}, undefined, 'libraryFailure'],
      ['readphotoref', {data: {person: 'wangxiaoming'}}, 'readphotorefRequest', 'readphotorefReply'],
      ['writecardbas', {data: {name: '张三', address: 'x'}}, 'writecardbasRequest', 'libraryFailure'],
      ['other', {fid: 'nosuch'}, 'otherRequest', 'unsupported'],
      ['other', {fid: 'x'.repeat(100)}, undefined, 'serviceFailure'],
      ['other', {fid: 7}, undefined, 'serviceFailure'],
      ['other', 'hello', undefined, 'serviceFailure'],
    ]) {
      const payload = typeof request === 'string' ? request : {fid: operation, ...request};
      const text = typeof payload === 'string' ? payload : JSON.stringify(payload);
      const {messages, reply: {messages: replies}} = document.operations[operation];
      assert.deepEqual(fitting(messages, payload), requestName ? [requestName] : [], text);
      const reply = JSON.parse(await client.request(text));
      assert.ok(fitting(replies, reply).includes(replyName), `${text}: ${JSON.stringify(reply)}`);
      if (replyName === 'unsupported') continue;
      // Nothing in the reply is left to chance: a member less, or one more, is another reply.
      for (const holder of [reply, ...(reply.data ? [reply.data] : [])]) {
        for (const [name, value] of Object.entries(holder)) {
          delete holder[name];
          assert.ok(!validators[replyName](reply), `${text}: without ${name}`);
          holder[name] = value;
        }
        holder.surplus = 1;
        assert.ok(!validators[replyName](reply), `${text}: with a surplus member`);
        delete holder.surplus;
      }
    }
  });
});

/** A JSON schema as a TypeScript type. */
function typeOf(schema, left = []) {
  const {type, properties, required = [], enum: values, const: value, items} = resolve(schema);
  if (values) return values.map((one) => JSON.stringify(one)).join(' | ');
  if (value !== undefined) return JSON.stringify(value);
  if (type === 'array') return `(${typeOf(items)})[]`;
  if (type !== 'object') return type === 'integer' ? 'number' : type;
  const members = Object.entries(properties).filter(([name]) => !left.includes(name));
  return `{${members.map(([name, inner]) => `${name}${required.includes(name) ? '' : '?'}: ${typeOf(inner)}`).join('; ')}}`;
}

it('says the same as the client\'s map from functions to requests and replies', () => {
  const {other, ...operations} = document.operations;
  const functions = Object.entries(operations).map(([name, {reply}]) => {
    const request = typeOf(document.components.messages[`${name}Request`].payload, ['fid', 'platform']);
    const success = reply.messages.map(nameOf).find((message) => message === `${name}Reply`);
    const answer = success ? typeOf(document.components.messages[success].payload, ['fid', 'result']) : 'never';
    return `'${name}': {request: ${request}; reply: ${answer}}`;
  });
  assert.ok(other && functions.length >= 6);
  assert.deepEqual(compile(`
    import type {QuorvelFunctions} from 'quorvel';
    type Flat<T> = T extends object ? {[K in keyof T]: Flat<T[K]>} : T;
    type Same<A, B> = (<T>() => T extends A ? 1 : 2) extends (<T>() => T extends B ? 1 : 2) ? true : false;
    interface Described {${functions.join(';\n')}}
    export const same: Same<Flat<QuorvelFunctions>, Flat<Described>> = true;
  `), []);
});

// docs/protocol.md and docs/asyncapi.yaml against the installed service, and the client's types against
// the latter. Every example of protocol.md ("> " a request, "< " its reply) is sent, in order; its port
// stands for the service's own, and port 80 for one where nothing listens.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import fs from 'node:fs';
import {after, before, describe, it} from 'node:test';
import specs from '@asyncapi/specs';
import Ajv from 'ajv';
import {WebSocket} from 'ws';
import {parse} from 'yaml';
import {Project} from '../client/project.js';
import {freePort, Service} from '../client/service.js';

// Requests beside the examples, and whether they are described as ones that may succeed.
const MORE = [
  ['{"fid":"readcardbas","data":{"itype":1,"bae140":"3","person":"lisi"}}', true],
  ['{"fid":"readcardbas","data":{"person":"lost"},"platform":"mine"}', true],
  ['{"fid":"readcardbas","data":{"itype":4}}', false],
  ['{"fid":"readcardbas","data":{"bae140":3}}', false],
  ['{"fid":"cardpresent","data":{"person":"nocard"}}', true],
  ['{"fid":"cardpresent","data":{"itype":3}}', false],
  ['{"fid":"config","ip":"127.0.0.1","port":"47392"}', false],
  ['{"fid":"config","ip":"localhost","port":47392}', false],
  ['{"fid":"config","port":47392}', false],
  [`{"fid":"${'x'.repeat(100)}"}`, false],
  ['{"fid":7}', false],
  ['hello', false],
];
// A reply that this set-up gives to no request.
const NOT_MET = ['notAllowed'];

const read = (file) => fs.readFileSync(new URL(`../../docs/${file}`, import.meta.url), 'utf8');
const lines = read('protocol.md').split('\n');
const requests = lines.flatMap((line, i) => (line.startsWith('> ') ? [i] : []));
const document = parse(read('asyncapi.yaml'));
const at = (ref) => ref.slice(2).split('/').reduce((node, key) => node[key], document);
const resolve = (node) => (node.$ref ? resolve(at(node.$ref)) : node);
const nameOf = ({$ref}) => $ref.split('/').at(-1);

const ajv = new Ajv({allErrors: true, strictTypes: false, strictRequired: false});
ajv.addKeyword('components');
ajv.addSchema({$id: 'doc', components: document.components});
const messages = Object.keys(document.components.messages);
const validators = Object.fromEntries(messages.map((name) =>
  [name, ajv.compile({$ref: `doc#/components/messages/${name}/payload`})]));
/** The names of those messages that describe `payload`. */
const fitting = (references, payload) => references.map(nameOf).filter((name) => validators[name](payload));

it('is a valid AsyncAPI document whose operations use every message', () => {
  const meta = new Ajv({strict: false, validateFormats: false});
  const valid = meta.validate(specs.schemasWithoutId['3.0.0'], document);
  assert.ok(valid, meta.errorsText());
  const used = Object.values(document.operations).flatMap(({messages, reply}) => [...messages, ...reply.messages]);
  for (const reference of used) resolve(reference);
  assert.deepEqual(new Set(used.map(nameOf)), new Set(messages));
});

it('leaves no member of the service\'s and the demo library\'s replies to chance', () => {
  for (const name of messages.filter((message) => !/Request$|^otherReply$/.test(message))) {
    const {payload} = document.components.messages[name];
    for (const {additionalProperties, required, properties} of [payload, payload.properties.data ?? payload]) {
      assert.deepEqual([additionalProperties, required], [false, Object.keys(properties)], name);
    }
  }
});

/** The text with "...  (102,400 bytes)" at its end filled up to that length. */
function written(text) {
  const [, start, size] = /^(.*)\.\.\. +\(([\d,]+) bytes\)$/.exec(text) ?? [];
  return start ? start.padEnd(Number(size.replaceAll(',', '')) - 2, 'x') + '"}' : text;
}

describe('the service', () => {
  const met = new Set();
  let service, socket, closed;
  before(async () => {
    service = await Service.started();
    closed = await freePort();
    socket = new WebSocket(service.url, 'ws');
    await once(socket, 'open');
  });
  after(() => {
    socket.terminate();
    return service.remove();
  });

  async function ask(text) {
    socket.send(text);
    const [data] = await once(socket, 'message');
    return data.toString();
  }

  /** asyncapi.yaml describes the reply and, unless it is the service's refusal, the request. */
  function isDescribed(text, reply) {
    const request = text.startsWith('{') ? JSON.parse(text) : text;
    const operation = document.operations[request.fid ?? text] ?? document.operations.other;
    const asked = fitting(operation.messages, request);
    const answered = fitting(operation.reply.messages, reply);
    assert.ok(answered.length > 0, JSON.stringify(reply));
    assert.ok(asked.length === 1 || answered.every((name) => name.endsWith('Failure')), `${asked}: ${answered}`);
    for (const name of [...asked, ...answered]) met.add(name);
    return asked.length === 1;
  }

  it('has examples, each with its reply', () => {
    assert.ok(requests.length > 0);
    assert.deepEqual(requests.map((i) => lines[i + 1].slice(0, 2)), requests.map(() => '< '));
    assert.equal(lines.filter((line) => line.startsWith('< ')).length, requests.length);
  });

  for (const i of requests) {
    it(`line ${i + 1}: ${lines[i]}`, async () => {
      const here = (text) => text.slice(2).replace('"port":47392', `"port":${service.port}`)
        .replace('"uptime":"86400"', '"uptime":"0"').replace('"port":80', `"port":${closed}`).replace('127.0.0.1:80  ', `127.0.0.1:${closed}`);
      const text = here(lines[i]);
      const reply = (await ask(written(text))).replace(/"uptime":"\d+"/, '"uptime":"0"');
      const [expected, rest] = here(lines[i + 1]).split(' ...');
      assert.equal(rest === undefined ? reply : reply.slice(0, expected.length), expected);
      if (text === written(text)) isDescribed(text, JSON.parse(reply));
    });
  }

  for (const [text, described] of MORE) {
    it(`${described ? 'is' : 'is not'} described for ${text}`, async () => {
      assert.equal(isDescribed(text, JSON.parse(await ask(text))), described);
    });
  }

  it('has met every message that is described', () => {
    assert.deepEqual(messages.filter((name) => !met.has(name)), NOT_MET);
  });

  it('has the status of a file that is not there, and of one of an unknown kind', async () => {
    fs.writeFileSync(service.file('mount-origin/card.unknown'), '');
    for (const [file, status] of [['missing.html', 404], ['card.unknown', 415]]) {
      assert.ok(lines.some((line) => line.startsWith(`| status ${status} |`)));
      assert.equal((await fetch(service.page + file)).status, status);
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
  const project = new Project();
  assert.equal(project.compile(`
    import type {QuorvelFunctions} from 'quorvel';
    type Flat<T> = T extends object ? {[K in keyof T]: Flat<T[K]>} : T;
    type Same<A, B> = (<T>() => T extends A ? 1 : 2) extends (<T>() => T extends B ? 1 : 2) ? true : false;
    interface Described {${functions.join(';\n')}}
    export const same: Same<Flat<QuorvelFunctions>, Flat<Described>> = true;`), '');
  project.remove();
});

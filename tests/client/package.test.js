// What a web developer gets from an installation: the package, its types, its examples, its size.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import {after, before, it} from 'node:test';
import {gzipSync} from 'node:zlib';
import {transformSync} from 'esbuild';
import {bundleExample, EXAMPLES} from './examples.js';
import {compile, typesSource} from './typescript.js';

const LARGEST = 3.25 * 1024;  // minified and compressed
const installed = path.join(process.env.QUORVEL_STAGE, 'client');

let project;
before(() => {
  project = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'quorvel-npm-')));
  const tarball = fs.readdirSync(installed).find((name) => name.endsWith('.tgz'));
  const options = ['--offline', '--no-audit', '--no-fund', '--prefix', project];
  execFileSync('npm', ['install', ...options, path.join(installed, tarball)]);
});
after(() => fs.rmSync(project, {recursive: true}));

it('is the same as a package, as files and at the source, and complete', () => {
  const source = new URL('../../client/', import.meta.url);
  for (const name of ['quorvel.js', 'quorvel.d.ts', 'mock.js', 'mock.d.ts', 'README.md', 'examples/page.js']) {
    const [wanted, ...got] = [new URL(name, source), `${installed}/${name}`, `${project}/node_modules/quorvel/${name}`]
      .map((file) => fs.readFileSync(file, 'utf8'));
    assert.deepEqual(got, [wanted, wanted], name);
  }
  const {license} = JSON.parse(fs.readFileSync(`${project}/node_modules/quorvel/package.json`));
  assert.equal(license, 'MIT');
});

it('has types that let pass what is right and nothing else, in strict TypeScript', () => {
  assert.deepEqual(compile(typesSource, project), []);
});

it('can be imported in Node under both its names', () => {
  fs.writeFileSync(`${project}/use.mjs`, `
    import {Quorvel} from 'quorvel';
    import {QuorvelMock} from 'quorvel/mock';
    const service = new QuorvelMock({functions: {cardpresent: {data: {present: 'true'}}}});
    const q = new Quorvel({WebSocket: service.WebSocket});
    const reply = await q.waitFor('cardpresent');
    q.close();
    console.log(reply.data.present, service.requests[0]);`);
  assert.equal(execFileSync('node', [`${project}/use.mjs`], {encoding: 'utf8'}), 'true {"fid":"cardpresent"}\n');
});

it('builds its examples', async () => {
  for (const example of EXAMPLES) assert.match(await bundleExample(example, project), /正在读卡|\\u6B63\\u5728/);
});

it('stays small', () => {
  const {code} = transformSync(fs.readFileSync(path.join(installed, 'quorvel.js'), 'utf8'), {minify: true, format: 'esm'});
  const bytes = gzipSync(code, {level: 9}).length;
  assert.ok(bytes < LARGEST, `${bytes} bytes`);
});

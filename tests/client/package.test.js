// What a web developer gets from an installation: the package, its types, its size.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import fs from 'node:fs';
import {after, before, it} from 'node:test';
import {gzipSync} from 'node:zlib';
import {transformSync} from 'esbuild';
import {Project} from './project.js';

const LARGEST = 3.25 * 1024;  // minified and compressed
const text = (file) => fs.readFileSync(file, 'utf8');

let project;
before(() => { project = new Project(); });
after(() => project.remove());

it('is the same as a package, as files and at the source, and complete', () => {
  for (const name of ['quorvel.js', 'quorvel.d.ts', 'mock.js', 'mock.d.ts', 'README.md', 'examples/page.js']) {
    const source = text(new URL(`../../client/${name}`, import.meta.url));
    assert.deepEqual([text(`${Project.installed}/${name}`), text(project.path(name))], [source, source], name);
  }
  assert.equal(JSON.parse(text(project.path('package.json'))).license, 'MIT');
});

it('has types that let pass what is right and nothing else', () => {
  assert.equal(project.compile(text(new URL('types.ts', import.meta.url))), '');
});

it('can be imported in Node under both its names', () => {
  const script = `
    import {Quorvel} from 'quorvel';
    import {QuorvelMock} from 'quorvel/mock';
    const q = new Quorvel({WebSocket: new QuorvelMock().WebSocket});
    console.log((await q.call('getconfig')).result);`;
  const said = execFileSync('node', ['--input-type=module', '--eval', script], {cwd: project.folder, encoding: 'utf8'});
  assert.equal(said, 'true\n');
});

it('stays small', () => {
  const {code} = transformSync(text(project.path('quorvel.js')), {minify: true, format: 'esm'});
  const bytes = gzipSync(code, {level: 9}).length;
  assert.ok(bytes < LARGEST, `${bytes} bytes`);
});

// A web developer's project, in which the client's package is installed from QUORVEL_STAGE.

import {execFileSync, spawnSync} from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import {fileURLToPath} from 'node:url';

const TSC = fileURLToPath(new URL('../../node_modules/typescript/bin/tsc', import.meta.url));

export class Project {
  static installed = path.join(process.env.QUORVEL_STAGE, 'client');
  folder = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'quorvel-npm-')));

  constructor() {
    const tarball = fs.readdirSync(Project.installed).find((name) => name.endsWith('.tgz'));
    execFileSync('npm', ['install', '--offline', '--no-audit', '--no-fund', path.join(Project.installed, tarball)],
                 {cwd: this.folder});
  }

  /** Of a file of the package. */
  path(file) { return path.join(this.folder, 'node_modules/quorvel', file); }

  /** What the compiler, strict, has to say of `source`: '' when it is right. */
  compile(source) {
    fs.writeFileSync(`${this.folder}/main.ts`, source);
    const options = ['--noEmit', '--strict', '--target', 'es2022', '--lib', 'es2022,dom',
                     '--module', 'esnext', '--moduleResolution', 'bundler'];
    return spawnSync('node', [TSC, ...options, 'main.ts'], {cwd: this.folder, encoding: 'utf8'}).stdout;
  }

  remove() { fs.rmSync(this.folder, {recursive: true}); }
}

// The compiler, strict, as a web developer has it whose project has installed the client's package.

import fs from 'node:fs';
import path from 'node:path';
import {fileURLToPath} from 'node:url';
import ts from 'typescript';

const CLIENT = fileURLToPath(new URL('../../client', import.meta.url));

/**
 * Compiles `source` without output and returns the complaints. `packages` is the folder that holds
 * the package "quorvel"; without it the sources count.
 */
export function compile(source, packages) {
  const file = path.join(packages ?? CLIENT, 'compiled-by-test.ts');
  const options = {
    strict: true, noEmit: true, module: ts.ModuleKind.ESNext, moduleResolution: ts.ModuleResolutionKind.Bundler,
    target: ts.ScriptTarget.ES2022, lib: ['lib.es2022.d.ts', 'lib.dom.d.ts'], types: [],
    ...(!packages && {paths: {quorvel: [`${CLIENT}/quorvel.d.ts`], 'quorvel/mock': [`${CLIENT}/mock.d.ts`]}}),
  };
  const host = ts.createCompilerHost(options);
  const {readFile, fileExists} = host;
  host.readFile = (name) => (name === file ? source : readFile(name));
  host.fileExists = (name) => name === file || fileExists(name);
  const program = ts.createProgram([file], options, {
    ...host,
    getSourceFile: (name, ...rest) =>
      (name === file ? ts.createSourceFile(name, source, rest[0]) : host.getSourceFile(name, ...rest)),
  });
  return ts.getPreEmitDiagnostics(program).map(({file: where, start, messageText}) =>
    `${where ? `${path.basename(where.fileName)}:${where.getLineAndCharacterOfPosition(start).line + 1}: ` : ''}` +
    ts.flattenDiagnosticMessageText(messageText, '\n'));
}

export const typesSource = fs.readFileSync(new URL('types.ts', import.meta.url), 'utf8');

// The examples of the client's package, bundled as an application would do it.

import fs from 'node:fs';
import {createRequire} from 'node:module';
import path from 'node:path';
import {fileURLToPath} from 'node:url';
import {build} from 'esbuild';

const ROOT = fileURLToPath(new URL('../..', import.meta.url));
const {compileScript, parse} = createRequire(import.meta.url)('vue/compiler-sfc');

/** File of the example, and what an application writes to show it in #app. */
export const EXAMPLES = [
  {file: 'page.js', main: 'import "EXAMPLE";'},
  {file: 'react.jsx', main: `
    import {createElement} from 'react';
    import {createRoot} from 'react-dom/client';
    import {CardReader} from 'EXAMPLE';
    createRoot(document.getElementById('app')).render(createElement(CardReader));`},
  {file: 'CardReader.vue', main: `
    import {createApp} from 'vue';
    import CardReader from 'EXAMPLE';
    createApp(CardReader).mount('#app');`},
];

const singleFileComponents = {
  name: 'vue',
  setup: ({onLoad}) => onLoad({filter: /\.vue$/}, ({path: file}) => ({
    contents: compileScript(parse(fs.readFileSync(file, 'utf8')).descriptor, {id: 'example', inlineTemplate: true}).content,
    loader: 'js',
  })),
};

/** The example as one script; `project` is a folder in which the package "quorvel" is installed. */
export async function bundleExample({file, main}, project) {
  const folder = path.join(project, 'node_modules/quorvel/examples');
  const {outputFiles} = await build({
    stdin: {contents: main.replace('EXAMPLE', `./${file}`), resolveDir: folder},
    bundle: true, write: false, minify: true, format: 'esm', jsx: 'automatic', logLevel: 'silent',
    nodePaths: [path.join(ROOT, 'node_modules')], plugins: [singleFileComponents],
    define: {'process.env.NODE_ENV': '"production"', __VUE_OPTIONS_API__: 'false', __VUE_PROD_DEVTOOLS__: 'false',
             __VUE_PROD_HYDRATION_MISMATCH_DETAILS__: 'false'},
  });
  return outputFiles[0].text;
}

// Both languages of every document and manual page say the same: the same headings, commands, tables,
// links, names and numbers in each chapter. Their sentences are free.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import {describe, it} from 'node:test';

const ROOT = new URL('../../', import.meta.url);
const read = (file) => fs.readFileSync(new URL(file, ROOT), 'utf8');
const all = (text, pattern) => [...text.matchAll(pattern)].map((match) => match[1]);
const set = (names) => [...new Set(names)].sort();

const NUMBER = /(?<![\w.])(\d[\d.,]*\d)/g;

/** A block of code without what is translated in it: comments, remarks on exchanged bytes, drawings. */
function commands(block) {
  return /[│─]/.test(block) ? block.split('\n').length
    : block.replace(/^( *[><] .*?) {4,}\S.*$/gm, '$1').replace(/(^|\s+)(#|\/\/) .*$/gm, '$1').replace(/ +$/gm, '');
}

/** What both languages of a document must share, chapter by chapter. */
function chapters(text) {
  const code = /^```\w*\n([^]*?)^```|(?<=\n\n)((?:(?: {4}.*| *)\n)* {4}.*\n)/gm;
  return text.split(/^(?=#+ )/m).map((chapter) => {
    const blocks = [...chapter.matchAll(code)].map((match) => commands((match[1] ?? match[2]).trim()));
    const prose = chapter.replace(code, '');
    return {
      heading: /^#* /.exec(chapter)?.[0],
      blocks,
      tables: all(prose, /^(\|.*\|)$/gm).map((row) => row.split(/(?<!\\)\|/).length),
      items: all(prose, /^ *(-|\d\.) /gm),
      links: set(all(prose, /\]\(([^)#]*)/g)),
      names: set(all(prose.replace(/\n */g, ' '), /`([^`]+)`/g)),
      numbers: set(all(prose, NUMBER)),
    };
  });
}

/** What both languages of a manual page must share, section by section. */
function sections(text) {
  return text.split(/^\.SH .*\n/m).slice(1).map((section) => {
    const words = section.replace(/^\.[A-Za-z]+|\\f[BIR]|\\c$/gm, ' ');
    return {
      tags: all(section, /^\.TP\n(.*)$/gm),
      commands: all(section, /^\.nf\n([^]*?)^\.fi$/gm),
      options: set(all(words, /(?<!\w)(\\-[a-z\\-]*)/g)),
      names: set(all(words, /(\w*[/_.@:][\w\\./*:-]*\w)/g)),
      numbers: set(all(words, NUMBER)),
    };
  });
}

function compare(shared, english, chinese) {
  const [here, there] = [english, chinese].map((file) => shared(read(file).replace(/\.zh\\?-CN(?=\.md)/g, '')));
  assert.ok(here.length > 1);
  assert.deepEqual(there, here);
}

describe('both languages', () => {
  const named = (folder, pattern) => fs.readdirSync(new URL(folder, ROOT)).filter((name) => pattern.test(name));
  for (const english of ['README.md', ...named('docs/', /^[a-z-]+\.md$/).map((name) => `docs/${name}`)]) {
    if (!read(english).includes('.zh-CN.md)')) continue;  // in English only
    it(english, () => {
      const chinese = english.replace('.md', '.zh-CN.md');
      compare(chapters, english, chinese);
      const titles = all(read(chinese), /^#+ (.*)$/gm);
      assert.deepEqual(all(read(chinese), /\]\(#([^)]*)\)/g).filter((anchor) => !titles.includes(anchor)), []);
      // A line break between two Chinese characters would show as a blank.
      assert.doesNotMatch(read(chinese), /^(?!\||#|>|- ).*\p{Script=Han}\n *\p{Script=Han}/mu);
    });
  }
  for (const folder of ['packaging/man/', ...named('tools/', /^[a-z]+$/).map((name) => `tools/${name}/`)]) {
    for (const page of named(folder, /\.[1-8]$/)) {
      it(folder + page, () => {
        compare(sections, folder + page, `${folder}zh_CN/${page}`);
        const installed = (language) => `${process.env.QUORVEL_STAGE}/share/man/${language}man${page.at(-1)}/${page}`;
        assert.deepEqual([installed(''), installed('zh_CN/')].filter((file) => !fs.existsSync(file)), []);
      });
    }
  }
});

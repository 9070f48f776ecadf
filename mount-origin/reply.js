// The reply to one request: what came of it, its members, its raw text. While a request is under way
// nothing of an earlier reply is shown: it may be about another person.

import {shortMs} from './exchange.js';
import {explain} from './reasons.js';
import {hasText, inItsLanguage, rendered, text, timeOfDay} from './texts.js';

const byId = (id) => document.getElementById(id);
const COPIED_MS = 1500;

let shown = null;
let pending = false;

function element(tag, className, content) {
  const made = document.createElement(tag);
  made.className = className;
  return inItsLanguage(made, content);
}

/** The outcome as one box: a badge, after a failure what it means, and a remark of the caller's. */
export function outcomeBox(done, remark = '') {
  const box = element('div', `outcome ${done.ok ? 'good' : 'bad'}`, '');
  const badge = done.ok ? 'success' : done.replyText === undefined ? 'noReply' : 'failure';
  box.append(element('strong', '', text(badge)));
  if (!done.ok) {
    const {what, original} = explain(done);
    box.append(element('span', '', what));
    if (original) box.append(element('span', 'original', text('original', {text: original})));
  }
  if (remark) box.append(element('span', '', remark));
  return box;
}

/** Every value of a reply with the path that leads to it; what the outcome box says is left out. */
function* membersOf(value, path = []) {
  if (typeof value === 'object' && value !== null) {
    for (const [key, inner] of Object.entries(value)) {
      if (path.length === 0 && (key === 'result' || key === 'errmsg' || key === 'fid')) continue;
      yield* membersOf(inner, [...path, key]);
    }
  } else if (value !== undefined) {
    yield {path: path.join('.'), key: path.at(-1) ?? '', value: String(value)};
  }
}

function memberRows(reply) {
  const rows = [];
  for (const {path, key, value} of membersOf(reply)) {
    const name = document.createElement('dt');
    const label = `member_${key}`;
    if (hasText(label)) name.append(text(label), ' ');
    name.append(element('code', '', path));
    rows.push(name, element('dd', '', value));
  }
  return rows;
}

function render() {
  const {name, time, ms, request = '', reply, replyText} = shown ?? {};
  byId('reply').setAttribute('aria-busy', pending);
  byId('reply-pending').hidden = !pending;
  byId('reply-empty').hidden = pending || shown !== null;
  byId('raw').hidden = shown === null;
  byId('reply-meta').textContent = shown
    ? text('replyMeta', {name: name ?? text('plainText'), time: timeOfDay(time), ms: shortMs(ms)}) : '';
  byId('outcome').replaceChildren(...(shown ? [outcomeBox(shown)] : []));
  byId('members').replaceChildren(...memberRows(reply));
  inItsLanguage(byId('raw-request'), request);
  inItsLanguage(byId('raw-reply'), replyText ?? text('noReply'));
  byId('copy').hidden = replyText === undefined || !navigator.clipboard;
}

export function showReply(done) {
  shown = done;
  render();
}

export function prepareReply(task) {
  const copy = byId('copy');
  task.addEventListener('change', () => {
    if (pending === (task.phase !== null)) return;
    pending = !pending;
    if (pending) shown = null;
    // What lies below stays where it is.
    byId('reply').style.minHeight = pending ? `${byId('reply').offsetHeight}px` : '';
    render();
  });
  copy.addEventListener('click', async () => {
    await navigator.clipboard.writeText(shown.replyText);
    copy.textContent = text('copied');
    setTimeout(() => { copy.textContent = text('copy'); }, COPIED_MS);
  });
  rendered(render);
}

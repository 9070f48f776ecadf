// The reader libraries: how each does, and what can be called. Asked on a connection of its own, so
// that neither waits for the other where a library works outside the service.

import {inItsLanguage, rendered, text} from './texts.js';

const CALM_MS = 30_000;  // each question is a line in the service's log
const EAGER_MS = 2000;
const UNITS = [['day', 86_400], ['hour', 3600], ['minute', 60]];
const byId = (id) => document.getElementById(id);

function element(tag, className, ...content) {
  const made = document.createElement(tag);
  made.className = className;
  made.append(...content);
  return made;
}

/** Seconds in the largest unit that they fill, at least a minute. */
function duration(seconds) {
  const [unit, size] = UNITS.find(([, length]) => seconds >= length) ?? UNITS.at(-1);
  const format = new Intl.NumberFormat(document.documentElement.lang, {style: 'unit', unit, unitDisplay: 'long'});
  return format.format(Math.max(1, Math.floor(seconds / size)));
}

function factsOf({key, state, isolated, limit, restarts, waiting, truncated}) {
  const facts = [key];
  if (isolated === 'true') facts.push(text('libraryIsolated', {limit}));
  else if (state !== 'failed') facts.push(text('libraryLocal'));
  if (restarts !== '0') facts.push(text('libraryRestarts', {count: restarts}));
  if (waiting !== '0') facts.push(text('libraryWaiting', {count: waiting}));
  if (truncated) facts.push(text('libraryTruncated'));
  return facts.join(' · ');
}

function functionButton(name, onPick) {
  const button = element('button', '', name);
  button.type = 'button';
  button.dataset.function = name;
  button.addEventListener('click', () => onPick(name));
  return button;
}

function item(library, onPick) {
  const {file, state, reason, functions = []} = library;
  const lamp = element('span', 'lamp');
  lamp.setAttribute('aria-hidden', 'true');
  const made = element('li', 'library',
                       element('p', 'library-head', lamp, element('strong', '', file),
                               element('span', 'library-state', text(`library_${state}`))),
                       element('p', 'quiet', factsOf(library)));
  made.dataset.state = state;
  if (reason) made.append(inItsLanguage(element('p', 'library-reason'), reason));
  if (functions.length > 0) made.append(element('div', 'examples', ...functions.map((name) => functionButton(name, onPick))));
  return made;
}

/**
 * Shows what `watcher`, a client used for nothing else, is told while `client` is connected.
 * `onPick` gets the name of a function that the user wants to call, `onStatus` each reply, or null
 * once nothing is known.
 */
export function prepareLibraries(client, watcher, task, onPick, onStatus) {
  let status = null;  // the reply, or null while unknown
  let asking = false;
  let askedAt = 0;

  function renderMeta() {
    byId('libraries-meta').textContent = status
      ? text('librariesMeta', {version: status.version, uptime: duration(Number(status.uptime))}) : '';
  }

  function render() {
    const libraries = status?.libraries ?? [];
    const focused = document.activeElement?.dataset.function;
    byId('libraries').replaceChildren(...libraries.map((library) => item(library, onPick)));
    if (focused) byId('libraries').querySelector(`[data-function="${CSS.escape(focused)}"]`)?.focus();
    byId('libraries-empty').hidden = libraries.length > 0;
    byId('libraries-empty').textContent = text(status ? 'librariesNone' : 'librariesUnknown');
    byId('libraries-hint').hidden = !libraries.some(({functions = []}) => functions.length > 0);
    renderMeta();
  }

  function show(reply) {
    const changed = JSON.stringify(reply?.libraries) !== JSON.stringify(status?.libraries);
    status = reply;
    onStatus(status);
    if (changed) render();
    else renderMeta();
  }

  async function ask() {
    if (asking || client.state !== 'open') return;
    asking = true;
    askedAt = Date.now();
    show(await watcher.status().catch(() => null));
    asking = false;
  }

  client.addEventListener('statechange', () => {
    if (client.state === 'open') ask();
    else show(null);
  });
  task.addEventListener('change', () => { if (!task.phase) ask(); });
  document.addEventListener('visibilitychange', () => { if (!document.hidden) ask(); });
  setInterval(() => {
    if (document.hidden) return;
    const eager = task.phase !== null || status?.libraries.some(({state}) => state === 'restarting');
    if (eager || Date.now() - askedAt >= CALM_MS) ask();
  }, EAGER_MS);
  rendered(render);
}

// What was asked on this page, newest first. Cards hold personal data, so nothing is stored.

import {shortMs} from './exchange.js';
import {explain} from './reasons.js';
import {inItsLanguage, rendered, text, timeOfDay} from './texts.js';

const LONGEST = 50;
const entries = [];

function cell(content, className = '') {
  const made = document.createElement('td');
  made.className = className;
  made.append(content);
  return made;
}

function outcomeCell(done) {
  const words = inItsLanguage(document.createElement('div'), done.ok ? text('success') : explain(done).what);
  return cell(words, done.ok ? 'good' : 'bad');
}

function row(done, locked, onPick) {
  const name = done.name ?? text('plainText');
  const pick = document.createElement('button');
  pick.type = 'button';
  pick.className = 'link';
  pick.textContent = name;
  pick.setAttribute('aria-label', text('historyShow', {name, time: timeOfDay(done.time)}));
  pick.setAttribute('aria-disabled', locked);
  pick.addEventListener('click', () => { if (!locked) onPick(done); });
  const made = document.createElement('tr');
  made.append(
    cell(timeOfDay(done.time)), cell(pick),
    outcomeCell(done),
    cell(text('milliseconds', {ms: shortMs(done.ms)}), 'number'));
  return made;
}

/**
 * `onPick` gets the exchange that the user wants to see again, which has to wait while `task` is
 * under way. Returns the function that adds one.
 */
export function prepareHistory(task, onPick) {
  const clear = document.getElementById('clear');
  let locked = false;
  function render() {
    document.getElementById('history').replaceChildren(...entries.map((done) => row(done, locked, onPick)));
    document.getElementById('history-scroll').hidden = entries.length === 0;
    document.getElementById('history-empty').hidden = entries.length > 0;
    clear.hidden = entries.length === 0;
  }
  clear.addEventListener('click', () => {
    entries.length = 0;
    render();
    document.getElementById('history-title').focus();
  });
  task.addEventListener('change', () => {
    if (locked === (task.phase !== null)) return;
    locked = !locked;
    render();
  });
  rendered(render);
  return (done) => {
    entries.unshift(done);
    entries.splice(LONGEST);
    render();
  };
}

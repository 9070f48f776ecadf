// What was asked on this page, newest first. Cards hold personal data, so nothing is stored.

import {shortMs} from './exchange.js';
import {explain} from './reasons.js';
import {rendered, text, timeOfDay} from './texts.js';

const LONGEST = 50;
const entries = [];

function cell(content, className = '') {
  const made = document.createElement('td');
  made.className = className;
  made.append(content);
  return made;
}

function outcomeCell(done) {
  const words = document.createElement('div');
  words.textContent = done.ok ? text('success') : explain(done).what;
  return cell(words, done.ok ? 'good' : 'bad');
}

function row(done, onPick) {
  const name = done.name ?? text('plainText');
  const pick = document.createElement('button');
  pick.type = 'button';
  pick.className = 'link';
  pick.textContent = name;
  pick.setAttribute('aria-label', text('historyShow', {name, time: timeOfDay(done.time)}));
  pick.addEventListener('click', () => onPick(done));
  const made = document.createElement('tr');
  made.append(
    cell(timeOfDay(done.time)), cell(pick),
    outcomeCell(done),
    cell(text('milliseconds', {ms: shortMs(done.ms)}), 'number'));
  return made;
}

/** `onPick` gets the exchange that the user wants to see again. Returns the function that adds one. */
export function prepareHistory(onPick) {
  const clear = document.getElementById('clear');
  function render() {
    document.getElementById('history').replaceChildren(...entries.map((done) => row(done, onPick)));
    document.getElementById('history-scroll').hidden = entries.length === 0;
    document.getElementById('history-empty').hidden = entries.length > 0;
    clear.hidden = entries.length === 0;
  }
  clear.addEventListener('click', () => { entries.length = 0; render(); });
  rendered(render);
  return (done) => {
    entries.unshift(done);
    entries.splice(LONGEST);
    render();
  };
}

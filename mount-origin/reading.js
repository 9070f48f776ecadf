// The clerk's buttons: read the card, wait for one, cancel.

import {cardPlaced, exchange} from './exchange.js';
import {rendered} from './texts.js';

export const BASIC = {fid: 'readcardbas', data: {itype: 3, bae140: '3'}};

/** `onDone` gets every finished exchange. */
export function prepareReading(client, task, onDone) {
  const read = document.getElementById('read-card');
  const wait = document.getElementById('wait-card');
  const cancel = document.getElementById('cancel-read');

  const readNow = (signal) => exchange(client, JSON.stringify(BASIC), {signal, onProgress: task.follow});

  async function readPlaced(signal) {
    const placed = await cardPlaced(client, {signal, onProgress: task.follow});
    if (!placed.ok) return placed;
    task.enter('read');
    return readNow(signal);
  }

  function render() {
    const busy = task.phase !== null;
    if (!busy && document.activeElement === cancel) read.focus();
    // Not the attribute "disabled": it would throw the keyboard's focus off the button.
    read.setAttribute('aria-disabled', busy);
    // Only now hidden, so that whoever waited with this button goes on from the one that cancels.
    cancel.hidden = !busy;
    if (busy && document.activeElement === wait) cancel.focus();
    wait.hidden = busy;
  }

  read.addEventListener('click', () => task.run('read', readNow, onDone));
  wait.addEventListener('click', () => task.run('wait', readPlaced, onDone));
  cancel.addEventListener('click', () => task.cancel());
  document.addEventListener('keydown', (event) => {
    if (event.key === 'Escape' && !event.isComposing) task.cancel();
  });
  task.addEventListener('change', render);
  rendered(render);
}

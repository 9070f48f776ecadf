// The form for a request of one's own, with examples.

import {exchange, functionName} from './exchange.js';
import {BASIC} from './reading.js';
import {rendered, text} from './texts.js';

const EXAMPLES = [
  ['exampleBasic', JSON.stringify(BASIC, null, 2)],
  ['exampleCanned', 'readcardbas'],
  ['examplePresent', JSON.stringify({fid: 'cardpresent'}, null, 2)],
  ['examplePhoto', JSON.stringify({fid: 'readphotoref', data: {}}, null, 2)],
  ['exampleWrite', JSON.stringify({fid: 'writecardbas', data: {address: '示例路 2 号'}}, null, 2)],
  ['exampleSettings', JSON.stringify({fid: 'getconfig'}, null, 2)],
  ['exampleUnknown', JSON.stringify({fid: 'nosuchfunction'}, null, 2)],
];

/** `onDone` gets every finished exchange. Returns what puts a request for a function into the form. */
export function prepareRequest(client, task, onDone) {
  const form = document.getElementById('request-form');
  const input = document.getElementById('request-text');
  const note = document.getElementById('request-note');
  const send = document.getElementById('send');
  const cancel = document.getElementById('cancel');

  function renderNote(refusal) {
    note.textContent = refusal ?? describe(input.value);
    note.classList.toggle('field-error', refusal !== undefined);
  }

  function renderBusy() {
    const busy = task.phase !== null;
    if (!busy && document.activeElement === cancel) send.focus();
    send.textContent = text(busy ? 'sending' : 'send');
    send.setAttribute('aria-disabled', busy);
    cancel.hidden = !busy;
  }

  function submit() {
    if (input.value.trim() === '') {
      renderNote(text('noteEmpty'));
      input.focus();
      return;
    }
    const request = input.value;
    const phase = functionName(request) === BASIC.fid ? 'read' : 'ask';
    task.run(phase, (signal) => exchange(client, request, {signal, onProgress: task.follow}), onDone);
  }

  function fill(request) {
    input.value = request;
    renderNote();
  }

  function renderExamples() {
    const buttons = EXAMPLES.map(([key, request]) => {
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = text(key);
      button.addEventListener('click', () => fill(request));
      return button;
    });
    document.getElementById('examples').replaceChildren(...buttons);
  }

  form.addEventListener('submit', (event) => { event.preventDefault(); submit(); });
  input.addEventListener('input', () => renderNote());
  input.addEventListener('keydown', (event) => {
    if (event.key === 'Enter' && (event.ctrlKey || event.metaKey)) submit();
  });
  cancel.addEventListener('click', () => task.cancel());
  task.addEventListener('change', renderBusy);
  input.value = EXAMPLES[0][1];
  rendered(() => { renderExamples(); renderNote(); renderBusy(); });
  return (name) => {
    const [, example] = EXAMPLES.find(([, request]) => request[0] === '{' && functionName(request) === name) ?? [];
    fill(example ?? JSON.stringify({fid: name}, null, 2));
    input.focus();
  };
}

function describe(request) {
  if (request.trim() === '') return '';
  const name = functionName(request);
  if (request.startsWith('readcardbas')) return text('noteCanned');
  if (name) return text('noteJson', {name});
  try {
    JSON.parse(request);
    return text('noName');
  } catch (error) {
    return text('noteNotJson', {reason: error.message});
  }
}

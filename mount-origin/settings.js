// The address of the back-end server: shown, checked, changed.

import {exchange} from './exchange.js';
import {outcomeBox} from './reply.js';
import {rendered, text} from './texts.js';

const HIGHEST_PORT = 65535;
const DIGITS = /^\d+$/;
const IPV4 = /^((25[0-5]|2[0-4]\d|1\d\d|[1-9]?\d)(\.(?!$)|$)){4}$/;

/** `onDone` gets the exchanges that the user starts. */
export function prepareSettings(client, onDone) {
  const stored = document.getElementById('stored');
  const ip = document.getElementById('ip');
  const port = document.getElementById('port');
  const save = document.getElementById('save');
  const outcome = document.getElementById('settings-outcome');
  let address = null;  // as the service has it, {ip, port}, or null while unknown
  let result = null;   // the exchange whose outcome is shown
  let refused = [];    // the fields with errors
  let busy = false;

  function render() {
    stored.textContent = address ? `${address.ip}:${address.port}` : text('settingsUnknown');
    for (const [field, key] of [[ip, 'ipError'], [port, 'portError']]) {
      const wrong = refused.includes(field);
      field.setAttribute('aria-invalid', wrong);
      document.getElementById(`${field.id}-error`).textContent = wrong ? text(key) : '';
    }
    save.setAttribute('aria-disabled', busy);
    outcome.replaceChildren();
    if (result) outcome.append(outcomeBox(result, remark(result)));
  }

  function remark({ok, name, reply}) {
    if (ok) return text('saved', address);
    return name === 'config' && reply ? text('notSaved') : '';
  }

  async function load() {
    const done = await exchange(client, JSON.stringify({fid: 'getconfig'}));
    if (done.ok) {
      // What the user is typing stays.
      if (ip.value === (address?.ip ?? '') && port.value === (address?.port ?? '')) {
        ip.value = done.reply.ip;
        port.value = done.reply.port;
      }
      address = done.reply;
    }
    return done;
  }

  async function reload() {
    ip.value = address?.ip ?? '';
    port.value = address?.port ?? '';
    const done = await load();
    refused = [];
    result = done.ok ? null : done;
    render();
    onDone(done);
  }

  async function submit() {
    if (busy) return;
    const digits = port.value.trim();
    const wanted = {fid: 'config', ip: ip.value.trim(), port: Number(digits)};
    const portFits = DIGITS.test(digits) && wanted.port >= 1 && wanted.port <= HIGHEST_PORT;
    refused = [...(IPV4.test(wanted.ip) ? [] : [ip]), ...(portFits ? [] : [port])];
    result = null;
    busy = refused.length === 0;
    render();
    if (!busy) {
      refused[0].focus();
      return;
    }
    result = await exchange(client, JSON.stringify(wanted));
    if (result.ok) {
      address = {ip: wanted.ip, port: String(wanted.port)};
      [ip.value, port.value] = [address.ip, address.port];
    }
    busy = false;
    render();
    onDone(result);
  }

  document.getElementById('settings-form').addEventListener('submit', (event) => {
    event.preventDefault();
    submit();
  });
  document.getElementById('reload').addEventListener('click', reload);
  client.addEventListener('statechange', async () => {
    if (client.state !== 'open') return;
    const done = await load();
    if (done.reply && !done.ok) result = done;
    render();
  });
  rendered(render);
}

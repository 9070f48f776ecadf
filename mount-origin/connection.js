// The state of the connection, and help when there is none.

import {rendered, text, timeOfDay} from './texts.js';

const SECOND_MS = 1000;
const HEADLINES = {open: 'stateOpen', connecting: 'stateConnecting', waiting: 'stateDown'};

export function showConnection(client) {
  const card = document.getElementById('connection');
  const headline = document.getElementById('state');
  const detail = document.getElementById('state-detail');
  const retry = document.getElementById('retry');
  const help = document.getElementById('help');
  let since = new Date();

  document.getElementById('help-tls').hidden = !client.url.startsWith('wss:');

  function renderDetail() {
    const values = {url: client.url.replace(/\/$/, ''), time: timeOfDay(since)};
    let key = 'detailOther';
    if (client.state === 'open') key = 'detailOpen';
    if (client.state === 'waiting') {
      key = 'detailWaiting';
      values.seconds = Math.max(0, Math.ceil((client.retryAt - Date.now()) / SECOND_MS));
    }
    detail.textContent = text(key, values);
  }

  function render() {
    // Attempts that follow a failure flash by; the page goes on saying that there is no service.
    const down = client.state !== 'open' && client.error !== null;
    const wording = down ? 'stateDown' : HEADLINES[client.state] ?? 'stateIdle';
    card.dataset.state = down ? 'down' : client.state;
    // A live region is read out whenever it is written.
    if (headline.textContent !== text(wording)) headline.textContent = text(wording);
    help.hidden = !down;
    retry.hidden = !down;
    renderDetail();
  }

  client.addEventListener('statechange', () => {
    if (client.state === 'open') since = new Date();
    render();
  });
  retry.addEventListener('click', () => client.connect().catch(() => {}));
  setInterval(() => { if (client.state === 'waiting') renderDetail(); }, SECOND_MS / 2);
  rendered(render);
}

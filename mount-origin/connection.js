// The state of the connection and of what is under way, and help when the service does not answer.

import {rendered, text, timeOfDay} from './texts.js';

const SECOND_MS = 1000;
const LONG_S = 5;  // a reply that takes longer deserves a word
const byId = (id) => document.getElementById(id);
const HEADLINES = {
  open: 'stateOpen', connecting: 'stateConnecting', down: 'stateDown', idle: 'stateIdle', silent: 'stateSilent',
  refused: 'stateRefused', wait: 'stateWait', read: 'stateRead', ask: 'stateAsk', late: 'stateLate',
};

const HELP = {down: 'helpDown', refused: 'helpRefused', silent: 'helpSilent', late: 'helpSilent'};

/** What the card shows: a key of HEADLINES. */
function situation(client, task, liveness) {
  if (client.state !== 'open' && client.error) return client.error.kind === 'refused' ? 'refused' : 'down';
  if (task.phase) return task.progress?.seconds >= LONG_S ? 'late' : task.phase;
  // Attempts that follow a failure flash by; above, the page goes on saying that there is no service.
  if (client.state === 'open' && liveness.silent) return 'silent';
  return client.state in HEADLINES ? client.state : 'idle';
}

function detail(client, task, liveness, since) {
  const values = {url: client.url.replace(/\/$/, ''), time: timeOfDay(since)};
  const shown = situation(client, task, liveness);
  if (shown === 'late') return text('detailLate', values);
  if (shown === task.phase) {
    const {ahead = 0, sent = true} = task.progress ?? {};
    if (ahead > 0) return text('detailQueued', {...values, ahead});
    return text(sent || client.state === 'open' ? 'detailTask' : 'detailTaskConnecting', values);
  }
  if (shown === 'open') return text('detailOpen', values);
  if (shown === 'silent') return text('detailSilent', values);
  if (client.state !== 'waiting') return text('detailOther', values);
  values.seconds = Math.max(0, Math.ceil((client.retryAt - Date.now()) / SECOND_MS));
  return text('detailWaiting', values);
}

export function showConnection(client, task, liveness) {
  const card = byId('connection');
  const headline = byId('state');
  let since = new Date();

  byId('help-host-line').textContent = `host1=${location.hostname}`;
  byId('help-tls').hidden = !client.url.startsWith('wss:');

  function render() {
    const shown = situation(client, task, liveness);
    card.dataset.state = shown;
    // A live region is read out whenever it is written.
    const words = text(HEADLINES[shown]);
    if (headline.textContent !== words) headline.textContent = words;
    // Outside the live region, or every second would be read out.
    byId('seconds').textContent = task.phase ? text('seconds', {seconds: task.seconds}) : '';
    byId('state-detail').textContent = detail(client, task, liveness, since);
    byId('help').hidden = !(shown in HELP);
    byId('help-clerk').textContent = shown in HELP ? text(HELP[shown], {port: location.port}) : '';
    byId('help-host').hidden = shown !== 'refused';
    byId('retry').hidden = !['down', 'refused'].includes(shown);
  }

  client.addEventListener('statechange', () => {
    if (client.state === 'open') since = new Date();
    render();
  });
  task.addEventListener('change', render);
  liveness.addEventListener('change', render);
  byId('retry').addEventListener('click', () => client.connect().catch(() => {}));
  setInterval(() => { if (client.state === 'waiting') render(); }, SECOND_MS / 2);
  rendered(render);
}

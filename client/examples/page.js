// A plain page: waits for a card, reads it, and never leaves the last person on the screen.
import {Quorvel} from 'quorvel';  // without a bundler: './quorvel.js', the file of this package

const [read, cancel, status] = ['read', 'cancel', 'status'].map((id) => document.getElementById(id));
const q = new Quorvel();
let stop;

async function readCard() {
  stop = new AbortController();
  read.disabled = true;
  cancel.disabled = false;
  status.textContent = '请放卡…';
  try {
    await q.waitFor('cardpresent', undefined, {signal: stop.signal});
    const {data} = await q.call('readcardbas', {data: {itype: 3, bae140: '3'}}, {
      signal: stop.signal,
      onProgress: ({seconds}) => { status.textContent = `正在读卡… ${seconds} 秒`; },
    });
    status.textContent = `${data.name}，${data.idnumber}`;
  } catch (error) {
    status.textContent = error.message;
  }
  read.disabled = false;
  cancel.disabled = true;
}

read.addEventListener('click', readCard);
cancel.addEventListener('click', () => stop.abort());

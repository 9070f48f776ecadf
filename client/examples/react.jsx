// A React component: reads on demand, stops when it is cancelled or removed.
import {useEffect, useRef, useState} from 'react';
import {Quorvel} from 'quorvel';

const q = new Quorvel();  // one connection for the whole application

export function CardReader() {
  const [text, setText] = useState('');
  const [busy, setBusy] = useState(false);
  const stop = useRef(null);
  useEffect(() => () => stop.current?.abort(), []);

  async function read() {
    const {signal} = stop.current = new AbortController();
    setBusy(true);
    setText('正在读卡…');
    try {
      const onProgress = ({seconds}) => setText(`正在读卡… ${seconds} 秒`);
      const {data} = await q.call('readcardbas', {data: {itype: 3}}, {signal, onProgress});
      setText(`${data.name}，${data.idnumber}`);
    } catch (error) {
      setText(error.message);
    }
    setBusy(false);
  }

  return (
    <section aria-busy={busy}>
      <button disabled={busy} onClick={read}>读卡</button>
      <button disabled={!busy} onClick={() => stop.current.abort()}>取消</button>
      <p role="status">{text}</p>
    </section>
  );
}

// One request and its reply, as the page shows and remembers them.

/** The function that a request text asks for, or null when it holds none. */
export function functionName(request) {
  if (request.startsWith('readcardbas')) return 'readcardbas';  // the service's short form
  const fid = parse(request)?.fid;
  return typeof fid === 'string' ? fid : null;
}

function parse(text) {
  try {
    return JSON.parse(text);
  } catch {
    return undefined;
  }
}

/** Waits for `work`, which adds replyText and reply to the exchange that it gets, and times it. */
async function recorded(request, work) {
  const start = performance.now();
  const done = {time: new Date(), name: functionName(request), request};
  try {
    await work(done);
  } catch (error) {
    done.error = error;
  }
  done.ok = done.reply?.result === 'true';
  done.ms = performance.now() - start;
  return done;
}

/**
 * Sends `request` with `client` and waits for the outcome; never rejects.
 * @returns {Promise<object>} time: Date of sending; name: function name or null; request and
 *   replyText: the texts, replyText undefined without a reply; reply: its parsed form, undefined
 *   when it is not JSON; ok: whether its result is "true"; error: the client's error without a
 *   reply; ms: duration.
 */
export function exchange(client, request, options) {
  return recorded(request, async (done) => {
    done.replyText = await client.request(request, options);
    done.reply = parse(done.replyText);
  });
}

/** Polls until a card lies on the reader; never rejects. Returns the last exchange, as above. */
export function cardPlaced(client, options) {
  return recorded(JSON.stringify({fid: 'cardpresent'}), async (done) => {
    const reply = await client.waitFor('cardpresent', undefined, options).catch((error) => {
      if (error.kind !== 'failure' && error.kind !== 'protocol') throw error;
      return error.reply;
    });
    Object.assign(done, {reply, replyText: JSON.stringify(reply)});
  });
}

/** A duration as a short number of milliseconds. */
export function shortMs(ms) {
  return ms < 10 ? ms.toFixed(1) : String(Math.round(ms));
}

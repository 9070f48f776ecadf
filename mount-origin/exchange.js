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

/**
 * Sends `request` with `client` and waits for the outcome; never rejects.
 * @returns {Promise<object>} time: Date of sending; name: function name or null; request and
 *   replyText: the texts, replyText undefined without a reply; reply: its parsed form, undefined
 *   when it is not JSON; ok: whether its result is "true"; error: the client's error without a
 *   reply; ms: duration.
 */
export async function exchange(client, request, options) {
  const time = new Date();
  const start = performance.now();
  const done = {time, name: functionName(request), request};
  try {
    done.replyText = await client.request(request, options);
    done.reply = parse(done.replyText);
  } catch (error) {
    done.error = error;
  }
  done.ok = done.reply?.result === 'true';
  done.ms = performance.now() - start;
  return done;
}

/** A duration as a short number of milliseconds. */
export function shortMs(ms) {
  return ms < 10 ? ms.toFixed(1) : String(Math.round(ms));
}

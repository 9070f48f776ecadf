// Whether the service answers at all. A hanging service keeps its connections open, so while nothing
// else is under way the page asks it now and then for a small file of its own.

const ASK_EVERY_MS = 4000;
const PATIENCE_MS = 2000;
const LONGEST_MS = 60_000;

/** Dispatches "change" when `silent` has changed: no answer for longer than a moment. */
export class Liveness extends EventTarget {
  silent = false;
  #asking = false;

  /** Asks when `idle()` says that there is no better sign of life. */
  constructor(idle) {
    super();
    setInterval(() => { if (idle() && !document.hidden) this.ask(); }, ASK_EVERY_MS);
  }

  async ask() {
    if (this.#asking) return;
    this.#asking = true;
    const late = setTimeout(() => this.answered(false), PATIENCE_MS);
    try {
      await fetch('icon.svg', {method: 'HEAD', cache: 'no-store', signal: AbortSignal.timeout(LONGEST_MS)});
      this.answered(true);
    } catch {
      // A service that has ended closes its connections, which says more than this request.
    }
    clearTimeout(late);
    this.#asking = false;
  }

  /** The service has answered something, or has not for a while. */
  answered(yes) {
    if (this.silent === !yes) return;
    this.silent = !yes;
    this.dispatchEvent(new Event('change'));
  }
}

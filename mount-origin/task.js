// The one thing that the user has under way: a request, or the wait for a card and its reading.

const SECOND_MS = 1000;

/** Dispatches "change" when it begins, goes on, and ends, and every second meanwhile. */
export class Task extends EventTarget {
  /** null, or what is going on: "wait" (for a card), "read" (a card), "ask" (any other request). */
  phase = null;
  /** Of the request, as the client tells it (see QuorvelProgress); null between requests. */
  progress = null;
  #stop = null;
  #start = 0;

  get seconds() { return Math.round((Date.now() - this.#start) / SECOND_MS); }

  /**
   * Runs `work(signal)` unless something is under way, and hands its result to `onDone` after the
   * end of the task. `work` never rejects.
   */
  async run(phase, work, onDone) {
    if (this.phase) return;
    this.#stop = new AbortController();
    this.#start = Date.now();
    this.enter(phase);
    const clock = setInterval(() => this.#changed(), SECOND_MS);
    const result = await work(this.#stop.signal);
    clearInterval(clock);
    this.enter(null);
    onDone(result);
  }

  /** The next phase begins. */
  enter(phase) {
    this.phase = phase;
    this.progress = null;
    this.#changed();
  }

  /** For the client's option onProgress. */
  follow = (progress) => {
    this.progress = progress;
    this.#changed();
  };

  cancel() {
    if (this.phase) this.#stop.abort();
  }

  #changed() {
    this.dispatchEvent(new Event('change'));
  }
}

// One poll for all that watch the same microscopes: the button tells each press to one asker only.

export class SharedPoll {
  #read;
  #listeners = new Map();
  #timer = null;
  #pollMs = Infinity;

  /** `read` gives a sample; it must not wait. */
  constructor(read) {
    this.#read = read;
  }

  /** Calls `listener(sample)` at least every `pollMs`; the function that it gives ends that. */
  subscribe(pollMs, listener) {
    const key = {};
    this.#listeners.set(key, { pollMs, listener });
    this.#adjust();
    return () => {
      this.#listeners.delete(key);
      this.#adjust();
    };
  }

  #adjust() {
    const pollMs = Math.min(...[...this.#listeners.values()].map((entry) => entry.pollMs));
    if (pollMs === this.#pollMs) {
      return;
    }
    this.#pollMs = pollMs;
    clearInterval(this.#timer);
    this.#timer = pollMs === Infinity ? null : setInterval(() => this.#poll(), pollMs);
  }

  #poll() {
    const sample = this.#read();
    [...this.#listeners.values()].forEach(({ listener }) => listener(sample));
  }
}

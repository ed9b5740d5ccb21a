// The waiting calls of one microscope family, one at a time: a library that hangs then takes one thread of
// the runtime's pool, however much is asked of it.

export class CommandQueue {
  #waiting = [];
  #isRunning = false;

  /**
   * Runs `work`, which gives a promise, when all before it have settled; the promise of its outcome. With a
   * `key`, it takes the place of the one that waits at the end under the same key, and both get its outcome.
   * `signal` withdraws it while it waits; what runs already is only no more waited for.
   */
  run(work, { key = null, signal } = {}) {
    signal?.throwIfAborted();
    const last = this.#waiting.at(-1);
    const entry = key !== null && last?.key === key ? last : { key, callers: new Set() };
    entry.work = work;
    if (entry !== last) {
      this.#waiting.push(entry);
    }
    const outcome = this.#join(entry, signal);
    this.#next();
    return outcome;
  }

  #join(entry, signal) {
    return new Promise((resolve, reject) => {
      const onAbort = () => {
        this.#leave(entry, caller);
        reject(signal.reason);
      };
      const release = () => signal?.removeEventListener('abort', onAbort);
      const caller = {
        resolve: (value) => (release(), resolve(value)),
        reject: (error) => (release(), reject(error)),
      };
      entry.callers.add(caller);
      signal?.addEventListener('abort', onAbort, { once: true });
    });
  }

  #leave(entry, caller) {
    entry.callers.delete(caller);
    if (entry.callers.size === 0) {
      this.#waiting = this.#waiting.filter((other) => other !== entry);
    }
  }

  async #next() {
    if (this.#isRunning || this.#waiting.length === 0) {
      return;
    }
    this.#isRunning = true;
    const { work, callers } = this.#waiting.shift();
    try {
      const value = await work();
      callers.forEach(({ resolve }) => resolve(value));
    } catch (error) {
      callers.forEach(({ reject }) => reject(error));
    }
    this.#isRunning = false;
    this.#next();
  }
}

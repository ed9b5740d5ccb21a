// Runs blocking calls of the native object on a thread of their own. The native state is that of the
// process: the worker sees the same cameras and the same recorder.

import { Worker } from 'node:worker_threads';

/** Starts a worker thread on one of the kit's files; with nothing of how this process was started. */
export function startWorker(file, { workerData, transferList } = {}) {
  return new Worker(new URL(file, import.meta.url), { workerData, transferList, execArgv: [], stdin: false });
}

export class NativeWorker {
  #worker;
  #calls = new Map();
  #count = 0;
  #failure = null;

  /** Idle, it does not keep the process alive. */
  constructor(addonFile) {
    this.#worker = startWorker('native-worker-thread.js', { workerData: { addonFile } });
    this.#worker.on('message', ({ id, error, ...answer }) => this.#settle(id, error, answer));
    this.#worker.on('error', (error) => this.#fail(error));
    this.#worker.on('exit', () => this.#fail(new Error('The thread that waits for the recorder has ended.')));
    this.#worker.unref();
  }

  /** Calls a function by its name; gives { value, words }, the words being the last error right after. */
  call(call, ...args) {
    if (this.#failure) {
      return Promise.reject(this.#failure);
    }
    return new Promise((resolve, reject) => {
      const id = ++this.#count;
      this.#calls.set(id, { resolve, reject });
      this.#worker.ref();
      this.#worker.postMessage({ id, call, args });
    });
  }

  /** Ends the thread, after the call that it is in. */
  async close() {
    this.#failure ??= new Error('The thread that waits for the recorder was closed.');
    await this.#worker.terminate();
  }

  #settle(id, error, answer) {
    const { resolve, reject } = this.#calls.get(id);
    this.#calls.delete(id);
    if (this.#calls.size === 0) {
      this.#worker.unref();
    }
    if (error) {
      reject(error);
    } else {
      resolve(answer);
    }
  }

  #fail(error) {
    this.#failure ??= error;
    this.#calls.forEach(({ reject }) => reject(this.#failure));
    this.#calls.clear();
  }
}

// What the watches of both microscope families have in common: the poll, the button, the search, the end.

import { EventEmitter } from 'node:events';

import { describe, objectOption, positiveOption, signalOption } from './options.js';
import { PressDetector } from './press-detector.js';

function readDevice({ device }) {
  const isIndex = Number.isInteger(device) && device >= 0;
  if (device !== undefined && !isIndex && (typeof device !== 'string' || device === '')) {
    throw new TypeError(`\`device\` takes the index or the unique id of a microscope, not ${describe(device)}.`);
  }
  return device;
}

export function readWatchOptions(options) {
  objectOption(options);
  return {
    device: readDevice(options),
    pollMs: positiveOption(options, 'pollMs', 50),
    releaseMs: positiveOption(options, 'releaseMs', 200),
    searchMs: positiveOption(options, 'searchMs', 2000),
    signal: signalOption(options),
  };
}

/** Whether two polled values are the same: numbers, or records of them. */
export const isSame = (a, b) => a === b || (a !== null && b !== null && typeof a === 'object' &&
  Object.keys(a).every((key) => a[key] === b[key]));

/**
 * What extends it gives `look(sample)`, which tells what has changed, and `search(signal)`, which sees what
 * is attached and throws where it cannot.
 */
export class MicroscopeWatch extends EventEmitter {
  #options;
  #presses;
  #unsubscribe;
  #searchTimer = null;
  #over = new AbortController();
  #onAbort = () => this.close();

  constructor(poll, options) {
    super();
    this.#options = options;
    this.#options.signal?.throwIfAborted();
    this.#presses = new PressDetector(options.releaseMs);
    this.#options.signal?.addEventListener('abort', this.#onAbort, { once: true });
    this.#unsubscribe = poll.subscribe(options.pollMs, (sample) => this.#take(sample));
    queueMicrotask(() => this.#search());
  }

  get isClosed() {
    return this.#over.signal.aborted;
  }

  /** Emits an event; none after the end, even where a listener of the same sample has ended the watch. */
  tell(event, ...details) {
    if (!this.isClosed) {
      this.emit(event, ...details);
    }
  }

  close() {
    if (this.isClosed) {
      return;
    }
    this.#unsubscribe();
    clearTimeout(this.#searchTimer);
    this.#options.signal?.removeEventListener('abort', this.#onAbort);
    this.#over.abort();
    this.emit('close');
  }

  #take(sample) {
    if (this.isClosed) {
      return;
    }
    this.look(sample);
    if (this.#presses.saw(sample.isPressed, performance.now())) {
      this.tell('button', { at: Date.now() });
    }
  }

  async #search() {
    if (this.isClosed) {
      return;
    }
    try {
      await this.search(this.#over.signal);
    } catch (error) {
      this.tell('trouble', error);
    }
    if (!this.isClosed) {
      this.#searchTimer = setTimeout(() => this.#search(), this.#options.searchMs);
    }
  }
}

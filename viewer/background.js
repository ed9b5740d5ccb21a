// Calls of the addon that block run here, on a thread of their own: the thread that serves pages never waits.

import { fileURLToPath } from 'node:url';
import { Worker, isMainThread, parentPort, workerData } from 'node:worker_threads';

import { loadAddon } from '../examples/lib/load-addon.js';

/** A thread that runs calls one after the other. What the addon holds is one for the whole process. */
export class Background {
  /** `addonPath`: the addon's file, the usual one if left out. */
  constructor(addonPath) {
    this.waiting = [];
    this.worker = new Worker(fileURLToPath(import.meta.url), { workerData: { isBackground: true, addonPath } });
    this.worker.on('message', (answer) => {
      const { resolve, reject } = this.waiting.shift();
      answer.failure === undefined ? resolve(answer) : reject(new Error(answer.failure));
    });
    this.worker.on('error', (error) => this.fail(error));
    this.worker.on('exit', () => this.fail(new Error('The viewer is ending.')));
  }

  /** Runs one function of the addon and gives { value, words }: what it gave, and the last error then. */
  run(name, ...args) {
    return new Promise((resolve, reject) => {
      this.waiting.push({ resolve, reject });
      this.worker.postMessage({ name, args });
    });
  }

  /** How many calls have not come back yet. */
  get pending() {
    return this.waiting.length;
  }

  fail(error) {
    this.waiting.splice(0).forEach(({ reject }) => reject(error));
  }

  /** Ends the thread once the calls so far have come back. */
  close() {
    this.worker.postMessage(null);
    return new Promise((resolve) => this.worker.once('exit', resolve));
  }
}

function serve() {
  const addon = loadAddon(workerData.addonPath);
  parentPort.on('message', (call) => {
    if (call === null) {
      parentPort.close();
      return;
    }
    try {
      const value = addon[call.name](...call.args);
      parentPort.postMessage({ value, words: addon.getLastError() });
    } catch (error) {
      parentPort.postMessage({ failure: error.message });
    }
  });
}

if (!isMainThread && workerData?.isBackground) {
  serve();
}

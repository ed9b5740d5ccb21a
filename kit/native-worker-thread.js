// A worker thread's side of native-worker.js: runs the calls that would block.

import { createRequire } from 'node:module';
import { parentPort, workerData } from 'node:worker_threads';

const native = createRequire(import.meta.url)(workerData.addonFile);

parentPort.on('message', ({ id, call, args }) => {
  try {
    const value = native[call](...args);
    parentPort.postMessage({ id, value, words: native.getLastError() });
  } catch (error) {
    parentPort.postMessage({ id, error });
  }
});

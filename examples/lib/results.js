// What the addon's result codes mean, and one way to stop at a call that failed.

import { CallError as NativeCallError, recordingResults } from '../../kit/results.js';

export { recordingResults };

/** A call of the addon that failed; the message tells the code, its meaning and the addon's words. */
export class CallError extends NativeCallError {
  constructor(addon, call, code, advice, meanings) {
    super({ call, code, meanings, advice, words: addon.getLastError() });
  }
}

/** Passes a result on, or throws what it means if it is an error. */
export function check(addon, call, code, advice, meanings) {
  if (code < 0) {
    throw new CallError(addon, call, code, advice, meanings);
  }
  return code;
}

/** For the microscopes' functions: throws what the addon and the library have to say, unless `done`. */
export function expectDone(addon, done, call) {
  if (!done) {
    const words = addon.ostrelLastError() || addon.dinoLiteLastError() || addon.getLastError();
    throw new Error(`${call} failed: ${words || 'no reason given'}`);
  }
}

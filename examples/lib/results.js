// What the addon's result codes mean, and one way to stop at a call that failed.

/** Codes of the camera functions, beside those that a camera library answers by itself. */
export const cameraResults = {
  0: 'success',
  [-1]: 'there is no preview of this device',
  [-5]: 'the preview is not running',
  [-6]: 'no camera library is loaded, or it lacks the function',
  [-7]: 'wrong kind of buffer',
  [-8]: 'the frame could not be taken',
  [-9]: 'the camera has no such control',
  [-10]: 'the frame size is unknown',
  [-11]: 'the frame does not fit',
  [-13]: 'the camera library cannot do this',
  [-256]: 'nothing yet, or nothing new',
};

/** Codes of cameraRecordingStart and cameraRecordingStop. */
export const recordingResults = {
  0: 'success',
  [-1]: 'the path, size, frame rate or bit rate was refused',
  [-2]: 'the encoder did not start in time',
  [-3]: 'the recording failed',
  [-5]: 'no preview is running',
  [-13]: 'no FFmpeg of the right generation was found',
};

/** A call of the addon that failed; the message tells the code, its meaning and the addon's words. */
export class CallError extends Error {
  constructor(addon, call, code, meanings, advice) {
    const words = addon.getLastError();
    const meaning = meanings[code] ?? 'a code of the camera library itself';
    super(`${call} gave ${code}: ${meaning}${words ? ` ("${words}")` : ''}.\n${advice}`);
  }
}

/** Passes a result on, or throws what it means if it is an error. */
export function check(addon, call, code, advice, meanings = cameraResults) {
  if (code < 0) {
    throw new CallError(addon, call, code, meanings, advice);
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

// What the native object's result codes mean, and the error that tells one.

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

/** A call of the native object that failed: which, its code, what the code means, and its own words. */
export class CallError extends Error {
  constructor({ call, code, words = '', meanings = cameraResults, advice = '' }) {
    const meaning = meanings[code] ?? 'a code of the camera library itself';
    super(`${call} gave ${code}: ${meaning}${words ? ` ("${words}")` : ''}.${advice ? `\n${advice}` : ''}`);
    this.name = 'CallError';
    this.call = call;
    this.code = code;
  }
}

// What the native object's result codes mean, and the error that tells one.

const noLibrary = { [-6]: 'no camera library is loaded, or it lacks the function' };
const libraryCode = 'a code of the camera library itself';

/** What a frame that did not come is explained by: the results of grabs, and `lastResult` of a preview. */
const frameResults = {
  ...noLibrary,
  [-5]: 'the preview is not running',
  [-8]: 'the frame could not be taken',
  [-10]: 'the frame size is unknown',
  [-11]: 'the frame does not fit',
  [-13]: 'the camera library cannot do this',
  [-256]: 'nothing yet, or nothing new',
};

/**
 * What the camera's numbers mean, by what gave them; `other` is said of the camera library's own, -1 among
 * them. None of these calls has a text: what stands in the last error is of something else.
 */
const cameraMeanings = {
  cameraInitialize: { ...noLibrary, other: 'the camera library does not start, with a code of its own' },
  cameraHasVideoCaptureAuth: { ...noLibrary, other: 'the camera library does not allow it, with a code of its own' },
  cameraDevicesCount: { ...noLibrary, other: 'the camera library cannot list cameras, with a code of its own' },
  cameraStartCapture: {
    ...noLibrary,
    [-13]: 'the camera library cannot start by a format',
    other: 'the camera library does not start this camera, with a code of its own',
  },
  cameraStopCapture: { ...noLibrary, other: 'the camera library does not stop this camera, with a code of its own' },
  cameraHasFirstFrame: { ...noLibrary, [-256]: 'nothing yet', other: libraryCode },
  cameraPreviewStart: {
    [-1]: 'there is no camera with a negative index',
    [-13]: 'the camera library does not deliver into arrays',
    other: libraryCode,
  },
  cameraPreviewGetLatest: { ...frameResults, [-1]: 'there is no preview of this device', other: libraryCode },
  cameraPreviewGetLatestQualityFrame: { ...frameResults, other: libraryCode },
  cameraGrabFrame: { ...frameResults, other: libraryCode },
  cameraGrabFrameRgba: { ...frameResults, other: libraryCode },
  lastResult: { ...frameResults, other: libraryCode },
};

/** The name of the function that stands first in what says which call it was. */
const functionOf = (call) => /^\w*/.exec(call)[0];

/** What a camera function's number means, or `lastResult` of its preview; null for any other call. */
export function cameraMeaning(call, code) {
  const meanings = cameraMeanings[functionOf(call)];
  return meanings ? meanings[code] ?? meanings.other : null;
}

/** Codes of cameraRecordingStart and cameraRecordingStop. */
export const recordingResults = {
  0: 'success',
  [-1]: 'the path, size, frame rate or bit rate was refused',
  [-2]: 'the encoder did not start in time',
  [-3]: 'the recording failed',
  [-5]: 'no preview is running',
  [-13]: 'no FFmpeg of the right generation was found',
};

/**
 * A call of the native object that failed: which, its code, what the code means, and its own words.
 * `call` begins with the function's name; `meanings` are those of functions beside the camera's.
 */
export class CallError extends Error {
  constructor({ call, code, words = '', meanings = {}, advice = '' }) {
    const camera = cameraMeaning(call, code);
    const said = camera === null && words ? ` ("${words}")` : '';
    super(`${call} gave ${code}: ${camera ?? meanings[code] ?? 'an unknown code'}${said}.${advice ? `\n${advice}` : ''}`);
    this.name = 'CallError';
    this.call = call;
    this.code = code;
  }
}

// What must not type-check.

import native from 'ostrel-native';

// @ts-expect-error: no such function
native.cameraCount();
// @ts-expect-error: constants don't change
native.RESULT_OK = 1;
// @ts-expect-error: "yes" and success are both 0, so the comparison is always false
if (native.RESULT_YES === 1) { console.log(); }
// @ts-expect-error: a path is a string
native.loadCameraBackend(0);
// @ts-expect-error: a device index is needed
native.cameraStartCapture();
// @ts-expect-error: a preview copies into a Uint8Array alone
native.cameraPreviewGetLatest(0, 0, new Uint8ClampedArray(4));
// @ts-expect-error: all five are needed
native.cameraRecordingStart('a.mp4', 960, 540, 30);
// @ts-expect-error: frames as pixels, not as files
native.edofMultibandFuse({ width: 1, height: 1, referenceIndex: 0, frames: ['a.png'], fields: [], weights: [] });
// @ts-expect-error: a promise is no boolean
const isSelected: boolean = native.ostrelSelectDeviceAsync(0);
// @ts-expect-error: it may be null
native.dinoLiteGetAmr(0).toFixed(1);

const frame = native.cameraPreviewGetLatest(0, 0);
// @ts-expect-error: there may be no frame
frame.data.length;
if (frame.result === -256) {
  // @ts-expect-error: there is no frame
  frame.width;
}
if (frame.result === 0) {
  // @ts-expect-error: a preview on Linux has no slot to give back
  frame.directSlot;
  // @ts-expect-error: the key is bytesPerRow
  frame.stride;
}
// @ts-expect-error: -2 is no answer of a preview
if (frame.result === -2) { console.log(); }
const grabbed = native.cameraGrabFrameRgba(0);
// @ts-expect-error: there may be no picture
grabbed.data[0];
export { isSelected };

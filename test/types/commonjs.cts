// What must type-check in CommonJS.

import native = require('ostrel-native');

const same: native.OstrelNative = native;

function paint(frame: native.PreviewFrame): number {
  return frame.data.length;
}

const frame = same.cameraPreviewGetLatest(0, 0);
if (frame.result === same.RESULT_OK && frame.producerMode === 'polling') {
  console.log(paint(frame));
}
const devices: Promise<native.MicroscopeDevice[]> = native.dinoLiteDevicesAsync();
void devices.then((list) => console.log(list.length));

// What must type-check in a module.

import native, { type NoPreviewFrame, type OstrelNative, type PreviewFrame } from 'ostrel-native';
import { createRequire } from 'node:module';

const same: OstrelNative = native;
const required: OstrelNative = createRequire(import.meta.url)('ostrel-native');
const none: 0 | -256 = native.RESULT_NO;

const isLoaded: boolean = same.loadCameraBackend('/opt/libcnokhwa.so') && required.loadCameraBackend();
for (const { width, height, frameRate, type } of native.cameraDeviceFormats(0)) {
  console.log(`${width} x ${height} at ${frameRate.toFixed(0)}: ${type.toUpperCase()}`, isLoaded, none);
}
const started: number = native.cameraStartCapture(0, 0, 0, 2);

const target = new Uint8Array(960 * 540 * 4);
const frame = native.cameraPreviewGetLatest(0, 0, target);
if (frame.result === native.RESULT_OK) {
  const bytes: Uint8Array = frame.data;
  console.log(frame.width * frame.height, bytes.length, frame.planeOffsets[0], frame.producerFps, started);
  if (frame.producerMode === 'polling') {
    const polled: PreviewFrame = frame;
    console.log(polled.sequence);
  } else {
    native.cameraPreviewReleaseDirectSlot(0, frame.directSlot, frame.sequence);
  }
} else {
  const missed: NoPreviewFrame = frame;
  const nothing: null = missed.data;
  console.log(nothing, missed.lastResult, missed.result === native.RESULT_NO);
}

const still = native.cameraPreviewGetLatestQualityFrame(0);
if (still.result === 0) {
  const buffer: Buffer = still.data;
  console.log(buffer.readUInt8(0), still.timestampMs);
}
const rgba = native.cameraGrabFrameRgba(0, 640, 480);
console.log(rgba.data ? rgba.data.length / rgba.height : rgba.result);
const grabbed = native.cameraGrabFrame(0);
console.log(grabbed.data ? grabbed.timestampMs : grabbed.result === -10);
const encoded = native.cameraGrabEncodedFrame(0);
console.log(encoded.result === 0 ? encoded.mimeType : encoded.data);

const outcome = native.cameraRecordingStart('a.mp4', 960, 540, 30, 4_000_000);
console.log(outcome === -5 ? native.getLastError() : native.cameraRecordingStatus().framesWritten);

const fused = native.edofMultibandFuse({
  width: 2, height: 2, referenceIndex: 0, frames: [], fields: [], weights: [], maxThreads: 2,
});
console.log(fused.data.length, fused.simd === 'avx2', fused.durationMs);

const devices = await native.ostrelDevicesAsync();
console.log(devices[0]?.uniqueId, native.ostrelVersionInfo()?.productId, native.dinoLiteGetAmr(0)?.toFixed(1));
const isOn: boolean = native.ostrelGetLedState() === 1 && (await native.ostrelSetLedStateAsync('on'));
native.unlockFile(native.lockFile('/tmp/lock'));
console.log(isOn, native.dinoLiteDebugState().ledModes.length, native.dinoLiteDebugState().error ?? '');

// The script tests' side of the fake camera library.

import { fakePath } from './environment.js';
import { openFake } from './fake-library.js';
import { nextFrame } from './waiting.js';

const paddingByte = 0xee;
const rampPeriod = 251;

/** The fake camera library at `path`, which the addon is to load too. */
export function openFakeCamera(path = fakePath('libcnokhwa.so')) {
  const fake = openFake(path);
  return {
    ...fake,
    /** How many frames were delivered so far. */
    frames: () => Number(fake.send('frames').split(' ')[1]),
  };
}

/** Loads the fake camera and starts a preview that costs next to nothing; waits for its first frame. */
export async function startSlowPreview(addon) {
  const camera = openFakeCamera();
  camera.send('frame 16 9');
  addon.loadCameraBackend(camera.path);
  addon.cameraPreviewStart(0, 16, 9, 5);
  await nextFrame(addon);
}

/** The bytes of frame `number` with uniform content, as frame_content.h makes them. */
export function uniformFrame(number, width, height, bytesPerRow = 3 * width) {
  const frame = Buffer.alloc(height * bytesPerRow, paddingByte);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      frame.writeUIntLE(number, y * bytesPerRow + 3 * x, 3);
    }
  }
  return frame;
}

/** The bytes of frame `number` with ramp content, as frame_content.h makes them. */
export function rampFrame(number, size) {
  return Buffer.from(Array.from({ length: size }, (_, offset) => (offset + number * 31) % rampPeriod));
}

/** An RGB frame reduced to RGBA by taking the top left pixel of each `step` by `step` of them. */
export function reduceToRgba(frame, { width, height, bytesPerRow = 3 * width, step = 1 }) {
  const outWidth = Math.max(Math.trunc(width / step), 1);
  const outHeight = Math.max(Math.trunc(height / step), 1);
  const out = Buffer.alloc(outWidth * outHeight * 4, 255);
  for (let y = 0; y < outHeight; y += 1) {
    for (let x = 0; x < outWidth; x += 1) {
      frame.copy(out, (y * outWidth + x) * 4, y * step * bytesPerRow + 3 * x * step,
        y * step * bytesPerRow + 3 * x * step + 3);
    }
  }
  return out;
}

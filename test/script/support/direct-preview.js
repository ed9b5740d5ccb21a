// Direct previews under the test's control, and what their answers have in common.

import assert from 'node:assert/strict';
import { afterEach } from 'node:test';

import { lendArrays, openDirectBackend } from './direct-backend.js';

export const device = 0;

/** Asserts that `data` is a view of the beginning of a lent array with the `expected` bytes. */
export function assertData(data, array, expected) {
  assert.equal(Object.getPrototypeOf(data), Uint8Array.prototype);
  assert.deepEqual([data.buffer, data.byteOffset, data.length], [array.buffer, array.byteOffset, expected.length]);
  assert.ok(Buffer.from(expected).equals(data));
}

/** For a suite: the direct backend, and what a direct preview of device 0 needs; each case leaves none behind. */
export function useDirectPreview() {
  const backend = openDirectBackend();
  const { addon, become } = backend;
  afterEach(() => {
    addon.cameraPreviewStop();
    become('none');
  });
  const take = (sequence = 0, ...rest) => addon.cameraPreviewGetLatest(device, sequence, ...rest);
  return {
    ...backend,
    /** Starts a preview of `frame` by `kind` into `arrays`, which it gives. */
    begin(kind, frame, { arrays = lendArrays(frame.dataSize, 7), ...options } = {}) {
      become(kind, { frame, ...options });
      assert.equal(addon.cameraPreviewStart(device, 64, 48, 30, arrays), 0);
      return arrays;
    },
    take,
    release: (slot, sequence) => addon.cameraPreviewReleaseDirectSlot(device, slot, sequence),
    /** What a poll tells of the frames so far; it takes none. */
    counters() {
      const { droppedFrames, lastResult, producedFrames } = take(Number.MAX_VALUE);
      return { droppedFrames, lastResult, producedFrames };
    },
  };
}

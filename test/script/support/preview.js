// Previews under the test's control, and what their answers have in common.

import assert from 'node:assert/strict';
import { afterEach, before, beforeEach } from 'node:test';

import { loadAddon } from './environment.js';
import { openFakeCamera } from './fake-camera.js';
import { nextFrame } from './waiting.js';

export const device = 3;

const emptyKeys = ['result', 'data', 'sequence', 'droppedFrames', 'lastResult', 'producerFps', 'producedFrames'];

/** Asserts that a poll gave no frame, and `values` among the rest. */
export function assertEmpty(answer, values) {
  assert.deepEqual(Object.keys(answer), emptyKeys);
  assert.equal(answer.data, null);
  for (const [key, value] of Object.entries(values)) {
    assert.ok(Object.is(answer[key], value), `${key} is ${answer[key]}, not ${value}`);
  }
}

/** The answer of a poll for a quality picture that gave none. */
export const emptyQuality = (sequence) => ({ result: -256, sequence, data: null });

/**
 * For a suite: loads the fake camera, gives every case a new one with frames of 16 by 9, and stops
 * what a case leaves running. `takeByHand` needs a preview of `startByHand`, whose worker is held
 * before each grab until it is asked for the next frame.
 */
export function usePreview() {
  const addon = loadAddon();
  const camera = openFakeCamera();
  before(() => assert.equal(addon.loadCameraBackend(camera.path), true));
  beforeEach(() => camera.send('reset\nframe 16 9'));
  afterEach(() => {
    camera.send('release cnokhwa_grab_frame');
    addon.cameraPreviewStop();
  });
  return {
    addon,
    camera,
    startByHand(width = 64, height = 48) {
      camera.send('block cnokhwa_grab_frame');
      assert.equal(addon.cameraPreviewStart(device, width, height, 120), 0);
    },
    takeByHand(options = {}) {
      camera.send('release cnokhwa_grab_frame 1');
      return nextFrame(addon, { device, ...options });
    },
  };
}

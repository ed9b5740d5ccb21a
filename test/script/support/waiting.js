// Waiting for what other threads do.

import { setTimeout as sleep } from 'node:timers/promises';

export { sleep };

// Only a failure waits for as long as this.
const longestMs = 60_000;

/** Waits until `look()` gives something truthy, and gives that. `what` names it in the failure. */
export async function until(what, look) {
  const deadline = performance.now() + longestMs;
  for (;;) {
    const found = look();
    if (found) {
      return found;
    }
    if (performance.now() > deadline) {
      throw new Error(`waited ${longestMs} ms for ${what}`);
    }
    await sleep(1);
  }
}

/** The first preview frame of `device` newer than `sequence`. */
export function nextFrame(addon, { device = 0, sequence = 0, target } = {}) {
  return until(`a frame after ${sequence}`, () => {
    const frame = addon.cameraPreviewGetLatest(device, sequence, target);
    return frame.result === 0 && frame;
  });
}

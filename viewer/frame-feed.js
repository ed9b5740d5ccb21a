// Preview frames for several readers at once: each frame is fetched once, when somebody waits for it.

import { frames } from '../kit/index.js';

/**
 * Bytes in front of a frame's pixels, little-endian: sequence and time as doubles; width and height, and those
 * of the camera's frame, as 32 bits each.
 */
export const headerBytes = 32;

/** One frame, which those who got it release when they have read it. */
class Lease {
  constructor(feed, whole, frame) {
    const { sequence, timestampMs, width, height, sourceWidth, sourceHeight, data } = frame;
    const view = new DataView(whole.buffer);
    view.setFloat64(0, sequence, true);
    view.setFloat64(8, timestampMs, true);
    view.setUint32(16, width, true);
    view.setUint32(20, height, true);
    view.setUint32(24, sourceWidth, true);
    view.setUint32(28, sourceHeight, true);
    whole.set(data, headerBytes);
    Object.assign(this, { feed, whole, sequence, timestampMs, width, height, sourceWidth, sourceHeight, readers: 0 });
    /** Header and pixels. */
    this.message = whole.subarray(0, headerBytes + data.length);
  }

  get pixels() {
    return this.message.subarray(headerBytes);
  }

  release() {
    if (--this.readers === 0) {
      this.feed.giveBack(this.whole);
    }
  }
}

export class FrameFeed {
  constructor(native) {
    this.native = native;
    this.waiting = [];
    this.spare = [];
    this.bytes = 0;
    this.stopper = null;
    this.wake = () => {};
  }

  /** Feeds from a preview of at most this size that was just started; `onFailure(error)`: it cannot. */
  start(device, { width, height }, onFailure) {
    this.stop();
    this.stopper = new AbortController();
    this.spare = [];
    this.bytes = headerBytes + width * height * 4;
    const { signal } = this.stopper;
    this.run(device, signal).catch((error) => signal.aborted || onFailure(error));
  }

  stop() {
    this.stopper?.abort();
    this.stopper = null;
    this.wake();
  }

  async run(device, signal) {
    const source = frames({ native: this.native, device, signal, ring: 2 });
    for (;;) {
      await this.untilWanted(signal);
      const { done, value } = await source.next();
      if (done || signal.aborted) {
        return;
      }
      this.handOut(value);
    }
  }

  async untilWanted(signal) {
    while (this.waiting.length === 0 && !signal.aborted) {
      await new Promise((resolve) => (this.wake = resolve));
    }
  }

  handOut(frame) {
    // A page that is slow to read keeps its array; the others go on with another one.
    const lease = new Lease(this, this.spare.pop() ?? new Uint8Array(this.bytes), frame);
    const readers = this.waiting.splice(0);
    lease.readers = readers.length;
    readers.forEach((resolve) => resolve(lease));
  }

  giveBack(whole) {
    if (whole.length === this.bytes) {
      this.spare.push(whole);
    }
  }

  /** The next frame there is, however long that takes unless `signal` says that it is in vain; to be released. */
  next(signal) {
    return new Promise((resolve, reject) => {
      const withdraw = () => {
        this.waiting.splice(this.waiting.indexOf(take), 1);
        reject(signal.reason);
      };
      const take = (lease) => {
        signal?.removeEventListener('abort', withdraw);
        resolve(lease);
      };
      signal?.throwIfAborted();
      signal?.addEventListener('abort', withdraw);
      this.waiting.push(take);
      this.wake();
    });
  }
}

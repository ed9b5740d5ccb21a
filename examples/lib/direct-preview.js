// A direct preview: the camera library writes its frames into arrays that script code lends, and script
// code paints from those very arrays.

import { check } from './results.js';

const lentArrays = 3;

const median = (numbers) => numbers.sort((a, b) => a - b)[numbers.length >> 1];

/** Takes one frame after the other, holding each until the next, and keeps account of copies. */
export class DirectPreview {
  constructor(addon, device) {
    this.addon = addon;
    this.device = device;
    this.held = null;
    this.taken = 0;
    this.copied = 0;
    this.bytes = 0;
    this.pollMs = [];
  }

  /** Starts on a camera that delivers already: its frames must be known before arrays can be lent. */
  start(frameRate) {
    const { addon, device } = this;
    const { width, height, dataSize } = addon.cameraFrameInfo(device);
    this.arrays = Array.from({ length: lentArrays }, () => new Uint8Array(dataSize));
    check(addon, 'cameraPreviewStart', addon.cameraPreviewStart(device, width, height, frameRate, this.arrays),
      'Does this camera library have a frame callback, and a format that can be delivered directly?');
  }

  /** The newest frame after `sequence`, as cameraPreviewGetLatest answers; the one before goes back first. */
  take(sequence) {
    const started = performance.now();
    const frame = this.addon.cameraPreviewGetLatest(this.device, sequence);
    const ms = performance.now() - started;
    if (frame.result === this.addon.RESULT_OK) {
      this.giveBack();
      this.held = frame;
      this.taken += 1;
      this.bytes += frame.data.length;
      this.pollMs.push(ms);
      const lent = this.arrays[frame.directSlot];
      this.copied += frame.data.buffer === lent.buffer && frame.data.byteOffset === lent.byteOffset ? 0 : 1;
    }
    return frame;
  }

  giveBack() {
    if (this.held) {
      this.addon.cameraPreviewReleaseDirectSlot(this.device, this.held.directSlot, this.held.sequence);
      this.held = null;
    }
  }

  /** What has been measured, as rows of [label, text]. */
  rows({ producedFrames, droppedFrames, data }) {
    const alike = this.taken - this.copied;
    return [
      ['frames delivered', `${producedFrames} by the camera library into ${lentArrays} lent arrays, ${droppedFrames} dropped`],
      ['frames shown', `${this.taken}, ${alike} of them without a copy: their data is a lent array itself`],
      ['bytes not copied', `${((this.bytes * alike) / Math.max(this.taken, 1) / 1e6).toFixed(0)} MB`],
      ['one poll', `${(median(this.pollMs) * 1000).toFixed(0)} microseconds for a frame of ${(data.length / 1e6).toFixed(1)} MB, the median`],
    ];
  }
}

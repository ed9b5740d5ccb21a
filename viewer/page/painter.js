// Paints frames on the canvas: of those that come between two refreshes of the screen, the newest.

import { headerBytes } from './frame-source.js';

const rateMs = 2000;
const silentMs = 300;

export class Painter {
  /** `onFrame`: called after each frame that was painted. `onDone(buffer)`: a frame's buffer is free again. */
  constructor(canvas, { onFrame, onDone }) {
    Object.assign(this, { canvas, onFrame, onDone });
    this.context = canvas.getContext('2d', { alpha: false });
    this.newest = null;
    /** What is known of the frame that the canvas shows. */
    this.frame = null;
    this.skipped = 0;
    this.times = [];
  }

  /** Takes over a frame as it came. */
  take(frame) {
    if (this.newest === null) {
      requestAnimationFrame(() => this.paint());
    } else {
      this.onDone(this.newest.buffer);
    }
    this.newest = frame;
  }

  paint() {
    const { buffer, ...frame } = this.newest;
    const { width, height } = frame;
    this.newest = null;
    if (this.canvas.width !== width || this.canvas.height !== height) {
      Object.assign(this.canvas, { width, height });
    }
    this.context.putImageData(new ImageData(new Uint8ClampedArray(buffer, headerBytes), width, height), 0, 0);
    this.onDone(buffer);
    this.count(frame.sequence, this.frame?.sequence ?? frame.sequence - 1);
    this.frame = frame;
    this.onFrame();
  }

  count(sequence, last) {
    // A preview that was started anew counts from 1 again.
    this.skipped += Math.max(0, sequence - last - 1);
    this.times.push(performance.now());
  }

  /** Frames a second over the last two seconds; falls where no more come. */
  readRate() {
    const now = performance.now();
    this.times = this.times.filter((time) => time > now - rateMs);
    if (this.times.length < 2) {
      return 0;
    }
    const last = this.times.at(-1);
    const end = now - last > silentMs ? now : last;
    return (1000 * (this.times.length - 1)) / (end - this.times[0]);
  }
}

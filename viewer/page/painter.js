// Paints frames on the canvas: of those that come between two refreshes of the screen, the newest.

const headerBytes = 32;
const rateMs = 2000;
const silentMs = 300;

/** What is written in front of a frame's pixels. */
function readHeader(message) {
  const view = new DataView(message);
  return {
    sequence: view.getFloat64(0, true),
    timestampMs: view.getFloat64(8, true),
    width: view.getUint32(16, true),
    height: view.getUint32(20, true),
    sourceWidth: view.getUint32(24, true),
    sourceHeight: view.getUint32(28, true),
  };
}

export class Painter {
  /** `onFrame`: called after each frame that was painted. */
  constructor(canvas, onFrame) {
    Object.assign(this, { canvas, onFrame });
    this.context = canvas.getContext('2d', { alpha: false });
    this.newest = null;
    /** What is written of the frame that the canvas shows. */
    this.frame = null;
    this.skipped = 0;
    this.lastSequence = null;
    this.times = [];
  }

  /** Takes over a frame as it came. */
  take(message) {
    if (this.newest === null) {
      requestAnimationFrame(() => this.paint());
    }
    this.newest = message;
  }

  paint() {
    const message = this.newest;
    this.newest = null;
    this.frame = readHeader(message);
    const { width, height, sequence } = this.frame;
    if (this.canvas.width !== width || this.canvas.height !== height) {
      Object.assign(this.canvas, { width, height });
    }
    this.context.putImageData(new ImageData(new Uint8ClampedArray(message, headerBytes), width, height), 0, 0);
    this.count(sequence);
    this.onFrame();
  }

  count(sequence) {
    // A preview that was started anew counts from 1 again.
    if (this.lastSequence !== null && sequence > this.lastSequence) {
      this.skipped += sequence - this.lastSequence - 1;
    }
    this.lastSequence = sequence;
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

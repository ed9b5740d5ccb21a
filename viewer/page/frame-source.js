// Fetches frames, one request for each: the next is asked for when the last one has come, so a page
// that is busy misses frames and nothing piles up.

export const headerBytes = 32;
const retryMs = 500;

/** What is written in front of a frame's pixels. */
function readHeader(view) {
  return {
    sequence: view.getFloat64(0, true),
    timestampMs: view.getFloat64(8, true),
    width: view.getUint32(16, true),
    height: view.getUint32(20, true),
    sourceWidth: view.getUint32(24, true),
    sourceHeight: view.getUint32(28, true),
  };
}

/** Fills a buffer from a stream and gives it: its memory goes to the stream and comes back with each read. */
async function fill(reader, buffer) {
  let filled = buffer;
  for (let length = 0; length < filled.byteLength;) {
    const { done, value } = await reader.read(new Uint8Array(filled, length));
    if (done) {
      throw new Error('The frame ended early.');
    }
    filled = value.buffer;
    length += value.byteLength;
  }
  return filled;
}

export class FrameSource {
  /** `onFrame({ buffer, ...header })`; whoever gets it gives the buffer back. */
  constructor(onFrame) {
    this.onFrame = onFrame;
    this.spare = [];
    this.run();
  }

  async run() {
    for (;;) {
      try {
        this.onFrame(await this.fetchFrame());
      } catch {
        // The viewer has gone, or is being started anew.
        await new Promise((resolve) => setTimeout(resolve, retryMs));
      }
    }
  }

  async fetchFrame() {
    // The browser's cache would let requests for one address wait for one another.
    const response = await fetch('/frame', { cache: 'no-store' });
    if (!response.ok) {
      throw new Error(`The viewer answers ${response.status}.`);
    }
    const bytes = Number(response.headers.get('Content-Length'));
    const buffer = await fill(response.body.getReader({ mode: 'byob' }), this.take(bytes));
    return { buffer, ...readHeader(new DataView(buffer)) };
  }

  take(bytes) {
    const buffer = this.spare.pop();
    return buffer?.byteLength === bytes ? buffer : new ArrayBuffer(bytes);
  }

  giveBack(buffer) {
    this.spare.push(buffer);
  }
}

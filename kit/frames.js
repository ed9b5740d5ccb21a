// The frames of a preview, as they are made.

import { FramePace } from './frame-pace.js';
import { FrameRing } from './frame-ring.js';
import { nativeOf } from './native.js';
import { deviceOption, objectOption, signalOption, wholeOption } from './options.js';
import { readChoices, startOwned } from './preview-owner.js';

const usualFrameRate = 30;
// Newer than any frame: asks without a copy.
const noSequence = Number.MAX_SAFE_INTEGER;
const done = (value) => ({ value, done: true });

function readOptions(options) {
  objectOption(options);
  const { device } = options;
  return {
    native: nativeOf(options),
    deviceNow: typeof device === 'function' ? device : ((index) => () => index)(deviceOption(options)),
    follows: typeof device === 'function',
    choices: readChoices(options),
    ring: wholeOption(options, 'ring', { fallback: 3, least: 2, most: 64 }),
    signal: signalOption(options),
  };
}

/** See index.d.ts. Nothing is started before the first frame is asked for. */
export function frames(options = {}) {
  return new FrameIteration(readOptions(options));
}

class FrameIteration {
  #native;
  #deviceNow;
  #follows;
  #choices;
  #signal;
  #ring;
  #pace;
  #onAbort = () => this.#end({ error: this.#signal.reason });

  #owned = null;
  #started = false;
  #ended = null;
  #failure = null;
  #waiting = [];
  #timer = null;
  #device = -1;
  #sequence = 0;

  constructor({ native, deviceNow, follows, choices, ring, signal }) {
    this.#native = native;
    this.#deviceNow = deviceNow;
    this.#follows = follows;
    this.#choices = choices;
    this.#signal = signal;
    this.#ring = new FrameRing(ring);
    this.#pace = new FramePace(1000 / (choices.preview?.frameRate ?? usualFrameRate));
  }

  [Symbol.asyncIterator]() {
    return this;
  }

  next() {
    return new Promise((resolve, reject) => {
      this.#waiting.push({ resolve, reject });
      if (this.#ended) {
        this.#settle();
      } else if (this.#timer === null) {
        this.#look();
      }
    });
  }

  async return(value) {
    await this.#end(null);
    this.#failure = null;
    return done(value);
  }

  async throw(error) {
    await this.#end(null);
    throw error;
  }

  #start() {
    this.#started = true;
    this.#signal?.throwIfAborted();
    const { capture, preview } = this.#choices;
    const device = this.#deviceNow();
    if (capture || preview) {
      this.#owned = startOwned(this.#native, device, this.#choices);
    }
    if (!preview && !this.#follows && this.#native.cameraPreviewGetLatest(device, noSequence).result === -1) {
      throw new Error(`No preview of camera ${device} is running: start one, or pass \`preview\`.`);
    }
    this.#signal?.addEventListener('abort', this.#onAbort, { once: true });
  }

  /** Hands out a frame if there is a new one; as long as somebody waits, looks again in time. */
  #look() {
    this.#timer = null;
    try {
      if (!this.#started) {
        this.#start();
      }
      const frame = this.#take();
      if (frame) {
        this.#waiting.shift().resolve({ value: frame, done: false });
      }
    } catch (error) {
      this.#end({ error });
    }
    if (this.#waiting.length > 0 && !this.#ended) {
      this.#timer = setTimeout(() => this.#look(), Math.floor(this.#pace.waitFrom(Date.now())));
    }
  }

  #take() {
    const device = this.#deviceNow();
    if (device !== this.#device) {
      this.#device = device;
      this.#sequence = 0;
    }
    if (device < 0) {
      return null;
    }
    const answer = this.#native.cameraPreviewGetLatest(device, this.#sequence, this.#ring.target());
    if (answer.result === -1 && !this.#follows) {
      this.#end(null);
      return null;
    }
    if (answer.result !== 0) {
      // A preview that has counted less far is a new one, of which nothing was given yet.
      if (answer.sequence < this.#sequence) {
        this.#sequence = 0;
      }
      return null;
    }
    return this.#describe(answer);
  }

  #describe(answer) {
    const { sequence, width, height, bytesPerRow, pixelFormat, sourceWidth, sourceHeight, timestampMs,
      droppedFrames, producedFrames, producerFps } = answer;
    const missed = this.#sequence > 0 ? sequence - this.#sequence - 1 : 0;
    this.#sequence = sequence;
    this.#pace.saw(answer);
    return { sequence, missed, width, height, bytesPerRow, pixelFormat, sourceWidth, sourceHeight, timestampMs,
      droppedFrames, producedFrames, producerFps, data: this.#ring.keep(answer.data) };
  }

  /** Ends once, whoever asks; those that wait, or the next to ask, learn of `failure` when all is stopped. */
  #end(failure) {
    if (!this.#ended) {
      this.#failure = failure;
      clearTimeout(this.#timer);
      this.#signal?.removeEventListener('abort', this.#onAbort);
      this.#ended = (async () => {
        await this.#owned?.stop();
        this.#settle();
      })();
    }
    return this.#ended;
  }

  async #settle() {
    await this.#ended;
    for (const { resolve, reject } of this.#waiting.splice(0)) {
      if (this.#failure === null) {
        resolve(done(undefined));
      } else {
        reject(this.#failure.error);
        this.#failure = null;
      }
    }
  }
}

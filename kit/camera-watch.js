// Watches a camera: stalled, recovered, lost, found again.

import { EventEmitter } from 'node:events';

import { CameraHealth } from './camera-health.js';
import { expectCameras, findCamera } from './cameras.js';
import { nativeOf } from './native.js';
import { deviceOption, objectOption, positiveOption, signalOption, textOption } from './options.js';
import { readChoices, startChoices, startOwned, stopChoices } from './preview-owner.js';

// Newer than any frame: asks without a copy.
const noSequence = Number.MAX_SAFE_INTEGER;

function readOptions(options) {
  objectOption(options);
  const choices = readChoices(options);
  const stallMs = positiveOption(options, 'stallMs', 800);
  return {
    native: nativeOf(options),
    choices,
    restarts: choices.capture !== null || choices.preview !== null,
    start: options.start === true,
    graceMs: positiveOption(options, 'graceMs', 5000),
    // A slow preview is no stalled one.
    stallMs: Math.max(stallMs, choices.preview ? 3000 / choices.preview.frameRate : 0),
    pollMs: positiveOption(options, 'pollMs', 100),
    searchMs: positiveOption(options, 'searchMs', 1000),
    signal: signalOption(options),
  };
}

/** The camera to watch, { device, uniqueId }. */
function identify(native, options) {
  expectCameras(native);
  if (options.uniqueId !== undefined) {
    const uniqueId = textOption(options, 'uniqueId');
    const device = findCamera(native, uniqueId);
    if (device < 0) {
      throw new Error(`No camera has the unique id ${JSON.stringify(uniqueId)}.`);
    }
    return { device, uniqueId };
  }
  const device = deviceOption(options);
  const uniqueId = native.cameraDeviceUniqueId(device);
  if (uniqueId === '') {
    throw new Error(`Camera ${device} is not there, or has no unique id by which it could be found again.`);
  }
  return { device, uniqueId };
}

/** See index.d.ts. */
export function watchCamera(options = {}) {
  return new CameraWatch(options);
}

export class CameraWatch extends EventEmitter {
  #options;
  #native;
  #health;
  #owned = null;
  #timer;
  #state = 'starting';
  #device;
  #nextSearch = 0;
  #isBusy = false;
  #closed = null;
  #onAbort = () => this.close();

  constructor(options) {
    super();
    this.#options = readOptions(options);
    const { native, choices, start, pollMs, signal } = this.#options;
    signal?.throwIfAborted();
    this.#native = native;
    const { device, uniqueId } = identify(native, options);
    this.#device = device;
    this.uniqueId = uniqueId;
    if (start) {
      this.#owned = startOwned(native, device, choices);
    }
    this.#health = new CameraHealth(this.#options);
    this.#health.start(performance.now());
    this.#timer = setInterval(() => this.#isBusy || this.#tick(performance.now()), pollMs);
    signal?.addEventListener('abort', this.#onAbort, { once: true });
  }

  get device() {
    return this.#device;
  }

  get state() {
    return this.#state;
  }

  close() {
    this.#closed ??= this.#close();
    return this.#closed;
  }

  async #close() {
    const device = this.#device;
    this.#state = 'closed';
    clearInterval(this.#timer);
    this.#options.signal?.removeEventListener('abort', this.#onAbort);
    const { choices, start } = this.#options;
    if (this.#owned) {
      await this.#owned.stop();
    } else if (start && device >= 0) {
      await stopChoices(this.#native, device, choices);
    }
    this.emit('close');
  }

  #tick(now) {
    if (this.#state === 'lost') {
      this.#search(now);
      return;
    }
    const answer = this.#native.cameraPreviewGetLatest(this.#device, noSequence);
    switch (this.#health.look(now, answer)) {
      case 'resting':
        this.#state = 'starting';
        break;
      case 'fine':
        this.#state = 'live';
        break;
      case 'recovered':
        this.#state = 'live';
        this.emit('recovered', { device: this.#device, silentMs: this.#health.silenceMs });
        break;
      case 'failing':
        this.#loseIfMissing(answer);
        break;
      case 'stalled':
        this.#stall(now, answer);
        break;
      default:
    }
  }

  #stall(now, answer) {
    const isNew = this.#state !== 'stalled';
    if (isNew || now >= this.#nextSearch) {
      this.#nextSearch = now + this.#options.searchMs;
      if (this.#loseIfMissing(answer)) {
        return;
      }
      if (this.#health.isFailing && this.#options.restarts) {
        this.#lose('failing', answer);
        return;
      }
    }
    if (isNew) {
      this.#state = 'stalled';
      this.emit('stalled',
        { device: this.#device, silentMs: this.#health.silentMs(now), lastResult: answer.lastResult });
    }
  }

  #loseIfMissing(answer) {
    const isMissing = this.#native.cameraDeviceUniqueId(this.#device) !== this.uniqueId;
    if (isMissing) {
      this.#lose('missing', answer);
    }
    return isMissing;
  }

  /** Frees the camera at once: one that is kept open may come back under another name. */
  async #lose(reason, { lastResult }) {
    const { restarts, choices } = this.#options;
    const device = this.#device;
    this.#state = 'lost';
    this.#device = -1;
    this.#nextSearch = 0;
    this.#isBusy = true;
    this.emit('lost', { uniqueId: this.uniqueId, reason, lastResult });
    if (this.#owned) {
      await this.#owned.stop();
      this.#owned = null;
    } else if (restarts) {
      await stopChoices(this.#native, device, choices);
    }
    this.#isBusy = false;
  }

  #search(now) {
    if (now < this.#nextSearch) {
      return;
    }
    this.#nextSearch = now + this.#options.searchMs;
    const device = findCamera(this.#native, this.uniqueId);
    if (device < 0) {
      return;
    }
    try {
      this.#restart(device);
    } catch (error) {
      this.emit('retry', { device, error });
      return;
    }
    this.#device = device;
    this.#state = 'starting';
    this.#health.start(now, { tellRecovery: true });
    this.emit('found', { device, uniqueId: this.uniqueId });
  }

  #restart(device) {
    const { choices, restarts } = this.#options;
    const runs = this.#native.cameraPreviewGetLatest(device, noSequence).result !== -1;
    if (!restarts || runs) {
      return;
    }
    if (choices.preview && this.#native.cameraPreviewIsRunning()) {
      throw new Error('A preview of another camera is running.');
    }
    startChoices(this.#native, device, choices);
  }
}

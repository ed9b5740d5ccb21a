// The camera: which one, in which format, and its live preview.

import { FrameFeed } from './frame-feed.js';
import { watchCamera } from '../kit/index.js';
import { CallError, cameraMeaning } from '../kit/results.js';

/** Sizes that a preview is reduced to, at most. */
export const previewSizes = [{ width: 960, height: 540 }, { width: 1920, height: 1080 }];

const previewRate = 30;
const firstChoice = { width: 1920, height: 1080, frameRate: 30 };
const countMs = 200;
const retryMs = 1000;

/** The last outcome of a preview, in words. */
const outcome = (lastResult) => `${lastResult}: ${cameraMeaning('lastResult', lastResult)}`;

export class CameraDesk {
  constructor({ native, background, board }) {
    Object.assign(this, { native, background, board });
    this.feed = new FrameFeed(native);
    this.cameras = [];
    this.choice = { camera: null, format: null, preview: 0 };
    this.health = 'stopped';
    this.counters = null;
    this.device = -1;
    this.changing = Promise.resolve();
  }

  /** Loads the library and lists what it sees. */
  async open(library) {
    const loaded = await this.background.call('loadCameraBackend', library);
    if (!loaded.value) {
      throw new Error(`The camera library ${library} was refused: ${loaded.words}`);
    }
    this.expect('cameraInitialize', await this.background.call('cameraInitialize'));
    await this.list();
    this.timer = setInterval(() => this.count(), countMs);
  }

  expect(call, { value }) {
    if (value < 0) {
      throw new CallError({ call, code: value });
    }
  }

  async list() {
    const count = await this.background.call('cameraDevicesCount');
    this.expect('cameraDevicesCount', count);
    const cameras = [];
    for (let index = 0; index < count.value; ++index) {
      const { value: uniqueId } = await this.background.call('cameraDeviceUniqueId', index);
      if (uniqueId !== '') {
        const { value: name } = await this.background.call('cameraDeviceName', index);
        const { value: formats } = await this.background.call('cameraDeviceFormats', index);
        cameras.push({ index, uniqueId, name, formats });
      }
    }
    this.cameras = cameras;
    this.tell();
  }

  get camera() {
    return this.cameras.find(({ uniqueId }) => uniqueId === this.choice.camera);
  }

  /**
   * Takes over a choice, { camera, format, preview } or some of them, and starts the live preview anew;
   * one change after the other.
   */
  choose(changes = {}) {
    const changed = this.changing.then(() => this.change(changes));
    this.changing = changed.catch(() => {});
    return changed;
  }

  async change(changes) {
    const choice = { ...this.choice, ...changes };
    const camera = this.cameras.find(({ uniqueId }) => uniqueId === choice.camera) ?? this.cameras[0];
    if (!camera) {
      throw new Error('The camera library sees no camera.');
    }
    choice.camera = camera.uniqueId;
    if (camera.formats[choice.format] === undefined) {
      choice.format = Math.max(0, camera.formats.findIndex((format) =>
        Object.entries(firstChoice).every(([key, value]) => format[key] === value)));
    }
    await this.halt();
    this.choice = choice;
    await this.start(camera.index);
  }

  async start(device) {
    this.setHealth('starting');
    this.device = device;
    try {
      await this.startCapture(device);
    } catch (error) {
      this.device = -1;
      this.setHealth('stopped');
      throw error;
    }
    this.watch = watchCamera({ native: this.native, device })
      .on('stalled', ({ silentMs, lastResult }) => this.noteHealth('stalled', 'refused',
        `The camera has delivered no frame for ${(silentMs / 1000).toFixed(1)} s` +
        `${lastResult < 0 ? `; the last result is ${outcome(lastResult)}` : ''}`))
      .on('lost', ({ reason, lastResult }) => this.noteHealth('lost', 'refused', reason === 'missing'
        ? 'The camera is not listed any more' : `The camera answers with ${outcome(lastResult)}`))
      .on('found', (found) => this.startAgain(found.device));
  }

  async startCapture(device) {
    this.expect(`cameraStartCapture(${device})`,
      await this.background.call('cameraStartCapture', device, 0, 0, this.choice.format));
    const size = previewSizes[this.choice.preview];
    this.expect('cameraPreviewStart',
      await this.background.call('cameraPreviewStart', device, size.width, size.height, previewRate));
    this.feed.start(device, size, (error) => this.board.log('refused', error.message));
  }

  /** The camera that went away is listed again. */
  async startAgain(device) {
    this.noteHealth('starting', 'seen', 'The camera is listed again');
    this.device = device;
    try {
      await this.list();
      await this.startCapture(device);
    } catch (error) {
      this.board.log('refused', error.message);
      this.retry = setTimeout(() => this.startAgain(device), retryMs);
    }
  }

  /** Ends preview and capture; a recording is finished before, by its owner. */
  stop() {
    const stopped = this.changing.then(() => this.halt());
    this.changing = stopped.catch(() => {});
    return stopped;
  }

  async halt() {
    const { device } = this;
    if (device < 0) {
      return;
    }
    this.device = -1;
    clearTimeout(this.retry);
    await this.watch?.close();
    this.feed.stop();
    await this.background.call('cameraPreviewStop', device);
    await this.background.call('cameraStopCapture', device);
    this.setHealth('stopped');
  }

  noteHealth(health, kind, text) {
    this.board.log(kind, text);
    this.setHealth(health);
  }

  setHealth(health) {
    this.health = health;
    this.tell();
  }

  /** Reads what the preview counts, and whether it lives. */
  count() {
    if (this.device < 0) {
      return;
    }
    if (this.watch?.state === 'live' && this.health !== 'live') {
      this.noteHealth('live', 'seen', 'The camera delivers frames');
    }
    const { droppedFrames, lastResult, producerFps, producedFrames } =
      this.native.cameraPreviewGetLatest(this.device, Number.MAX_SAFE_INTEGER);
    this.counters = { droppedFrames, lastResult, fps: this.health === 'live' ? producerFps : 0, producedFrames };
    this.tell();
  }

  tell() {
    this.board.set({ cameras: this.cameras, choice: this.choice, previewSizes, health: this.health, counters: this.counters });
  }

  async close() {
    clearInterval(this.timer);
    await this.stop();
  }
}

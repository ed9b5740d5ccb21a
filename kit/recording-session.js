// A recording that runs: its progress, and its end.

import { EventEmitter } from 'node:events';
import { stat } from 'node:fs/promises';

import { complaintAbout } from './recording-file.js';
import { CallError, recordingResults } from './results.js';

const noSequence = Number.MAX_SAFE_INTEGER;
// Frames that the recorder passes over are of another size than it was started for; some wait in its queue.
const framesPassedOver = 20;

const sizeOf = (file) => stat(file).then(({ size }) => size, () => 0);

export class Recording extends EventEmitter {
  #native;
  #device;
  #worker;
  #identity;
  #silenceMs;
  #signal;
  #onFinished;
  #timers;
  #isAwaited = false;
  #isMeasuring = false;
  #isOver = false;
  #started = performance.now();
  #progress = { elapsedMs: 0, durationMs: 0, framesWritten: 0, framesDropped: 0, bytes: 0 };
  #endedAt = null;
  #preview;
  #finishing = null;
  #finished;
  #resolveFinished;
  #onAbort = () => this.finish('aborted');
  #onProcessEnd = () => this.finish('process-end');

  /** The recorder has been started; `worker` is closed at the end, and `onFinished` called. */
  constructor({ native, device, worker, file, identity, width, height, frameRate, bitrate, seconds, progressMs, silenceMs,
    signal, warnings, onFinished }) {
    super();
    Object.assign(this, { file, width, height, frameRate, bitrate, warnings: Object.freeze(warnings) });
    this.#native = native;
    this.#device = device;
    this.#worker = worker;
    this.#identity = identity;
    this.#silenceMs = silenceMs;
    this.#signal = signal;
    this.#onFinished = onFinished;
    this.#finished = new Promise((resolve) => (this.#resolveFinished = resolve));
    const { sequence } = native.cameraPreviewGetLatest(device, noSequence);
    this.#preview = { sequence, taken: 0, changedAt: this.#started };
    this.#timers = [setInterval(() => this.#tick(), progressMs).unref()];
    if (seconds !== undefined) {
      this.#timers.push(setTimeout(() => this.finish('seconds'), seconds * 1000));
    }
    this.on('newListener', () => queueMicrotask(() => this.#keepAlive())).on('removeListener', () => this.#keepAlive());
    signal?.addEventListener('abort', this.#onAbort, { once: true });
    process.on('beforeExit', this.#onProcessEnd);
    setImmediate(() => warnings.forEach((warning) => this.emit('warning', warning)));
  }

  /** Who asks for it waits for it. */
  get finished() {
    this.#isAwaited = true;
    this.#keepAlive();
    return this.#finished;
  }

  get progress() {
    return this.#progress;
  }

  async stop() {
    const result = await this.finish('stopped');
    if (result.error) {
      throw result.error;
    }
    return result;
  }

  /** Finishes the file, once; everybody gets the one result. Never rejected. */
  finish(reason) {
    this.#finishing ??= this.#finish(reason);
    return this.#finishing;
  }

  async *[Symbol.asyncIterator]() {
    let wake;
    let newest = null;
    const onProgress = (progress) => {
      newest = progress;
      wake?.();
    };
    const onEnd = () => wake?.();
    this.on('progress', onProgress).on('end', onEnd);
    try {
      while (newest || !this.#isOver) {
        if (newest) {
          const progress = newest;
          newest = null;
          yield progress;
        } else {
          await new Promise((resolve) => (wake = resolve));
        }
      }
    } finally {
      this.off('progress', onProgress).off('end', onEnd);
    }
    const { error } = await this.#finished;
    if (error) {
      throw error;
    }
  }

  /** As long as somebody listens or waits, the process goes on; a recording that was left alone must not hold it. */
  #keepAlive() {
    const isHeard = this.listenerCount('progress') + this.listenerCount('end') > 0;
    this.#timers[0][isHeard || this.#isAwaited ? 'ref' : 'unref']();
  }

  async #tick() {
    const status = this.#native.cameraRecordingStatus();
    const reason = this.#endOf(status);
    if (reason) {
      this.finish(reason);
      return;
    }
    // On a slow disk the last look may still be under way: progress comes in its order.
    if (this.#isMeasuring) {
      return;
    }
    this.#isMeasuring = true;
    await this.#measure(status);
    this.#isMeasuring = false;
    if (!this.#finishing) {
      this.emit('progress', this.#progress);
    }
  }

  /** Why the recording is over although nobody ended it; null if it is not. */
  #endOf(status) {
    if (status.outputPath !== this.file) {
      return 'ended-elsewhere';
    }
    if (!status.recording) {
      return status.error ? 'failed' : 'ended-elsewhere';
    }
    return this.#isPreviewLost(status) ? 'preview-lost' : null;
  }

  #isPreviewLost({ framesWritten, framesDropped }) {
    const { result, sequence } = this.#native.cameraPreviewGetLatest(this.#device, noSequence);
    const now = performance.now();
    const taken = framesWritten + framesDropped;
    if (sequence !== this.#preview.sequence && taken !== this.#preview.taken) {
      this.#preview = { sequence, taken, changedAt: now };
    }
    const passedOver = taken === this.#preview.taken && sequence - this.#preview.sequence >= framesPassedOver;
    return result === -1 || passedOver || now - this.#preview.changedAt > this.#silenceMs;
  }

  async #measure({ durationMs, framesWritten, framesDropped }) {
    const elapsedMs = (this.#endedAt ?? performance.now()) - this.#started;
    const bytes = await sizeOf(this.file);
    this.#progress = { elapsedMs, durationMs, framesWritten, framesDropped, bytes };
  }

  async #finish(reason) {
    this.#endedAt = performance.now();
    this.#timers.forEach((timer) => clearTimeout(timer));
    this.#signal?.removeEventListener('abort', this.#onAbort);
    process.off('beforeExit', this.#onProcessEnd);
    const error = await this.#stopRecorder();
    const { file, width, height } = this;
    const result = { file, width, height, ...this.#progress, reason: error ? 'failed' : reason, error };
    await this.#worker.close();
    this.#onFinished();
    this.#isOver = true;
    this.#resolveFinished(result);
    // A listener that throws must not make a finished recording look like a failed one.
    queueMicrotask(() => this.emit('end', result));
    return result;
  }

  /** Why the file is not what it should be; null if it is. */
  async #stopRecorder() {
    try {
      // Another recording is none of ours.
      const isOurs = this.#native.cameraRecordingStatus().outputPath === this.file;
      const { value, words } = isOurs ? await this.#worker.call('cameraRecordingStop') : { value: 0 };
      const status = this.#native.cameraRecordingStatus();
      if (isOurs) {
        await this.#measure(status);
      }
      if (value < 0) {
        return new CallError({ call: 'cameraRecordingStop', code: value, words, meanings: recordingResults });
      }
      return await this.#errorOfFile(isOurs ? status.framesWritten : undefined);
    } catch (error) {
      return error;
    }
  }

  /** The recorder's own word counts for what it wrote, not for what stands under the file's name in the end. */
  async #errorOfFile(framesWritten) {
    const complaint = await complaintAbout(this.file, { identity: this.#identity, framesWritten });
    return complaint ? new Error(`The recording is not whole: ${complaint}.`) : null;
  }
}

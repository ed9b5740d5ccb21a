// Recording a preview into a file that is finished whatever happens.

import { setTimeout as sleep } from 'node:timers/promises';

import { addonFileOf, nativeOf } from './native.js';
import { NativeWorker } from './native-worker.js';
import { releaseRecorder, takeRecorder } from './open-recordings.js';
import { describe, deviceOption, objectOption, positiveOption, signalOption, textOption, wholeOption } from './options.js';
import { Recording } from './recording-session.js';
import { refusalOfSize, usualBitrate, warningsFor } from './recording-plan.js';
import { CallError, recordingResults } from './results.js';

const lookMs = 10;
// Timers go no further.
const mostSeconds = 2_147_483;

function readOptions(options) {
  objectOption(options);
  const { bitrate } = options;
  if (bitrate !== undefined) {
    wholeOption(options, 'bitrate', { least: 100_000, most: 100_000_000 });
  }
  const file = textOption(options, 'file');
  if (file.includes('\0')) {
    throw new TypeError(`\`file\` takes a path, not ${describe(file)}.`);
  }
  const native = nativeOf(options);
  return {
    native,
    addonFile: addonFileOf(native, options.addonFile),
    device: deviceOption(options),
    file,
    bitrate,
    frameRate: wholeOption(options, 'frameRate', { fallback: 30, least: 1, most: 120 }),
    seconds: readSeconds(options),
    progressMs: positiveOption(options, 'progressMs', 250),
    silenceMs: positiveOption(options, 'silenceMs', 5000),
    signal: signalOption(options),
  };
}

function readSeconds(options) {
  const seconds = positiveOption(options, 'seconds');
  if (seconds > mostSeconds) {
    throw new RangeError(`\`seconds\` takes at most ${mostSeconds}, not ${seconds}.`);
  }
  return seconds;
}

/** The first frame of a preview, for its size; its pixels are of no use here. */
async function firstFrame({ native, device, silenceMs, signal }) {
  const deadline = performance.now() + silenceMs;
  for (;;) {
    const frame = native.cameraPreviewGetLatest(device);
    if (frame.result === 0) {
      return frame;
    }
    if (frame.result === -1) {
      throw new Error(`No preview of camera ${device} is running: there is nothing to record.`);
    }
    if (performance.now() > deadline) {
      throw new Error(`The preview of camera ${device} has had no frame for ${silenceMs / 1000} s.`);
    }
    await sleep(lookMs, undefined, { signal });
  }
}

function planFor(options, frame) {
  const refusal = refusalOfSize(frame);
  if (refusal) {
    throw new Error(refusal);
  }
  const { width, height } = frame;
  const { frameRate } = options;
  return { width, height, frameRate, bitrate: options.bitrate ?? usualBitrate({ width, height, frameRate }) };
}

/** Opens the encoder on the worker's thread; what it refuses is told in words. */
async function start(worker, file, { width, height, frameRate, bitrate }) {
  const present = (await worker.call('cameraRecordingStatus')).value;
  if (!present.available) {
    throw new Error('No FFmpeg of the generation that recording needs was found, or it has no H.264 encoder: ' +
      'ostrel-doctor tells what was looked for.');
  }
  if (present.recording) {
    throw new Error(`A recording is running already, to ${present.outputPath}: stop it first.`);
  }
  const { value, words } = await worker.call('cameraRecordingStart', file, width, height, frameRate, bitrate);
  if (value < 0) {
    // A recorder that failed keeps its thread until somebody stops it.
    await worker.call('cameraRecordingStop');
    throw new CallError({ call: 'cameraRecordingStart', code: value, words, meanings: recordingResults });
  }
}

/** See index.d.ts. */
export async function record(options) {
  const choice = readOptions(options);
  const { native, file, signal } = choice;
  signal?.throwIfAborted();
  // Whoever wants the recording finished while it starts waits for that.
  const holder = { file, finish: (reason) => opening.then((recording) => recording.finish(reason), () => {}) };
  takeRecorder(native, holder);
  const opening = open(choice, holder);
  try {
    return await opening;
  } catch (error) {
    releaseRecorder(native, holder);
    throw signal?.aborted ? signal.reason : error;
  }
}

async function open(choice, holder) {
  const worker = new NativeWorker(choice.addonFile);
  try {
    const frame = await firstFrame(choice);
    const plan = planFor(choice, frame);
    await start(worker, choice.file, plan);
    const recording = new Recording({ ...choice, ...plan, worker, warnings: warningsFor(frame),
      onFinished: () => releaseRecorder(choice.native, holder) });
    if (choice.signal?.aborted) {
      await recording.finish('aborted');
      choice.signal.throwIfAborted();
    }
    return recording;
  } catch (error) {
    await worker.close();
    throw error;
  }
}

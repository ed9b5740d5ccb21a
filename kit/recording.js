// Recording a preview into a file that is finished whatever happens.

import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { addonFileOf, nativeOf } from './native.js';
import { NativeWorker } from './native-worker.js';
import { releaseRecorder, takeRecorder } from './open-recordings.js';
import { describe, deviceOption, objectOption, positiveOption, signalOption, textOption, wholeOption } from './options.js';
import { claimFile, identityOf } from './recording-file.js';
import { nominalRate, refusalOfSize, usualBitrate, warningsFor } from './recording-plan.js';
import { Recording } from './recording-session.js';
import { CallError, recordingResults } from './results.js';

const lookMs = 10;
const noSequence = Number.MAX_SAFE_INTEGER;
// A preview knows its rate after its first second, or at the frame after that.
const longestMeasuringMs = 2500;
const usualMode = 0o640;
// Timers go no further.
const mostSeconds = 2_147_483;

function readOptions(options) {
  objectOption(options);
  const { bitrate, frameRate } = options;
  if (bitrate !== undefined) {
    wholeOption(options, 'bitrate', { least: 100_000, most: 100_000_000 });
  }
  if (frameRate !== undefined) {
    wholeOption(options, 'frameRate', { least: 1, most: 120 });
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
    // The working directory may change while it is recorded.
    file: path.resolve(file),
    mode: wholeOption(options, 'mode', { fallback: usualMode, least: 0, most: 0o777 }),
    bitrate,
    frameRate,
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

/** The rate that the preview has measured of itself; 0 if it takes too long or the preview has gone. */
async function measuredRate({ native, device, signal }) {
  const deadline = performance.now() + longestMeasuringMs;
  for (;;) {
    const { result, producerFps } = native.cameraPreviewGetLatest(device, noSequence);
    if (producerFps > 0 || result === -1 || performance.now() > deadline) {
      return producerFps;
    }
    await sleep(lookMs, undefined, { signal });
  }
}

function planFor(options, frame, producerFps) {
  const refusal = refusalOfSize(frame);
  if (refusal) {
    throw new Error(refusal);
  }
  const { width, height } = frame;
  const frameRate = options.frameRate ?? nominalRate(producerFps);
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

/** Leaves no empty file behind where the recorder refuses. */
async function startInto(worker, { file, mode }, plan) {
  const claim = await claimFile(file, mode);
  try {
    await start(worker, file, plan);
  } catch (error) {
    await claim.abandon();
    throw error;
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
    let frame = await firstFrame(choice);
    let producerFps = 0;
    if (choice.frameRate === undefined && !refusalOfSize(frame)) {
      producerFps = await measuredRate(choice);
      frame = await firstFrame(choice);
    }
    const plan = planFor(choice, frame, producerFps);
    await startInto(worker, choice, plan);
    const identity = await identityOf(choice.file);
    const recording = new Recording({ ...choice, ...plan, identity, worker, warnings: warningsFor(frame),
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

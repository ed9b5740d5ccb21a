// From a camera to a live preview, an MP4 and a still: what an application does with the addon.
//
//   node examples/first-run.js [--library FILE] [--seconds N] [--direct]
//
// The camera library is that of the virtual microscope unless --library names another one, or the variable
// OSTREL_NATIVE_DIR the directory that holds libcnokhwa.so.
//
// --direct shows frames without a copy. No camera library of Linux can do that, so it takes a build of the
// addon that also loads the virtual microscope's libraries with a frame callback: libreference_dshow.so
// unless --library names libreference_avf.so.

import { mkdir, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { parseArgs } from 'node:util';

import sharp from 'sharp';

import { LiveLine } from '../scripts/lib/live-line.js';
import { DirectPreview } from './lib/direct-preview.js';
import { findEncoderName } from './lib/encoder-name.js';
import { buildDirectory, directAddon, loadAddon } from './lib/load-addon.js';
import { withPixelSize } from './lib/png.js';
import { programArguments } from './lib/program-arguments.js';
import { heading, recordingsDirectory, row, runExample, timeName } from './lib/report.js';
import { CallError, check, recordingResults } from './lib/results.js';

const device = 0;
const captureSize = { width: 1920, height: 1080, frameRate: 30 };
const previewSize = { width: 960, height: 540 };
const bitrate = 4_000_000;
const firstFrameSeconds = 5;
const windowRefreshMs = 16;

function readArguments() {
  const { values } = parseArgs({ options: programArguments['first-run'].options });
  const seconds = Number(values.seconds);
  if (!(seconds > 0)) {
    throw new Error('--seconds takes a number above zero.');
  }
  const directory = process.env.OSTREL_NATIVE_DIR || path.join(buildDirectory, 'simulator');
  const name = values.direct ? 'libreference_dshow.so' : 'libcnokhwa.so';
  return { library: values.library ?? path.join(directory, name), seconds, direct: values.direct };
}

function openCamera(addon, library) {
  heading('Camera library');
  if (!addon.loadCameraBackend(library)) {
    throw new Error(`${library} was refused: ${addon.getLastError()}\nName a camera library with --library FILE.`);
  }
  check(addon, 'cameraInitialize', addon.cameraInitialize(), 'Is the camera library the right one for this system?');
  const authorisation = addon.cameraHasVideoCaptureAuth();
  if (authorisation !== addon.STATUS_AUTHORIZED) {
    addon.cameraAskVideoCaptureAuth();
    throw new CallError(addon, 'cameraHasVideoCaptureAuth', authorisation,
      'Allow this program to use the camera, then run it again.');
  }
  row(addon.cameraBackend(), addon.cameraLoadPath());
}

function listCameras(addon) {
  heading('Cameras and formats');
  for (let index = 0; index < addon.cameraDevicesCount(); ++index) {
    row(`camera ${index}`, `${addon.cameraDeviceName(index)} (${addon.cameraDeviceUniqueId(index)})`);
    addon.cameraDeviceFormats(index).forEach(({ width, height, frameRate, type }, format) => {
      const size = `${String(width).padStart(4)} x ${String(height).padEnd(4)}`;
      row(`    format ${format}`, `${size}  ${String(frameRate).padStart(3)} fps  ${type}`);
    });
  }
}

/** The index of the format to capture; the addon leaves that choice to its caller. */
function chooseFormat(addon) {
  if (addon.cameraDevicesCount() < 1) {
    throw new Error('The camera library sees no camera. Connect one, then run this again.');
  }
  const index = addon.cameraDeviceFormats(device).findIndex((format) =>
    Object.entries(captureSize).every(([key, value]) => format[key] === value));
  if (index < 0) {
    const { width, height, frameRate } = captureSize;
    throw new Error(`Camera ${device} has no format of ${width} x ${height} at ${frameRate} fps. ` +
      'Set captureSize in this example to one of those above.');
  }
  return index;
}

/** The preview that copies each frame, reduced, into one array that is used again and again. */
class CopyingPreview {
  constructor(addon) {
    this.addon = addon;
    this.target = new Uint8Array(previewSize.width * previewSize.height * 4);
  }

  start(frameRate) {
    check(this.addon, 'cameraPreviewStart',
      this.addon.cameraPreviewStart(device, previewSize.width, previewSize.height, frameRate),
      'A preview needs a camera index of zero or more.');
  }

  take(sequence) {
    return this.addon.cameraPreviewGetLatest(device, sequence, this.target);
  }

  rows({ producedFrames, droppedFrames }) {
    return [['frames produced', `${producedFrames} by the preview`], ['frames dropped', `${droppedFrames} by the preview`]];
  }
}

/** Asks until `look` gives an answer with result 0; a camera that never gives one must not hang its program. */
async function waitForCamera(addon, call, look) {
  const deadline = performance.now() + firstFrameSeconds * 1000;
  for (;;) {
    const answer = look();
    if (answer.result === addon.RESULT_OK) {
      return answer;
    }
    if (performance.now() > deadline) {
      throw new CallError(addon, `${call}, asked for ${firstFrameSeconds} seconds,`, answer.lastResult,
        'Is the camera in use by another program, or asleep?');
    }
    await sleep(windowRefreshMs);
  }
}

/**
 * Does what a window does while a recording runs: fetches each new preview frame. Gives what was
 * seen.
 */
async function watchPreview(addon, preview, firstFrame, seconds) {
  let interrupted = false;
  const interrupt = () => (interrupted = true);
  // One Ctrl+C comes twice: from the terminal, and once more from npm.
  process.on('SIGINT', interrupt);
  const line = new LiveLine({ quietSeconds: 2 });
  const seen = { frames: 0, seconds: 0, latest: firstFrame, still: null };
  const started = performance.now();
  while (!interrupted && seen.seconds < seconds) {
    const frame = preview.take(seen.latest.sequence);
    if (frame.result === addon.RESULT_OK) {
      // Here a window would paint frame.data.
      ++seen.frames;
      seen.latest = frame;
    }
    seen.seconds = (performance.now() - started) / 1000;
    if (!seen.still && seen.seconds > seconds / 2) {
      seen.still = addon.cameraPreviewGetLatestQualityFrame(device, 0);
    }
    const { framesWritten, framesDropped, recording, error } = addon.cameraRecordingStatus();
    if (!recording) {
      throw new Error(`The recording ended by itself: ${error}\nThe file so far is kept.`);
    }
    if (seen.seconds > 1) {
      line.update(`  ${seen.seconds.toFixed(1).padStart(4)} of ${seconds} s  ${framesWritten} frames written  ` +
        `${(seen.frames / seen.seconds).toFixed(1)} previews a second  ${framesDropped} dropped`);
    }
    await sleep(windowRefreshMs);
  }
  line.clear();
  process.removeListener('SIGINT', interrupt);
  seen.still ??= addon.cameraPreviewGetLatestQualityFrame(device, 0);
  return seen;
}

async function saveStill({ width, height, pixelFormat, data }, file) {
  const image = sharp(data, { raw: { width, height, channels: pixelFormat === 'bgra' ? 4 : 3 } });
  await writeFile(file, withPixelSize(await image.png({ compressionLevel: 3 }).toBuffer()));
}

async function describeFile(file) {
  return `${file}  (${((await stat(file)).size / 1e6).toFixed(1)} MB)`;
}

/** Records while the preview runs; gives what was seen. */
async function record(addon, preview, file, seconds) {
  // The recorder takes the preview's frames as they come, so it must be given their real size.
  const firstFrame = await waitForCamera(addon, 'lastResult of cameraPreviewGetLatest', () => preview.take(0));
  const { width, height, sourceWidth, sourceHeight, pixelFormat, producerMode } = firstFrame;
  row('preview', `${width} x ${height} in ${pixelFormat}, from ${sourceWidth} x ${sourceHeight}, by ${producerMode}`);
  check(addon, 'cameraRecordingStart',
    addon.cameraRecordingStart(file, width, height, captureSize.frameRate, bitrate),
    'Is FFmpeg in natives/x64 (run "npm start"), and is the folder writable?', recordingResults);
  row('recording', `${seconds} seconds (Ctrl+C ends it earlier)`);
  let stopped;
  let seen;
  try {
    seen = await watchPreview(addon, preview, firstFrame, seconds);
  } finally {
    stopped = addon.cameraRecordingStop();
  }
  check(addon, 'cameraRecordingStop', stopped, 'Is the disk full?', recordingResults);
  return seen;
}

/** Captures, shows and records; everything is stopped again, also after a failure. */
async function runLive(addon, preview, format, video, seconds) {
  heading('Live');
  row('capture', `camera ${device}, format ${format}`);
  check(addon, 'cameraStartCapture', addon.cameraStartCapture(device, 0, 0, format),
    'Is the camera in use by another program?');
  let stopped;
  let seen;
  try {
    await waitForCamera(addon, 'cameraHasFirstFrame', () => {
      const result = addon.cameraHasFirstFrame(device);
      return { result, lastResult: result };
    });
    preview.start(captureSize.frameRate);
    seen = await record(addon, preview, video, seconds);
  } finally {
    addon.cameraPreviewStop(device);
    stopped = addon.cameraStopCapture(device);
  }
  check(addon, 'cameraStopCapture', stopped, 'Was the camera unplugged?');
  return seen;
}

async function report(addon, preview, seen, video, picture) {
  const { framesWritten, framesDropped, durationMs } = addon.cameraRecordingStatus();
  const { latest, still } = seen;
  check(addon, 'cameraPreviewGetLatestQualityFrame', still.result, 'The camera delivered no full frame.');
  await saveStill(still, picture);
  heading('Measured');
  preview.rows(latest).forEach(([label, text]) => row(label, text));
  row('frames written', `${framesWritten}, over ${(durationMs / 1000).toFixed(2)} seconds, ${framesDropped} dropped by the recorder`);
  row('preview', `${(seen.frames / seen.seconds).toFixed(1)} frames a second shown`);
  row('encoder', await findEncoderName(video));
  heading('Files');
  row('video', await describeFile(video));
  row('still', `${await describeFile(picture)}  ${still.width} x ${still.height}`);
}

async function main() {
  const { library, seconds, direct } = readArguments();
  const addon = direct ? loadAddon(directAddon) : loadAddon();
  openCamera(addon, library);
  listCameras(addon);
  const format = chooseFormat(addon);
  await mkdir(recordingsDirectory, { recursive: true });
  const name = timeName();
  const video = path.join(recordingsDirectory, `${name}.mp4`);
  const preview = direct ? new DirectPreview(addon, device) : new CopyingPreview(addon);
  const seen = await runLive(addon, preview, format, video, seconds);
  await report(addon, preview, seen, video, path.join(recordingsDirectory, `${name}.png`));
}

await runExample(main);

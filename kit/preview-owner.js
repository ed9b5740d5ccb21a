// Starting capture and preview for somebody who stops them again.

import { finishRecordings } from './open-recordings.js';
import { objectOption, wholeOption } from './options.js';
import { CallError } from './results.js';

const largest = 2 ** 31 - 1;
const previewDefaults = { width: 960, height: 540, frameRate: 30 };

/** The devices that the kit captures, for each native object. */
const captured = new WeakMap();

/** What `capture` and `preview` among the options ask for; null where they do not. */
export function readChoices({ capture, preview }) {
  return { capture: capture === undefined ? null : readCapture(capture), preview: preview === undefined ? null : readPreview(preview) };
}

function readCapture(capture) {
  objectOption(capture, 'capture');
  return {
    format: wholeOption(capture, 'format', { fallback: -1, least: -1, most: largest }),
    width: wholeOption(capture, 'width', { fallback: 0, least: 0, most: largest }),
    height: wholeOption(capture, 'height', { fallback: 0, least: 0, most: largest }),
  };
}

function readPreview(preview) {
  objectOption(preview, 'preview');
  return Object.fromEntries(Object.entries(previewDefaults).map(([name, fallback]) =>
    [name, wholeOption(preview, name, { fallback, least: 1, most: name === 'frameRate' ? 120 : 16384 })]));
}

function check(call, code) {
  if (code < 0) {
    throw new CallError({ call, code });
  }
}

/** Starts what was chosen on `device`, all of it or nothing; throws where the camera refuses. */
export function startChoices(native, device, { capture, preview }) {
  if (capture) {
    check(`cameraStartCapture for camera ${device}`,
      native.cameraStartCapture(device, capture.width, capture.height, capture.format));
  }
  try {
    if (preview) {
      check(`cameraPreviewStart for camera ${device}`,
        native.cameraPreviewStart(device, preview.width, preview.height, preview.frameRate));
    }
  } catch (error) {
    if (capture) {
      native.cameraStopCapture(device);
    }
    throw error;
  }
}

/** Stops what was chosen. A recording is finished first, off this thread: stopping a capture would finish it on it. */
export async function stopChoices(native, device, { capture, preview }) {
  await finishRecordings(native, 'preview-lost');
  if (preview) {
    native.cameraPreviewStop(device);
  }
  if (capture) {
    native.cameraStopCapture(device);
  }
}

/**
 * Starts what was chosen for one owner, and refuses where something of the kind runs already: a native
 * start would silently stop that. The owner calls `stop`, as often as it likes.
 */
export function startOwned(native, device, choices) {
  const devices = captured.get(native) ?? new Set();
  captured.set(native, devices);
  if (choices.capture && devices.has(device)) {
    throw new Error(`Camera ${device} is being captured already: leave out \`capture\` to share it.`);
  }
  if (choices.preview && native.cameraPreviewIsRunning()) {
    throw new Error('A preview is running already: leave out `preview` to share it, or stop it first.');
  }
  startChoices(native, device, choices);
  if (choices.capture) {
    devices.add(device);
  }
  const stop = async () => {
    await stopChoices(native, device, choices);
    if (choices.capture) {
      devices.delete(device);
    }
  };
  let stopped;
  return { stop: () => (stopped ??= stop()) };
}

// A focus stack from beginning to end: drive the focus of an Ostrel microscope through the
// specimen, take a still at each step, and fuse them into one picture that is sharp everywhere.
//
//   npm run example:stack -- [--from N] [--to N] [--steps N] [--width N] [--output FOLDER]
//
// Camera and microscope are the virtual ones of this project unless the variable OSTREL_NATIVE_DIR
// names the directory that holds libcnokhwa.so and libostrel.so.

import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { parseArgs } from 'node:util';

import { Step } from '../scripts/lib/output.js';
import { fewestFrames, mostFrames } from '../kit/focus-stack/measure-stack.js';
import { loadAddon } from './lib/load-addon.js';
import { programArguments } from './lib/program-arguments.js';
import { heading, recordingsDirectory, row, runExample, timeName, userPath } from './lib/report.js';
import { check, expectDone } from './lib/results.js';
import { fuseFrames, printFrames, writeStackResult } from './lib/stack-result.js';
import { simulatedLibrary } from './lib/virtual-microscope.js';

const device = 0;
const largestSide = 16384;
const firstFrameSeconds = 5;

function readArguments() {
  const { values } = parseArgs({ options: programArguments.stack.options });
  const [from, to, steps] = [values.from, values.to, values.steps ?? mostFrames].map(Number);
  if (![from, to].every((position) => Number.isInteger(position) && position >= 0 && position <= 255)) {
    throw new Error('--from and --to take focus positions from 0 to 255.');
  }
  if (!(Number.isInteger(steps) && steps >= fewestFrames && steps <= mostFrames)) {
    throw new Error(`--steps takes a number from ${fewestFrames} to ${mostFrames}.`);
  }
  const output = values.output ? userPath(values.output) : path.join(recordingsDirectory, `${timeName()}-stack`);
  return { from, to, steps, width: values.width ? Number(values.width) : null, output };
}

function libraryPath(name) {
  const directory = process.env.OSTREL_NATIVE_DIR;
  return directory ? path.join(directory, name) : simulatedLibrary(name);
}

async function openInstrument(addon) {
  expectDone(addon, addon.loadCameraBackend(libraryPath('libcnokhwa.so')), 'loadCameraBackend');
  check(addon, 'cameraInitialize', addon.cameraInitialize(), 'Is the camera library the right one for this system?');
  expectDone(addon, addon.loadOstrel(libraryPath('libostrel.so')).ok, 'loadOstrel');
  expectDone(addon, await addon.ostrelSelectDeviceAsync(device), `ostrelSelectDeviceAsync(${device})`);
  expectDone(addon, addon.ostrelCapabilities().focus, 'Driving the focus');
  row('camera', addon.cameraDeviceName(device));
  row('microscope', addon.ostrelDeviceFriendlyName(device));
}

/** Starts the largest format, or the one of a width, and waits for its first frame. */
async function startCapture(addon, width) {
  const formats = addon.cameraDeviceFormats(device);
  const fitting = formats.filter((format) => width === null || format.width === width);
  if (fitting.length === 0) {
    throw new Error(`Camera ${device} has no format ${width} pixels wide, but ${formats.map((format) => format.width).join(', ')}.`);
  }
  const largest = fitting.reduce((a, b) => (b.width * b.height > a.width * a.height ? b : a));
  check(addon, 'cameraStartCapture', addon.cameraStartCapture(device, 0, 0, formats.indexOf(largest)),
    'Is the camera in use by another program?');
  const deadline = performance.now() + firstFrameSeconds * 1000;
  while (addon.cameraHasFirstFrame(device) !== 0) {
    if (performance.now() > deadline) {
      throw new Error(`The camera delivered no frame within ${firstFrameSeconds} seconds.`);
    }
    await sleep(10);
  }
}

/** A still of the full size. */
function grabStill(addon) {
  // The newest frame, and the one under way, may have been exposed while the focus still moved.
  addon.cameraGrabFrameRgba(device, 1, 1);
  addon.cameraGrabFrameRgba(device, 1, 1);
  const { result, width, height, data } = addon.cameraGrabFrameRgba(device, largestSide, largestSide);
  check(addon, 'cameraGrabFrameRgba', result, 'Was the camera unplugged?');
  return { width, height, rgba: new Uint8Array(data.buffer, data.byteOffset, data.length) };
}

/** One still at each focus position. */
async function takeStack(addon, { from, to, steps }) {
  const taking = new Step('taking stills');
  const stack = [];
  for (let i = 0; i < steps; ++i) {
    const position = Math.round(from + (to - from) * i / (steps - 1));
    taking.progress(`${i + 1} of ${steps}, focus at ${position}`);
    expectDone(addon, await addon.ostrelSetFocusPositionAsync(position), `ostrelSetFocusPositionAsync(${position})`);
    stack.push({ frame: grabStill(addon), position: addon.ostrelGetFocusPosition() });
  }
  const { width, height } = stack[0].frame;
  taking.done(`${steps} of ${width} x ${height}`);
  return stack;
}

async function captureStack(addon, choice) {
  await openInstrument(addon);
  expectDone(addon, await addon.ostrelSetLedStateAsync(true), 'ostrelSetLedStateAsync');
  await startCapture(addon, choice.width);
  try {
    return await takeStack(addon, choice);
  } finally {
    addon.cameraStopCapture(device);
    await addon.ostrelDisposeAsync();
  }
}

async function main() {
  const choice = readArguments();
  // The specimen of the virtual microscope has to stand still, without numbers on the pictures.
  process.env.OSTREL_SIMULATOR_STAGE ??= '0:0';
  process.env.OSTREL_SIMULATOR_NUMBERS ??= '0';
  const addon = loadAddon();
  heading('Focus stack');
  const stack = await captureStack(addon, choice);
  const frames = stack.map(({ frame }) => frame);
  const fused = await fuseFrames(addon, frames, frames.length);
  printFrames('focus', stack.map(({ position }) => String(position).padStart(5)), fused);
  await writeStackResult(choice.output, frames, fused);
}

await runExample(main);

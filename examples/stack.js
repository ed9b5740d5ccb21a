// A focus stack from beginning to end: drive the focus of an Ostrel microscope through the
// specimen, take a still at each step, and fuse them into one picture that is sharp everywhere.
//
//   npm run example:stack -- [--from N] [--to N] [--steps N] [--width N] [--output FOLDER]
//
// Camera and microscope are the virtual ones of this project unless the variable OSTREL_NATIVE_DIR
// names the directory that holds libcnokhwa.so and libostrel.so.

import { mkdir } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { Step } from '../scripts/lib/output.js';
import { writeContactSheet } from './lib/contact-sheet.js';
import { analyseFrame, fewestFrames, makeRequest, measureStack, mostFrames } from './lib/focus-stack/measure-stack.js';
import { loadAddon } from './lib/load-addon.js';
import { writePng } from './lib/pictures.js';
import { check } from './lib/results.js';
import { simulatedLibrary } from './lib/virtual-microscope.js';

const recordingsDirectory = fileURLToPath(new URL('../recordings', import.meta.url));
const device = 0;
const largestSide = 16384;
const firstFrameSeconds = 5;

function readArguments() {
  const { values } = parseArgs({
    options: {
      from: { type: 'string', default: '48' },
      to: { type: 'string', default: '208' },
      steps: { type: 'string', default: String(mostFrames) },
      width: { type: 'string' },
      output: { type: 'string' },
    },
  });
  const [from, to, steps] = [values.from, values.to, values.steps].map(Number);
  if (![from, to].every((position) => Number.isInteger(position) && position >= 0 && position <= 255)) {
    throw new Error('--from and --to take focus positions from 0 to 255.');
  }
  if (!(Number.isInteger(steps) && steps >= fewestFrames && steps <= mostFrames)) {
    throw new Error(`--steps takes a number from ${fewestFrames} to ${mostFrames}.`);
  }
  // npm starts scripts in the project's folder and tells where the user is.
  const resolve = (folder) => path.resolve(process.env.INIT_CWD ?? '.', folder);
  // This locale writes a date as 2000-12-31 23:59:59.
  const date = new Date().toLocaleString('sv-SE').replace(/[ :]/g, '-');
  const output = values.output ? resolve(values.output) : path.join(recordingsDirectory, `${date}-stack`);
  return { from, to, steps, width: values.width ? Number(values.width) : null, output };
}

const seconds = (milliseconds) => `${(milliseconds / 1000).toFixed(1)} s`;
const heading = (text) => console.log(`\n${text}`);
const row = (label, text) => console.log(`  ${label.padEnd(20)}  ${text}`);

function libraryPath(name) {
  const directory = process.env.OSTREL_NATIVE_DIR;
  return directory ? path.join(directory, name) : simulatedLibrary(name);
}

/** Throws what the addon and the library have to say, unless a call has done what it should. */
function expect(addon, done, call) {
  if (!done) {
    throw new Error(`${call} failed: ${addon.ostrelLastError() || addon.getLastError() || 'no reason given'}`);
  }
}

async function openInstrument(addon) {
  expect(addon, addon.loadCameraBackend(libraryPath('libcnokhwa.so')), 'loadCameraBackend');
  check(addon, 'cameraInitialize', addon.cameraInitialize(), 'Is the camera library the right one for this system?');
  expect(addon, addon.loadOstrel(libraryPath('libostrel.so')).ok, 'loadOstrel');
  expect(addon, await addon.ostrelSelectDeviceAsync(device), `ostrelSelectDeviceAsync(${device})`);
  expect(addon, addon.ostrelCapabilities().focus, 'Driving the focus');
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

/** One still at each focus position, with what has to be measured of it alone. */
async function takeStack(addon, { from, to, steps }) {
  const taking = new Step('taking stills');
  const stack = [];
  for (let i = 0; i < steps; ++i) {
    const position = Math.round(from + (to - from) * i / (steps - 1));
    taking.progress(`${i + 1} of ${steps}, focus at ${position}`);
    expect(addon, await addon.ostrelSetFocusPositionAsync(position), `ostrelSetFocusPositionAsync(${position})`);
    const frame = grabStill(addon);
    stack.push({ position: addon.ostrelGetFocusPosition(), frame, analysis: analyseFrame(frame) });
  }
  const { width, height } = stack[0].frame;
  taking.done(`${steps} of ${width} x ${height}, measured one by one`);
  return stack;
}

async function captureStack(addon, choice) {
  await openInstrument(addon);
  expect(addon, await addon.ostrelSetLedStateAsync(true), 'ostrelSetLedStateAsync');
  await startCapture(addon, choice.width);
  try {
    return await takeStack(addon, choice);
  } finally {
    addon.cameraStopCapture(device);
    await addon.ostrelDisposeAsync();
  }
}

function printFrames(stack, { frames, reference }) {
  console.log('\n  focus   scale   shift x   shift y   match   sharpest');
  frames.forEach(({ registered, accepted, scale, shiftX, shiftY, score, share }, i) => {
    const numbers = [scale.toFixed(4).padStart(7), shiftX.toFixed(1).padStart(9), shiftY.toFixed(1).padStart(9),
      score.toFixed(2).padStart(7), `${(100 * share).toFixed(1)} %`.padStart(10)].join(' ');
    const remark = !registered ? 'left out: does not match the others' : accepted ? '' : 'left out: nowhere the sharpest';
    console.log(`  ${String(stack[i].position).padStart(5)} ${numbers}  ${i === reference ? 'reference' : remark}`.trimEnd());
  });
  console.log('');
}

function fuse(addon, stack) {
  const aligning = new Step('aligning');
  const started = performance.now();
  const frames = stack.map(({ frame }) => frame);
  const analyses = stack.map(({ analysis }) => analysis);
  const measured = measureStack(analyses, (done) => aligning.progress(`${Math.round(100 * done)} %`));
  aligning.done(seconds(performance.now() - started));
  printFrames(stack, measured);
  const fusing = new Step('fusing');
  fusing.progress('...');
  const { data, durationMs, threads, simd } = addon.edofMultibandFuse(makeRequest(frames, measured));
  fusing.done(`${seconds(durationMs)}, at most ${threads} threads, ${simd}`);
  const result = { width: measured.width, height: measured.height, rgba: data };
  return { frames, measured, result };
}

async function main() {
  const choice = readArguments();
  // The specimen of the virtual microscope has to stand still, without numbers on the pictures.
  process.env.OSTREL_SIMULATOR_STAGE ??= '0:0';
  process.env.OSTREL_SIMULATOR_NUMBERS ??= '0';
  const addon = loadAddon();
  heading('Focus stack');
  const stack = await captureStack(addon, choice);
  const { frames, measured, result } = fuse(addon, stack);
  await mkdir(choice.output, { recursive: true });
  const fusedFile = path.join(choice.output, 'fused.png');
  const sheetFile = path.join(choice.output, 'contact-sheet.png');
  await writePng(fusedFile, result);
  await writeContactSheet(sheetFile, frames, measured, result);
  row('sharp picture', fusedFile);
  row('contact sheet', `${sheetFile}  (stills, each with its weights below; the result)`);
}

try {
  await main();
} catch (error) {
  console.error(`\n${error.message}`);
  process.exitCode = 1;
}

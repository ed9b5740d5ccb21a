// For how long script code cannot run while the kit works: the longest delay of the event loop during a preview, the
// start and the end of a recording, and a fusion. Beside it, what the same native calls cost on the calling thread.

import { mkdtemp, rm } from 'node:fs/promises';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { monitorEventLoopDelay } from 'node:perf_hooks';

import { frames, fuseStack, record } from '../kit/index.js';

const addonFile = process.env.OSTREL_TEST_ADDON;
process.env.OSTREL_SIMULATOR_STAGE ??= '0:0';
process.env.OSTREL_SIMULATOR_NUMBERS ??= '0';
const native = createRequire(import.meta.url)(addonFile);

const device = 0;
const previewMs = 5000;
const recordingMs = 2000;
const rounds = 5;
const targetMs = 20;
const sizes = [{ width: 960, height: 540 }, { width: 1920, height: 1080 }];
const positions = [64, 96, 128, 160, 192];

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/** Runs something and gives { value, delayMs, tookMs }: the longest delay meanwhile, and how long it took. */
async function watchLoop(run) {
  const delays = monitorEventLoopDelay({ resolution: 1 });
  delays.enable();
  // Delays are counted from the first tick behind a reset on.
  await sleep(20);
  delays.reset();
  await sleep(20);
  const started = performance.now();
  const value = await run();
  const tookMs = performance.now() - started;
  await sleep(5);
  delays.disable();
  return { value, delayMs: delays.max / 1e6, tookMs };
}

function row(label, results) {
  const longest = Math.max(...results.map(({ delayMs }) => delayMs));
  const took = results.map(({ tookMs }) => tookMs).sort((a, b) => a - b)[Math.trunc(results.length / 2)];
  console.log(`${label.padEnd(38)} ${`${longest.toFixed(1)} ms`.padStart(14)} ${`${took.toFixed(0)} ms`.padStart(12)}  ` +
    `${longest < targetMs ? '' : `over ${targetMs} ms`}`.trimEnd());
}

async function startPreview({ width, height }) {
  native.cameraPreviewStart(device, width, height, 30);
  for await (const frame of frames({ native, device })) {
    if (frame.sequence > 2) {
      return;
    }
  }
}

/** What a window does: takes every frame. */
async function look(ms) {
  const end = performance.now() + ms;
  for await (const frame of frames({ native, device })) {
    if (performance.now() > end) {
      return frame.sequence;
    }
  }
}

async function benchRecording(directory, size) {
  const starts = [];
  const runs = [];
  const stops = [];
  for (let i = 0; i < rounds; ++i) {
    const start = await watchLoop(() => record({ native, device, file: path.join(directory, `${i}.mp4`) }));
    starts.push(start);
    runs.push(await watchLoop(() => sleep(recordingMs)));
    stops.push(await watchLoop(() => start.value.stop()));
  }
  row(`recording starts, ${size}`, starts);
  row(`recording runs, ${size}`, runs);
  row(`recording ends, ${size}`, stops);
}

async function takeStack() {
  const stack = [];
  for (const position of positions) {
    await native.ostrelSetFocusPositionAsync(position);
    let settled = 0;
    for await (const { width, height, data } of frames({ native, device })) {
      if (++settled > 4) {
        stack.push({ width, height, rgba: data.slice() });
        break;
      }
    }
  }
  return stack;
}

const simulated = (name) => path.join(path.dirname(addonFile), 'simulator', name);
if (!native.loadCameraBackend(simulated('libcnokhwa.so')) || !native.loadOstrel(simulated('libostrel.so')).ok) {
  throw new Error(native.getLastError());
}
native.cameraInitialize();
native.cameraStartCapture(device, 1920, 1080);
await native.ostrelSelectDeviceAsync(0);
const directory = await mkdtemp(path.join(os.tmpdir(), 'ostrel-bench-'));

console.log(`The longest delay of the event loop while the kit works, of ${rounds} rounds; target: below ${targetMs} ms`);
console.log(`${'what'.padEnd(38)} ${'longest delay'.padStart(14)} ${'takes'.padStart(12)}`);
for (const choice of sizes) {
  const size = `${choice.width} x ${choice.height}`;
  await startPreview(choice);
  row(`preview, ${size}`, [await watchLoop(() => look(previewMs))]);
  await benchRecording(directory, size);
  const stack = await takeStack();
  row(`fusion of ${stack.length}, ${size}`, [await watchLoop(() => fuseStack({ native, frames: stack }))]);
}

console.log('\nThe same native calls on the calling thread, for comparison');
const file = path.join(directory, 'direct.mp4');
const { width, height } = sizes[1];
row('cameraRecordingStart', [await watchLoop(async () => native.cameraRecordingStart(file, width, height, 30, 8_000_000))]);
await sleep(recordingMs);
row('cameraRecordingStop', [await watchLoop(async () => native.cameraRecordingStop())]);

native.cameraPreviewStop(device);
native.cameraStopCapture(device);
await native.ostrelDisposeAsync();
await rm(directory, { recursive: true });

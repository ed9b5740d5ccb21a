// For how long the main thread stands still while the kit works: the longest delay of the event loop during
// a preview, the start and the stop of a recording, and a fusion; and what the native calls would take on it.
// OSTREL_BENCH_KIT_ROUNDS sets how often each is done; 5 if not set.

import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { monitorEventLoopDelay } from 'node:perf_hooks';
import { setTimeout as sleep } from 'node:timers/promises';

import { drawOutBorder } from '../kit/focus-stack/border.js';
import { analyseFrame, makeRequest, measureStack } from '../kit/focus-stack/measure-stack.js';
import { frames, fuseStack, record } from '../kit/index.js';

const rounds = Number(process.env.OSTREL_BENCH_KIT_ROUNDS ?? 5);
const addonFile = process.env.OSTREL_TEST_ADDON;
const simulator = path.join(path.dirname(addonFile), 'simulator');
const directory = mkdtempSync(path.join(os.tmpdir(), 'kit-bench-'));
const sizes = [{ width: 960, height: 540 }, { width: 1920, height: 1080 }];

process.env.OSTREL_SIMULATOR_STAGE ??= '0:0';
const native = createRequire(import.meta.url)(addonFile);
const median = (values) => [...values].sort((a, b) => a - b)[Math.trunc(values.length / 2)];

/** The longest delay of the event loop while `work` goes on, and how long it takes, in milliseconds. */
async function watched(work) {
  const delays = monitorEventLoopDelay({ resolution: 1 });
  delays.enable();
  // The first delay that counts ends at the second tick.
  await sleep(20);
  const started = performance.now();
  const value = await work();
  const tookMs = performance.now() - started;
  // A delay is counted when it is over.
  await sleep(20);
  delays.disable();
  return { value, tookMs, longestMs: delays.max / 1e6 };
}

function print(label, runs, blocking) {
  const longest = runs.map(({ longestMs }) => longestMs);
  const onMainThread = blocking === undefined ? '' : `   on the main thread it would block for ${blocking.toFixed(1)}`;
  console.log(`${label.padEnd(36)} longest delay ${median(longest).toFixed(1)} (at most ${Math.max(...longest).toFixed(1)})   ` +
    `takes ${median(runs.map(({ tookMs }) => tookMs)).toFixed(0)}${onMainThread}`);
}

async function repeat(work) {
  const runs = [];
  for (let round = 0; round < rounds; ++round) {
    runs.push(await watched(() => work(round)));
  }
  return runs;
}

function timed(call) {
  const started = performance.now();
  const result = call();
  if (result < 0) {
    throw new Error(native.getLastError());
  }
  return performance.now() - started;
}

async function measureLive(size) {
  const name = `${size.width} x ${size.height}`;
  const options = { native, preview: { ...size, frameRate: 30 } };
  const shown = frames({ ...options, capture: { format: 2 } });
  await shown.next();
  const latencies = [];
  print(`preview, 2 s of ${name}`, await repeat(async () => {
    for (const end = performance.now() + 2000; performance.now() < end;) {
      const { value } = await shown.next();
      latencies.push(Date.now() - value.timestampMs);
    }
  }));
  latencies.sort((a, b) => a - b);
  console.log(`${`frames of ${name}`.padEnd(36)} ${(latencies.length / (2 * rounds)).toFixed(1)} a second, ` +
    `${median(latencies)} ms after they were made (99 of 100 within ${latencies[Math.trunc(latencies.length * 0.99)]})`);

  const file = (round) => path.join(directory, `${size.width}-${round}.mp4`);
  const starts = [];
  const stops = [];
  for (let round = 0; round < rounds; ++round) {
    const start = await watched(() => record({ native, file: file(round) }));
    await sleep(2000);
    stops.push(await watched(() => start.value.stop()));
    starts.push(start);
  }
  const startBlocks = [];
  const stopBlocks = [];
  for (let round = 0; round < rounds; ++round) {
    startBlocks.push(timed(() => native.cameraRecordingStart(file(round), size.width, size.height, 30, 6_000_000)));
    await sleep(2000);
    stopBlocks.push(timed(() => native.cameraRecordingStop()));
  }
  print(`recording start at ${name}`, starts, median(startBlocks));
  print(`recording stop at ${name}`, stops, median(stopBlocks));
  await shown.return();
}

async function takeStack() {
  native.loadOstrel(path.join(simulator, 'libostrel.so'));
  await native.ostrelSelectDeviceAsync(0);
  native.cameraStartCapture(0, 1920, 1080);
  while (native.cameraHasFirstFrame(0) !== 0) {
    await sleep(10);
  }
  const stack = [];
  for (let position = 48; position <= 208; position += 16) {
    await native.ostrelSetFocusPositionAsync(position);
    await sleep(100);
    const { width, height, data } = native.cameraGrabFrameRgba(0, 1920, 1080);
    stack.push({ width, height, rgba: new Uint8Array(data) });
  }
  native.cameraStopCapture(0);
  await native.ostrelDisposeAsync();
  return stack;
}

async function measureFusion() {
  const stack = await takeStack();
  const fusions = Math.min(rounds, 3);
  const copied = [];
  const moved = [];
  for (let round = 0; round < fusions; ++round) {
    copied.push(await watched(() => fuseStack({ native, frames: stack })));
    const given = stack.map((frame) => ({ ...frame, rgba: frame.rgba.slice() }));
    moved.push(await watched(() => fuseStack({ native, frames: given, transfer: true })));
  }
  const blocking = timed(() => {
    const measured = measureStack(stack.map(analyseFrame));
    const { data } = native.edofMultibandFuse(makeRequest(stack, measured));
    drawOutBorder({ width: 1920, height: 1080, rgba: data }, measured.frames[0].field);
    return 0;
  });
  print('fusion of 11 of 1920 x 1080', copied, blocking);
  print('the same with transfer', moved);
}

try {
  if (!native.loadCameraBackend(path.join(simulator, 'libcnokhwa.so'))) {
    throw new Error(native.getLastError());
  }
  native.cameraInitialize();
  console.log(`The main thread under the kit, in milliseconds, medians of ${rounds}`);
  for (const size of sizes) {
    await measureLive(size);
  }
  await measureFusion();
} finally {
  rmSync(directory, { recursive: true, force: true });
}

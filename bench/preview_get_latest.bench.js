// What a poll of the preview costs script code: a new frame copied into an array of its own, and
// the answer that there is nothing new. The simulated camera delivers 1920 by 1080.

import { createRequire } from 'node:module';
import path from 'node:path';

const addonFile = process.env.OSTREL_TEST_ADDON;
const native = createRequire(import.meta.url)(addonFile);

const device = 0;
const preview = { width: 960, height: 540 };
const rounds = 15;
const callsPerRound = 200;

function microsecondsPerCall(call) {
  const begin = process.hrtime.bigint();
  for (let i = 0; i < callsPerRound; ++i) {
    call();
  }
  return Number(process.hrtime.bigint() - begin) / 1000 / callsPerRound;
}

const median = (values) => [...values].sort((a, b) => a - b)[Math.trunc(values.length / 2)];

async function startPreview() {
  if (!native.loadCameraBackend(path.join(path.dirname(addonFile), 'simulator', 'libcnokhwa.so'))) {
    throw new Error(native.getLastError());
  }
  native.cameraInitialize();
  native.cameraStartCapture(device, 1920, 1080);
  native.cameraPreviewStart(device, preview.width, preview.height, 30);
  while (native.cameraPreviewGetLatest(device, 0).result !== native.RESULT_OK) {
    await new Promise((resolve) => setTimeout(resolve, 5));
  }
}

function requireResult(frame, result) {
  if (frame.result !== result) {
    throw new Error(`cameraPreviewGetLatest gave ${frame.result} instead of ${result}`);
  }
}

await startPreview();
const target = new Uint8Array(preview.width * preview.height * 4);
const source = new Uint8Array(target.length).fill(7);
const contenders = {
  'new frame into a target': () => requireResult(native.cameraPreviewGetLatest(device, 0, target), native.RESULT_OK),
  'new frame without a target': () => requireResult(native.cameraPreviewGetLatest(device, 0), native.RESULT_OK),
  'nothing new': () => requireResult(native.cameraPreviewGetLatest(device, Number.MAX_SAFE_INTEGER), native.RESULT_NO),
  'copy of the same bytes in script': () => target.set(source),
};
const names = Object.keys(contenders);
const taken = Object.fromEntries(names.map((name) => [name, []]));
for (let round = 0; round < rounds; ++round) {
  for (const name of names) {
    taken[name].push(microsecondsPerCall(contenders[name]));
  }
}
native.cameraPreviewStop(device);
native.cameraStopCapture(device);

console.log(`cameraPreviewGetLatest, ${preview.width} x ${preview.height}, the preview running; median of ${rounds} rounds`);
console.log(`${'call'.padEnd(34)} ${'microseconds'.padStart(12)}`);
for (const name of names) {
  console.log(`${name.padEnd(34)} ${median(taken[name]).toFixed(1).padStart(12)}`);
}

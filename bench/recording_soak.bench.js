// Soak of recordings: starts and stops 2,000 of them in one process, and tells its memory on the way. Each start
// tries every encoder that this machine could have. Anything that a recording keeps shows as a slope.

import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

const recordings = Number(process.env.OSTREL_SOAK_RECORDINGS ?? 2000);
// The first ones load encoders and fill caches.
const warmUp = 200;
const lines = 9;

const native = createRequire(import.meta.url)(process.env.OSTREL_TEST_ADDON);
const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'recording-soak-'));
const file = path.join(directory, 'a.mp4');

/** Memory that only this process has, in kB: what a leak adds to. */
function ownMemory() {
  const rollup = fs.readFileSync('/proc/self/smaps_rollup', 'utf8');
  return Number(/^Private_Dirty:\s+(\d+) kB$/m.exec(rollup)[1]);
}

function record() {
  const started = native.cameraRecordingStart(file, 64, 48, 30, 1_000_000);
  const stopped = native.cameraRecordingStop();
  if (started !== 0 || stopped !== 0) {
    throw new Error(`start ${started}, stop ${stopped}: ${native.getLastError()}`);
  }
}

native.cameraPreviewStart(0, 64, 48, 30);
process.env.OSTREL_FFMPEG_ENCODER = 'auto';
console.log(`Recordings of 64 x 48, started and stopped ${recordings} times\n`);
console.log('recordings     own memory, kB');
const step = Math.ceil((recordings - warmUp) / (lines - 1));
const seen = [];
for (let count = 1; count <= recordings; count += 1) {
  record();
  if (count >= warmUp && ((count - warmUp) % step === 0 || count === recordings)) {
    // The engine's own garbage is not what is looked for.
    globalThis.gc?.();
    await sleep(10);
    seen.push({ count, memory: ownMemory() });
    console.log(`${String(count).padStart(10)}${String(seen.at(-1).memory).padStart(19)}`);
  }
}
const [first, last] = [seen[0], seen.at(-1)];
const bytes = ((last.memory - first.memory) * 1024) / (last.count - first.count);
console.log(`\n${bytes.toFixed(0)} bytes a recording from the ${first.count}th to the ${last.count}th`);
native.cameraPreviewStop();
fs.rmSync(directory, { recursive: true });

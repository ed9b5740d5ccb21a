// The process of a chaos run: the main thread is one of its environments, worker threads are the
// others. Now and then a worker is ended in the middle of whatever it does, and another takes its place.

import { once } from 'node:events';
import fs from 'node:fs';
import { Worker } from 'node:worker_threads';

import { openDirectBackend, hammerPreview } from '../direct-backend.js';
import { addonPath, fakePath, simulatorPath, testingAddonPath } from '../environment.js';
import { openFakeCamera } from '../fake-camera.js';
import { fullDinoLite, openFakeDinoLite } from '../fake-dino-lite.js';
import { floatBits, openFakeOstrel } from '../fake-ostrel.js';
import { makeRandom } from '../odd-values.js';
import { sleep } from '../waiting.js';
import { lockFile } from './arguments.js';
import { makeBoardMemory, openBoard } from './board.js';
import { runEnvironment } from './environment.js';

const environments = 4;
const lifeMs = 700;

const simulators = {
  camera: simulatorPath,
  dinoLite: simulatorPath.replace('libcnokhwa', 'libdinolite'),
  ostrel: simulatorPath.replace('libcnokhwa', 'libostrel'),
};
const fakes = { camera: fakePath('libcnokhwa.so'), dinoLite: fakePath('libdinolite.so'), ostrel: fakePath('libostrel.so') };

function prepareFakes() {
  openFakeCamera(fakes.camera).send('frame 320 240\nlog_limit 0');
  openFakeDinoLite(fakes.dinoLite).send(`log_limit 0\n${fullDinoLite}\ndefault dl_devices_count 2\ndefault dl_microtouch_pressed 1`);
  openFakeOstrel(fakes.ostrel).send(['log_limit 0', 'default GetVersionInfo.software_major 1',
    'default GetProtocolVersionInfo.major 1', 'text GetLastErrorString lens cap on', 'wide GetDeviceFriendlyName 181',
    'default GetPixelSizeInfo 1', `default GetPixelSizeInfo.microns_per_pixel ${floatBits(0.7)}`, 'default GetLensGroupInfo 1',
    'default GetFocusPosition 1', 'default GetFocusPosition.position 100', 'default IsCapturePressed 1',
    // Focus commands that are refused take no time.
    ...['TriggerAutoFocus', 'SetFocusPosition', 'FocusNearStep', 'FocusFarStep'].map((symbol) => `default ${symbol} 0`),
  ].join('\n'));
}

/** What a run may work on, by name. */
export const scenarios = {
  'the virtual microscope': { addon: addonPath, libraries: simulators },
  'the fake libraries': { addon: addonPath, libraries: fakes, isUniform: true, prepare: prepareFakes },
  ...Object.fromEntries([['directshow', 'bgra'], ['directshow', 'mjpeg'], ['avfoundation', 'nv12']].map(([kind, format]) =>
    [`direct previews of ${format} by ${kind}`, {
      addon: testingAddonPath,
      // The camera library of the platform would take the place of the backend that calls back.
      libraries: { ...fakes, camera: '/nowhere' },
      lendsArrays: true,
      isHammered: true,
      prepare() {
        prepareFakes();
        const backend = openDirectBackend();
        hammerPreview(backend, kind, format, { width: 160, height: 120, framesPerSecond: 1000 });
        backend.send('log_limit 0');
      },
    }])),
};

/** The worker of environment `index`, its `life`-th. */
function startWorker(run, index, life, problems) {
  const worker = new Worker(new URL('environment.js', import.meta.url), { workerData: { chaos: { run, index, life } }, execArgv: [] });
  worker.on('message', (found) => problems.push(...found));
  worker.on('error', (error) => problems.push(`environment ${index}.${life} ended with ${error?.stack ?? error}`));
  return worker;
}

/** Ends a worker in the middle of what it does and starts another; its lock files go with it. */
async function replaceWorker(run, workers, index, problems, board) {
  const { worker, life } = workers[index];
  await worker.terminate();
  board.leave(index);
  for (const lock of board.heldBy(index)) {
    fs.rmSync(lockFile(run.directory, lock), { force: true });
    board.giveBack(lock);
  }
  workers[index] = { worker: startWorker(run, index, life + 1, problems), life: life + 1 };
}

/** Runs `scenario` for so long in this process. Gives { problems, counts, frames, lives }. */
export async function runChaos({ scenario, seed, seconds, directory, longestCallMs }) {
  const { prepare, isHammered, ...plan } = scenarios[scenario];
  prepare?.();
  const memory = makeBoardMemory(environments);
  const board = openBoard(memory);
  const run = { ...plan, seed, directory, memory, environments };
  const watchdog = new Worker(new URL('watchdog.js', import.meta.url), { workerData: { memory, longestCallMs }, execArgv: [] });
  const problems = [];
  const random = makeRandom(seed);
  const workers = [];
  for (let index = 1; index < environments; index += 1) {
    workers[index] = { worker: startWorker(run, index, 0, problems), life: 0 };
  }
  const main = runEnvironment({ run, index: 0, life: 0 });

  const end = performance.now() + 1000 * seconds;
  let lives = environments;
  const isOpened = () => Object.values(board.counts()).every((count) => count > 0);
  const hasSeenFrames = () => board.frames()[isHammered ? 'direct' : 'copied'] > 0;
  const isComplete = () => isOpened() && hasSeenFrames() && lives > environments;
  // On a slow machine a run lasts until it has seen what it is for.
  while (problems.length === 0 && performance.now() < end + (isComplete() ? 0 : longestCallMs)) {
    await sleep(lifeMs);
    if (isOpened()) {
      await replaceWorker(run, workers, 1 + random(environments - 1), problems, board);
      lives += 1;
    }
  }
  board.stop();
  await Promise.all(workers.filter(Boolean).map(({ worker }) => worker.threadId === -1 || once(worker, 'exit')));
  problems.push(...await main);
  if (isHammered) {
    openDirectBackend().stopHammer();
  }
  await watchdog.terminate();
  return { problems, counts: board.counts(), frames: board.frames(), lives };
}

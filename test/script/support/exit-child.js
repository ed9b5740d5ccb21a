// A process that ends while the addon works: node exit-child.js JOB. It ends with the code 7 where all went
// as it should. Its worker thread, where the job wants one, runs this file as well.

import { once } from 'node:events';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { Worker, isMainThread, parentPort, workerData } from 'node:worker_threads';

import { loadAddon } from './environment.js';
import { activities, ownActivities } from './exit-activities.js';

const workerCode = 5;
const cleanCode = 7;

/** What holds in the process after the worker with an activity has ended. */
const afterWorker = {
  preview: (addon) => addon.cameraPreviewIsRunning(),
  recording: (addon) => addon.cameraRecordingStatus().recording,
  // It was the worker that had lent the arrays.
  direct: (addon) => !addon.cameraPreviewIsRunning(),
  selections: (addon) => addon.ostrelGetSelectedDevice() >= 0,
  fusion: () => true,
};

async function startWorker(job) {
  const worker = new Worker(fileURLToPath(import.meta.url), { workerData: job, execArgv: [] });
  worker.on('error', (error) => {
    throw error;
  });
  await once(worker, 'message');
  return worker;
}

const endings = {
  /** The main thread works, and ends the process. */
  async main(job) {
    await ownActivities[job.activity](loadAddon(), job);
    await sleep(job.delayMs);
  },

  /** A worker works, and the main thread, which has never loaded the addon, ends the process. */
  async beside(job) {
    await startWorker(job);
    await sleep(job.delayMs);
  },

  /** A worker works and ends itself; what it left behind is there when the main thread ends the process. */
  async worker(job) {
    const addon = loadAddon();
    const worker = await startWorker({ ...job, endsItself: true });
    const [code] = await once(worker, 'exit');
    if (code !== workerCode || !afterWorker[job.activity](addon)) {
      throw new Error(`The worker ended with ${code}, the activity ${afterWorker[job.activity](addon)}`);
    }
  },
};

if (isMainThread) {
  const job = JSON.parse(process.argv[2]);
  await endings[job.ending](job);
  process.exit(cleanCode);
} else {
  await activities[workerData.activity](loadAddon(), workerData);
  parentPort.postMessage('under way');
  if (workerData.endsItself) {
    setTimeout(() => process.exit(workerCode), workerData.delayMs);
  }
}

// A package user's program: one live preview frame, in a module and again in a worker thread.
//
//   node preview.mjs CAMERA-LIBRARY

import { Worker, isMainThread, parentPort } from 'node:worker_threads';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import native from 'ostrel-native';

const camera = process.argv[2];
const size = { width: 320, height: 240 };

function mustBeZero(name, result) {
  if (result !== 0) {
    throw new Error(`${name} gave ${result}: ${native.getLastError()}`);
  }
}

/** Waits for the first frame of a running preview and says what it is like. */
async function firstFrame() {
  const target = new Uint8Array(size.width * size.height * 4);
  for (;;) {
    const frame = native.cameraPreviewGetLatest(0, 0, target);
    if (frame.result === native.RESULT_OK) {
      const isOpaque = frame.data.every((value, index) => index % 4 !== 3 || value === 255);
      const shades = new Set(frame.data).size;
      const { width, height, pixelFormat } = frame;
      return { width, height, pixelFormat, isInTarget: frame.data.buffer === target.buffer, isOpaque, isPicture: shades > 16 };
    }
    await sleep(2);
  }
}

async function show() {
  if (!native.loadCameraBackend(camera)) {
    throw new Error(native.getLastError());
  }
  mustBeZero('cameraInitialize', native.cameraInitialize());
  mustBeZero('cameraStartCapture', native.cameraStartCapture(0, 0, 0, 0));
  mustBeZero('cameraPreviewStart', native.cameraPreviewStart(0, size.width, size.height, 60));
  const frame = await firstFrame();
  mustBeZero('cameraPreviewStop', native.cameraPreviewStop(0));
  mustBeZero('cameraStopCapture', native.cameraStopCapture(0));
  return frame;
}

async function showInWorker() {
  const worker = new Worker(fileURLToPath(import.meta.url), { argv: [camera] });
  const frame = await new Promise((resolve, reject) => worker.once('message', resolve).once('error', reject));
  await worker.terminate();
  return frame;
}

if (isMainThread) {
  const frames = { main: await show(), worker: await showInWorker() };
  const members = Object.keys(native).length;
  console.log(JSON.stringify({ frames, members, backend: native.cameraBackend(), isRunning: native.cameraPreviewIsRunning() }));
} else {
  parentPort.postMessage(await show());
}

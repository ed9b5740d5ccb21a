// What a process may be busy with when it ends. Each activity begins on the thread that calls it, and its
// promise is fulfilled when it is under way; from then on it goes on by itself.

import { fuseStack } from '../../../kit/index.js';
import { hammerPreview, openDirectBackend } from './direct-backend.js';
import { addonPath, fakePath } from './environment.js';
import { openFakeCamera } from './fake-camera.js';
import { fullDinoLite, openFakeDinoLite } from './fake-dino-lite.js';
import { openFakeOstrel } from './fake-ostrel.js';
import { makeRequest } from './focus-stack.js';
import { nextFrame, until } from './waiting.js';

const width = 64;
const height = 48;
const frameRate = 120;
// Of the microscopes, so that calls pile up and the end comes in the middle of one.
const delayMs = 3;

/** Polls for ever, into one array. */
function poll(addon) {
  const target = new Uint8Array(width * height * 4);
  setInterval(() => {
    addon.cameraPreviewGetLatest(0, 0, target);
    addon.cameraPreviewGetLatestQualityFrame(0, 0);
  }, 1);
}

async function preview(addon) {
  const camera = openFakeCamera();
  camera.send(`frame ${width} ${height}`);
  addon.loadCameraBackend(camera.path);
  addon.cameraStartCapture(0, width, height);
  addon.cameraPreviewStart(0, width, height, frameRate);
  await nextFrame(addon);
  poll(addon);
}

async function recording(addon, { file }) {
  await preview(addon);
  if (addon.cameraRecordingStart(file, width, height, frameRate, 1_000_000) !== 0) {
    throw new Error(addon.getLastError());
  }
  await until('written frames', () => addon.cameraRecordingStatus().framesWritten > 0);
}

async function direct() {
  const backend = openDirectBackend();
  hammerPreview(backend, 'directshow', 'bgra', { width, height, framesPerSecond: 500 });
  const { addon } = backend;
  // Gives back what it took only then: giving back drops frames that are ready, too.
  const take = () => {
    const { result } = addon.cameraPreviewGetLatest(0, 0);
    addon.cameraPreviewReleaseAllDirectSlots(0);
    return result === 0;
  };
  await until('a frame', take);
  setInterval(take, 1);
}

/** Keeps three selections of each family waiting. */
async function selections(addon) {
  openFakeOstrel().send(`delay SelectDeviceNumber ${delayMs}`);
  openFakeDinoLite().send(`${fullDinoLite}\ndelay dl_select_device ${delayMs}`);
  addon.loadOstrel(fakePath('libostrel.so'));
  addon.loadDinoLite(fakePath('libdinolite.so'));
  addon.dinoLiteInit();
  const again = async (select, index) => {
    if (!await select(index)) {
      throw new Error(addon.getLastError());
    }
    again(select, 1 - index);
  };
  const first = ['ostrelSelectDeviceAsync', 'dinoLiteSelectDeviceAsync'].map((name) => again(addon[name], 0));
  for (let i = 0; i < 2; i += 1) {
    again(addon.ostrelSelectDeviceAsync, i);
    again(addon.dinoLiteSelectDeviceAsync, i);
  }
  await Promise.all(first);
}

/** Fuses again and again, on this thread. */
async function fusion(addon) {
  const request = makeRequest({ width: 160, height: 120, mapWidth: 20, mapHeight: 15 });
  addon.edofMultibandFuse(request);
  setInterval(() => addon.edofMultibandFuse(request), 1);
}

/** Fuses again and again through the kit, on a thread of its own. */
async function kitFusion(addon) {
  const frames = makeRequest({ width: 160, height: 120 }).frames.map(({ rgba }) => ({ width: 160, height: 120, rgba }));
  const again = (onProgress) => fuseStack({ native: addon, addonFile: addonPath, frames, onProgress }).then(() => again());
  await new Promise((resolve) => {
    again(resolve);
  });
}

/** By name; `fusion` differs where it must not keep the thread from ending the process. */
export const activities = { preview, recording, direct, selections, fusion };
export const ownActivities = { ...activities, fusion: kitFusion };

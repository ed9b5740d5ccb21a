// Mostly valid arguments for every function of the addon, drawn from a seeded sequence.

import path from 'node:path';

import { lendArrays } from '../direct-backend.js';
import { makeRandomRequest } from '../focus-stack.js';

/** The sizes that previews and recordings ask for, so that some recordings meet frames of theirs. */
const sizes = [[64, 48], [160, 120], [320, 240]];
const largest = 320 * 240 * 4;
/** Lock files, by number; all environments want the same ones. */
export const lockCount = 3;
export const lockFile = (directory, index) => path.join(directory, `chaos-${index}.lock`);

/**
 * How to call each function: [weight, arguments], where the weight is how often it comes up next to
 * the others, and the arguments a function of `d`, one environment's own:
 *   d.pick(list), d.random(limit), d.device()      draws from the sequence
 *   d.libraries, d.directory, d.lendsArrays        what the run works on
 *   d.sequence, d.target(), d.held, d.locks        what earlier answers have left
 */
export const calls = {
  getLastError: [30, () => []],
  lockFile: [8, (d) => [lockFile(d.directory, d.random(lockCount))]],
  // Its own descriptors alone: any other number would close a file of Node.js.
  unlockFile: [8, (d) => [d.locks.at(-1)?.descriptor ?? -1]],

  loadCameraBackend: [6, (d) => [d.pick([d.libraries.camera, d.libraries.camera, '/nowhere'])]],
  loadTurboJpeg: [6, (d) => [d.pick(['libturbojpeg.so.0', '/nowhere'])]],
  turboJpegAvailable: [6, () => []],
  turboJpegLoadPath: [6, () => []],
  cameraLoadPath: [6, () => []],
  cameraBackend: [6, () => []],
  cameraInitialize: [1, () => []],
  cameraHasVideoCaptureAuth: [6, () => []],
  cameraAskVideoCaptureAuth: [6, () => []],
  cameraDevicesCount: [6, () => []],
  cameraDeviceUniqueId: [6, (d) => [d.device()]],
  cameraDeviceModelId: [6, (d) => [d.device()]],
  cameraDeviceName: [6, (d) => [d.device()]],
  cameraDeviceType: [6, (d) => [d.device()]],
  cameraDeviceFormats: [6, (d) => [d.device()]],
  cameraStartCapture: [2, (d) => [d.device(), ...d.pick([[640, 480], [0, 0, 0], [640, 480, -1, true]])]],
  cameraStopCapture: [1, (d) => [d.pick([0, 0, 1, -1])]],
  cameraHasFirstFrame: [20, (d) => [d.device()]],
  cameraFrameInfo: [20, (d) => [d.device()]],
  cameraButtonPressed: [6, (d) => [d.device()]],
  cameraButtonTimestamp: [6, (d) => [d.device()]],
  cameraGrabFrame: [6, (d) => [d.device()]],
  cameraGrabFrameRgba: [6, (d) => [d.device(), ...d.pick(sizes)]],
  cameraHasVideoProcAmp: [6, () => []],
  cameraVideoProcAmpRange: [6, (d) => [d.device(), d.random(10)]],
  cameraVideoProcAmpGet: [6, (d) => [d.device(), d.random(10)]],
  cameraVideoProcAmpSet: [6, (d) => [d.device(), d.random(10), d.random(256), 1 + d.random(2)]],

  cameraPreviewStart: [4, (d) => {
    const plain = [d.device(), ...d.pick(sizes), d.pick([30, 60, 120])];
    return d.lendsArrays && d.random(4) > 0 ? [...plain, lendArrays(largest)] : plain;
  }],
  cameraPreviewStop: [1, (d) => [d.device()]],
  cameraPreviewIsRunning: [30, () => []],
  cameraPreviewIsDirect: [30, () => []],
  cameraPreviewReleaseDirectSlot: [300, (d) => {
    const { directSlot = d.random(4) - 1, sequence = d.random(100) } = d.held.pop() ?? {};
    return [0, directSlot, sequence];
  }],
  cameraPreviewReleaseAllDirectSlots: [1, (d) => [d.device()]],
  cameraPreviewGetLatest: [400, (d) => [d.device(), d.pick([0, d.sequence]), d.target()]],
  cameraPreviewGetLatestQualityFrame: [30, (d) => [d.device(), d.random(3)]],
  cameraGrabEncodedFrame: [30, (d) => [d.device()]],

  cameraRecordingAvailable: [6, () => []],
  cameraRecordingStart: [1, (d) => [path.join(d.directory, `${d.random(3)}.mp4`), ...d.pick(sizes), 30, 1_000_000]],
  cameraRecordingStop: [1, () => []],
  cameraRecordingStatus: [30, () => []],

  edofMultibandFuse: [1, (d) => [makeRandomRequest(d.random(1000), [[24, 16], [65, 37]])]],

  loadDinoLite: [2, (d) => [d.pick([d.libraries.dinoLite, '/nowhere'])]],
  dinoLiteInit: [1, (d) => [d.random(4) === 0]],
  dinoLiteLastError: [20, () => []],
  dinoLiteSelectBackendForProductId: [1, (d) => [d.random(100), 'any']],
  dinoLiteInitAsync: [1, (d) => [d.random(4) === 0]],
  dinoLiteDeviceCount: [1, () => []],
  dinoLiteDevicesAsync: [1, () => []],
  dinoLiteDeviceId: [1, (d) => [d.device()]],
  dinoLiteDeviceName: [1, (d) => [d.device()]],
  dinoLiteSelectDevice: [1, (d) => [d.device()]],
  dinoLiteSelectDeviceAsync: [1, (d) => [d.device()]],
  dinoLiteGetSelectedDevice: [1, () => []],
  dinoLiteSupportsAmr: [1, () => []],
  dinoLiteGetAmr: [100, (d) => [d.device()]],
  dinoLiteGetFovx: [100, (d) => [0, d.pick([50, 50, 60]), 0]],
  dinoLiteEnableMicrotouch: [1, (d) => [d.random(4) > 0]],
  dinoLiteEnableMicrotouchAsync: [1, (d) => [d.random(4) > 0]],
  dinoLiteMicrotouchPressed: [60, () => []],
  dinoLiteToggleLed: [1, () => []],
  dinoLiteToggleLedAsync: [1, () => []],
  dinoLiteDebugState: [60, () => []],
  dinoLiteDispose: [1, () => []],
  dinoLiteDisposeAsync: [1, () => []],

  loadOstrel: [2, (d) => [d.pick([d.libraries.ostrel, '/nowhere'])]],
  ostrelInit: [1, (d) => [d.random(4) === 0]],
  ostrelLastError: [30, () => []],
  ostrelInitAsync: [1, (d) => [d.random(4) === 0]],
  ostrelDeviceCount: [1, () => []],
  ostrelDevicesAsync: [1, () => []],
  ostrelDeviceUniqueId: [1, (d) => [d.device()]],
  ostrelDeviceFriendlyName: [1, (d) => [d.device()]],
  ostrelSelectDevice: [1, (d) => [d.device()]],
  ostrelSelectDeviceAsync: [1, (d) => [d.device()]],
  ostrelGetSelectedDevice: [1, () => []],
  ostrelGetScopeStatus: [60, () => []],
  ostrelGetPixelSizeMicrons: [60, () => []],
  ostrelGetPixelSizeInfo: [100, () => []],
  ostrelGetLensGroupInfo: [60, () => []],
  ostrelCapabilities: [20, () => []],
  ostrelGetFocusPosition: [60, () => []],
  ostrelGetLedState: [20, () => []],
  ostrelTriggerAutoFocusAsync: [1, () => []],
  ostrelSetFocusPositionAsync: [1, (d) => [d.random(260)]],
  ostrelFocusNearAsync: [1, () => []],
  ostrelFocusFarAsync: [1, () => []],
  ostrelSetLedStateAsync: [1, (d) => [d.random(2)]],
  ostrelIsCapturePressed: [60, () => []],
  ostrelVersionInfo: [30, () => []],
  ostrelProtocolVersionInfo: [30, () => []],
  ostrelDispose: [1, () => []],
  ostrelDisposeAsync: [1, () => []],
};

/** The functions' names, in the order by which a run counts their calls. */
export const names = Object.keys(calls);

// Each name as often as its weight says.
const urn = names.flatMap((name) => Array(calls[name][0]).fill(name));
export const pickName = (random) => urn[random(urn.length)];

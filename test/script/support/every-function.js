// For tests that call every function with anything: on fakes that answer, or on no library.

import { openFakeCamera } from './fake-camera.js';
import { fullDinoLite, openFakeDinoLite } from './fake-dino-lite.js';
import { openFakeOstrel } from './fake-ostrel.js';

// The fusion looks into the object that it is given; unlocking closes descriptors that are not its
// caller's, for which another test has a process of its own.
const uncalled = ['edofMultibandFuse', 'unlockFile'];

/** The functions of the addon that take any arguments: [name, function]. */
export const calledFunctions = (addon) =>
  Object.entries(addon).filter(([name, value]) => typeof value === 'function' && !uncalled.includes(name));

/** Loads the fakes at the paths in `libraries`, { camera, dinoLite, ostrel }, if there are any. */
export function loadFakes(addon, libraries) {
  if (!libraries) {
    return;
  }
  openFakeCamera(libraries.camera).send('frame 16 9\nlog_limit 0');
  addon.loadCameraBackend(libraries.camera);
  openFakeDinoLite(libraries.dinoLite).send(`log_limit 0\n${fullDinoLite}`);
  addon.loadDinoLite(libraries.dinoLite);
  // Focus commands that are refused take no time.
  openFakeOstrel(libraries.ostrel).send(['log_limit 0', 'default GetVersionInfo.software_major 1',
    'default GetProtocolVersionInfo.major 1', 'text GetLastErrorString odd', 'wide GetDeviceFriendlyName 181',
    ...['TriggerAutoFocus', 'SetFocusPosition', 'FocusNearStep', 'FocusFarStep'].map((symbol) => `default ${symbol} 0`),
  ].join('\n'));
  addon.loadOstrel(libraries.ostrel);
}

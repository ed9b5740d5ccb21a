// The script tests' side of the fake microscope library.

import { fakePath } from './environment.js';
import { startSlowPreview } from './fake-camera.js';
import { openFake } from './fake-library.js';

export { floatBits } from './fake-library.js';

/** The fake microscope library at `path`, which the addon is to load too. */
export const openFakeOstrel = (path = fakePath('libostrel.so')) => openFake(path);

/** `text` as the fake's command `wide` takes it. */
export const wide = (text) => [...text].map((character) => character.codePointAt(0)).join(' ');

/** The polling getters, by name, with what they give where nothing is known. */
export const unknownTelemetry = {
  ostrelGetScopeStatus: -1,
  ostrelGetPixelSizeMicrons: -1,
  ostrelGetPixelSizeInfo: { ok: false, micronsPerPixel: -1, width: 0, height: 0 },
  ostrelGetLensGroupInfo: { ok: false, lensDriver: 0, lensGroup: 0 },
  ostrelGetFocusPosition: -1,
  ostrelIsCapturePressed: false,
  ostrelVersionInfo: null,
  ostrelProtocolVersionInfo: null,
};

/** What all polling getters give now, by name. */
export const pollAll = (addon) =>
  Object.fromEntries(Object.keys(unknownTelemetry).map((name) => [name, addon[name]()]));

/**
 * Loads the fake microscope at `path`, selecting a device if `select` is true, beside a fake camera
 * with a slow preview. Gives the fake microscope.
 */
export async function startInstrument(addon, path, { select }) {
  await startSlowPreview(addon);
  const fake = openFakeOstrel(path);
  addon.loadOstrel(path);
  if (select) {
    addon.ostrelSelectDevice(1);
    fake.send('clear_log');
  }
  return fake;
}

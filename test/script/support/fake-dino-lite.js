// The script tests' side of the fake Dino-Lite library.

import { fakePath } from './environment.js';
import { startSlowPreview } from './fake-camera.js';
import { doubleBits, floatBits, openFake } from './fake-library.js';

export { doubleBits, floatBits } from './fake-library.js';

/** The fake Dino-Lite library at `path`, which the addon is to load too. */
export const openFakeDinoLite = (path = fakePath('libdinolite.so')) => openFake(path);

/** Commands that give the fake's devices these LED modes. */
export const ledModes = (modes) => [`default dl_led_mode_count ${modes.length}`,
  ...modes.map((mode, i) => `default dl_led_mode@${i} ${mode}`)].join('\n');

/** Commands that give the fake's devices everything that a device can have. */
export const fullDinoLite = [ledModes([16, 1]), 'default dl_device_supports_amr 1', 'default dl_device_supports_microtouch 1',
  `default dl_get_amr ${floatBits(50)}`, `default dl_get_fovx ${doubleBits(6500)}`].join('\n');

/** The polls, each with arguments, and what they give where nothing is known. */
const polls = {
  dinoLiteGetAmr: { args: [0], unknown: null },
  dinoLiteGetFovx: { args: [0, 50], unknown: null },
  dinoLiteMicrotouchPressed: { args: [], unknown: false },
};
export const unknownDinoLite = Object.fromEntries(Object.entries(polls).map(([name, { unknown }]) => [name, unknown]));

/** What all polls give now, by name. */
export const pollDinoLite = (addon) =>
  Object.fromEntries(Object.entries(polls).map(([name, { args }]) => [name, addon[name](...args)]));

/**
 * Loads the fake Dino-Lite library at `path` with devices that have everything, started, and with
 * the device 1 selected and its button enabled if `select` is true, beside a fake camera with a slow
 * preview. Gives the fake.
 */
export async function startDinoLite(addon, path, { select }) {
  await startSlowPreview(addon);
  const fake = openFakeDinoLite(path);
  fake.send(fullDinoLite);
  addon.loadDinoLite(path);
  if (select) {
    addon.dinoLiteInit();
    addon.dinoLiteSelectDevice(1);
    addon.dinoLiteEnableMicrotouch();
    fake.send('clear_log');
  }
  return fake;
}

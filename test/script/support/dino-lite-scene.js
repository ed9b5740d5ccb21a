// A Dino-Lite library that answers as it is told, loaded into the addon, and what its tests ask for.

import assert from 'node:assert/strict';

import { loadAddon } from './environment.js';
import { fullDinoLite, openFakeDinoLite } from './fake-dino-lite.js';

export const invalidIndex = 'Dino-Lite SDK device selection received an invalid device index';
export const noButton = 'The selected Dino-Lite device does not support MicroTouch';
export const otherError = 'No libjpeg-turbo library path was provided';
export const notBooleans = [0, 1, 'true', '', {}, [], null, new Boolean(false), () => true];
export const notNumbers = ['0', '', true, false, null, undefined, {}, [], [0], 0n];

export const addon = loadAddon();
export const fake = openFakeDinoLite();
assert.deepEqual(addon.loadDinoLite(fake.path), { ok: true, backend: 'mac-libdinolite', path: fake.path });

/** The logged calls as `symbol(arguments)`. */
export const calls = () => fake.calls().map(({ symbol, args }) => `${symbol}(${args})`);

/** The same without what building the debug state reads at the end of a task. */
export const mainCalls = () => calls().filter((call) => call !== 'dl_get_amr_update_count()');

/** Waits until all that was posted to the owner thread has ended. */
export const flush = () => addon.dinoLiteGetSelectedDevice();

/** The addon's text and the binding's. */
export const errors = () => [addon.getLastError(), addon.dinoLiteLastError()];

/** Gives the two stores texts of their own. */
export function setErrors() {
  addon.dinoLiteSelectDevice(-1);
  addon.loadTurboJpeg('');
  assert.deepEqual(errors(), [otherError, invalidIndex]);
}

/** Selects a device that has everything. */
export function selectFull(index = 0) {
  fake.send(fullDinoLite);
  assert.equal(addon.dinoLiteSelectDevice(index), true);
  fake.send('clear_log');
}

/** A library that is started, without a selection, without a script and with empty texts. */
export function startAnew() {
  flush();
  fake.send('reset');
  assert.equal(addon.dinoLiteInit(true), true);
  fake.send('reset');
  assert.deepEqual(errors(), ['', '']);
}

// A Dino-Lite microscope at work: what its device tells, live, while its ring is turned, its LEDs
// are stepped and its button is pressed.
//
//   npm run example:dino-lite -- [--library FILE] [--device N]
//
// The microscope is the virtual one of this project unless --library names the library of a real
// one, or the variable OSTREL_NATIVE_DIR the directory that holds libdinolite.so.

import { setTimeout as sleep } from 'node:timers/promises';

import { HeldMagnification } from '../kit/held-magnification.js';
import { loadAddon } from './lib/load-addon.js';
import { readMicroscopeArguments, withHand } from './lib/microscope-session.js';
import { heading, row, runExample } from './lib/report.js';
import { expectDone } from './lib/results.js';
import { Telemetry, handSeconds, settledMs, virtualHandSeconds } from './lib/telemetry.js';

const ledModeNames = { 17: 'all LEDs', 34: 'flexible', 16: 'group 1', 1: 'group 2', 0: 'off' };

async function open(addon, { library, device }) {
  heading('Microscope library');
  const loaded = addon.loadDinoLite(library);
  expectDone(addon, loaded.ok, `loadDinoLite(${library})`);
  row('loaded', loaded.path);
  row('back-end', loaded.backend);
  expectDone(addon, await addon.dinoLiteInitAsync(), 'dinoLiteInitAsync');

  heading('Microscopes');
  for (const { index, uniqueId, name } of await addon.dinoLiteDevicesAsync()) {
    row(`microscope ${index}`, `${name} (${uniqueId})`);
  }
  expectDone(addon, await addon.dinoLiteSelectDeviceAsync(device), `dinoLiteSelectDeviceAsync(${device})`);
  row('selected', addon.dinoLiteGetSelectedDevice());
}

function describe({ supportsAmr, supportsMicrotouch, ledModes, ledState, controllableLedsCount }) {
  heading('The selected microscope');
  row('magnification', supportsAmr ? 'measured by the microscope' : 'to be read off its ring');
  row('MicroTouch button', supportsMicrotouch ? 'yes' : 'no');
  row('LED modes', ledModes.map(nameLedMode).join(', ') || 'none');
  row('LED groups', controllableLedsCount);
  row('LEDs now', ledModes.length > 0 ? nameLedMode(ledState) : 'as they are');
}

const nameLedMode = (mode) => `${mode} (${ledModeNames[mode] ?? 'unknown'})`;

class DinoLiteTelemetry extends Telemetry {
  constructor(addon, device) {
    super(addon);
    this.device = device;
    this.held = new HeldMagnification();
  }

  read() {
    this.amr = this.addon.dinoLiteGetAmr(this.device);
    // Readings wander, and a field of view is served for the magnification that was asked for before.
    this.fieldOfView = Number.isFinite(this.amr) ? this.addon.dinoLiteGetFovx(this.device, this.held.take(this.amr)) : null;
    this.presses += this.addon.dinoLiteMicrotouchPressed() ? 1 : 0;
  }

  text() {
    return `magnification ${this.amr?.toFixed(1) ?? 'unknown'}   field of view ${this.fieldOfView?.toFixed(3) ?? 'unknown'}`;
  }
}

// Readings of a ring that stands still differ by less.
const isNear = (amr, magnification) => Math.abs(amr - magnification) < 0.005 * magnification;

async function watchRing(telemetry, hand) {
  telemetry.say('magnification ring', hand ? 'turned by the hand at the virtual microscope'
    : `turn it within ${handSeconds} seconds`);
  for (const magnification of hand ? [200, 35, 50] : []) {
    await hand(`magnification ${magnification}`);
    await telemetry.until(() => isNear(telemetry.amr, magnification) && telemetry.fieldOfView !== null, virtualHandSeconds);
    telemetry.say(`ring at ${magnification}`, telemetry.text());
  }
  if (!hand) {
    await sleep(handSeconds * 1000);
    telemetry.say('ring', telemetry.text());
  }
}

async function stepLeds(addon, telemetry, { ledModes }) {
  for (let step = 0; step < ledModes.length; ++step) {
    const mode = await addon.dinoLiteToggleLedAsync();
    // -1 may also be a mode of the device.
    expectDone(addon, mode !== -1 || addon.dinoLiteLastError() === '', 'dinoLiteToggleLedAsync');
    telemetry.say('LEDs', nameLedMode(mode));
    await sleep(settledMs);
  }
}

async function runLive(addon, { device }, state, hand) {
  heading('Live');
  const telemetry = new DinoLiteTelemetry(addon, device);
  try {
    await sleep(settledMs);
    if (state.supportsAmr) {
      await watchRing(telemetry, hand);
    }
    if (state.supportsLedControl) {
      await stepLeds(addon, telemetry, state);
    }
    if (state.supportsMicrotouch) {
      expectDone(addon, await addon.dinoLiteEnableMicrotouchAsync(), 'dinoLiteEnableMicrotouchAsync');
      await telemetry.watchButton(hand);
    }
  } finally {
    telemetry.stop();
  }
  telemetry.tellPolls();
}

function showDebugState(addon) {
  heading('Debug state');
  for (const [key, value] of Object.entries(addon.dinoLiteDebugState())) {
    row(key, Array.isArray(value) ? value.join(', ') : value);
  }
}

async function main() {
  const choice = readMicroscopeArguments('libdinolite.so');
  const addon = loadAddon();
  try {
    await withHand(choice, () => open(addon, choice), async (hand) => {
      const state = addon.dinoLiteDebugState();
      describe(state);
      await runLive(addon, choice, state, hand);
      showDebugState(addon);
    });
  } finally {
    await addon.dinoLiteDisposeAsync();
  }
}

await runExample(main);

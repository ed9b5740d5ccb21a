// An Ostrel microscope at work: what its device tells, live, while promises drive it.
//
//   npm run example:ostrel -- [--library FILE] [--device N]
//
// The microscope is the virtual one of this project unless --library names the library of a real
// one, or the variable OSTREL_NATIVE_DIR the directory that holds libostrel.so.

import { setTimeout as sleep } from 'node:timers/promises';

import { loadAddon } from './lib/load-addon.js';
import { readMicroscopeArguments, withHand } from './lib/microscope-session.js';
import { heading, row, runExample } from './lib/report.js';
import { expectDone } from './lib/results.js';
import { Telemetry, pollMs, settledMs } from './lib/telemetry.js';

const autoFocusSeconds = 10;
// It has come to rest where it has not moved for so long.
const restMs = 1500;

async function open(addon, { library, device }) {
  heading('Microscope library');
  const { ok, path: loaded } = addon.loadOstrel(library);
  expectDone(addon, ok, `loadOstrel(${library})`);
  row('loaded', loaded);
  const { apiVersion, ...features } = addon.ostrelCapabilities();
  row('interface version', `${apiVersion >>> 16}.${apiVersion & 0xffff}`);
  row('offers', Object.keys(features).filter((name) => features[name]).join(', ') || 'nothing beyond the least');
  expectDone(addon, await addon.ostrelInitAsync(), 'ostrelInitAsync');

  heading('Microscopes');
  for (const { index, uniqueId, name } of await addon.ostrelDevicesAsync()) {
    row(`microscope ${index}`, `${name} (${uniqueId})`);
  }
  expectDone(addon, await addon.ostrelSelectDeviceAsync(device), `ostrelSelectDeviceAsync(${device})`);
  row('selected', addon.ostrelGetSelectedDevice());
}

const version = (...parts) => parts.join('.');

function describe(addon) {
  heading('The selected microscope');
  const device = addon.ostrelVersionInfo();
  const protocol = addon.ostrelProtocolVersionInfo();
  const lens = addon.ostrelGetLensGroupInfo();
  const pixel = addon.ostrelGetPixelSizeInfo();
  row('product', device?.productId ?? 'unknown');
  row('hardware', device ? version(device.hardwareMajorVersion, device.hardwareMinorVersion) : 'unknown');
  row('software', device
    ? version(device.softwareMajorVersion, device.softwareMinorVersion, device.softwarePatchVersion) : 'unknown');
  row('protocol', protocol ? version(protocol.majorVersion, protocol.minorVersion, protocol.patchVersion) : 'unknown');
  row('lens', lens.ok ? `driver ${lens.lensDriver}, group ${lens.lensGroup}` : 'unknown');
  row('pixel size', pixel.ok
    ? `${pixel.micronsPerPixel.toFixed(3)} um, in pictures of ${pixel.width} x ${pixel.height}` : 'unknown');
}

class OstrelTelemetry extends Telemetry {
  read() {
    this.status = this.addon.ostrelGetScopeStatus();
    this.pixelSize = this.addon.ostrelGetPixelSizeMicrons();
    this.lensGroup = this.addon.ostrelGetLensGroupInfo().lensGroup;
    this.focus = this.addon.ostrelGetFocusPosition();
    this.presses += this.addon.ostrelIsCapturePressed() ? 1 : 0;
  }

  text() {
    return `status ${this.status}   focus ${String(this.focus).padStart(3)}   ` +
      `pixel ${this.pixelSize.toFixed(3)} um   lens group ${this.lensGroup}`;
  }

  /** Waits until the focus has come to rest, or the time is over. */
  async focusAtRest(seconds) {
    const deadline = performance.now() + seconds * 1000;
    let focus = this.focus;
    for (let since = performance.now(); performance.now() - since < restMs && performance.now() < deadline;) {
      await sleep(pollMs);
      if (this.focus !== focus) {
        focus = this.focus;
        since = performance.now();
      }
    }
    return focus;
  }
}

async function driveFocus(addon, telemetry) {
  for (const position of [60, 200]) {
    expectDone(addon, await addon.ostrelSetFocusPositionAsync(position), `ostrelSetFocusPositionAsync(${position})`);
    telemetry.say(`focus to ${position}`, `at ${addon.ostrelGetFocusPosition()}`);
  }
  for (const name of ['ostrelFocusNearAsync', 'ostrelFocusFarAsync']) {
    expectDone(addon, await addon[name](), name);
    telemetry.say(`one step ${name.includes('Near') ? 'near' : 'far'}`, `at ${addon.ostrelGetFocusPosition()}`);
  }
  const refused = await addon.ostrelSetFocusPositionAsync(256);
  telemetry.say('focus to 256', refused ? 'done' : 'refused: positions go from 0 to 255');
}

async function driveLed(addon, telemetry) {
  for (const on of [false, true]) {
    expectDone(addon, await addon.ostrelSetLedStateAsync(on), `ostrelSetLedStateAsync(${on})`);
    telemetry.say(`LED ${on ? 'on' : 'off'}`, `the microscope says ${addon.ostrelGetLedState()}`);
    await sleep(settledMs);
  }
}

async function autoFocus(addon, telemetry) {
  expectDone(addon, await addon.ostrelTriggerAutoFocusAsync(), 'ostrelTriggerAutoFocusAsync');
  const started = performance.now();
  const position = await telemetry.focusAtRest(autoFocusSeconds);
  telemetry.say('auto-focus', `at ${position}, after ${((performance.now() - started) / 1000).toFixed(1)} s`);
}

async function runLive(addon, hand) {
  heading('Live');
  const telemetry = new OstrelTelemetry(addon);
  try {
    const { focus, led } = addon.ostrelCapabilities();
    await sleep(settledMs);
    if (focus) {
      await driveFocus(addon, telemetry);
      await autoFocus(addon, telemetry);
    }
    if (led) {
      await driveLed(addon, telemetry);
    }
    await telemetry.watchButton(hand);
  } finally {
    telemetry.stop();
  }
  telemetry.tellPolls();
}

async function main() {
  const choice = readMicroscopeArguments('libostrel.so');
  const addon = loadAddon();
  try {
    await withHand(choice, () => open(addon, choice), async (hand) => {
      describe(addon);
      await runLive(addon, hand);
    });
  } finally {
    await addon.ostrelDisposeAsync();
  }
}

await runExample(main);

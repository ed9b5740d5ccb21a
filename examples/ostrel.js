// An Ostrel microscope at work: what its device tells, live, while promises drive it.
//
//   npm run example:ostrel -- [--library FILE] [--device N]
//
// The microscope is the virtual one of this project unless --library names the library of a real
// one, or the variable OSTREL_NATIVE_DIR the directory that holds libostrel.so.

import { mkdtemp, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { parseArgs } from 'node:util';

import { LiveLine } from '../scripts/lib/live-line.js';
import { loadAddon } from './lib/load-addon.js';
import { heading, row, runExample } from './lib/report.js';
import { expectDone } from './lib/results.js';
import { MicroscopeControl, simulatedLibrary } from './lib/virtual-microscope.js';

const pollMs = 16;
const settledMs = 400;
const autoFocusSeconds = 10;
const buttonSeconds = 3;

function readArguments() {
  const { values } = parseArgs({
    options: { library: { type: 'string' }, device: { type: 'string', default: '0' } },
  });
  const directory = process.env.OSTREL_NATIVE_DIR;
  const real = values.library ?? (directory && path.join(directory, 'libostrel.so'));
  return { library: real ?? simulatedLibrary('libostrel.so'), isVirtual: !real, device: Number(values.device) };
}

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

/** Polls as a window would, many times a second, and shows what it sees; no call of it waits. */
class Telemetry {
  constructor(addon) {
    this.addon = addon;
    this.line = new LiveLine({ quietSeconds: 0.5 });
    this.presses = 0;
    this.polls = 0;
    this.slowestMs = 0;
    this.timer = setInterval(() => this.poll(), pollMs);
  }

  poll() {
    const started = performance.now();
    const status = this.addon.ostrelGetScopeStatus();
    const size = this.addon.ostrelGetPixelSizeMicrons();
    const { lensGroup } = this.addon.ostrelGetLensGroupInfo();
    this.focus = this.addon.ostrelGetFocusPosition();
    this.presses += this.addon.ostrelIsCapturePressed() ? 1 : 0;
    this.slowestMs = Math.max(this.slowestMs, performance.now() - started);
    ++this.polls;
    this.line.update(`  ${'live'.padEnd(20)}  status ${status}   focus ${String(this.focus).padStart(3)}   ` +
      `pixel ${size.toFixed(3)} um   lens group ${lensGroup}   button presses ${this.presses}`);
  }

  /** Waits until the focus has come to rest, or the time is over. */
  async focusAtRest(seconds) {
    const deadline = performance.now() + seconds * 1000;
    let focus = this.focus;
    for (let since = performance.now(); performance.now() - since < settledMs && performance.now() < deadline;) {
      await sleep(pollMs);
      if (this.focus !== focus) {
        focus = this.focus;
        since = performance.now();
      }
    }
    return focus;
  }

  say(label, text) {
    this.line.clear();
    row(label, text);
  }

  stop() {
    clearInterval(this.timer);
    this.line.clear();
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

async function watchButton(telemetry, control) {
  telemetry.say('button', control ? 'pressed twice, by the hand at the virtual microscope'
    : `press the capture button within ${buttonSeconds} seconds`);
  const before = telemetry.presses;
  for (const end = performance.now() + buttonSeconds * 1000; performance.now() < end && telemetry.presses < before + 2;) {
    await control?.run('press');
    await sleep(settledMs);
  }
  telemetry.say('button', `${telemetry.presses - before} presses seen`);
}

async function runLive(addon, control) {
  heading('Live');
  const telemetry = new Telemetry(addon);
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
    await watchButton(telemetry, control);
  } finally {
    telemetry.stop();
  }
  row('polled', `${telemetry.polls} times, the slowest took ${telemetry.slowestMs.toFixed(2)} ms`);
}

async function main() {
  const choice = readArguments();
  const addon = loadAddon();
  const directory = await mkdtemp(path.join(os.tmpdir(), 'virtual-microscope-'));
  let control;
  try {
    process.env.OSTREL_SIMULATOR_CONTROL ??= path.join(directory, 'control');
    await open(addon, choice);
    control = choice.isVirtual ? await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL) : null;
    describe(addon);
    await runLive(addon, control);
  } finally {
    control?.close();
    await addon.ostrelDisposeAsync();
    await rm(directory, { recursive: true });
  }
}

await runExample(main);

// A Dino-Lite microscope at work: what its device tells, live, while the light is stepped.
//
//   node examples/dino-lite.js [--library FILE] [--device N] [--seconds N]
//
// The library is the one that --library names, or libdinolite.so in the directory that the variable
// OSTREL_NATIVE_DIR names, or else the one that the system finds under that name.

import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { parseArgs } from 'node:util';

import { LiveLine } from '../scripts/lib/live-line.js';
import { loadAddon } from './lib/load-addon.js';

const pollMs = 16;
const ledMs = 700;

function readArguments() {
  const { values } = parseArgs({
    options: { library: { type: 'string' }, device: { type: 'string', default: '0' }, seconds: { type: 'string', default: '10' } },
  });
  const directory = process.env.OSTREL_NATIVE_DIR;
  const library = values.library ?? (directory ? path.join(directory, 'libdinolite.so') : '');
  return { library, device: Number(values.device), seconds: Number(values.seconds) };
}

const heading = (text) => console.log(`\n${text}`);
const row = (label, text) => console.log(`  ${label.padEnd(20)}  ${text}`);

/** Throws what the addon has to say, unless a call has done what it should. */
function expect(addon, done, call) {
  if (!done) {
    throw new Error(`${call} failed: ${addon.dinoLiteLastError() || addon.getLastError() || 'no reason given'}`);
  }
}

async function open(addon, { library, device }) {
  heading('Microscope library');
  const loaded = addon.loadDinoLite(library);
  expect(addon, loaded.ok, `loadDinoLite(${library})`);
  row(loaded.backend, loaded.path);
  expect(addon, await addon.dinoLiteInitAsync(), 'dinoLiteInitAsync');

  heading('Microscopes');
  for (const { index, uniqueId, name } of await addon.dinoLiteDevicesAsync()) {
    row(`microscope ${index}`, `${name} (${uniqueId})`);
  }
  expect(addon, await addon.dinoLiteSelectDeviceAsync(device), `dinoLiteSelectDeviceAsync(${device})`);
}

function describe(addon) {
  heading('The selected microscope');
  const state = addon.dinoLiteDebugState();
  row('index', state.selectedDeviceIndex);
  row('magnification', state.supportsAmr ? 'measured by the microscope' : 'to be read off its ring');
  row('MicroTouch button', state.supportsMicrotouch ? 'yes' : 'no');
  row('LED modes', state.ledModes.join(', ') || 'none');
  row('LED groups', state.controllableLedsCount);
  return state;
}

/** Polls as a window would, many times a second, and shows what it sees; no call of it waits. */
class Telemetry {
  constructor(addon, device) {
    this.addon = addon;
    this.device = device;
    this.line = new LiveLine();
    this.presses = 0;
    this.polls = 0;
    this.slowestMs = 0;
    this.timer = setInterval(() => this.poll(), pollMs);
  }

  poll() {
    const started = performance.now();
    const amr = this.addon.dinoLiteGetAmr(this.device);
    const fov = amr === null ? null : this.addon.dinoLiteGetFovx(this.device, amr);
    this.presses += this.addon.dinoLiteMicrotouchPressed() ? 1 : 0;
    this.slowestMs = Math.max(this.slowestMs, performance.now() - started);
    this.polls += 1;
    this.line.update(`  ${'live'.padEnd(20)}  magnification ${amr?.toFixed(1) ?? 'unknown'}   ` +
      `field of view ${fov?.toFixed(3) ?? 'unknown'}   button presses ${this.presses}`);
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

async function runLive(addon, { device, seconds }, { supportsLedControl, supportsMicrotouch, ledModes }) {
  heading('Live');
  const telemetry = new Telemetry(addon, device);
  try {
    if (supportsMicrotouch) {
      expect(addon, await addon.dinoLiteEnableMicrotouchAsync(), 'dinoLiteEnableMicrotouchAsync');
      telemetry.say('button', `press it; each press is seen once, for ${seconds} seconds`);
    }
    for (let step = 0; supportsLedControl && step < ledModes.length; step += 1) {
      const mode = await addon.dinoLiteToggleLedAsync();
      expect(addon, mode !== -1 || addon.dinoLiteLastError() === '', 'dinoLiteToggleLedAsync');
      telemetry.say('light', `mode ${mode}`);
      await sleep(ledMs);
    }
    await sleep(seconds * 1000);
  } finally {
    telemetry.stop();
  }
  row('button presses', telemetry.presses);
  row('polled', `${telemetry.polls} times, the slowest took ${telemetry.slowestMs.toFixed(2)} ms`);
}

async function main() {
  const choice = readArguments();
  const addon = loadAddon();
  try {
    await open(addon, choice);
    await runLive(addon, choice, describe(addon));
  } finally {
    await addon.dinoLiteDisposeAsync();
  }
}

try {
  await main();
} catch (error) {
  console.error(`\n${error.message}`);
  process.exitCode = 1;
}

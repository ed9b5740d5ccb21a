// Loading the Dino-Lite library. A load is for good, so each case runs in a process of its own.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath, readSymbols } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const fake = fakePath('libdinolite.so');
const without = (symbol) => fakePath(`without_${symbol}/libdinolite.so`);
const missing = (symbol) => `Required symbol not found: ${symbol}`;
const notFound = (name) =>
  `Could not load native library '${name}': ${name}: cannot open shared object file: No such file or directory`;
const table = readSymbols('devices/dino_lite_symbols.h');
const namesOf = (wanted) => table.filter(({ kind }) => kind === wanted).map(({ name }) => name);
const failed = (text) => ({ loaded: { ok: false, backend: 'none', path: '' }, errors: [text, text] });
const served = (name) => ({ loaded: { ok: true, backend: 'mac-libdinolite', path: name }, errors: ['', ''] });

function searchPlace(files) {
  const directory = makeTemporaryDirectory();
  for (const [name, target] of Object.entries(files)) {
    fs.symlinkSync(target, path.join(directory, name));
  }
  return { LD_LIBRARY_PATH: directory };
}

/** What a child sees after loadDinoLite(...loadArgs). */
const load = (loadArgs, env) => valueFromChild(({ addon }, args) => {
  addon.loadTurboJpeg('');
  return { loaded: addon.loadDinoLite(...args), errors: [addon.getLastError(), addon.dinoLiteLastError()] };
}, { args: [loadArgs], env });

describe('before a load of the Dino-Lite library', { concurrency: 2 }, () => {
  it('nothing is there, and asking for most of it is no error', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon, pollDinoLite }) => {
      const given = [addon.dinoLiteInit(), addon.dinoLiteInit(true), await addon.dinoLiteInitAsync(), addon.dinoLiteLastError(),
        addon.dinoLiteDeviceCount(), await addon.dinoLiteDevicesAsync(), addon.dinoLiteDeviceId(0), addon.dinoLiteDeviceName(0),
        addon.dinoLiteGetSelectedDevice(), addon.dinoLiteSupportsAmr(), addon.dinoLiteSelectBackendForProductId(1, 'x'),
        addon.dinoLiteDispose(), await addon.dinoLiteDisposeAsync()];
      for (let i = 0; i < 2; i += 1) {
        given.push(pollDinoLite(addon));
        addon.dinoLiteGetSelectedDevice();
      }
      return [...given, addon.getLastError(), addon.dinoLiteLastError()];
    }), [false, false, false, '', 0, [], '', '', -1, false,
      { ok: false, supportsAmr: false, dnxLoadAttempted: false, backend: 'none', path: '', reason: 'libdinolite is not loaded' },
      true, true, ...Array(2).fill({ dinoLiteGetAmr: null, dinoLiteGetFovx: null, dinoLiteMicrotouchPressed: false }), '', '']);
  });

  it('the commands tell why they fail', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon }) => {
      const answers = [];
      for (const [name, ...args] of [['dinoLiteSelectDevice', 0], ['dinoLiteSelectDeviceAsync', 0], ['dinoLiteToggleLed'],
        ['dinoLiteToggleLedAsync'], ['dinoLiteEnableMicrotouch'], ['dinoLiteEnableMicrotouchAsync']]) {
        addon.loadTurboJpeg('');
        answers.push([await addon[name](...args), addon.getLastError() === addon.dinoLiteLastError(), addon.getLastError()]);
      }
      return answers;
    }), [
      ...Array(2).fill([false, true, 'Dino-Lite SDK device selection received an invalid device index']),
      ...Array(2).fill([-1, true, 'No Dino-Lite SDK device is selected for LED control']),
      ...Array(2).fill([false, true, 'Dino-Lite MicroTouch is unavailable because the SDK is not loaded']),
    ]);
  });

  it('the debug state is that of nothing at all, then of nothing loaded, and holds the last error', async () => {
    const state = (backend, error) => ['loaded', false, 'backend', backend, 'path', '', 'selectedDeviceIndex', -1, 'ledState', 0,
      'controllableLedsCount', 0, 'initialized', false, 'supportsAmr', false, 'supportsMicrotouch', false,
      'supportsLedControl', false, 'amrRead', false, 'amrRaw', -1, 'amrAccepted', false, 'amrUpdates', 0, 'ledModes', [],
      'cachedAmr', null, 'cachedAmrAgeMs', null, 'error', error];
    assert.deepEqual(await valueFromChild(({ addon }) => {
      const states = [addon.dinoLiteDebugState()];
      addon.loadTurboJpeg('');
      states.push(addon.dinoLiteDebugState());
      addon.dinoLiteInit();
      states.push(addon.dinoLiteDebugState());
      return states.map((each) => Object.entries(each).flat(1));
    }), [state('', ''), state('', 'No libjpeg-turbo library path was provided'),
      state('none', 'No libjpeg-turbo library path was provided')]);
  });
});

describe('loadDinoLite', { concurrency: 2 }, () => {
  it('loads the library at a path and clears both texts, properties in order', async () => {
    assert.deepEqual(await valueFromChild(({ addon, openFakeDinoLite }, library) => {
      const dinoLite = openFakeDinoLite(library);
      addon.loadDinoLite('/nowhere');
      const loaded = addon.loadDinoLite(library, '/elsewhere');
      const state = addon.dinoLiteDebugState();
      return [Object.entries(loaded), addon.getLastError(), addon.dinoLiteLastError(),
        dinoLite.calls().map(({ symbol }) => symbol), state.backend, state.loaded, 'error' in state];
    }, { args: [fake] }), [[['ok', true], ['backend', 'mac-libdinolite'], ['path', fake]], '', '',
      // For the debug state.
      ['dl_get_amr_update_count'], 'mac-libdinolite', true, false]);
  });

  it('finds the first default name, then the second', async () => {
    assert.deepEqual(await load([], searchPlace({ 'libdinolite.so': fake, 'libdinolite.dylib': '/dev/null' })),
      served('libdinolite.so'));
    assert.deepEqual(await load([''], searchPlace({ 'libdinolite.dylib': fake })), served('libdinolite.dylib'));
    assert.deepEqual(await load([7], searchPlace({ 'libdinolite.so': '/etc/passwd', 'libdinolite.dylib': fake })),
      served('libdinolite.dylib'));
    assert.deepEqual(await load([null], searchPlace({ 'libdinolite.so': without('dl_get_amr'), 'libdinolite.dylib': fake })),
      served('libdinolite.dylib'));
  });

  it('tells of the name that failed first where none serves', async () => {
    assert.deepEqual(await load([], searchPlace({})), failed(notFound('libdinolite.so')));
    assert.deepEqual(await load([], searchPlace({ 'libdinolite.dylib': without('dl_get_amr') })), failed(notFound('libdinolite.so')));
    assert.deepEqual(await load([], searchPlace({ 'libdinolite.so': without('dl_get_amr') })), failed(missing('dl_get_amr')));
  });

  it('tries no default name after a path, and refuses what is no library', async () => {
    const env = searchPlace({ 'libdinolite.so': fake });
    const files = ['/nowhere/libdinolite.so', '/', '/etc/passwd', '/dev/null', 'libm.so.6', '\0', 'a\0b', 'x'.repeat(100_000), '\ud800'];
    const answers = await valueFromChild(({ addon }, paths) => paths.map((file) =>
      [addon.loadDinoLite(file), addon.getLastError() === addon.dinoLiteLastError(), addon.getLastError()]),
    { args: [files], env });
    for (const [loaded, same] of answers) {
      assert.deepEqual([loaded, same], [{ ok: false, backend: 'none', path: '' }, true]);
    }
    assert.equal(answers[0][2], notFound('/nowhere/libdinolite.so'));
    assert.equal(answers[3][2], 'Could not load native library \'/dev/null\': /dev/null: file too short');
    assert.equal(answers[4][2], missing('dl_initialize'));
    assert.ok(answers.every(([, , text]) => text !== ''));
  });

  it('refuses a library that lacks a required function, and loads another one then', async () => {
    const required = namesOf('REQUIRED');
    assert.equal(required.length, 10);
    const answers = await valueFromChild(({ addon, fakePath: pathOf }, names) => [
      ...names.map((name) => [addon.loadDinoLite(pathOf(`without_${name}/libdinolite.so`)).ok, addon.getLastError()]),
      addon.loadDinoLite(pathOf('libdinolite.so')).ok, addon.getLastError(), addon.dinoLiteInit(), addon.dinoLiteDeviceCount()],
    { args: [required] });
    assert.deepEqual(answers, [...required.map((name) => [false, missing(name)]), true, '', true, 2]);
  });

  it('keeps the first library at a second load, with both texts', async () => {
    const invalid = 'Dino-Lite SDK device selection received an invalid device index';
    assert.deepEqual(await valueFromChild(({ addon }, library) => {
      addon.loadDinoLite(library);
      addon.dinoLiteSelectDevice(-1);
      addon.loadTurboJpeg('');
      return [addon.loadDinoLite('/nowhere').path, addon.loadDinoLite().path, addon.getLastError(), addon.dinoLiteLastError()];
    }, { args: [fake] }), [fake, fake, 'No libjpeg-turbo library path was provided', invalid]);
  });

  for (const symbol of namesOf('OPTIONAL')) {
    it(`loads a library without ${symbol}, of which every function is survived`, async () => {
      const answers = await valueFromChild(async ({ addon, openFakeDinoLite, fullDinoLite, pollDinoLite, calledFunctions }, library, name) => {
        openFakeDinoLite(library).send(fullDinoLite.split('\n').filter((line) => !line.split(/[ @]/).includes(name)).join('\n'));
        addon.loadDinoLite(library);
        addon.dinoLiteInit();
        const selected = addon.dinoLiteSelectDevice(0);
        addon.dinoLiteEnableMicrotouch();
        pollDinoLite(addon);
        addon.dinoLiteGetSelectedDevice();
        const polled = pollDinoLite(addon);
        const toggled = addon.dinoLiteToggleLed();
        const { ledModes, ledState, supportsLedControl } = addon.dinoLiteDebugState();
        await Promise.all(calledFunctions(addon).filter(([key]) => key.startsWith('dinoLite')).map(([, call]) => call(5)));
        return { selected, polled, toggled, ledModes, ledState, supportsLedControl, loaded: addon.dinoLiteDebugState().loaded };
      }, { args: [without(symbol), symbol] });
      const knowsModes = !['dl_led_mode', 'dl_led_mode_count'].includes(symbol);
      const lit = knowsModes && symbol !== 'dl_set_led_state';
      assert.deepEqual(answers, {
        selected: true,
        polled: { dinoLiteGetAmr: 50, dinoLiteGetFovx: symbol === 'dl_get_fovx' ? null : 6.5, dinoLiteMicrotouchPressed: false },
        toggled: lit ? 1 : -1,
        ledModes: knowsModes ? [16, 1] : [],
        ledState: lit ? 1 : 0,
        supportsLedControl: lit,
        loaded: true,
      });
    });
  }

  it('gives up on a load that hangs, which fails later on all the same', async () => {
    const pipe = path.join(makeTemporaryDirectory(), 'libdinolite.so');
    assert.equal(spawnSync('mkfifo', [pipe]).status, 0);
    const [given, waited, errors, ...late] = await valueFromChild(async ({ addon, until }, file) => {
      const { writeFileSync } = await import('node:fs');
      const begin = performance.now();
      const answer = addon.loadDinoLite(file);
      const took = performance.now() - begin;
      const texts = [addon.getLastError(), addon.dinoLiteLastError(), addon.dinoLiteDebugState().backend];
      // Opened for writing, the pipe is found to be no library.
      writeFileSync(file, 'x');
      await until('the late failure', () => addon.dinoLiteLastError() !== '');
      addon.dinoLiteGetSelectedDevice();
      return [answer, took, texts, addon.getLastError(), addon.dinoLiteLastError(), addon.dinoLiteDebugState().backend];
    }, { args: [pipe] });
    assert.deepEqual(given, { ok: false, backend: 'none', path: '' });
    assert.ok(waited >= 20_000 && waited < 30_000, `waited ${waited} ms`);
    assert.deepEqual(errors, ['Dino-Lite SDK call timed out', '', '']);
    const text = `Could not load native library '${pipe}': ${pipe}: file too short`;
    assert.deepEqual(late, [text, text, 'none']);
  });
});

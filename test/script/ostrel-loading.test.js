// Loading the microscope library. A load is for good, so each case runs in a process of its own.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath, readSymbols } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const fake = fakePath('libostrel.so');
const without = (symbol) => fakePath(`without_${symbol}/libostrel.so`);
const refusal = 'Could not load Ostrel native library';
const refused = { loaded: { ok: false, path: '' }, errors: [refusal, refusal] };
const table = readSymbols('devices/ostrel_symbols.h');
const namesOf = (wanted) => table.filter(({ kind }) => kind === wanted).map(({ name }) => name);

function searchPlace(files) {
  const directory = makeTemporaryDirectory();
  for (const [name, target] of Object.entries(files)) {
    fs.symlinkSync(target, path.join(directory, name));
  }
  return { LD_LIBRARY_PATH: directory };
}

/** What a child sees after loadOstrel(...loadArgs). */
const load = (loadArgs, env) => valueFromChild(({ addon }, args) => {
  addon.loadTurboJpeg('');
  return { loaded: addon.loadOstrel(...args), errors: [addon.getLastError(), addon.ostrelLastError()] };
}, { args: [loadArgs], env });

describe('before a load', () => {
  it('nothing is there, and asking for it is no error', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon, pollAll, unknownTelemetry, until }) => {
      const given = [addon.ostrelInit(), addon.ostrelInit(true), addon.ostrelLastError(), await addon.ostrelInitAsync(),
        addon.ostrelDeviceCount(), await addon.ostrelDevicesAsync(), addon.ostrelDeviceUniqueId(0),
        addon.ostrelDeviceFriendlyName(0), addon.ostrelSelectDevice(0), await addon.ostrelSelectDeviceAsync(),
        addon.ostrelGetSelectedDevice(), addon.ostrelCapabilities(), addon.ostrelGetLedState(),
        await addon.ostrelTriggerAutoFocusAsync(), await addon.ostrelSetFocusPositionAsync(5),
        await addon.ostrelFocusNearAsync(), await addon.ostrelFocusFarAsync(), await addon.ostrelSetLedStateAsync(true),
        addon.ostrelDispose(), await addon.ostrelDisposeAsync()];
      // A pass over nothing is a pass: its values say nothing either.
      for (let i = 0; i < 2; i += 1) {
        given.push(JSON.stringify(pollAll(addon)) === JSON.stringify(unknownTelemetry));
        addon.ostrelGetSelectedDevice();
      }
      return [...given, addon.getLastError(), addon.ostrelLastError()];
    }), [false, false, '', false, 0, [], '', '', false, false, -1,
      { apiVersion: 65536, focus: false, led: false, pixelSizeInfo: false, lensGroupInfo: false }, -1,
      false, false, false, false, false, true, true, true, true, '', '']);
  });
});

describe('loadOstrel', { concurrency: 2 }, () => {
  it('loads the library at a path without calling it, and clears both texts', async () => {
    assert.deepEqual(await valueFromChild(({ addon, openFakeOstrel }, library) => {
      const ostrel = openFakeOstrel(library);
      addon.loadOstrel('/nowhere');
      const loaded = addon.loadOstrel(library, '/elsewhere');
      return [Object.entries(loaded), addon.getLastError(), ostrel.calls().length];
    }, { args: [fake] }), [[['ok', true], ['path', fake]], '', 0]);
  });

  it('finds the first default name, then the second', async () => {
    const success = (name) => ({ loaded: { ok: true, path: name }, errors: ['', ''] });
    assert.deepEqual(await load([], searchPlace({ 'libostrel.so': fake, 'ostrel.so': '/dev/null' })), success('libostrel.so'));
    assert.deepEqual(await load([''], searchPlace({ 'ostrel.so': fake })), success('ostrel.so'));
    assert.deepEqual(await load([7], searchPlace({ 'libostrel.so': '/etc/passwd', 'ostrel.so': fake })), success('ostrel.so'));
    assert.deepEqual(await load([null], searchPlace({ 'libostrel.so': without('IsCapturePressed'), 'ostrel.so': fake })),
      success('ostrel.so'));
  });

  it('tells in its own words that no default name serves', async () => {
    assert.deepEqual(await load([], searchPlace({})), refused);
    assert.deepEqual(await load([], searchPlace({ 'ostrel.so': without('Init') })), refused);
  });

  it('tries no default name after a path, and refuses what is no library', async () => {
    const env = searchPlace({ 'libostrel.so': fake });
    assert.deepEqual(await valueFromChild(({ addon }, files) => files.map((file) =>
      [addon.loadOstrel(file), addon.getLastError(), addon.ostrelLastError()]),
    { args: [['/nowhere/libostrel.so', '/', '/etc/passwd', '/dev/null', 'libm.so.6', '\0', 'a\0b', 'x'.repeat(100_000), '\ud800']], env }),
    Array(9).fill([{ ok: false, path: '' }, refusal, refusal]));
  });

  it('refuses a library that lacks a required function, and loads another one then', async () => {
    const required = namesOf('REQUIRED');
    assert.equal(required.length, 9);
    const answers = await valueFromChild(({ addon, fakePath: pathOf }, names) => [
      ...names.map((name) => [addon.loadOstrel(pathOf(`without_${name}/libostrel.so`)).ok, addon.getLastError()]),
      addon.loadOstrel(pathOf('libostrel.so')).ok, addon.getLastError(), addon.ostrelDeviceCount()], { args: [required] });
    assert.deepEqual(answers, [...required.map(() => [false, refusal]), true, '', 2]);
  });

  it('keeps the first library at a second load, with both texts', async () => {
    assert.deepEqual(await valueFromChild(({ addon }, library) => {
      addon.loadOstrel(library);
      addon.ostrelSelectDevice(-1);
      addon.loadTurboJpeg('');
      return [addon.loadOstrel('/nowhere'), addon.loadOstrel(), addon.getLastError(), addon.ostrelLastError()];
    }, { args: [fake] }), [{ ok: true, path: fake }, { ok: true, path: fake }, 'No libjpeg-turbo library path was provided',
      'Ostrel SDK device selection received an unavailable device index']);
  });

  for (const symbol of namesOf('OPTIONAL')) {
    it(`loads a library without ${symbol}, of which every function is survived`, async () => {
      const absent = await valueFromChild(async ({ addon, pollAll, calledFunctions }, library) => {
        addon.loadOstrel(library);
        addon.ostrelSelectDevice(0);
        await Promise.all(calledFunctions(addon).filter(([name]) => name.startsWith('ostrel')).map(([, call]) => call(5)));
        pollAll(addon);
        const { focus, led, pixelSizeInfo, lensGroupInfo, apiVersion } = addon.ostrelCapabilities();
        return { focus, led, pixelSizeInfo, lensGroupInfo, apiVersion };
      }, { args: [without(symbol)] });
      assert.deepEqual(absent, {
        focus: !['TriggerAutoFocus', 'GetFocusPosition', 'SetFocusPosition', 'FocusNearStep', 'FocusFarStep'].includes(symbol),
        led: !['GetLedState', 'SetLedState'].includes(symbol),
        pixelSizeInfo: symbol !== 'GetPixelSizeInfo',
        lensGroupInfo: symbol !== 'GetLensGroupInfo',
        apiVersion: symbol === 'GetApiVersion' ? 65536 : 0,
      });
    });
  }

  it('gives up on a load that hangs, which fails later on all the same', async () => {
    const pipe = path.join(makeTemporaryDirectory(), 'libostrel.so');
    assert.equal(spawnSync('mkfifo', [pipe]).status, 0);
    const answer = await valueFromChild(async ({ addon, until }, file) => {
      const { writeFileSync } = await import('node:fs');
      const begin = performance.now();
      const given = addon.loadOstrel(file);
      const waited = performance.now() - begin;
      const errors = [addon.getLastError(), addon.ostrelLastError()];
      // Opened for writing, the pipe is found to be no library.
      writeFileSync(file, 'x');
      await until('the late failure', () => addon.ostrelLastError() !== '');
      return [given, waited >= 5000 && waited < 15_000, errors, addon.getLastError(), addon.ostrelLastError()];
    }, { args: [pipe] });
    assert.deepEqual(answer, [{ ok: false, path: '' }, true, ['Ostrel SDK call timed out', ''], refusal, refusal]);
  });
});

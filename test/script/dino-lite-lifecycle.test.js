// How the process and worker threads end while the Dino-Lite owner thread has work.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { runInChild, valueFromChild } from './support/child.js';
import { fakePath, untidyEnvironment } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const library = fakePath('libdinolite.so');
const silent = { stdout: '', stderr: '', code: 0, signal: null };

/** Leaves a slow reading running and work queued behind it, and ends the process. Runs in a child. */
function leaveWork({ addon, openFakeDinoLite, fullDinoLite }, { file, log, how }) {
  const fake = openFakeDinoLite(file);
  fake.send(fullDinoLite);
  addon.loadDinoLite(file);
  addon.dinoLiteInit();
  addon.dinoLiteSelectDevice(0);
  fake.send(`log_file ${log}\ndelay dl_get_amr 300`);
  addon.dinoLiteGetAmr(0);
  fake.send('wait_entered dl_get_amr 2');
  for (let i = 0; i < 3; i += 1) {
    addon.dinoLiteToggleLedAsync().then(() => {});
    addon.dinoLiteDevicesAsync().then(() => {});
  }
  if (how === 'exit') {
    process.exit(4);
  } else if (how === 'throw') {
    throw new Error('thrown on purpose');
  }
}

const calledIn = (log) => fs.readFileSync(log, 'utf8').trim().split('\n');
const reading = ['dl_get_amr()', 'dl_get_amr_update_count()'];

describe('the process ends, with a Dino-Lite microscope at work,', { concurrency: 2 }, () => {
  it('once its promises have settled, where nothing cuts it short', async () => {
    const log = path.join(directory, 'end.txt');
    const { value, ...end } = await runInChild(leaveWork, { args: [{ file: library, log }] });
    assert.deepEqual(end, silent);
    const called = calledIn(log);
    assert.deepEqual(called.slice(0, 2), reading);
    assert.equal(called.filter((call) => call.startsWith('dl_set_led_state')).length, 3);
    assert.equal(called.filter((call) => call.startsWith('dl_get_device_name')).length, 6);
    // Nobody gives back what script code does not.
    assert.ok(!called.includes('dl_unselect_device()'));
  });

  for (const [what, how, code] of [['process.exit()', 'exit', 4], ['an uncaught exception', 'throw', 1]]) {
    it(`by ${what} once the reading that was running is through`, async () => {
      const log = path.join(directory, `${how}.txt`);
      const { stderr, ...end } = await runInChild(leaveWork, { args: [{ file: library, log, how }], env: untidyEnvironment });
      assert.equal(end.code, code);
      assert.equal(end.signal, null);
      assert.deepEqual(calledIn(log).slice(0, 2), reading);
      assert.ok(!calledIn(log).includes('dl_unselect_device()'));
    });
  }

  it('cleanly with a library that destroys itself at exit, queued polls and all', async () => {
    const log = path.join(directory, 'destroyed.txt');
    const { value, ...end } = await runInChild(leaveWork,
      { args: [{ file: fakePath('static_destructor/libdinolite.so'), log, how: 'exit' }], env: untidyEnvironment });
    assert.deepEqual(end, { ...silent, code: 4 });
    assert.ok(calledIn(log).includes('static_destructor'));
  });

  it('cleanly without the library ever having been loaded', async () => {
    assert.equal(await valueFromChild(({ addon }) => addon.dinoLiteGetSelectedDevice()), -1);
  });
});

describe('a worker thread with a Dino-Lite microscope', { concurrency: 2 }, () => {
  it('that is terminated with promises pending does no harm', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon, addonPath, openFakeDinoLite, fullDinoLite, until }, file) => {
      const { Worker } = await import('node:worker_threads');
      const fake = openFakeDinoLite(file);
      fake.send(fullDinoLite);
      addon.loadDinoLite(file);
      addon.dinoLiteInit();
      fake.send('block dl_get_device_name');
      const worker = new Worker(`
        const addon = require(require('node:worker_threads').workerData);
        addon.dinoLiteDevicesAsync();
        addon.dinoLiteSelectDeviceAsync(0);
        addon.dinoLiteToggleLedAsync();
        addon.dinoLiteGetAmr(0);
        setInterval(() => {}, 1000);
      `, { eval: true, execArgv: [], workerData: addonPath });
      await until('the first call', () => fake.entered('dl_get_device_name') === 1);
      const ended = worker.terminate();
      fake.send('release dl_get_device_name');
      return [await ended, addon.dinoLiteDeviceCount(), await addon.dinoLiteSelectDeviceAsync(1), addon.dinoLiteGetSelectedDevice()];
      // A promise that its environment no longer lets settle stays with the runtime as eight bytes.
    }, { args: [library], env: untidyEnvironment }), [1, 2, true, 1]);
  });

  it('shares the microscope with the main thread, whichever loaded it', async () => {
    assert.deepEqual(await valueFromChild(async ({ addonPath, loadAddon, openFakeDinoLite, fullDinoLite }, file) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      openFakeDinoLite(file).send(fullDinoLite);
      const worker = new Worker(`
        const { workerData: { addonPath, file }, parentPort } = require('node:worker_threads');
        const addon = require(addonPath);
        addon.loadDinoLite(file);
        parentPort.postMessage(addon.dinoLiteSelectDevice(1));
      `, { eval: true, execArgv: [], workerData: { addonPath, file } });
      const [selected] = await once(worker, 'message');
      await once(worker, 'exit');
      const addon = loadAddon();
      return [selected, addon.dinoLiteGetSelectedDevice(), addon.dinoLiteDebugState().cachedAmr];
    }, { args: [library] }), [true, 1, 50]);
  });
});

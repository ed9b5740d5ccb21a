// How the process and worker threads end while the microscope's owner thread has work.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { runInChild, valueFromChild } from './support/child.js';
import { fakePath, untidyEnvironment } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const library = fakePath('libostrel.so');
const silent = { stdout: '', stderr: '', code: 0, signal: null };

/** Leaves a slow pass running and work queued behind it, and ends the process. Runs in a child. */
function leaveWork({ addon, openFakeOstrel }, { file, log, how }) {
  const fake = openFakeOstrel(file);
  addon.loadOstrel(file);
  addon.ostrelInit();
  fake.send(`log_file ${log}\ndelay GetScopeStatus 300`);
  addon.ostrelGetScopeStatus();
  fake.send('wait_entered GetScopeStatus 1');
  for (let i = 0; i < 3; i += 1) {
    addon.ostrelDevicesAsync().then(() => {});
    addon.ostrelSetLedStateAsync(true).then(() => {});
  }
  if (how === 'exit') {
    process.exit(4);
  } else if (how === 'throw') {
    throw new Error('thrown on purpose');
  }
}

const calledIn = (log) => fs.readFileSync(log, 'utf8').trim().split('\n');
const pass = ['GetScopeStatus()', 'GetPixelSizeInfo(ptr,ptr,ptr)', 'GetLensGroupInfo(ptr,ptr)', 'GetFocusPosition(ptr)',
  'IsCapturePressed()'];

describe('the process ends', { concurrency: 2 }, () => {
  it('once its promises have settled, where nothing cuts it short', async () => {
    const log = path.join(directory, 'end.txt');
    const { value, ...end } = await runInChild(leaveWork, { args: [{ file: library, log }] });
    assert.deepEqual(end, silent);
    const called = calledIn(log);
    assert.deepEqual(called.slice(0, 5), pass);
    assert.equal(called.filter((call) => call === 'SetLedState(1)').length, 3);
    assert.equal(called.filter((call) => call === 'GetDevicesCount()').length, 3);
    assert.ok(!called.includes('Destroy()'));
  });

  for (const [what, how, code] of [['process.exit()', 'exit', 4], ['an uncaught exception', 'throw', 1]]) {
    it(`by ${what} once the pass that was running is through`, async () => {
      const log = path.join(directory, `${how}.txt`);
      const { stderr, ...end } =
        await runInChild(leaveWork, { args: [{ file: library, log, how }], env: untidyEnvironment });
      assert.equal(end.code, code);
      assert.equal(end.signal, null);
      assert.deepEqual(calledIn(log).slice(0, 5), pass);
      assert.ok(!calledIn(log).includes('Destroy()'));
    });
  }

  it('cleanly with a library that destroys itself at exit, queued polls and all', async () => {
    const log = path.join(directory, 'destroyed.txt');
    const { value, ...end } = await runInChild(leaveWork,
      { args: [{ file: fakePath('static_destructor/libostrel.so'), log, how: 'exit' }], env: untidyEnvironment });
    assert.deepEqual(end, { ...silent, code: 4 });
    assert.ok(calledIn(log).includes('static_destructor'));
  });

  it('cleanly without the microscope ever having been used', async () => {
    assert.equal(await valueFromChild(({ addon }) => addon.ostrelGetSelectedDevice()), -1);
  });

  it('only once a task that runs has returned', async () => {
    const begin = performance.now();
    const { value, ...end } = await runInChild(({ addon, openFakeOstrel }, file) => {
      const fake = openFakeOstrel(file);
      addon.loadOstrel(file);
      fake.send('delay GetScopeStatus 1500');
      addon.ostrelGetScopeStatus();
      fake.send('wait_entered GetScopeStatus 1');
      process.exit(0);
    }, { args: [library], env: untidyEnvironment });
    assert.deepEqual(end, silent);
    assert.ok(performance.now() - begin > 1500);
  });
});

describe('a worker thread', { concurrency: 2 }, () => {
  it('that is terminated with promises pending does no harm', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon, addonPath, openFakeOstrel, until }, file) => {
      const { Worker } = await import('node:worker_threads');
      const fake = openFakeOstrel(file);
      addon.loadOstrel(file);
      addon.ostrelInit();
      fake.send('block GetDevicesCount');
      const worker = new Worker(`
        const addon = require(require('node:worker_threads').workerData);
        addon.ostrelDevicesAsync();
        addon.ostrelSelectDeviceAsync(0);
        addon.ostrelSetLedStateAsync(true);
        addon.ostrelGetScopeStatus();
        setInterval(() => {}, 1000);
      `, { eval: true, execArgv: [], workerData: addonPath });
      await until('the first call', () => fake.entered('GetDevicesCount') === 1);
      const ended = worker.terminate();
      fake.send('release GetDevicesCount');
      return [await ended, addon.ostrelDeviceCount(), await addon.ostrelSelectDeviceAsync(1), addon.ostrelGetSelectedDevice()];
      // A promise that its environment no longer lets settle stays with the runtime as eight bytes.
    }, { args: [library], env: untidyEnvironment }), [1, 2, true, 1]);
  });

  it('shares the microscope with the main thread, whichever loaded it', async () => {
    assert.deepEqual(await valueFromChild(async ({ addonPath, loadAddon, openFakeOstrel }, file) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      openFakeOstrel(file).send('default GetScopeStatus 8');
      const worker = new Worker(`
        const { workerData: { addonPath, file }, parentPort } = require('node:worker_threads');
        const addon = require(addonPath);
        addon.loadOstrel(file);
        parentPort.postMessage(addon.ostrelSelectDevice(1));
      `, { eval: true, execArgv: [], workerData: { addonPath, file } });
      const [selected] = await once(worker, 'message');
      await once(worker, 'exit');
      const addon = loadAddon();
      return [selected, addon.ostrelGetSelectedDevice(), addon.ostrelGetScopeStatus()];
    }, { args: [library] }), [true, 1, 8]);
  });

  it('may call everything while another one does', async () => {
    assert.deepEqual(await valueFromChild(async ({ addonPath, loadFakes, loadAddon }, libraries) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      loadFakes(loadAddon(), libraries);
      const codes = await Promise.all([1, 2, 3].map(async () => {
        const worker = new Worker(`
          const addon = require(require('node:worker_threads').workerData);
          const names = Object.keys(addon).filter((name) => /^(ostrel|dinoLite(?!Dispose))/.test(name));
          const pending = [];
          for (let round = 0; round < 50; round += 1) {
            pending.push(...names.map((name) => addon[name](round % 3)));
          }
          Promise.all(pending).then(() => process.exit(7));
        `, { eval: true, execArgv: [], workerData: addonPath });
        return (await once(worker, 'exit'))[0];
      }));
      return codes;
    }, { args: [{ camera: fakePath('libcnokhwa.so'), dinoLite: fakePath('libdinolite.so'), ostrel: library }] }), [7, 7, 7]);
  });
});

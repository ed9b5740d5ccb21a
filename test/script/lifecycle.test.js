// How the process ends while the addon works, and the addon in worker threads.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { runInChild, valueFromChild } from './support/child.js';
import { fakePath, simulatorPath, untidyEnvironment } from './support/environment.js';
import { decodingComplaints, probe, topBoxes } from './support/media.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const fake = fakePath('libcnokhwa.so');
const silent = { stdout: '', stderr: '', code: 0, signal: null };
const shortLived = fakePath('static_destructor/libcnokhwa.so');

/**
 * Leaves a preview running, a recording too if there is a `file`, and ends the process by `how`.
 * Runs in a child.
 */
async function leaveRunning({ addon, openFakeCamera, nextFrame, until }, { library, file, log, how }) {
  if (log) {
    openFakeCamera(library).send(`frame 64 48\nlog_file ${log}`);
  }
  addon.loadCameraBackend(library);
  addon.cameraStartCapture(0, 64, 48);
  addon.cameraPreviewStart(0, 64, 48, 120);
  const { width, height } = await nextFrame(addon);
  if (file) {
    const started = addon.cameraRecordingStart(file, width, height, 120, 1_000_000);
    await until('written frames', () => addon.cameraRecordingStatus().framesWritten > 3);
    if (started !== 0) {
      throw new Error(addon.getLastError());
    }
  }
  if (how === 'exit') {
    process.exit(3);
  } else if (how === 'throw') {
    setImmediate(() => {
      throw new Error('thrown on purpose');
    });
  }
}

function assertFinished(file) {
  assert.deepEqual(topBoxes(file), ['ftyp', 'moov', 'free', 'mdat']);
  assert.equal(decodingComplaints(file), '');
  assert.ok(probe(file).packets.length > 3);
}

describe('the process ends', { concurrency: 2 }, () => {
  for (const [what, library] of [
    ['the fake camera', fake],
    ['a camera library that destroys itself at exit', shortLived],
    ['the simulated camera', simulatorPath],
  ]) {
    it(`cleanly with a running preview of ${what}`, async () => {
      const log = library !== simulatorPath && path.join(directory, `preview-${path.basename(path.dirname(library))}.txt`);
      const { value, ...end } = await runInChild(leaveRunning, { args: [{ library, log }] });
      assert.deepEqual(end, silent);
      if (library === shortLived) {
        assert.match(fs.readFileSync(log, 'utf8'), /^static_destructor$/m);
      }
    });

    it(`cleanly with a running recording of ${what}, and its file is finished`, async () => {
      const name = `recording-${path.basename(path.dirname(library))}`;
      const file = path.join(directory, `${name}.mp4`);
      const log = library !== simulatorPath && path.join(directory, `${name}.txt`);
      const { value, ...end } = await runInChild(leaveRunning, { args: [{ library, log, file }] });
      assert.deepEqual(end, silent);
      assertFinished(file);
    });
  }

  it('by process.exit() with its code, and the file of a running recording is finished', async () => {
    const file = path.join(directory, 'exit.mp4');
    const log = path.join(directory, 'exit.txt');
    const { value, ...end } = await runInChild(leaveRunning,
      { args: [{ library: shortLived, log, file, how: 'exit' }], env: untidyEnvironment });
    assert.deepEqual(end, { ...silent, code: 3 });
    assertFinished(file);
  });

  it('by an uncaught exception with its report, and the file of a running recording is finished', async () => {
    const file = path.join(directory, 'throw.mp4');
    const log = path.join(directory, 'throw.txt');
    const { code, signal, stdout, stderr } =
      await runInChild(leaveRunning, { args: [{ library: shortLived, log, file, how: 'throw' }], env: untidyEnvironment });
    assert.deepEqual([code, signal, stdout], [1, null, '']);
    assert.match(stderr, /Error: thrown on purpose/);
    assert.match(stderr.trim(), /^Node\.js v[\d.]+$/m);
    assert.equal(stderr.trim().split('\n').at(-1), `Node.js ${process.version}`);
    assertFinished(file);
  });

  it('cleanly with a preview that waits for a library and a recording without frames', async () => {
    const file = path.join(directory, 'waiting.mp4');
    assert.equal(await valueFromChild(({ addon }, target) => {
      addon.cameraPreviewStart(0, 64, 48, 120);
      return addon.cameraRecordingStart(target, 64, 48, 30, 1_000_000);
    }, { args: [file] }), 0);
    assert.deepEqual(topBoxes(file), ['ftyp', 'moov', 'free', 'mdat']);
  });

  it('cleanly after libraries were refused and a preview failed to start', async () => {
    assert.equal(await valueFromChild(({ addon, fakePath: pathOf }) => {
      addon.loadCameraBackend(pathOf('without_cnokhwa_grab_frame/libcnokhwa.so'));
      addon.loadTurboJpeg('libturbojpeg.so.0');
      try {
        addon.cameraPreviewStart(0, 2147483647, 2147483647, 30);
        return 'started';
      } catch (error) {
        return error instanceof Error;
      }
    }), true);
  });
});

describe('a worker thread', { concurrency: 2 }, () => {
  it('that alone loads the addon may end, and its preview runs on', async () => {
    const frames = await valueFromChild(async (context, library) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      context.openFakeCamera(library).send('frame 64 48');
      const worker = new Worker(`
        const { workerData: { addonPath, library } } = require('node:worker_threads');
        const addon = require(addonPath);
        addon.loadCameraBackend(library);
        addon.cameraPreviewStart(0, 64, 48, 120);
      `, { eval: true, execArgv: [], workerData: { addonPath: context.addonPath, library } });
      const [code] = await once(worker, 'exit');
      const { addon } = context;
      const { sequence } = await context.nextFrame(addon);
      await context.nextFrame(addon, { sequence: sequence + 3 });
      return [code, addon.cameraPreviewIsRunning(), addon.cameraLoadPath()];
    }, { args: [fake] });
    assert.deepEqual(frames, [0, true, fake]);
  });

  it('shares the addon with the main thread', async () => {
    const result = await valueFromChild(async (context, library) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      const { addon } = context;
      context.openFakeCamera(library).send('frame 64 48');
      addon.loadCameraBackend(library);
      addon.cameraPreviewStart(0, 64, 48, 120);
      await context.nextFrame(addon);
      const worker = new Worker(`
        const { parentPort, workerData } = require('node:worker_threads');
        const addon = require(workerData);
        parentPort.postMessage([Object.keys(addon), addon.cameraPreviewIsRunning(), addon.cameraBackend()]);
      `, { eval: true, execArgv: [], workerData: context.addonPath });
      const [[keys, ...state]] = await once(worker, 'message');
      await once(worker, 'exit');
      const { sequence } = addon.cameraPreviewGetLatest(0);
      await context.nextFrame(addon, { sequence });
      return [keys.join() === Object.keys(addon).join(), ...state];
    }, { args: [fake] });
    assert.deepEqual(result, [true, true, 'linux-v4l2']);
  });

  it('may load the addon and end, again and again, also two at a time', async () => {
    const codes = await valueFromChild(async ({ addonPath }) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      const run = async () => {
        const worker = new Worker(`
          const addon = require(require('node:worker_threads').workerData);
          addon.cameraDeviceFormats(0);
          addon.cameraPreviewGetLatest(0);
        `, { eval: true, execArgv: [], workerData: addonPath });
        return (await once(worker, 'exit'))[0];
      };
      const all = [];
      for (let round = 0; round < 5; round += 1) {
        all.push(...await Promise.all([run(), run()]));
      }
      return all;
    });
    assert.deepEqual(codes, Array(10).fill(0));
  });

  it('may be terminated while it polls', async () => {
    const code = await valueFromChild(async (context, library) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      context.openFakeCamera(library).send('frame 64 48');
      const worker = new Worker(`
        const { parentPort, workerData: { addonPath, library } } = require('node:worker_threads');
        const addon = require(addonPath);
        addon.loadCameraBackend(library);
        addon.cameraPreviewStart(0, 64, 48, 120);
        parentPort.postMessage('polls');
        const target = new Uint8Array(64 * 48 * 4);
        for (;;) {
          addon.cameraPreviewGetLatest(0, 0, target);
          addon.cameraPreviewGetLatestQualityFrame(0, 0);
        }
      `, { eval: true, execArgv: [], workerData: { addonPath: context.addonPath, library } });
      await once(worker, 'message');
      await context.sleep(50);
      const exitCode = await worker.terminate();
      const { addon } = context;
      const { sequence } = await context.nextFrame(addon);
      await context.nextFrame(addon, { sequence });
      return exitCode;
    }, { args: [fake] });
    assert.equal(code, 1);
  });

  it('may still poll when the process ends', async () => {
    const { value, ...end } = await runInChild(async (context, library) => {
      const { Worker } = await import('node:worker_threads');
      const { once } = await import('node:events');
      context.openFakeCamera(library).send('frame 64 48');
      const worker = new Worker(`
        const { parentPort, workerData: { addonPath, library } } = require('node:worker_threads');
        const addon = require(addonPath);
        addon.loadCameraBackend(library);
        addon.cameraPreviewStart(0, 64, 48, 120);
        parentPort.postMessage('polls');
        for (;;) {
          addon.cameraPreviewGetLatest(0, 0);
        }
      `, { eval: true, execArgv: [], workerData: { addonPath: context.addonPath, library } });
      await once(worker, 'message');
      await context.sleep(20);
      process.exit(0);
    }, { args: [fake], env: untidyEnvironment });
    assert.deepEqual(end, silent);
  });
});

// The kit's watch over a camera: which events, in which order, and what is started and stopped.

import assert from 'node:assert/strict';
import { afterEach, beforeEach, describe, it, mock } from 'node:test';

import { watchCamera } from '../../kit/index.js';
import { valueFromChild } from './support/child.js';
import { simulatorPath } from './support/environment.js';

/** A native object of two cameras, whose preview goes as a test says. */
function makeNative() {
  const state = { ids: ['one', 'two'], running: -1, sequence: 0, lastResult: -256, starts: {}, calls: [] };
  const log = (call, ...args) => state.calls.push(`${call}(${args})`);
  return {
    state,
    getLastError: () => '',
    cameraDevicesCount: () => state.count ?? state.ids.length,
    cameraDeviceUniqueId: (index) => state.ids[index] ?? '',
    cameraPreviewIsRunning: () => state.running >= 0,
    cameraPreviewGetLatest: (index) => (index === state.running
      ? { result: -256, data: null, sequence: state.sequence, lastResult: state.lastResult }
      : { result: -1, data: null, sequence: 0, lastResult: state.lastResult }),
    cameraStartCapture(...args) {
      log('startCapture', ...args);
      return state.starts.capture ?? 0;
    },
    cameraStopCapture: (...args) => log('stopCapture', ...args),
    cameraPreviewStart(...args) {
      log('previewStart', ...args);
      Object.assign(state, { running: args[0], sequence: 0, lastResult: -256 });
      return 0;
    },
    cameraPreviewStop(...args) {
      log('previewStop', ...args);
      state.running = -1;
    },
  };
}

describe('a watch', () => {
  let native;
  let clock;
  let watch;
  let events;

  beforeEach(() => {
    native = makeNative();
    clock = 1000;
    mock.method(performance, 'now', () => clock);
    mock.timers.enable({ apis: ['setInterval'] });
  });

  afterEach(async () => {
    await watch?.close();
    watch = null;
    mock.timers.reset();
    mock.restoreAll();
  });

  /** Starts a watch with a look every 100 ms; `events` are all that it tells. */
  function start(options = {}) {
    watch = watchCamera({ native, device: 1, ...options });
    events = [];
    for (const name of ['stalled', 'recovered', 'lost', 'found', 'retry', 'close']) {
      watch.on(name, (detail) => events.push([name, detail]));
    }
  }

  /** Lets time go by in looks, with `frames` new frames before each; then what runs behind them. */
  async function pass(looks, frames = 0) {
    for (let i = 0; i < looks; i += 1) {
      clock += 100;
      native.state.sequence += frames;
      mock.timers.tick(100);
      await new Promise(setImmediate);
    }
  }

  const run = () => Object.assign(native.state, { running: 1, sequence: 0, lastResult: -256 });
  const deliver = async (looks = 1) => {
    native.state.lastResult = 0;
    await pass(looks, 3);
  };
  const taken = () => events.splice(0);

  it('says nothing while all is well, nor during the grace at the start', async () => {
    run();
    start();
    assert.deepEqual([watch.uniqueId, watch.device, watch.state], ['two', 1, 'starting']);
    await pass(50);
    assert.equal(watch.state, 'starting');
    await deliver(3);
    assert.equal(watch.state, 'live');
    assert.deepEqual(taken(), []);
  });

  it('tells a camera that gives no first frame once the grace is over', async () => {
    run();
    start();
    await pass(51);
    assert.deepEqual(taken(), [['stalled', { device: 1, silentMs: 5100, lastResult: -256 }]]);
    await pass(30);
    assert.deepEqual(taken(), []);
  });

  it('tells a camera that stalls, once, and that it recovers', async () => {
    run();
    start();
    await deliver();
    await pass(8);
    assert.deepEqual(taken(), []);
    await pass(20);
    assert.deepEqual(taken(), [['stalled', { device: 1, silentMs: 900, lastResult: 0 }]]);
    assert.equal(watch.state, 'stalled');
    await deliver();
    assert.deepEqual(taken(), [['recovered', { device: 1, silentMs: 2900 }]]);
    assert.equal(watch.state, 'live');
  });

  it('takes a frame now and then for no recovery', async () => {
    run();
    start();
    await deliver();
    await pass(9);
    taken();
    for (let i = 0; i < 5; i += 1) {
      await pass(9);
      await pass(1, 1);
    }
    assert.deepEqual(taken(), []);
  });

  it('loses a camera that fails and is not listed, frees it, finds it elsewhere and starts it there', async () => {
    run();
    start({ capture: { format: 2 }, preview: { width: 64, height: 48, frameRate: 25 } });
    await deliver();
    native.state.ids = ['one'];
    native.state.lastResult = -1;
    await pass(1);
    assert.deepEqual(taken(), [['lost', { uniqueId: 'two', reason: 'missing', lastResult: -1 }]]);
    assert.deepEqual([watch.device, watch.state], [-1, 'lost']);
    assert.deepEqual(native.state.calls.splice(0), ['previewStop(1)', 'stopCapture(1)']);
    await pass(30);
    assert.deepEqual([taken(), native.state.calls], [[], []]);
    native.state.ids = ['two', 'one'];
    await pass(1);
    assert.deepEqual(taken(), [['found', { device: 0, uniqueId: 'two' }]]);
    assert.deepEqual(native.state.calls.splice(0), ['startCapture(0,0,0,2)', 'previewStart(0,64,48,25)']);
    assert.deepEqual([watch.device, watch.state], [0, 'starting']);
    await deliver();
    assert.deepEqual(taken(), [['recovered', { device: 0, silentMs: 100 }]]);
  });

  it('loses a camera that was frozen and is pulled then', async () => {
    run();
    start({ preview: {} });
    await deliver();
    await pass(9);
    native.state.ids = ['one', 'other'];
    await pass(10);
    assert.deepEqual(taken().map(([name]) => name), ['stalled', 'lost']);
  });

  it('starts anew a camera that is listed but goes on failing, where it may', async () => {
    run();
    start({ preview: { frameRate: 30 } });
    await deliver();
    native.state.lastResult = -2;
    await pass(8);
    assert.deepEqual(taken(), []);
    await pass(2);
    assert.deepEqual(taken(), [['lost', { uniqueId: 'two', reason: 'failing', lastResult: -2 }],
      ['found', { device: 1, uniqueId: 'two' }]]);
    assert.deepEqual(native.state.calls, ['previewStop(1)', 'previewStart(1,960,540,30)']);
  });

  it('only tells of a camera that fails where it may start nothing', async () => {
    run();
    start();
    await deliver();
    native.state.lastResult = -2;
    await pass(30);
    assert.deepEqual(taken(), [['stalled', { device: 1, silentMs: 900, lastResult: -2 }]]);
    native.state.ids = [];
    await pass(10);
    native.state.ids = ['two'];
    await pass(10);
    assert.deepEqual(taken().map(([name]) => name), ['lost', 'found']);
    assert.deepEqual(native.state.calls, []);
  });

  it('does not begin where the library cannot list cameras, and searches on where that comes later', async () => {
    native.state.count = -9;
    assert.throws(() => start(), { name: 'CallError', code: -9,
      message: 'cameraDevicesCount gave -9: the camera library cannot list cameras, with a code of its own.' });
    delete native.state.count;
    run();
    start({ capture: {}, preview: {} });
    await deliver();
    Object.assign(native.state, { lastResult: -1, ids: ['one'] });
    await pass(1);
    native.state.count = -9;
    await pass(11);
    assert.deepEqual(taken().map(([name]) => name), ['lost']);
    delete native.state.count;
    native.state.ids = ['one', 'two'];
    await pass(11);
    assert.deepEqual(taken().map(([name]) => name), ['found']);
  });

  it('tries a camera that does not start again and again', async () => {
    run();
    start({ capture: {}, preview: {} });
    await deliver();
    Object.assign(native.state, { lastResult: -1, ids: ['one'], starts: { capture: -16 } });
    await pass(1);
    native.state.ids = ['one', 'two'];
    await pass(21);
    const [lost, ...retries] = taken();
    assert.equal(lost[0], 'lost');
    assert.deepEqual(retries.map(([name, { device, error }]) => [name, device, error.message]), Array(3).fill(
      ['retry', 1, 'cameraStartCapture for camera 1 gave -16: the camera library does not start this camera, with a code of its own.']));
    native.state.starts = {};
    await pass(10);
    assert.deepEqual(taken().map(([name]) => name), ['found']);
  });

  it('starts nothing over the preview of another camera, and nothing twice', async () => {
    run();
    start({ preview: {} });
    await deliver();
    Object.assign(native.state, { lastResult: -1, ids: ['one'] });
    await pass(1);
    Object.assign(native.state, { running: 0, ids: ['one', 'two'], calls: [] });
    taken();
    await pass(1);
    assert.deepEqual(taken().map(([name, { error }]) => [name, error.message]), [['retry', 'A preview of another camera is running.']]);
    native.state.running = 1;
    await pass(10);
    assert.deepEqual([taken().map(([name]) => name), native.state.calls], [['found'], []]);
  });

  it('rests while somebody has stopped the preview', async () => {
    run();
    start({ preview: {} });
    await deliver();
    native.state.running = -1;
    await pass(100);
    assert.deepEqual([taken(), watch.state], [[], 'starting']);
    run();
    await pass(49);
    await deliver();
    assert.deepEqual([taken(), watch.state], [[], 'live']);
  });

  it('takes a slow preview for no stalled one', async () => {
    run();
    start({ preview: { frameRate: 1 } });
    await deliver();
    await pass(30);
    assert.deepEqual(taken(), []);
    await pass(1);
    assert.deepEqual(taken().map(([name]) => name), ['stalled']);
  });

  it('starts and stops what it is asked to own', async () => {
    start({ start: true, capture: { width: 640, height: 480 }, preview: {} });
    assert.deepEqual(native.state.calls.splice(0), ['startCapture(1,640,480,-1)', 'previewStart(1,960,540,30)']);
    await Promise.all([watch.close(), watch.close()]);
    assert.deepEqual(native.state.calls, ['previewStop(1)', 'stopCapture(1)']);
    assert.deepEqual([taken(), watch.state], [[['close', undefined]], 'closed']);
    await pass(100);
    assert.deepEqual(taken(), []);
  });

  it('stops what it has started elsewhere meanwhile', async () => {
    start({ start: true, capture: {}, preview: {} });
    await deliver();
    Object.assign(native.state, { lastResult: -1, ids: [] });
    await pass(1);
    native.state.ids = ['two'];
    await pass(10);
    native.state.calls = [];
    await watch.close();
    assert.deepEqual(native.state.calls, ['previewStop(0)', 'stopCapture(0)']);
  });

  it('leaves alone what it has not started, and ends at an abort', async () => {
    const abort = new AbortController();
    run();
    start({ preview: {}, signal: abort.signal });
    await deliver();
    abort.abort();
    await new Promise(setImmediate);
    assert.deepEqual([taken(), native.state.calls, watch.state], [[['close', undefined]], [], 'closed']);
    assert.throws(() => start({ signal: abort.signal }), { name: 'AbortError' });
  });

  it('is had by the unique id as well', () => {
    run();
    start({ device: undefined, uniqueId: 'one' });
    assert.equal(watch.device, 0);
  });

  for (const [options, message] of [
    [{ device: 7 }, 'Camera 7 is not there, or has no unique id by which it could be found again.'],
    [{ uniqueId: 'x' }, 'No camera has the unique id "x".'],
    [{ uniqueId: '' }, '`uniqueId` takes a text that is not empty, not "".'],
    [{ pollMs: 0 }, '`pollMs` takes a number above zero, not 0.'],
    [{ stallMs: NaN }, '`stallMs` takes a number above zero, not NaN.'],
    [{ graceMs: '5' }, '`graceMs` takes a number above zero, not "5".'],
  ]) {
    it(`refuses: ${message}`, () => {
      assert.throws(() => start(options), { message });
    });
  }

  it('refuses a camera that does not start, and watches nothing then', () => {
    native.state.starts = { capture: -1 };
    assert.throws(() => start({ start: true, capture: {}, preview: {} }), { call: 'cameraStartCapture for camera 1', code: -1 });
    assert.deepEqual(native.state.calls, ['startCapture(1,0,0,-1)']);
  });
});

describe('the virtual microscope', () => {
  it('is lost when its plug is pulled, and found again; a process ends after that', async () => {
    const names = await valueFromChild(async ({ addon, kit }, libraryFile, controlUrl) => {
      const { once } = await import('node:events');
      const fs = await import('node:fs');
      const os = await import('node:os');
      const path = await import('node:path');
      const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'kit-watch-'));
      process.env.OSTREL_SIMULATOR_CONTROL = path.join(directory, 'control');
      const { MicroscopeControl } = await import(controlUrl);
      addon.loadCameraBackend(libraryFile);
      addon.cameraInitialize();
      const hand = await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL);
      const watch = kit.watchCamera({ native: addon, start: true, capture: { format: 0 }, preview: {},
        searchMs: 100, stallMs: 60_000, graceMs: 60_000 });
      const names = [];
      ['stalled', 'recovered', 'lost', 'found', 'retry', 'close'].forEach((name) => watch.on(name, () => names.push(name)));
      const frames = kit.frames({ native: addon, device: () => watch.device });
      const before = (await frames.next()).value.sequence;
      await hand.run('unplug');
      await once(watch, 'lost');
      await hand.run('plug');
      await once(watch, 'recovered');
      const after = (await frames.next()).value.sequence;
      await frames.return();
      await watch.close();
      hand.close();
      fs.rmSync(directory, { recursive: true });
      return [before > 0, after > 0, ...names, addon.cameraPreviewIsRunning()];
    }, { args: [simulatorPath, new URL('../../examples/lib/virtual-microscope.js', import.meta.url).href] });
    assert.deepEqual(names, [true, true, 'lost', 'found', 'recovered', 'close', false]);
  });
});

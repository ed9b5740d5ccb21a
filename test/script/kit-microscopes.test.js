// The kit's commands and watches of microscopes.

import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { afterEach, beforeEach, describe, it, mock } from 'node:test';

import { dinoLiteCommands, ostrelCommands, watchDinoLite, watchOstrel } from '../../kit/index.js';
import { valueFromChild } from './support/child.js';
import { loadAddon, simulatorPath } from './support/environment.js';
import { openFakeDinoLite } from './support/fake-dino-lite.js';
import { openFakeOstrel } from './support/fake-ostrel.js';

const reason = new Error('enough');

describe('commands', () => {
  const addon = loadAddon();
  const fake = openFakeOstrel();
  const dinoLite = openFakeDinoLite();
  addon.loadOstrel(fake.path);
  addon.loadDinoLite(dinoLite.path);
  const commands = ostrelCommands({ native: addon });
  const called = () => fake.calls().map(({ symbol, args }) => `${symbol}(${args})`)
    .filter((call) => /^(SetFocus|Focus|SetLed|Trigger|SelectDevice|Init|Destroy)/.test(call));

  beforeEach(() => {
    fake.send('reset\ntext GetLastErrorString odd');
    addon.ostrelInit(true);
    fake.send('clear_log');
  });

  it('do what the native calls do', async () => {
    await commands.init(true);
    await commands.select(0);
    await commands.setFocus(0);
    await commands.setFocus(255);
    await commands.focusNear();
    await commands.focusFar();
    await commands.autoFocus();
    await commands.setLed(true);
    await commands.setLed(0);
    await commands.dispose();
    assert.deepEqual(called(), ['Destroy()', 'Init()', 'SelectDeviceNumber(0)', 'SetFocusPosition(0)', 'SetFocusPosition(255)',
      'FocusNearStep()', 'FocusFarStep()', 'TriggerAutoFocus()', 'SetLedState(1)', 'SetLedState(0)', 'Destroy()']);
    const devices = await commands.devices();
    assert.deepEqual(devices.map(({ index }) => index), [...devices.keys()]);
  });

  it('are rejected in the library\'s words', async () => {
    fake.send('default SetFocusPosition 0\ndefault SelectDeviceNumber 0');
    await assert.rejects(commands.setFocus(7), new Error('ostrelSetFocusPositionAsync(7) failed: odd'));
    await assert.rejects(commands.select(0),
      new Error('ostrelSelectDeviceAsync(0) failed: Ostrel SDK device selection failed'));
    addon.ostrelInit(true);
    fake.send('reset\ndefault SetLedState 0');
    await assert.rejects(commands.setLed(true),
      new Error('ostrelSetLedStateAsync(true) failed: no reason was given; was loadOstrel called?'));
  });

  it('refuse what no microscope takes, without asking it', async () => {
    for (const position of [-1, 256, 1.5, NaN, '7', undefined, null]) {
      await assert.rejects(commands.setFocus(position), { name: 'RangeError', message: /^A focus position is a whole number from 0 to 255, not / });
    }
    await assert.rejects(commands.select(-1), new RangeError("A microscope's index is a whole number from 0 on, not -1."));
    await assert.rejects(commands.focusNear({ signal: 1 }), new TypeError('`signal` takes an AbortSignal, not 1.'));
    assert.deepEqual(called(), []);
  });

  it('of one family wait for each other, whoever asks, and the other family does not', async () => {
    fake.send('block SetFocusPosition');
    const other = ostrelCommands({ native: addon });
    const slow = [commands.setFocus(1), ...Array.from({ length: 20 }, () => other.focusNear()), commands.setLed(true)];
    fake.send('wait_entered SetFocusPosition 1');
    const dino = dinoLiteCommands({ native: addon });
    dinoLite.send('reset');
    await dino.init(true);
    assert.deepEqual((await dino.devices()).map(({ index }) => index), [0, 1]);
    assert.deepEqual(called(), ['SetFocusPosition(1)']);
    fake.send('default FocusNearStep 0\nrelease SetFocusPosition');
    const settled = await Promise.allSettled(slow);
    assert.deepEqual(settled.map(({ status }) => status), ['fulfilled', ...Array(20).fill('rejected'), 'fulfilled']);
  });

  it('take one pool thread for each family, by however many native objects, and files are read while both libraries hang', async () => {
    dinoLite.send('reset\ndefault dl_device_supports_microtouch 1\ndefault dl_led_mode_count 1\ndefault dl_led_mode@0 17');
    addon.dinoLiteSelectDevice(0);
    const pending = { ostrel: 0, dinoLite: 0 };
    const most = { ...pending };
    const counted = (name) => async (...args) => {
      const family = name.startsWith('ostrel') ? 'ostrel' : 'dinoLite';
      pending[family] += 1;
      most[family] = Math.max(most[family], pending[family]);
      try {
        return await addon[name](...args);
      } finally {
        pending[family] -= 1;
      }
    };
    const natives = Array.from({ length: 4 }, () => new Proxy(addon, {
      get: (target, name) => (/Async$/.test(name) ? counted(name) : target[name]),
    }));
    fake.send('block SetFocusPosition');
    dinoLite.send('block dl_set_led_state');
    const given = natives.flatMap((native, i) => [
      ...[1, 2, 3].map((step) => ostrelCommands({ native }).setFocus(10 * i + step)),
      ...[1, 2, 3].map(() => dinoLiteCommands({ native }).toggleLed()),
    ]);
    fake.send('wait_entered SetFocusPosition 1');
    dinoLite.send('wait_entered dl_set_led_state 2');
    let isSettled = false;
    Promise.race(given).then(() => {
      isSettled = true;
    });
    const text = await readFile(new URL(import.meta.url), 'utf8');
    assert.deepEqual([text.includes('read while both libraries hang'), isSettled], [true, false]);
    assert.deepEqual(pending, { ostrel: 1, dinoLite: 1 });
    fake.send('release SetFocusPosition');
    dinoLite.send('release dl_set_led_state');
    await Promise.all(given);
    assert.deepEqual([pending, most], [{ ostrel: 0, dinoLite: 0 }, { ostrel: 1, dinoLite: 1 }]);
  });

  it('reject a list that is too long to be read', async () => {
    fake.send('default GetDevicesCount 65537');
    await assert.rejects(commands.devices(),
      new Error('ostrelDevicesAsync() failed: Ostrel SDK reported 65537 devices; at most 65536 can be listed'));
    fake.send('default GetDevicesCount 0');
    addon.ostrelInit(true);
    assert.deepEqual(await commands.devices(), []);
    dinoLite.send('reset\ndefault dl_devices_count 65537');
    const dino = dinoLiteCommands({ native: addon });
    await dino.init(true);
    await assert.rejects(dino.devices(),
      new Error('dinoLiteDevicesAsync() failed: Dino-Lite SDK reported 65537 devices; at most 65536 can be listed'));
  });

  it('of a slider are thinned out to the newest', async () => {
    fake.send('block SetFocusPosition');
    const moves = [10, 20, 30, 40].map((position) => commands.setFocus(position));
    fake.send('wait_entered SetFocusPosition 1\nrelease SetFocusPosition');
    await Promise.all(moves);
    assert.deepEqual(called(), ['SetFocusPosition(10)', 'SetFocusPosition(40)']);
  });

  it('are withdrawn at an abort, and one that runs is no more waited for', async () => {
    fake.send('block SetLedState');
    const abort = new AbortController();
    const { signal } = abort;
    const given = [commands.setLed(true, { signal }), commands.focusNear({ signal }), commands.setLed(false)];
    fake.send('wait_entered SetLedState 1');
    abort.abort(reason);
    await assert.rejects(given[0], reason);
    await assert.rejects(given[1], reason);
    fake.send('release SetLedState');
    await given[2];
    assert.deepEqual(called(), ['SetLedState(1)', 'SetLedState(0)']);
    await assert.rejects(commands.focusFar({ signal }), reason);
  });

  it('of a Dino-Lite tell the new mode of the light, which may be -1', async () => {
    const dino = dinoLiteCommands({ native: addon });
    await assert.rejects(dino.toggleLed(),
      new Error('dinoLiteToggleLedAsync() failed: No Dino-Lite SDK device is selected for LED control'));
    dinoLite.send('default dl_select_device 1\ndefault dl_led_mode_count 2\ndefault dl_led_mode@0 17\ndefault dl_led_mode@1 -1\n' +
      'default dl_set_led_state 1\ndefault dl_initialize_selected_device 1\ndefault dl_device_supports_microtouch 1');
    await dino.select(0);
    assert.equal(await dino.toggleLed(), -1);
    assert.equal(await dino.toggleLed(), 17);
    await dino.enableMicrotouch();
    await dino.dispose();
    await assert.rejects(dino.enableMicrotouch(false), /^Error: dinoLiteEnableMicrotouchAsync\(false\) failed: The selected/);
  });
});

/** Sets clock and timers by hand; `pass` lets time go by and what runs behind it. */
function useTime() {
  const time = { now: 1000 };
  beforeEach(() => {
    time.now = 1000;
    mock.method(performance, 'now', () => time.now);
    mock.timers.enable({ apis: ['setInterval', 'setTimeout'] });
  });
  afterEach(() => {
    mock.timers.reset();
    mock.restoreAll();
  });
  return {
    async pass(ms) {
      for (let i = 0; i < ms; i += 50) {
        time.now += 50;
        mock.timers.tick(50);
        await new Promise(setImmediate);
      }
    },
  };
}

const names = ['button', 'connected', 'disconnected', 'trouble', 'status', 'focus', 'lens', 'pixelSize', 'magnification',
  'fieldOfView', 'led', 'close'];

function listen(watch) {
  const events = [];
  names.forEach((name) => watch.on(name, (detail) => events.push([name, detail])));
  return { events, taken: () => events.splice(0) };
}

const microscope = (index, uniqueId = `m${index}`) => ({ index, uniqueId, name: `Microscope ${uniqueId}` });

describe('a watch of an Ostrel', () => {
  const { pass } = useTime();
  let native;
  let watches;

  beforeEach(() => {
    watches = [];
    native = {
      list: [microscope(0), microscope(1)], selections: [], refuses: false,
      values: { status: -1, focus: -1, lens: { ok: false }, pixel: { ok: false } }, presses: 0,
      getLastError: () => '', ostrelLastError: () => 'no',
      ostrelGetScopeStatus: () => native.values.status,
      ostrelGetPixelSizeInfo: () => native.values.pixel,
      ostrelGetLensGroupInfo: () => native.values.lens,
      ostrelGetFocusPosition: () => native.values.focus,
      ostrelIsCapturePressed: () => native.presses > 0 && (native.presses -= 1) >= 0,
      ostrelDevicesAsync: async () => native.list,
      ostrelSelectDeviceAsync: async (index) => native.selections.push(index) > 0 && !native.refuses,
    };
  });
  afterEach(() => watches.forEach((watch) => watch.close()));

  function start(options = {}) {
    const watch = watchOstrel({ native, ...options });
    watches.push(watch);
    return { watch, ...listen(watch) };
  }

  it('tells values when they are known and whenever they change', async () => {
    const { watch, taken } = start();
    await pass(100);
    taken();
    native.values = { status: 1, focus: 128, lens: { ok: true, lensDriver: 769, lensGroup: 2 },
      pixel: { ok: true, micronsPerPixel: 0.5, width: 640, height: 480 } };
    await pass(100);
    const lens = { driver: 769, group: 2 };
    const pixelSize = { micronsPerPixel: 0.5, width: 640, height: 480 };
    assert.deepEqual(taken(), [['status', { status: 1, previous: null }], ['focus', { position: 128, previous: null }],
      ['lens', lens], ['pixelSize', pixelSize]]);
    assert.deepEqual(watch.state, { connected: true, device: null, status: 1, focus: 128, lens, pixelSize });
    native.values = { ...native.values, focus: 130, pixel: { ...native.values.pixel, micronsPerPixel: 0.7 } };
    await pass(100);
    assert.deepEqual(taken(), [['focus', { position: 130, previous: 128 }], ['pixelSize', { ...pixelSize, micronsPerPixel: 0.7 }]]);
    native.values = { status: -1, focus: -1, lens: { ok: false }, pixel: { ok: false } };
    await pass(100);
    assert.deepEqual(taken(), [['status', { status: null, previous: 1 }], ['focus', { position: null, previous: 130 }],
      ['lens', null], ['pixelSize', null]]);
  });

  it('tells each press once, to each of two watches, held or not', async () => {
    const [one, two] = [start(), start({ pollMs: 500 })];
    await pass(50);
    [one, two].forEach(({ taken }) => taken());
    const presses = ({ taken }) => taken().filter(([name]) => name === 'button').length;
    native.presses = 1;
    await pass(500);
    assert.deepEqual([presses(one), presses(two)], [1, 1]);
    native.presses = 10;
    await pass(1000);
    assert.deepEqual([presses(one), presses(two)], [1, 1]);
    one.watch.close();
    native.presses = 1;
    await pass(500);
    assert.deepEqual([presses(one), presses(two)], [0, 1]);
  });

  it('tells what is attached, without selecting anything', async () => {
    const { watch, taken } = start();
    await pass(50);
    assert.deepEqual(taken(), [['connected', native.list[0]], ['connected', native.list[1]]]);
    native.list = [microscope(0, 'm1')];
    await pass(2000);
    assert.deepEqual(taken(), [['disconnected', microscope(0)]]);
    native.list = [microscope(0, 'm1'), microscope(1, 'm2')];
    await pass(2000);
    assert.deepEqual(taken(), [['connected', microscope(1, 'm2')]]);
    assert.deepEqual([native.selections, watch.state.connected], [[], true]);
  });

  it('selects the one that it is told, follows it by its id, and selects it again', async () => {
    const { watch, taken } = start({ device: 1 });
    await pass(50);
    assert.deepEqual([taken(), native.selections], [[['connected', microscope(1)]], [1]]);
    assert.deepEqual(watch.state.device, microscope(1));
    native.list = [microscope(0, 'm1')];
    await pass(2000);
    assert.deepEqual([taken(), native.selections], [[], [1, 0]]);
    native.list = [microscope(0), microscope(1, 'other')];
    await pass(2000);
    assert.deepEqual([taken(), watch.state.connected], [[['disconnected', microscope(0, 'm1')]], false]);
    native.list = [microscope(0), microscope(1, 'other'), microscope(2, 'm1')];
    await pass(2000);
    assert.deepEqual([taken(), native.selections], [[['connected', microscope(2, 'm1')]], [1, 0, 2]]);
  });

  it('tells of its trouble in words and tries again', async () => {
    native.refuses = true;
    const { taken } = start({ device: 'm1', searchMs: 500 });
    await pass(550);
    assert.deepEqual(taken().map(([name, { message }]) => [name, message]),
      Array(2).fill(['trouble', 'ostrelSelectDeviceAsync(1) failed: no']));
    native.refuses = false;
    await pass(500);
    assert.deepEqual(taken(), [['connected', microscope(1)]]);
  });

  it('ends at once and for good, also from within a listener or by a signal', async () => {
    const abort = new AbortController();
    const [one, two] = [start(), start({ signal: abort.signal })];
    one.watch.on('status', () => one.watch.close());
    await pass(50);
    [one, two].forEach(({ taken }) => taken());
    native.values = { ...native.values, status: 1, focus: 2 };
    await pass(50);
    assert.deepEqual(one.taken(), [['status', { status: 1, previous: null }], ['close', undefined]]);
    abort.abort();
    two.watch.close();
    native.values.status = 3;
    await pass(5000);
    assert.deepEqual([one.taken(), two.taken().at(-1)], [[], ['close', undefined]]);
    assert.throws(() => start({ signal: abort.signal }), { name: 'AbortError' });
  });

  for (const [options, message] of [
    [{ device: '' }, '`device` takes the index or the unique id of a microscope, not "".'],
    [{ device: -1 }, '`device` takes the index or the unique id of a microscope, not -1.'],
    [{ pollMs: 'x' }, '`pollMs` takes a number above zero, not "x".'],
    [{ releaseMs: -5 }, '`releaseMs` takes a number above zero, not -5.'],
  ]) {
    it(`refuses: ${message}`, () => assert.throws(() => start(options), { message }));
  }
});

describe('a watch of a Dino-Lite', () => {
  const { pass } = useTime();
  let native;
  let watch;

  beforeEach(() => {
    native = {
      attached: [microscope(0), microscope(1)], listed: [], selected: -1, led: 0, calls: [], amr: 50, fov: 6.5, pressed: false,
      getLastError: () => '', dinoLiteLastError: () => 'no',
      dinoLiteDebugState: () => ({ selectedDeviceIndex: native.selected, ledState: native.led, supportsMicrotouch: true }),
      dinoLiteGetAmr: () => native.amr,
      dinoLiteGetFovx: () => native.fov,
      dinoLiteMicrotouchPressed: () => native.pressed,
      async dinoLiteInitAsync(force) {
        native.calls.push(`init ${force}`);
        if (force || native.listed.length === 0) {
          native.listed = native.attached;
          native.selected = -1;
        }
        return true;
      },
      dinoLiteDevicesAsync: async () => native.listed,
      async dinoLiteSelectDeviceAsync(index) {
        native.calls.push(`select ${index}`);
        native.selected = index;
        native.led = 17;
        return true;
      },
      async dinoLiteEnableMicrotouchAsync(enabled) {
        native.calls.push(`microtouch ${enabled}`);
        return true;
      },
    };
  });
  afterEach(() => watch?.close());

  function start(options = {}) {
    watch = watchDinoLite({ native, ...options });
    return listen(watch);
  }

  it('selects, listens to the button, and tells what it learns', async () => {
    const { taken } = start({ device: 'm1' });
    await pass(100);
    assert.deepEqual(native.calls, ['init false', 'select 1', 'microtouch true']);
    assert.deepEqual(taken(), [['connected', microscope(1)], ['magnification', { magnification: 50, previous: null }],
      ['fieldOfView', { fieldOfView: 6.5, magnification: 50 }], ['led', { mode: 17, previous: 0 }]]);
    assert.deepEqual(watch.state, { connected: true, device: microscope(1), magnification: 50, fieldOfView: 6.5, ledMode: 17 });
    native.pressed = true;
    await pass(200);
    native.pressed = false;
    await pass(50);
    assert.deepEqual(taken().map(([name]) => name), ['button']);
  });

  it('tells the field of view when it is there, after a turn of the ring', async () => {
    const { taken } = start({ device: 0, microtouch: false });
    await pass(100);
    assert.deepEqual(native.calls, ['init false', 'select 0']);
    taken();
    Object.assign(native, { amr: 200, fov: null });
    await pass(100);
    assert.deepEqual(taken(), [['magnification', { magnification: 200, previous: 50 }]]);
    native.fov = 1.6;
    await pass(100);
    assert.deepEqual(taken(), [['fieldOfView', { fieldOfView: 1.6, magnification: 200 }]]);
    native.amr = null;
    await pass(100);
    assert.deepEqual(taken(), [['magnification', { magnification: null, previous: 200 }],
      ['fieldOfView', { fieldOfView: null, magnification: null }]]);
    assert.equal(watch.state.connected, true);
  });

  it('holds a magnification that wanders, and asks for the field of view of the one that it holds', async () => {
    const asked = [];
    const readings = [50, 50.06, 49.94, 50.25, 49.75, 50.06];
    let turn = 0;
    native.dinoLiteGetAmr = () => readings[turn++ % readings.length];
    // As the native call, which serves a value only to the next question for the same magnification.
    let known = NaN;
    native.dinoLiteGetFovx = (index, amr) => {
      asked.push(amr);
      const isServed = Math.abs(known - amr) <= 0.001;
      known = amr;
      return isServed ? 325 / amr : null;
    };
    const { taken } = start({ device: 0 });
    await pass(5000);
    assert.deepEqual(taken().filter(([name]) => /^(magnification|fieldOfView)$/.test(name)),
      [['magnification', { magnification: 50, previous: null }], ['fieldOfView', { fieldOfView: 6.5, magnification: 50 }]]);
    assert.deepEqual([...new Set(asked)], [50]);
    // Beyond the band, and from there on the band is around the new one.
    Object.assign(native, { dinoLiteGetAmr: () => 50.26 });
    await pass(200);
    native.dinoLiteGetAmr = () => 50.02;
    await pass(200);
    assert.deepEqual(taken(), [['magnification', { magnification: 50.26, previous: 50 }],
      ['fieldOfView', { fieldOfView: 325 / 50.26, magnification: 50.26 }]]);
    assert.deepEqual([...new Set(asked)], [50, 50.26]);
    assert.equal(watch.state.magnification, 50.26);
  });

  it('takes a reading that is no number for none, from a microscope that is there', async () => {
    const { taken } = start({ device: 0 });
    await pass(100);
    taken();
    Object.assign(native, { amr: NaN });
    await pass(2000);
    assert.deepEqual(taken(), [['magnification', { magnification: null, previous: 50 }],
      ['fieldOfView', { fieldOfView: null, magnification: null }]]);
    assert.equal(watch.state.connected, true);
  });

  it('misses one that tells nothing any more, starts the library anew, and selects it again', async () => {
    const { taken } = start({ device: 0 });
    await pass(100);
    taken();
    Object.assign(native, { amr: null, fov: null, attached: [], calls: [] });
    await pass(100);
    assert.deepEqual(taken().map(([name]) => name), ['disconnected', 'magnification', 'fieldOfView']);
    assert.deepEqual(watch.state.device, null);
    await pass(4000);
    assert.deepEqual([native.calls, taken()], [['init true', 'init true'], []]);
    Object.assign(native, { amr: 35, fov: 9, attached: [microscope(0, 'x'), microscope(1, 'm0')], calls: [] });
    await pass(2000);
    assert.deepEqual(native.calls, ['init true', 'select 1', 'microtouch true']);
    assert.deepEqual(taken().map(([name, detail]) => [name, detail.uniqueId ?? detail.magnification]),
      [['connected', 'm0'], ['magnification', 35], ['fieldOfView', 35]]);
  });

  it('finds one that is plugged in later', async () => {
    const { taken } = start({ device: 'm9' });
    await pass(50);
    assert.deepEqual([native.calls, taken()], [['init false', 'init true'], []]);
    native.attached = [microscope(0, 'm9')];
    await pass(2000);
    assert.deepEqual(taken()[0], ['connected', microscope(0, 'm9')]);
  });

  it('takes what somebody else has selected, and selects nothing by itself', async () => {
    native.listed = native.attached;
    const { taken } = start();
    await pass(2000);
    assert.deepEqual([taken(), native.calls], [[], []]);
    native.selected = 1;
    await pass(2000);
    assert.deepEqual(taken().map(([name]) => name).sort(), ['connected', 'fieldOfView', 'magnification']);
    Object.assign(native, { amr: null, fov: null });
    await pass(6000);
    assert.deepEqual(taken().map(([name]) => name), ['disconnected', 'magnification', 'fieldOfView']);
    Object.assign(native, { amr: 50, fov: 6.5 });
    await pass(2000);
    assert.deepEqual(taken().map(([name]) => name).sort(), ['connected', 'fieldOfView', 'magnification']);
    assert.deepEqual(native.calls, []);
  });
});

describe('the virtual microscope', () => {
  /** In a child: the two watches on the simulated libraries in `directory`, and the hand at the microscope. */
  const body = async ({ addon, kit }, directory, controlUrl, family) => {
    const { once } = await import('node:events');
    const fs = await import('node:fs');
    const os = await import('node:os');
    const path = await import('node:path');
    const place = fs.mkdtempSync(path.join(os.tmpdir(), 'kit-microscope-'));
    process.env.OSTREL_SIMULATOR_CONTROL = path.join(place, 'control');
    const { MicroscopeControl } = await import(controlUrl);
    addon.loadOstrel(path.join(directory, 'libostrel.so'));
    addon.loadDinoLite(path.join(directory, 'libdinolite.so'));
    const watch = kit[family]({ native: addon, device: 0, searchMs: 50 });
    const seen = [];
    ['button', 'connected', 'disconnected', 'focus', 'magnification', 'fieldOfView'].forEach((name) =>
      watch.on(name, (detail) => seen.push([name, detail.uniqueId ?? detail.position ?? detail.magnification ?? null])));
    // Listening before each cause: on a busy machine the event may come before the command has returned.
    const causes = async (event, cause) => {
      const seenOnce = once(watch, event);
      await cause();
      await seenOnce;
    };
    let hand;
    await causes(family === 'watchOstrel' ? 'focus' : 'fieldOfView', async () => {
      await once(watch, 'connected');
      hand = await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL);
    });
    await causes('button', () => hand.run('press'));
    if (family === 'watchOstrel') {
      await watch.commands.setFocus(200);
      while (watch.state.focus !== 200) {
        await once(watch, 'focus');
      }
    } else {
      await causes('fieldOfView', () => hand.run('magnification 200'));
    }
    await causes('disconnected', () => hand.run('unplug'));
    await causes('connected', () => hand.run('plug'));
    watch.close();
    hand.close();
    fs.rmSync(place, { recursive: true });
    return seen.filter(([name, value], i) => i === seen.findIndex((other) => other[0] === name && other[1] === value));
  };
  const args = [simulatorPath.replace(/\/[^/]*$/, ''), new URL('../../examples/lib/virtual-microscope.js', import.meta.url).href];

  it('tells through the one library what the hand does to it', async () => {
    const seen = await valueFromChild(body, { args: [...args, 'watchOstrel'] });
    const kinds = seen.map(([name]) => name);
    assert.deepEqual(seen[0], ['connected', 'simulated-microscope-1']);
    assert.ok(seen.some(([name, value]) => name === 'focus' && value === 128));
    assert.ok(seen.some(([name, value]) => name === 'focus' && value === 200));
    assert.equal(kinds.filter((name) => name === 'button').length, 1);
    assert.ok(kinds.indexOf('disconnected') > kinds.indexOf('button'));
  });

  it('and through the other, each magnification once although its readings wander', async () => {
    const seen = await valueFromChild(body, { args: [...args, 'watchDinoLite'] });
    // On a machine that stalls for two seconds, a value is unknown in between.
    const [first, ...others] = seen.filter(([name, value]) => name !== 'button' && value !== null).slice(0, 5);
    assert.deepEqual(first, ['connected', 'simulated-microscope-1']);
    assert.deepEqual(others.map(([name]) => name), ['magnification', 'fieldOfView', 'magnification', 'fieldOfView']);
    // Of the field of view: the magnification that it is for.
    assert.deepEqual([others[0][1], others[2][1]], [others[1][1], others[3][1]]);
    assert.ok(Math.abs(others[0][1] - 50) <= 0.0601, others[0][1]);
    assert.ok(Math.abs(others[2][1] - 200) <= 0.2401, others[2][1]);
    assert.equal(seen.filter(([name]) => name === 'button').length, 1);
    assert.ok(seen.some(([name]) => name === 'disconnected'));
  });
});

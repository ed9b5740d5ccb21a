// What script code sees of the Dino-Lite microscopes, on a library that answers as it is told.

import assert from 'node:assert/strict';
import { createHook } from 'node:async_hooks';
import { beforeEach, describe, it } from 'node:test';

import {
  addon, calls, errors, fake, flush, invalidIndex, mainCalls, notBooleans, notNumbers, otherError, selectFull,
  setErrors, startAnew,
} from './support/dino-lite-scene.js';
import { fullDinoLite, ledModes, pollDinoLite } from './support/fake-dino-lite.js';

const refused = 'Dino-Lite SDK device selection failed';
const nothingSelected = 'No Dino-Lite SDK device is selected for LED control';

beforeEach(startAnew);

describe('starting a Dino-Lite library', () => {
  it('happens once, and again by force', () => {
    addon.dinoLiteDispose();
    fake.send('clear_log');
    assert.equal(addon.dinoLiteInit(), true);
    assert.equal(addon.dinoLiteInit(false), true);
    assert.deepEqual(mainCalls(), ['dl_initialize()', 'dl_devices_count()']);
    assert.equal(addon.dinoLiteInit(true), true);
    assert.deepEqual(mainCalls().slice(2), ['dl_get_selected_device()', 'dl_initialize()', 'dl_devices_count()']);
  });

  it('takes a boolean for force and nothing else', () => {
    for (const value of [...notBooleans, undefined]) {
      assert.equal(addon.dinoLiteInit(value), true);
    }
    assert.deepEqual(mainCalls(), []);
  });

  it('settles a promise likewise', async () => {
    assert.equal(await addon.dinoLiteInitAsync(), true);
    assert.equal(await addon.dinoLiteInitAsync('true'), true);
    assert.deepEqual(mainCalls(), []);
    assert.equal(await addon.dinoLiteInitAsync(true), true);
    assert.deepEqual(mainCalls(), ['dl_get_selected_device()', 'dl_initialize()', 'dl_devices_count()']);
  });

  it('clears both texts, and without effect leaves them alone', () => {
    setErrors();
    addon.dinoLiteInit();
    addon.loadDinoLite('/nowhere');
    assert.deepEqual(errors(), [otherError, invalidIndex]);
    addon.dinoLiteInit(true);
    assert.deepEqual(errors(), ['', '']);
  });

  it('by force drops the selection, without effect only what was polled', () => {
    selectFull();
    assert.equal(addon.dinoLiteGetAmr(0), 50);
    flush();
    addon.dinoLiteInit();
    assert.equal(addon.dinoLiteGetSelectedDevice(), 0);
    assert.equal(addon.dinoLiteDebugState().cachedAmr, null);
    addon.dinoLiteInit(true);
    assert.equal(addon.dinoLiteGetSelectedDevice(), -1);
    assert.equal(addon.dinoLiteSupportsAmr(), false);
  });
});

describe('the Dino-Lite devices', () => {
  it('are counted when the library is started, as it says', () => {
    for (const count of [3, 0, -9, 2147483647]) {
      fake.send(`default dl_devices_count ${count}`);
      addon.dinoLiteInit(true);
      fake.send('default dl_devices_count 1');
      assert.equal(addon.dinoLiteDeviceCount(), count);
    }
  });

  it('are listed with their texts, properties in order', async () => {
    fake.send(['default dl_devices_count 3', 'text dl_get_device_unique_id@0 id-\u00b5', 'text dl_get_device_name@0 \u{1f52c}',
      'text dl_get_device_unique_id@1 second'].join('\n'));
    addon.dinoLiteInit(true);
    const devices = await addon.dinoLiteDevicesAsync();
    assert.deepEqual(devices, [
      { index: 0, uniqueId: 'id-\u00b5', name: '\u{1f52c}' },
      { index: 1, uniqueId: 'second', name: '' },
      { index: 2, uniqueId: '', name: '' },
    ]);
    devices.forEach((device) => assert.deepEqual(Object.keys(device), ['index', 'uniqueId', 'name']));
    addon.dinoLiteDispose();
    assert.deepEqual(await addon.dinoLiteDevicesAsync(), []);
  });

  it('have texts that are cut at 1023 bytes, and repaired where they are no UTF-8', () => {
    fake.send('unterminated dl_get_device_unique_id 120\ntext dl_get_device_name a\\xff\\xc3');
    assert.equal(addon.dinoLiteDeviceId(0), 'x'.repeat(1023));
    assert.equal(addon.dinoLiteDeviceName(0), 'a\ufffd\ufffd');
  });

  it('take an index as a whole number, and nothing else reaches the library', () => {
    const reaching = [0, -0.5, 3.9, NaN, Infinity, 2 ** 31 - 1, 2 ** 32 + 7];
    reaching.forEach((index) => addon.dinoLiteDeviceId(index));
    assert.deepEqual(fake.calls().map(({ args }) => args.split(',')[0]), ['0', '0', '3', '0', '0', '2147483647', '7']);
    fake.send('clear_log');
    for (const index of [...notNumbers, -1, -(2 ** 31), 2 ** 31]) {
      assert.equal(addon.dinoLiteDeviceId(index), '');
      assert.equal(addon.dinoLiteDeviceName(index), '');
    }
    assert.equal(addon.dinoLiteDeviceId(), '');
    assert.deepEqual(calls(), []);
  });
});

describe('the selection of a Dino-Lite device', () => {
  for (const select of ['dinoLiteSelectDevice', 'dinoLiteSelectDeviceAsync']) {
    it(`by ${select} goes through the library in one order, and clears both texts`, async () => {
      fake.send(fullDinoLite);
      setErrors();
      fake.send('clear_log');
      assert.equal(await addon[select](1), true);
      assert.deepEqual(calls(), ['dl_get_selected_device()', 'dl_select_device(1)', 'dl_initialize_selected_device()',
        'dl_device_supports_amr()', 'dl_device_supports_microtouch()', 'dl_led_mode_count()', 'dl_led_mode(0)',
        'dl_led_mode(1)', 'dl_set_led_state(16)', 'dl_get_amr()', 'dl_get_amr_update_count()']);
      assert.equal(addon.dinoLiteGetSelectedDevice(), 1);
      assert.equal(addon.dinoLiteSupportsAmr(), true);
      assert.deepEqual(errors(), ['', '']);
    });

    it(`by ${select} refuses an index that is none`, async () => {
      for (const index of [-1, -3, 2 ** 31, ...notNumbers]) {
        addon.dinoLiteInit(true);
        assert.equal(await addon[select](index), false);
        assert.deepEqual(errors(), [invalidIndex, invalidIndex]);
      }
      assert.equal(await addon[select](), false);
      assert.equal(fake.entered('dl_select_device'), 0);
    });

    it(`by ${select} that is refused keeps the index, drops the rest, and tells why`, async () => {
      selectFull(1);
      fake.send('default dl_select_device 0');
      assert.equal(await addon[select](0), false);
      assert.deepEqual(errors(), [refused, refused]);
      fake.send('text dl_get_last_error cable \u00b5');
      assert.equal(await addon[select](0), false);
      assert.deepEqual(errors(), ['cable \u00b5', 'cable \u00b5']);
      assert.equal(addon.dinoLiteGetSelectedDevice(), 1);
      assert.equal(addon.dinoLiteSupportsAmr(), false);
      const { selectedDeviceIndex, ledModes: modes, supportsLedControl, cachedAmr } = addon.dinoLiteDebugState();
      assert.deepEqual({ selectedDeviceIndex, modes, supportsLedControl, cachedAmr },
        { selectedDeviceIndex: 1, modes: [], supportsLedControl: false, cachedAmr: null });
    });
  }

  it('of the present device looks at it again and sets its light to where it starts', () => {
    selectFull();
    assert.equal(addon.dinoLiteToggleLed(), 1);
    fake.send('default dl_get_selected_device 0\nclear_log');
    assert.equal(addon.dinoLiteSelectDevice(0), true);
    assert.equal(fake.entered('dl_select_device'), 1);
    assert.equal(addon.dinoLiteDebugState().ledState, 16);
  });
});

for (const toggle of ['dinoLiteToggleLed', 'dinoLiteToggleLedAsync']) {
  describe(toggle, () => {
    it('steps through the modes as the device tells them', async () => {
      fake.send(ledModes([17, 34, 0]));
      addon.dinoLiteSelectDevice(0);
      setErrors();
      const modes = [];
      for (let i = 0; i < 4; i += 1) {
        modes.push(await addon[toggle]());
      }
      assert.deepEqual(modes, [34, 0, 17, 34]);
      assert.deepEqual(errors(), ['', '']);
      assert.equal(addon.dinoLiteDebugState().ledState, 34);
    });

    it('never comes past a mode that is there twice', async () => {
      fake.send(ledModes([17, 34, 17, 1]));
      addon.dinoLiteSelectDevice(0);
      assert.deepEqual([await addon[toggle](), await addon[toggle](), await addon[toggle]()], [34, 17, 34]);
    });

    it('tells why there is nothing to step', async () => {
      assert.equal(await addon[toggle](), -1);
      assert.deepEqual(errors(), [nothingSelected, nothingSelected]);
      addon.dinoLiteSelectDevice(0);
      assert.equal(await addon[toggle](), -1);
      const noLeds = 'The selected Dino-Lite device does not expose controllable LEDs';
      assert.deepEqual(errors(), [noLeds, noLeds]);
      selectFull();
      fake.send('default dl_set_led_state 0');
      assert.equal(await addon[toggle](), -1);
      const rejected = 'Dino-Lite SDK rejected the LED change';
      assert.deepEqual(errors(), [rejected, rejected]);
      assert.equal(addon.dinoLiteDebugState().ledState, 16);
    });
  });
}

describe('the debug state', () => {
  it('tells all of a selected device, properties in order', () => {
    fake.send(`${fullDinoLite}\ndefault dl_get_amr_update_count -1`);
    addon.dinoLiteSelectDevice(1);
    const state = addon.dinoLiteDebugState();
    const age = state.cachedAmrAgeMs;
    assert.ok(Number.isInteger(age) && age >= 0 && age < 30_000);
    assert.deepEqual(Object.entries({ ...state, cachedAmrAgeMs: 0 }), [
      ['loaded', true], ['backend', 'mac-libdinolite'], ['path', fake.path], ['selectedDeviceIndex', 1], ['ledState', 16],
      ['controllableLedsCount', 2], ['initialized', true], ['supportsAmr', true], ['supportsMicrotouch', true],
      ['supportsLedControl', true], ['amrRead', true], ['amrRaw', 50], ['amrAccepted', true], ['amrUpdates', 2 ** 64],
      ['ledModes', [16, 1]], ['cachedAmr', 50], ['cachedAmrAgeMs', 0]]);
  });

  it('tells of nothing once all is given back', () => {
    selectFull();
    addon.dinoLiteDispose();
    assert.deepEqual(Object.entries(addon.dinoLiteDebugState()), [
      ['loaded', true], ['backend', 'mac-libdinolite'], ['path', fake.path], ['selectedDeviceIndex', -1], ['ledState', 0],
      ['controllableLedsCount', 0], ['initialized', false], ['supportsAmr', false], ['supportsMicrotouch', false],
      ['supportsLedControl', false], ['amrRead', false], ['amrRaw', -1], ['amrAccepted', false], ['amrUpdates', 0],
      ['ledModes', []], ['cachedAmr', null], ['cachedAmrAgeMs', null]]);
  });

  it('is of one task, whatever runs meanwhile', async () => {
    fake.send(`${ledModes([16, 1])}\nlog_limit 0`);
    addon.dinoLiteSelectDevice(0);
    const states = new Set();
    const selections = Array.from({ length: 100 }, () => [addon.dinoLiteSelectDeviceAsync(0), addon.dinoLiteInitAsync(true)]);
    let pending = true;
    const all = Promise.all(selections.flat()).finally(() => (pending = false));
    while (pending) {
      const { selectedDeviceIndex, ledState, ledModes: modes, supportsLedControl } = addon.dinoLiteDebugState();
      states.add(JSON.stringify([selectedDeviceIndex, ledState, modes, supportsLedControl]));
      await new Promise(setImmediate);
    }
    await all;
    for (const state of states) {
      assert.ok(['[0,16,[16,1],true]', '[-1,0,[],false]'].includes(state), state);
    }
  });
});

describe('the backend for a product', () => {
  it('is the loaded library, whatever the product, properties in order', () => {
    setErrors();
    for (const args of [[], [0x1234, 'AM73915'], [-1, ''], ['x', 7], [null, {}]]) {
      assert.deepEqual(Object.entries(addon.dinoLiteSelectBackendForProductId(...args)), [['ok', true], ['supportsAmr', true],
        ['dnxLoadAttempted', false], ['backend', 'mac-libdinolite'], ['path', fake.path], ['reason', '']]);
    }
    assert.deepEqual(errors(), [otherError, invalidIndex]);
  });

  it('empties the cache but keeps the selection', () => {
    selectFull();
    addon.dinoLiteSelectBackendForProductId(1, '');
    assert.equal(addon.dinoLiteDebugState().cachedAmr, null);
    assert.equal(addon.dinoLiteGetSelectedDevice(), 0);
  });
});

for (const dispose of ['dinoLiteDispose', 'dinoLiteDisposeAsync']) {
  describe(dispose, () => {
    it('lets the device go once, forgets everything, and leaves both texts alone', async () => {
      selectFull(1);
      addon.dinoLiteEnableMicrotouch();
      addon.loadTurboJpeg('');
      fake.send('clear_log');
      assert.equal(await addon[dispose](), true);
      assert.equal(await addon[dispose](), true);
      assert.deepEqual(mainCalls(), ['dl_unselect_device()', 'dl_get_selected_device()']);
      assert.equal(addon.dinoLiteGetSelectedDevice(), -1);
      assert.equal(addon.dinoLiteDeviceCount(), 0);
      assert.equal(addon.getLastError(), otherError);
      // The wish for the button is forgotten, too.
      addon.dinoLiteInit();
      selectFull(1);
      addon.dinoLiteMicrotouchPressed();
      flush();
      assert.equal(fake.entered('dl_microtouch_pressed'), 0);
    });

    it('leaves the library loaded, and it can be started again', async () => {
      await addon[dispose]();
      assert.equal(addon.dinoLiteInit(), true);
      assert.equal(addon.dinoLiteDeviceCount(), 2);
      assert.deepEqual(addon.loadDinoLite('/nowhere'), { ok: true, backend: 'mac-libdinolite', path: fake.path });
    });

    it('gives the first selection after it a pause and a start', async () => {
      await addon[dispose]();
      fake.send('clear_log');
      const begin = performance.now();
      assert.equal(addon.dinoLiteSelectDevice(0), true);
      assert.ok(performance.now() - begin >= 299);
      assert.deepEqual(mainCalls().slice(0, 3), ['dl_initialize()', 'dl_devices_count()', 'dl_get_selected_device()']);
    });
  });
}

describe('calls into the Dino-Lite library', () => {
  it('come from one thread that is not the script\'s', async () => {
    fake.send(`${fullDinoLite}\nanswer dl_initialize_selected_device 0`);
    await Promise.all([addon.dinoLiteInitAsync(true), addon.dinoLiteDevicesAsync(), addon.dinoLiteSelectDeviceAsync(0),
      addon.dinoLiteEnableMicrotouchAsync(), addon.dinoLiteToggleLedAsync()]);
    addon.dinoLiteSelectDevice(1);
    addon.dinoLiteEnableMicrotouch();
    addon.dinoLiteToggleLed();
    pollDinoLite(addon);
    addon.dinoLiteDeviceId(0);
    addon.dinoLiteDeviceName(0);
    addon.dinoLiteDispose();
    const owners = new Set(fake.calls().map(({ thread }) => thread));
    assert.equal(owners.size, 1);
    assert.ok(!owners.has(process.pid));
    // All of them but the one that nobody calls.
    assert.equal(new Set(fake.calls().map(({ symbol }) => symbol)).size, 18);
  });

  it('never overlap, however many callers there are', async () => {
    fake.send(`${fullDinoLite}\nlog_limit 0`);
    const promises = Array.from({ length: 200 }, (_, i) => {
      pollDinoLite(addon);
      return [addon.dinoLiteDevicesAsync(), addon.dinoLiteToggleLedAsync(), addon.dinoLiteSelectDeviceAsync(i % 2),
        addon.dinoLiteEnableMicrotouchAsync(i % 2 === 0)];
    });
    for (let i = 0; i < 50; i += 1) {
      addon.dinoLiteDeviceName(i);
    }
    await Promise.all(promises.flat());
    flush();
    for (const symbol of ['dl_get_device_name', 'dl_set_led_state', 'dl_select_device', 'dl_get_amr', 'dl_get_amr_update_count']) {
      assert.match(fake.send(`stats ${symbol}`), / active=0 max_active=1$/);
    }
    assert.equal(fake.entered('dl_select_device'), 200);
  });
});

describe('the promises of the Dino-Lite microscopes', () => {
  it('show their names to async hooks', async () => {
    const names = { dinoLiteInitAsync: 'DinoLiteInit', dinoLiteDevicesAsync: 'DinoLiteDevices',
      dinoLiteSelectDeviceAsync: 'DinoLiteSelectDevice', dinoLiteEnableMicrotouchAsync: 'DinoLiteEnableMicrotouch',
      dinoLiteToggleLedAsync: 'DinoLiteToggleLed', dinoLiteDisposeAsync: 'DinoLiteDispose' };
    const types = [];
    const hook = createHook({ init: (id, type) => types.push(type) }).enable();
    await Promise.all(Object.keys(names).map((name) => addon[name]()));
    hook.disable();
    assert.deepEqual(types.filter((type) => type.startsWith('DinoLite')), Object.values(names));
  });
});

// What script code sees of the microscopes, on a library that answers as it is told.

import assert from 'node:assert/strict';
import { createHook } from 'node:async_hooks';
import fs from 'node:fs';
import { beforeEach, describe, it } from 'node:test';

import { loadAddon } from './support/environment.js';
import { floatBits, openFakeOstrel, pollAll, unknownTelemetry, wide } from './support/fake-ostrel.js';

const addon = loadAddon();
const fake = openFakeOstrel();
const unavailable = 'Ostrel SDK device selection received an unavailable device index';
const notStarted = 'Ostrel SDK initialization failed';
const otherError = 'No libjpeg-turbo library path was provided';

assert.deepEqual(addon.loadOstrel(fake.path), { ok: true, path: fake.path });

const symbols = () => fake.calls().map(({ symbol }) => symbol);
/** Waits until all that was posted to the owner thread has ended. */
const flush = () => addon.ostrelGetSelectedDevice();
/** What `read` gives while the pass that its polls ask for is held. */
function beforeThePass(read) {
  fake.send('block GetScopeStatus');
  const given = read();
  fake.send('release GetScopeStatus');
  flush();
  return given;
}
/** The addon's text and the binding's, or, where that is empty, the library's. */
const errors = () => [addon.getLastError(), addon.ostrelLastError()];
/** Gives the two stores texts of their own. */
function setErrors() {
  addon.ostrelSelectDevice(-1);
  addon.loadTurboJpeg('');
  fake.send('clear_log');
  assert.deepEqual(errors(), [otherError, unavailable]);
}

/** Every test starts with a library that is loaded and nothing more, and with empty texts. */
beforeEach(() => {
  flush();
  fake.send('reset');
  addon.ostrelInit(true);
  addon.ostrelDispose();
  fake.send('reset');
  assert.deepEqual(errors(), ['', '']);
  fake.send('clear_log');
});

describe('starting the library', () => {
  it('happens once, and again by force', () => {
    assert.equal(addon.ostrelInit(), true);
    assert.equal(addon.ostrelInit(false), true);
    assert.deepEqual(symbols(), ['Init']);
    assert.equal(addon.ostrelInit(true), true);
    assert.deepEqual(symbols(), ['Init', 'Destroy', 'Init']);
  });

  it('takes a boolean for force and nothing else', () => {
    addon.ostrelInit();
    for (const value of [1, 'true', {}, [], null, undefined, new Boolean(true), () => true]) {
      assert.equal(addon.ostrelInit(value), true);
    }
    assert.deepEqual(symbols(), ['Init']);
  });

  it('settles a promise likewise', async () => {
    assert.equal(await addon.ostrelInitAsync(), true);
    assert.equal(await addon.ostrelInitAsync(true), true);
    assert.equal(await addon.ostrelInitAsync('true'), true);
    assert.deepEqual(symbols(), ['Init', 'Destroy', 'Init']);
  });

  it('that is refused gives false and its text in both stores', async () => {
    fake.send('default Init 0');
    assert.equal(addon.ostrelInit(), false);
    assert.deepEqual(errors(), [notStarted, notStarted]);
    assert.equal(await addon.ostrelInitAsync(true), false);
    assert.deepEqual(symbols(), ['Init', 'Init']);
    fake.send('default Init 1');
    assert.equal(addon.ostrelInit(), true);
    assert.deepEqual(errors(), ['', '']);
  });

  it('is implied by every operation, which gives up where it fails', async () => {
    fake.send('default Init 0');
    const given = [addon.ostrelDeviceCount(), addon.ostrelDeviceUniqueId(0), addon.ostrelDeviceFriendlyName(0),
      addon.ostrelSelectDevice(0), addon.ostrelGetLedState(), await addon.ostrelDevicesAsync(),
      await addon.ostrelSelectDeviceAsync(0), await addon.ostrelTriggerAutoFocusAsync(),
      await addon.ostrelSetFocusPositionAsync(1), await addon.ostrelFocusNearAsync(), await addon.ostrelFocusFarAsync(),
      await addon.ostrelSetLedStateAsync(true)];
    assert.deepEqual(given, [0, '', '', false, -1, [], false, false, false, false, false, false]);
    assert.deepEqual(symbols(), Array(12).fill('Init'));
    assert.deepEqual(errors(), [notStarted, notStarted]);
  });

  it('leaves both texts alone where it is started already', () => {
    addon.ostrelInit();
    setErrors();
    addon.ostrelInit();
    addon.loadOstrel('/nowhere');
    assert.deepEqual(errors(), [otherError, unavailable]);
  });

  it('by force drops the selection, the telemetry and the versions', () => {
    fake.send('default GetVersionInfo.software_major 1\ndefault GetScopeStatus 3');
    assert.equal(addon.ostrelSelectDevice(1), true);
    assert.notEqual(addon.ostrelVersionInfo(), null);
    addon.ostrelInit(true);
    assert.equal(addon.ostrelGetSelectedDevice(), -1);
    assert.deepEqual(beforeThePass(() => pollAll(addon)), unknownTelemetry);
  });

  it('without effect forgets telemetry and versions too, while the selection stays', () => {
    fake.send('default GetVersionInfo.software_major 1');
    addon.ostrelSelectDevice(1);
    addon.ostrelInit();
    assert.equal(addon.ostrelGetSelectedDevice(), 1);
    assert.equal(addon.ostrelVersionInfo(), null);
    assert.equal(addon.ostrelGetFocusPosition(), -1);
  });
});

describe('the devices', () => {
  it('are counted by the library', () => {
    fake.send('answer GetDevicesCount 3 0 -9 2147483647');
    assert.deepEqual([1, 2, 3, 4].map(() => addon.ostrelDeviceCount()), [3, 0, -9, 2147483647]);
  });

  it('are listed with their texts, properties in order', async () => {
    fake.send(['default GetDevicesCount 3', `wide GetDeviceUniqueId@0 ${wide('id-\u00b5')}`, `wide GetDeviceFriendlyName@0 ${wide('\u{1f52c}')}`,
      `wide GetDeviceUniqueId@1 ${wide('second')}`].join('\n'));
    const devices = await addon.ostrelDevicesAsync();
    assert.deepEqual(devices, [
      { index: 0, uniqueId: 'id-\u00b5', name: '\u{1f52c}' },
      { index: 1, uniqueId: 'second', name: '' },
      { index: 2, uniqueId: '', name: '' },
    ]);
    devices.forEach((device) => assert.deepEqual(Object.keys(device), ['index', 'uniqueId', 'name']));
  });

  it('are none where the library counts none, or fewer', async () => {
    fake.send('answer GetDevicesCount 0 -1 -2147483648');
    for (let i = 0; i < 3; i += 1) {
      assert.deepEqual(await addon.ostrelDevicesAsync(), []);
    }
  });

  it('give their texts for any index, which goes to the library as it stands', () => {
    fake.send(`wide GetDeviceUniqueId ${wide('u')}\nwide GetDeviceFriendlyName ${wide('n')}`);
    const indices = [[], ['0'], [null], [3.9], [-1.5], [NaN], [2 ** 32 + 5], [Infinity]];
    for (const args of indices) {
      assert.deepEqual([addon.ostrelDeviceUniqueId(...args), addon.ostrelDeviceFriendlyName(...args)], ['u', 'n']);
    }
    const sent = ['-1', '-1', '-1', '3', '-1', '0', '5', '0'];
    assert.deepEqual(fake.calls('GetDeviceUniqueId').map(({ args }) => args), sent);
    assert.deepEqual(fake.calls('GetDeviceFriendlyName').map(({ args }) => args), sent);
  });

  it('have texts that are cut and repaired, never refused', () => {
    fake.send(`wide GetDeviceUniqueId 55357 56832 1114112 -1 97\nwide_unterminated GetDeviceFriendlyName 98 4096`);
    assert.equal(addon.ostrelDeviceUniqueId(0), '\ufffd\ufffd\ufffd\ufffda');
    assert.equal(addon.ostrelDeviceFriendlyName(0), 'b'.repeat(4096));
  });

  it('leave both texts alone', async () => {
    addon.ostrelInit();
    setErrors();
    addon.ostrelDeviceCount();
    addon.ostrelDeviceUniqueId(0);
    addon.ostrelDeviceFriendlyName(0);
    await addon.ostrelDevicesAsync();
    addon.ostrelGetSelectedDevice();
    assert.deepEqual(errors(), [otherError, unavailable]);
  });
});

for (const [form, select] of [['ostrelSelectDevice', 'ostrelSelectDevice'], ['its promise', 'ostrelSelectDeviceAsync']]) {
  describe(`selecting a device by ${form}`, () => {
    it('reads the versions and a first pass without the button', async () => {
      fake.send('default GetScopeStatus 2\ndefault IsCapturePressed 1\ndefault GetFocusPosition.position 99');
      assert.equal(await addon[select](1), true);
      assert.deepEqual(symbols(), ['Init', 'GetDevicesCount', 'SelectDeviceNumber', 'GetVersionInfo', 'GetProtocolVersionInfo',
        'GetScopeStatus', 'GetPixelSizeInfo', 'GetLensGroupInfo', 'GetFocusPosition']);
      assert.equal(addon.ostrelGetSelectedDevice(), 1);
      assert.deepEqual(beforeThePass(() => [addon.ostrelGetScopeStatus(), addon.ostrelGetFocusPosition(),
        addon.ostrelIsCapturePressed()]), [2, 99, false]);
    });

    it('clears both texts', async () => {
      setErrors();
      await addon[select](0);
      assert.deepEqual(errors(), ['', '']);
    });

    it('refuses what is not there, and forgets the telemetry all the same', async () => {
      await addon[select](1);
      for (const args of [[], [-1], [2], ['0'], [2 ** 31], [null]]) {
        fake.send('default GetScopeStatus 2');
        addon.ostrelInit(true);
        assert.equal(await addon[select](0), true);
        assert.equal(await addon[select](...args), false);
        assert.deepEqual(errors(), [unavailable, unavailable]);
        assert.deepEqual(beforeThePass(() => [addon.ostrelGetFocusPosition(), addon.ostrelGetScopeStatus()]), [-1, -1]);
        assert.equal(addon.ostrelGetSelectedDevice(), 0);
      }
    });

    it('that the library refuses keeps the former selection and its versions', async () => {
      fake.send('default GetVersionInfo.software_major 4');
      await addon[select](0);
      fake.send('default SelectDeviceNumber 0');
      assert.equal(await addon[select](1), false);
      assert.deepEqual(errors(), Array(2).fill('Ostrel SDK device selection failed'));
      assert.equal(addon.ostrelGetSelectedDevice(), 0);
      assert.equal(addon.ostrelVersionInfo().softwareMajorVersion, 4);
      assert.equal(addon.ostrelGetFocusPosition(), -1);
    });
  });
}

describe('a selection by promise', () => {
  it('forgets the former device before it even starts', async () => {
    fake.send('default GetFocusPosition.position 5');
    addon.ostrelSelectDevice(0);
    assert.equal(addon.ostrelGetFocusPosition(), 5);
    fake.send('block SelectDeviceNumber');
    const selected = addon.ostrelSelectDeviceAsync(1);
    assert.equal(addon.ostrelGetFocusPosition(), -1);
    fake.send('release SelectDeviceNumber');
    assert.equal(await selected, true);
    assert.equal(addon.ostrelGetFocusPosition(), 5);
  });
});

describe('telemetry', () => {
  it('is unknown before a pass, and each poll serves an earlier one', () => {
    fake.send('default GetScopeStatus 17');
    assert.equal(beforeThePass(() => addon.ostrelGetScopeStatus()), -1);
    assert.equal(addon.ostrelGetScopeStatus(), 17);
    flush();
  });

  it('has its properties in order and its numbers unrounded', () => {
    fake.send([`default GetPixelSizeInfo.microns_per_pixel ${floatBits(0.1)}`, 'default GetPixelSizeInfo.width 2592',
      'default GetPixelSizeInfo.height 65535', 'default GetLensGroupInfo.lens_driver 65535',
      'default GetLensGroupInfo.lens_group 255'].join('\n'));
    addon.ostrelSelectDevice(0);
    const size = addon.ostrelGetPixelSizeInfo();
    assert.deepEqual(Object.entries(size),
      [['ok', true], ['micronsPerPixel', 0.10000000149011612], ['width', 2592], ['height', 65535]]);
    assert.equal(addon.ostrelGetPixelSizeMicrons(), 0.10000000149011612);
    assert.deepEqual(Object.entries(addon.ostrelGetLensGroupInfo()),
      [['ok', true], ['lensDriver', 65535], ['lensGroup', 255]]);
    flush();
  });

  it('has its properties in order where it is unknown, too', () => {
    const [size, lens] = beforeThePass(() => [addon.ostrelGetPixelSizeInfo(), addon.ostrelGetLensGroupInfo()]);
    assert.deepEqual(Object.entries(size), [['ok', false], ['micronsPerPixel', -1], ['width', 0], ['height', 0]]);
    assert.deepEqual(Object.entries(lens), [['ok', false], ['lensDriver', 0], ['lensGroup', 0]]);
  });

  it('is read by one pass for however many polls', () => {
    addon.ostrelInit();
    fake.send('clear_log');
    beforeThePass(() => {
      for (let i = 0; i < 100; i += 1) {
        pollAll(addon);
      }
    });
    assert.deepEqual(symbols(), ['GetScopeStatus', 'GetPixelSizeInfo', 'GetLensGroupInfo', 'GetFocusPosition', 'IsCapturePressed']);
  });

  it('of a library that hangs is fresh for two seconds and unknown after that', async () => {
    fake.send('default GetScopeStatus 5\ndefault GetFocusPosition.position 6');
    const begin = performance.now();
    addon.ostrelSelectDevice(0);
    fake.send('block GetScopeStatus');
    while (addon.ostrelGetScopeStatus() === 5) {
      await new Promise((resolve) => setTimeout(resolve, 1));
      assert.ok(performance.now() - begin < 30_000);
    }
    // The clock of the stamps lags a little behind.
    assert.ok(performance.now() - begin >= 1_900);
    assert.deepEqual(pollAll(addon), unknownTelemetry);
    fake.send('release GetScopeStatus');
    flush();
    assert.equal(addon.ostrelGetScopeStatus(), 5);
    assert.equal(addon.ostrelGetFocusPosition(), 6);
    flush();
  });

  it('tells of a press once, and of two as one', () => {
    addon.ostrelInit();
    fake.send('answer IsCapturePressed 1 1 0 0 0');
    addon.ostrelGetScopeStatus();
    flush();
    addon.ostrelGetScopeStatus();
    flush();
    assert.equal(addon.ostrelIsCapturePressed(), true);
    flush();
    assert.equal(addon.ostrelIsCapturePressed(), false);
    flush();
    assert.equal(addon.ostrelIsCapturePressed(), false);
    flush();
  });

  it('of the focus asks for nothing', () => {
    assert.equal(addon.ostrelGetFocusPosition(), -1);
    assert.equal(addon.ostrelVersionInfo(), null);
    flush();
    assert.deepEqual(symbols(), []);
  });

  it('clears both texts where a poll is what starts the library', () => {
    setErrors();
    addon.ostrelDispose();
    fake.send('clear_log');
    addon.ostrelGetScopeStatus();
    flush();
    assert.deepEqual(symbols()[0], 'Init');
    assert.deepEqual(errors(), ['', '']);
  });

  it('leaves both texts alone', () => {
    addon.ostrelInit();
    setErrors();
    fake.send('default GetPixelSizeInfo 0\ndefault GetLensGroupInfo 0\ndefault GetFocusPosition 0');
    pollAll(addon);
    flush();
    assert.deepEqual(errors(), [otherError, unavailable]);
  });
});

describe('focus commands', () => {
  const commands = [['ostrelTriggerAutoFocusAsync', 'TriggerAutoFocus'], ['ostrelFocusNearAsync', 'FocusNearStep'],
    ['ostrelFocusFarAsync', 'FocusFarStep'], ['ostrelSetFocusPositionAsync', 'SetFocusPosition', 200]];

  it('give the new position at once, without a poll', async () => {
    let position = 30;
    for (const [name, symbol, ...args] of commands) {
      addon.ostrelInit();
      fake.send(`clear_log\ndefault GetFocusPosition.position ${(position += 1)}`);
      assert.equal(await addon[name](...args), true);
      assert.equal(addon.ostrelGetFocusPosition(), position);
      assert.deepEqual(symbols(), [symbol, 'GetFocusPosition']);
    }
    assert.equal(fake.calls('SetFocusPosition')[0].args, '200');
  });

  it('that are refused leave the position and both texts alone', async () => {
    fake.send('default GetFocusPosition.position 12');
    addon.ostrelSelectDevice(0);
    setErrors();
    for (const [name, symbol, ...args] of commands) {
      fake.send(`clear_log\ndefault ${symbol} 0\ntext GetLastErrorString mirror stuck`);
      assert.equal(await addon[name](...args), false);
      assert.deepEqual(symbols(), [symbol]);
    }
    // An older text of ours hides the library's: commands clear nothing.
    assert.deepEqual(errors(), [otherError, unavailable]);
    addon.ostrelInit(true);
    await addon.ostrelFocusNearAsync();
    assert.deepEqual(errors(), ['', 'mirror stuck']);
  });

  it('take positions from 0 to 255 as whole numbers, and nothing else', async () => {
    fake.send('default SetFocusPosition 0');
    const reaching = [0, 255, 255.9, 3.5, -0.5, NaN, Infinity, 2 ** 32, 2 ** 32 + 7];
    for (const position of reaching) {
      assert.equal(await addon.ostrelSetFocusPositionAsync(position), false);
    }
    assert.deepEqual(fake.calls('SetFocusPosition').map(({ args }) => args), ['0', '255', '255', '3', '0', '0', '0', '0', '7']);
    setErrors();
    for (const args of [[], [-1], [256], [65536], [2 ** 31], ['5'], [null], [true], [[5]]]) {
      assert.equal(await addon.ostrelSetFocusPositionAsync(...args), false);
    }
    assert.deepEqual(symbols(), []);
    assert.deepEqual(errors(), [otherError, unavailable]);
  });
});

describe('the light', () => {
  it('is switched by the truth of any value', async () => {
    const values = [true, 1, '0', 'x', {}, [], -1, Symbol('on'), 1n, false, 0, '', null, undefined, NaN, 0n];
    for (const value of values) {
      assert.equal(await addon.ostrelSetLedStateAsync(value), true);
    }
    assert.equal(await addon.ostrelSetLedStateAsync(), true);
    assert.deepEqual(fake.calls('SetLedState').map(({ args }) => args), [...values.map((value) => (value ? '1' : '0')), '0']);
  });

  it('that the library refuses to switch gives false', async () => {
    addon.ostrelInit();
    setErrors();
    fake.send('default SetLedState 0');
    assert.equal(await addon.ostrelSetLedStateAsync(true), false);
    assert.deepEqual(errors(), [otherError, unavailable]);
  });

  it('reads as 1, 0 or -1, and starts the library if need be', () => {
    fake.send('default GetLedState.state 200');
    assert.equal(addon.ostrelGetLedState(), 1);
    fake.send('default GetLedState.state 0');
    assert.equal(addon.ostrelGetLedState(), 0);
    fake.send('default GetLedState 0');
    assert.equal(addon.ostrelGetLedState(), -1);
    assert.deepEqual(symbols(), ['Init', 'GetLedState', 'GetLedState', 'GetLedState']);
  });
});

describe('versions and features', () => {
  it('of the device are read at its selection, properties in order', () => {
    fake.send(['product_id 1', 'hardware_major 2', 'hardware_minor 3', 'software_major 4', 'software_minor 5', 'software_patch 6']
      .map((field) => `default GetVersionInfo.${field}`).join('\n'));
    fake.send('default GetProtocolVersionInfo.major 7\ndefault GetProtocolVersionInfo.minor 8\ndefault GetProtocolVersionInfo.patch 9');
    addon.ostrelSelectDevice(0);
    fake.send('clear_log');
    assert.deepEqual(Object.entries(addon.ostrelVersionInfo()), [['productId', 1], ['hardwareMajorVersion', 2],
      ['hardwareMinorVersion', 3], ['softwareMajorVersion', 4], ['softwareMinorVersion', 5], ['softwarePatchVersion', 6]]);
    assert.deepEqual(Object.entries(addon.ostrelProtocolVersionInfo()),
      [['majorVersion', 7], ['minorVersion', 8], ['patchVersion', 9]]);
    flush();
    assert.deepEqual(symbols(), []);
  });

  it('with a zero major version are null, whatever the library said', () => {
    fake.send('default GetVersionInfo.product_id 1\ndefault GetProtocolVersionInfo.minor 1');
    addon.ostrelSelectDevice(0);
    assert.deepEqual([addon.ostrelVersionInfo(), addon.ostrelProtocolVersionInfo()], [null, null]);
  });

  it('of the library are told without starting it, as unsigned numbers and in order', () => {
    fake.send('answer GetApiVersion -1 65537 0');
    assert.deepEqual(Object.entries(addon.ostrelCapabilities()), [['apiVersion', 4294967295], ['focus', true], ['led', true],
      ['pixelSizeInfo', true], ['lensGroupInfo', true]]);
    assert.equal(addon.ostrelCapabilities().apiVersion, 65537);
    assert.equal(addon.ostrelCapabilities().apiVersion, 0);
    assert.deepEqual(symbols(), ['GetApiVersion', 'GetApiVersion', 'GetApiVersion']);
  });
});

for (const dispose of ['ostrelDispose', 'ostrelDisposeAsync']) {
  describe(dispose, () => {
    it('shuts the library down once, and forgets everything', async () => {
      fake.send('default GetVersionInfo.software_major 1\ndefault GetFocusPosition.position 3');
      addon.ostrelSelectDevice(1);
      setErrors();
      fake.send('clear_log');
      assert.equal(await addon[dispose](), true);
      assert.equal(await addon[dispose](), true);
      assert.deepEqual(symbols(), ['Destroy']);
      assert.equal(addon.ostrelGetSelectedDevice(), -1);
      assert.equal(addon.ostrelVersionInfo(), null);
      assert.equal(addon.ostrelGetFocusPosition(), -1);
      assert.deepEqual(errors(), [otherError, unavailable]);
    });

    it('leaves the library loaded, and the next use starts it again', async () => {
      addon.ostrelInit();
      await addon[dispose]();
      fake.send('clear_log');
      assert.equal(addon.ostrelDeviceCount(), 2);
      assert.deepEqual(symbols(), ['Init', 'GetDevicesCount']);
      assert.deepEqual(addon.loadOstrel('/nowhere'), { ok: true, path: fake.path });
    });
  });
}

describe('the last error of the microscopes', () => {
  it('says what the library threw on the thread of the caller, and nothing is thrown there', () => {
    addon.ostrelInit();
    fake.send('throw GetLedState no lamp\nthrow GetApiVersion no version\nthrow GetLastErrorString no words');
    assert.equal(addon.ostrelGetLedState(), -1);
    assert.equal(addon.getLastError(), 'Ostrel SDK call failed: no lamp');
    assert.deepEqual(addon.ostrelCapabilities(),
      { apiVersion: 65536, focus: true, led: true, pixelSizeInfo: true, lensGroupInfo: true });
    assert.equal(addon.getLastError(), 'Ostrel SDK call failed: no version');
    assert.equal(addon.ostrelLastError(), '');
    assert.equal(addon.getLastError(), 'Ostrel SDK call failed: no words');
    fake.send('reset');
  });

  it('is the binding\'s own before the library\'s', () => {
    fake.send('text GetLastErrorString cable \\xc2\\xb5');
    assert.equal(addon.ostrelLastError(), 'cable \u00b5');
    addon.ostrelSelectDevice(-1);
    assert.equal(addon.ostrelLastError(), unavailable);
    addon.ostrelSelectDevice(0);
    assert.equal(addon.ostrelLastError(), 'cable \u00b5');
  });
});

describe('calls into the library', () => {
  it('come from one thread that is not the script\'s, apart from three functions', async () => {
    addon.ostrelInit();
    await Promise.all([addon.ostrelDevicesAsync(), addon.ostrelSelectDeviceAsync(1), addon.ostrelSetLedStateAsync(1),
      addon.ostrelTriggerAutoFocusAsync(), addon.ostrelFocusNearAsync(), addon.ostrelFocusFarAsync(),
      addon.ostrelSetFocusPositionAsync(1), addon.ostrelInitAsync(true), addon.ostrelDisposeAsync()]);
    addon.ostrelDeviceUniqueId(0);
    addon.ostrelDeviceFriendlyName(0);
    addon.ostrelGetScopeStatus();
    flush();
    const owners = new Set(fake.calls().map(({ thread }) => thread));
    assert.equal(owners.size, 1);
    assert.ok(!owners.has(process.pid));
    assert.deepEqual(new Set(symbols()).size, 18);
    fake.send('clear_log');
    addon.ostrelGetLedState();
    addon.ostrelCapabilities();
    addon.ostrelLastError();
    assert.deepEqual(fake.calls().map(({ symbol, thread }) => [symbol, thread]),
      ['GetLedState', 'GetApiVersion', 'GetLastErrorString'].map((symbol) => [symbol, process.pid]));
  });

  it('run on threads that show whose they are', () => {
    flush();
    addon.dinoLiteGetSelectedDevice();
    const names = fs.readdirSync('/proc/self/task').map((task) => fs.readFileSync(`/proc/self/task/${task}/comm`, 'utf8').trim());
    assert.deepEqual(names.filter((name) => / sdk$/.test(name)).sort(), ['dino-lite sdk', 'ostrel sdk']);
  });

  it('never overlap, however many callers there are', async () => {
    fake.send('default SetFocusPosition 0\nlog_limit 0');
    const promises = Array.from({ length: 200 }, (_, i) => {
      addon.ostrelGetScopeStatus();
      addon.ostrelIsCapturePressed();
      return [addon.ostrelDevicesAsync(), addon.ostrelSetLedStateAsync(i % 2), addon.ostrelSelectDeviceAsync(i % 2),
        addon.ostrelSetFocusPositionAsync(i)];
    });
    for (let i = 0; i < 50; i += 1) {
      assert.equal(addon.ostrelDeviceCount(), 2);
    }
    await Promise.all(promises.flat());
    flush();
    for (const symbol of ['GetDevicesCount', 'SetLedState', 'SelectDeviceNumber', 'GetScopeStatus', 'GetDeviceUniqueId']) {
      assert.match(fake.send(`stats ${symbol}`), / active=0 max_active=1$/);
    }
    assert.equal(fake.entered('SetLedState'), 200);
    assert.equal(fake.entered('SelectDeviceNumber'), 200);
  });
});

describe('the promises of the microscopes', () => {
  it('show their names to async hooks', async () => {
    const names = { ostrelInitAsync: 'OstrelInit', ostrelDevicesAsync: 'OstrelDevices', ostrelSelectDeviceAsync: 'OstrelSelectDevice',
      ostrelTriggerAutoFocusAsync: 'OstrelTriggerAutoFocus', ostrelSetFocusPositionAsync: 'OstrelSetFocusPosition',
      ostrelFocusNearAsync: 'OstrelFocusNear', ostrelFocusFarAsync: 'OstrelFocusFar', ostrelSetLedStateAsync: 'OstrelSetLedState',
      ostrelDisposeAsync: 'OstrelDispose' };
    fake.send('default Init 0');
    const types = [];
    const hook = createHook({ init: (id, type) => types.push(type) }).enable();
    await Promise.all(Object.keys(names).map((name) => addon[name]()));
    hook.disable();
    assert.deepEqual(types.filter((type) => type.startsWith('Ostrel')), Object.values(names));
  });
});

// Polling a Dino-Lite microscope: its magnification, its field of view and its button, on a library
// that answers as it is told.

import assert from 'node:assert/strict';
import { beforeEach, describe, it } from 'node:test';

import {
  addon, calls, errors, fake, flush, invalidIndex, noButton, notBooleans, otherError, selectFull, setErrors,
  startAnew,
} from './support/dino-lite-scene.js';
import { doubleBits, floatBits, pollDinoLite, unknownDinoLite } from './support/fake-dino-lite.js';

beforeEach(startAnew);

describe('polling a Dino-Lite device', () => {
  it('serves what the selection has read at once', () => {
    selectFull();
    assert.equal(addon.dinoLiteGetAmr(0), 50);
    flush();
  });

  it('never serves what the same call has asked for', () => {
    selectFull();
    for (let i = 0; i < 50; i += 1) {
      addon.dinoLiteInit();
      assert.equal(addon.dinoLiteGetAmr(0), null);
      assert.equal(addon.dinoLiteGetFovx(0, 50 + i), null);
      flush();
      fake.send(`default dl_get_amr ${floatBits(60)}`);
      assert.equal(addon.dinoLiteGetAmr(0), 50);
      assert.equal(addon.dinoLiteGetFovx(0, 50 + i), 6.5);
      flush();
      fake.send(`default dl_get_amr ${floatBits(50)}`);
    }
  });

  it('for another index, or for none, empties the cache', () => {
    selectFull();
    fake.send('block dl_get_amr');
    assert.equal(addon.dinoLiteGetAmr(1), null);
    assert.equal(addon.dinoLiteGetAmr(0), null);
    fake.send('release dl_get_amr');
    flush();
    assert.equal(addon.dinoLiteGetAmr(0), 50);
    flush();
    for (const index of ['0', null, undefined, true]) {
      addon.dinoLiteGetAmr(0);
      flush();
      assert.equal(addon.dinoLiteGetAmr(0), 50);
      flush();
      assert.equal(addon.dinoLiteGetAmr(index), null);
      flush();
    }
    // The index is whatever script code says: the reading is the selected device's.
    assert.equal(addon.dinoLiteGetAmr(), 50);
    flush();
  });

  it('gives a magnification from 10 to 1000 or that is not a number, and the last good one otherwise', () => {
    selectFull();
    const read = (value) => {
      // A reading under way would stand in for the one that is asked for.
      flush();
      fake.send(`default dl_get_amr ${floatBits(value)}`);
      addon.dinoLiteGetAmr(0);
      flush();
      return addon.dinoLiteGetAmr(0);
    };
    assert.equal(read(10), 10);
    assert.equal(read(9.9), 10);
    flush();
    const { amrRead, amrRaw, amrAccepted } = addon.dinoLiteDebugState();
    assert.deepEqual({ amrRead, amrRaw, amrAccepted }, { amrRead: true, amrRaw: Math.fround(9.9), amrAccepted: false });
    assert.equal(read(1000), 1000);
    assert.equal(read(1000.1), 1000);
    assert.equal(read(-50), 1000);
    assert.equal(read(219.7), Math.fround(219.7));
    assert.ok(Number.isNaN(read(NaN)));
    flush();
    assert.ok(Number.isNaN(addon.dinoLiteDebugState().cachedAmr));
  });

  it('of a device without a magnification stays null', () => {
    fake.send(`default dl_get_amr ${floatBits(50)}`);
    addon.dinoLiteSelectDevice(0);
    addon.dinoLiteGetAmr(0);
    flush();
    assert.equal(addon.dinoLiteGetAmr(0), null);
    flush();
    assert.equal(fake.entered('dl_get_amr'), 0);
  });

  it('hands the magnification and the selector on, numbers alone', () => {
    const asked = [[[0, 50, 2], [2, 50]], [[0, 50, -5], [0, 50]], [['x', '50', '2'], [0, -1]], [[], [0, -1]],
      [[9, 0.1, 3.9], [3, 0.1]], [[0, Infinity, 2 ** 31 - 1], [2147483647, Infinity]]];
    for (const [args, [selector, amr]] of asked) {
      fake.send('clear_log');
      addon.dinoLiteGetFovx(...args);
      flush();
      assert.deepEqual(calls(), [`dl_get_fovx(${selector},${doubleBits(amr)})`]);
    }
  });

  it('serves a field of view for its magnification, whatever the device and the selector', () => {
    fake.send(`default dl_get_fovx ${doubleBits(6540)}`);
    addon.dinoLiteGetFovx(0, 50.0005, 0);
    flush();
    assert.equal(addon.dinoLiteGetFovx(7, 50, 3), 6.54);
    flush();
    assert.equal(addon.dinoLiteGetFovx(0, 50.002, 0), null);
    flush();
  });

  it('gives no field of view where the library has none', () => {
    for (const value of [0, -1, NaN, -Infinity]) {
      fake.send(`default dl_get_fovx ${doubleBits(value)}`);
      addon.dinoLiteGetFovx(0, 50);
      flush();
      assert.equal(addon.dinoLiteGetFovx(0, 50), null);
      flush();
    }
    fake.send(`default dl_get_fovx ${doubleBits(Infinity)}`);
    addon.dinoLiteGetFovx(0, 50);
    flush();
    assert.equal(addon.dinoLiteGetFovx(0, 50), Infinity);
    flush();
  });

  it('reads each thing once for however many polls', () => {
    selectFull();
    addon.dinoLiteEnableMicrotouch();
    fake.send('clear_log\nblock dl_get_amr');
    for (let i = 0; i < 100; i += 1) {
      pollDinoLite(addon);
    }
    fake.send('release dl_get_amr');
    flush();
    assert.deepEqual(calls(),
      ['dl_get_amr()', 'dl_get_amr_update_count()', `dl_get_fovx(0,${doubleBits(50)})`, 'dl_microtouch_pressed()']);
  });

  it('of a library that hangs serves for two seconds and then no longer', async () => {
    const begin = performance.now();
    selectFull();
    addon.dinoLiteGetFovx(0, 50);
    flush();
    fake.send('block dl_get_amr');
    const seen = new Set();
    for (;;) {
      const answers = [addon.dinoLiteGetAmr(0), addon.dinoLiteGetFovx(0, 50)];
      if (answers.every((answer) => answer === null)) {
        break;
      }
      seen.add(answers.join());
      await new Promise((resolve) => setTimeout(resolve, 1));
      assert.ok(performance.now() - begin < 30_000);
    }
    // The clock of the stamps lags a little behind.
    assert.ok(performance.now() - begin >= 1_900);
    assert.deepEqual([...seen].filter((answers) => !['50,6.5', '50,', ',6.5'].includes(answers)), []);
    assert.deepEqual(pollDinoLite(addon), unknownDinoLite);
    const { cachedAmr, cachedAmrAgeMs } = addon.dinoLiteDebugState();
    assert.equal(cachedAmr, 50);
    assert.ok(cachedAmrAgeMs > 2000);
    fake.send('release dl_get_amr');
    flush();
    assert.equal(addon.dinoLiteGetAmr(0), 50);
    flush();
  });

  it('leaves both texts alone', () => {
    setErrors();
    pollDinoLite(addon);
    flush();
    addon.dinoLiteDebugState();
    addon.dinoLiteDeviceCount();
    addon.dinoLiteDeviceId(0);
    addon.dinoLiteSupportsAmr();
    assert.deepEqual(errors(), [otherError, invalidIndex]);
  });
});

describe('the MicroTouch button', () => {
  const pollOnce = () => {
    const pressed = addon.dinoLiteMicrotouchPressed();
    flush();
    return pressed;
  };

  for (const enable of ['dinoLiteEnableMicrotouch', 'dinoLiteEnableMicrotouchAsync']) {
    it(`is enabled by ${enable} unless it is given false`, async () => {
      selectFull();
      for (const args of [[], [true], ...notBooleans.map((value) => [value]), [undefined]]) {
        await addon[enable](false);
        assert.equal(await addon[enable](...args), true);
        const before = fake.entered('dl_microtouch_pressed');
        pollOnce();
        assert.equal(fake.entered('dl_microtouch_pressed'), before + 1);
      }
      setErrors();
      assert.equal(await addon[enable](false), true);
      assert.deepEqual(errors(), ['', '']);
      const before = fake.entered('dl_microtouch_pressed');
      pollOnce();
      assert.equal(fake.entered('dl_microtouch_pressed'), before);
    });

    it(`cannot be enabled by ${enable} where there is none, and then is for the next device`, async () => {
      assert.equal(await addon[enable](), false);
      assert.deepEqual(errors(), [noButton, noButton]);
      selectFull();
      pollOnce();
      assert.equal(fake.entered('dl_microtouch_pressed'), 1);
    });
  }

  it('tells of each press once, and one poll late', () => {
    selectFull();
    addon.dinoLiteEnableMicrotouch();
    fake.send('answer dl_microtouch_pressed 1 0 0');
    assert.deepEqual([1, 2, 3, 4].map(pollOnce), [false, true, false, false]);
    fake.send('answer dl_microtouch_pressed 1 1 0');
    assert.deepEqual([1, 2, 3, 4].map(pollOnce), [false, true, true, false]);
  });

  it('loses a press that nobody has asked for when the device is changed', () => {
    selectFull();
    addon.dinoLiteEnableMicrotouch();
    for (const change of [() => addon.dinoLiteSelectDevice(1), () => addon.dinoLiteGetAmr(7), () => addon.dinoLiteInit()]) {
      fake.send('answer dl_microtouch_pressed 1 0 0');
      pollOnce();
      change();
      assert.equal(pollOnce(), false);
      pollOnce();
    }
  });

  it('keeps a press that came before it was disabled', () => {
    selectFull();
    addon.dinoLiteEnableMicrotouch();
    fake.send('answer dl_microtouch_pressed 1');
    pollOnce();
    addon.dinoLiteEnableMicrotouch(false);
    assert.deepEqual([1, 2].map(pollOnce), [true, false]);
  });
});

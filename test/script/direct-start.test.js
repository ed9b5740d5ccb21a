// Starting a direct preview: what is refused, in which order and with which code, what a refusal
// stops and what it leaves, and who keeps the lent arrays.

import assert from 'node:assert/strict';
import { afterEach, before, describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { frameOf, kinds, lendArrays, openDirectBackend, pixelFormats } from './support/direct-backend.js';
import { testingAddonPath } from './support/environment.js';

const { addon, become, callList, fire, send } = openDirectBackend();
const [dshow, avf] = Object.keys(kinds);
const device = 0;
const start = (arrays, deviceIndex = device) => addon.cameraPreviewStart(deviceIndex, 64, 48, 30, arrays);
const state = () => [addon.cameraPreviewIsRunning(), addon.cameraPreviewIsDirect()];
const callbackCalls = () => callList().filter((call) => call.startsWith('set_frame_callback'));
const stopped = [false, false];

afterEach(() => {
  addon.cameraPreviewStop();
  become('none');
});

/** What a poll of a device tells of the preview that it belongs to, and of the last result. */
const poll = (deviceIndex = device) => {
  const { result, sequence, lastResult } = addon.cameraPreviewGetLatest(deviceIndex);
  return [result, sequence, lastResult];
};

describe('a direct preview is refused with -13, and what runs goes on,', () => {
  const bgra = frameOf('bgra', 8, 6);
  const arrays = lendArrays(bgra.dataSize);
  const refuse = (kind, options, args) => {
    become(kind, options);
    addon.cameraPreviewStart(3, 8, 6, 120);
    assert.equal(start(...args), -13);
    assert.deepEqual(state(), [true, false]);
    assert.deepEqual(poll(3).slice(0, 2), [-256, 0]);
    assert.deepEqual(callbackCalls(), []);
    addon.cameraPreviewStop();
  };

  it('without a camera library', () => refuse('none', {}, [arrays]));
  for (const kind of [dshow, avf]) {
    it(`by ${kind} for a negative device`, () => refuse(kind, { frame: bgra }, [arrays, -1]));
    it(`by ${kind} for fewer than three arrays`, () => {
      for (const few of [[], arrays.slice(1), Array(2)]) {
        refuse(kind, { frame: bgra }, [few]);
      }
    });
    it(`by ${kind} without the entry for the callback`, () =>
      refuse(kind, { frame: bgra, without: ['set_frame_callback'] }, [arrays]));
    it(`by ${kind} before anything that is refused with another code`, () =>
      refuse(kind, { frame: {} }, [[1, 2, 3], -1]));
  }
});

describe('a direct preview is refused with -11 or -7, and nothing runs,', () => {
  const bgra = frameOf('bgra', 8, 6);
  const refuse = (kind, options, arrays, code) => {
    become(kind, options);
    addon.cameraPreviewStart(3, 8, 6, 120);
    assert.equal(start(arrays), code);
    assert.deepEqual(state(), stopped);
    assert.deepEqual(callbackCalls(), []);
    // The device stays stored, as the one that the next stop means.
    assert.deepEqual([poll(device), poll(3)], [[-256, 0, -5], [-1, 0, -5]]);
    assert.equal(addon.cameraPreviewReleaseDirectSlot(device, 0, 0), -1);
    assert.equal(addon.cameraRecordingStart('/nowhere/a.mp4', 8, 6, 30, 1_000_000), -5);
    addon.cameraPreviewStop(device);
    assert.deepEqual(poll(device), [-1, 0, -5]);
  };

  for (const kind of [dshow, avf]) {
    const arrays = lendArrays(1000);
    for (const [what, frame] of [
      ['an unknown width', { ...bgra, width: 0 }],
      ['an unknown height', { ...bgra, height: -1 }],
      ...['rgb', 'rgba', 'i420'].map((name) => [name.toUpperCase(), { ...bgra, pixelFormat: pixelFormats[name] }]),
      ['an unknown format', { ...bgra, pixelFormat: 8 }],
      ['MJPEG without a JPEG library', { ...bgra, pixelFormat: pixelFormats.mjpeg }],
    ]) {
      it(`by ${kind} for ${what}`, () => refuse(kind, { frame }, arrays, -11));
    }

    it(`by ${kind} for arrays that are no Uint8Array, at any place`, () => {
      const size = bgra.dataSize;
      const others = [undefined, null, 1, 'x'.repeat(size), {}, { length: size }, Array(size).fill(0), new ArrayBuffer(size),
        new DataView(new ArrayBuffer(size)), new Uint8ClampedArray(size), new Int8Array(size), new Uint16Array(size),
        new Float64Array(size), new BigUint64Array(size), new Proxy(new Uint8Array(size), {}), () => {}, Symbol('x'), 5n];
      for (const other of others) {
        for (let place = 0; place < 3; place += 1) {
          refuse(kind, { frame: bgra }, Object.assign(lendArrays(size), { [place]: other }), -7);
        }
      }
    });

    it(`by ${kind} for arrays that are too short, at any place`, () => {
      for (const short of [0, 1, bgra.dataSize - 1]) {
        for (let place = 0; place < 3; place += 1) {
          const lent = Object.assign(lendArrays(bgra.dataSize), { [place]: new Uint8Array(short) });
          refuse(kind, { frame: bgra }, lent, -11);
        }
      }
    });

    it(`by ${kind} with the code of the first array that is wrong`, () => {
      const [good] = lendArrays(bgra.dataSize);
      const short = new Uint8Array(bgra.dataSize - 1);
      refuse(kind, { frame: bgra }, [good, short, null], -11);
      refuse(kind, { frame: bgra }, [good, null, short], -7);
      refuse(kind, { frame: { ...bgra, width: 0 } }, [null, null, null], -11);
    });

    it(`by ${kind} for an array that is detached`, () => {
      const lent = lendArrays(bgra.dataSize);
      structuredClone(lent[1].buffer, { transfer: [lent[1].buffer] });
      refuse(kind, { frame: bgra }, lent, -11);
    });
  }

  it('by AVFoundation for a row or a size that is not told', () => {
    const arrays = lendArrays(1000);
    for (const change of [{ bytesPerRow: 0 }, { bytesPerRow: -1 }, { dataSize: 0 }, { dataSize: -1 }]) {
      refuse(avf, { frame: { ...bgra, ...change } }, arrays, -11);
    }
    refuse(avf, { frame: bgra, without: ['frame_pixel_format'] }, arrays, -11);
  });

  it('by DirectShow for a size that no int32 holds', () => {
    refuse(dshow, { frame: { width: 30_000, height: 30_000, pixelFormat: 1 } }, lendArrays(1000), -11);
  });

  describe('with a JPEG library', () => {
    before(() => assert.equal(addon.loadTurboJpeg('libturbojpeg.so.0'), true));
    for (const kind of [dshow, avf]) {
      it(`by ${kind} for JPEG of an odd or an unknown size, or of one that no int32 holds`, () => {
        for (const [width, height] of [[7, 6], [8, 5], [0, 6], [8, 0], [-8, 6], [65536, 65536], [2147483646, 2]]) {
          refuse(kind, { frame: { width, height, pixelFormat: pixelFormats.mjpeg } }, lendArrays(1000), -11);
        }
      });

      it(`by ${kind} for JPEG and arrays without room for the decoded frame`, () => {
        const frame = { width: 8, height: 6, pixelFormat: pixelFormats.mjpeg };
        refuse(kind, { frame }, lendArrays(71), -11);
        become(kind, { frame });
        assert.equal(start(lendArrays(72)), 0);
        assert.deepEqual(state(), [true, true]);
      });
    }
  });
});

describe('a backend that refuses the callback', () => {
  for (const kind of [dshow, avf]) {
    for (const code of [-1, -99, -2147483648]) {
      it(`of ${kind} with ${code} leaves nothing running and no device`, () => {
        become(kind, { frame: frameOf('bgra', 8, 6), script: `default ~set_frame_callback ${code}` });
        assert.equal(start(lendArrays(192)), code);
        assert.deepEqual(state(), stopped);
        assert.deepEqual(callbackCalls(), ['set_frame_callback(0,ptr,ptr,1)']);
        assert.deepEqual(poll(), [-1, 0, -256]);
        addon.cameraPreviewStop();
        assert.equal(callbackCalls().length, 1);
      });
    }
  }
});

describe('a direct preview', () => {
  for (const kind of [dshow, avf]) {
    for (const code of [0, 1, 2147483647]) {
      it(`of ${kind} runs where the backend answers ${code}, until it is stopped`, () => {
        become(kind, { frame: frameOf('bgra', 8, 6), script: `default ~set_frame_callback ${code}` });
        assert.equal(start(lendArrays(192)), 0);
        assert.deepEqual(state(), [true, true]);
        assert.deepEqual(callList().at(-1), 'set_frame_callback(0,ptr,ptr,1)');
        assert.deepEqual(poll(), [-256, 0, -256]);
        assert.equal(addon.cameraPreviewStop(5), 0);
        assert.deepEqual(state(), [true, true]);
        assert.equal(addon.cameraPreviewStop(device), 0);
        assert.deepEqual(state(), stopped);
        assert.deepEqual(callbackCalls(), ['set_frame_callback(0,ptr,ptr,1)', 'set_frame_callback(0,null,null,0)']);
        assert.deepEqual(poll(), [-1, 0, -5]);
        assert.equal(fire({ data: new Uint8Array(192) }), false);
      });
    }

    it(`of ${kind} ends with its capture, whose backend loses the callback first`, () => {
      become(kind, { frame: frameOf('bgra', 8, 6) });
      start(lendArrays(192));
      assert.equal(addon.cameraStopCapture(4), 0);
      assert.deepEqual(state(), [true, true]);
      send('clear_log');
      assert.equal(addon.cameraStopCapture(device), 0);
      assert.deepEqual(state(), stopped);
      const calls = callList().filter((call) => /^(set|stop)_/.test(call));
      assert.deepEqual(calls, ['set_frame_callback(0,null,null,0)', 'stop_capture(0)']);
    });

    it(`of ${kind} gives way to another preview of either mode`, () => {
      become(kind, { frame: frameOf('bgra', 8, 6) });
      start(lendArrays(192));
      assert.equal(start(lendArrays(192), 2), 0);
      assert.deepEqual(callbackCalls(), ['set_frame_callback(0,ptr,ptr,1)', 'set_frame_callback(0,null,null,0)',
        'set_frame_callback(2,ptr,ptr,1)']);
      assert.deepEqual(poll(0), [-1, 0, undefined]);
      assert.equal(addon.cameraPreviewStart(1, 8, 6, 120), 0);
      assert.deepEqual(state(), [true, false]);
      assert.deepEqual(callbackCalls().at(-1), 'set_frame_callback(2,null,null,0)');
      assert.deepEqual([poll(1)[0], poll(2)[0]], [-256, -1]);
    });
  }

  it('takes no notice of sizes and rates, nor of more than three arrays', () => {
    become(dshow, { frame: frameOf('bgra', 8, 6) });
    const arrays = [...lendArrays(192), null, 5];
    for (const args of [[0, 0, 0], [-5, -5, -5], [2147483647, 2147483647, 2147483647], ['8', null, NaN]]) {
      assert.equal(addon.cameraPreviewStart(device, ...args, arrays), 0);
      assert.deepEqual(state(), [true, true]);
    }
  });

  it('is started by an array alone: anything else asks for polling', () => {
    become(dshow, { frame: frameOf('bgra', 8, 6) });
    const arrays = lendArrays(192);
    for (const other of [{ ...arrays, length: 3 }, new Set(arrays), arrays[0], null, true, new Proxy(arrays, {})]) {
      assert.equal(start(other), 0);
      assert.deepEqual(state(), [true, false]);
      addon.cameraPreviewStop();
    }
  });
});

describe('the array of arrays', () => {
  const frame = frameOf('bgra', 8, 6);
  const size = frame.dataSize;
  const withGetter = (place, get) => Object.defineProperty(lendArrays(size), place, { get });

  for (let place = 0; place < 3; place += 1) {
    it(`may throw at place ${place}: the caller gets that, and nothing runs`, () => {
      become(dshow, { frame });
      addon.cameraPreviewStart(3, 8, 6, 120);
      const arrays = withGetter(place, () => {
        throw new RangeError('on purpose');
      });
      assert.throws(() => start(arrays), { name: 'RangeError', message: 'on purpose' });
      assert.deepEqual(state(), stopped);
      assert.deepEqual(callbackCalls(), []);
      assert.equal(start(lendArrays(size)), 0);
    });

    it(`may stop what runs at place ${place}, and starts nothing half`, () => {
      become(dshow, { frame });
      const [good] = lendArrays(size);
      const arrays = withGetter(place, () => {
        addon.cameraPreviewStop();
        addon.cameraStopCapture(-1);
        return good;
      });
      const result = start(arrays);
      const running = result === 0;
      assert.deepEqual(state(), [running, running]);
      assert.equal(fire({ data: new Uint8Array(size) }), running);
    });

    for (const [what, inner] of [
      ['another direct preview', () => start(lendArrays(size), 1)],
      ['a polling preview', () => addon.cameraPreviewStart(1, 8, 6, 120)],
    ]) {
      it(`may start ${what} at place ${place}: one of the two runs whole`, () => {
        become(dshow, { frame });
        const [good] = lendArrays(size);
        const result = start(withGetter(place, () => {
          assert.equal(inner(), 0);
          return good;
        }));
        const [outer, innerDevice] = [poll(device)[0], poll(1)[0]];
        assert.deepEqual([outer, innerDevice].sort(), [-1, -256].sort(), `${result}`);
        assert.equal(outer === -256, result === 0);
        assert.equal(addon.cameraPreviewIsRunning(), true);
        // Each callback that was registered is either taken back or that of the preview that runs.
        const [isRegistered] = [callbackCalls().at(-1) === `set_frame_callback(${outer === -256 ? 0 : 1},ptr,ptr,1)`];
        assert.equal(isRegistered, addon.cameraPreviewIsDirect());
        assert.equal(fire({ device: outer === -256 ? 0 : 1, data: new Uint8Array(size) }), isRegistered);
      });
    }
  }

  it('may detach at its second place what it gave at the first', () => {
    become(dshow, { frame });
    const arrays = lendArrays(size);
    const [first, second] = arrays;
    Object.defineProperty(arrays, 1, {
      get: () => {
        structuredClone(first.buffer, { transfer: [first.buffer] });
        return second;
      },
    });
    assert.equal(start(arrays), -11);
    assert.deepEqual(state(), stopped);
  });

  it('may have holes that its prototype fills', () => {
    become(dshow, { frame });
    const [good] = lendArrays(size);
    const holes = Array(3);
    Object.setPrototypeOf(holes, Object.create(Array.prototype, { 0: { value: good }, 1: { value: good }, 2: { value: good } }));
    assert.equal(start(holes), 0);
    addon.cameraPreviewStop();
  });
});

describe('a first frame', () => {
  for (const kind of [dshow, avf]) {
    it(`of ${kind} may arrive while its callback is being registered`, () => {
      const frame = frameOf('bgra', 8, 6);
      become(kind, { frame });
      const { width, height, pixelFormat: format, bytesPerRow: stride } = frame;
      addon.testing.fireWhileRegistering({ data: new Uint8Array(192).fill(9), width, height, format, stride });
      const arrays = lendArrays(192);
      assert.equal(start(arrays), 0);
      const { result, sequence, data } = addon.cameraPreviewGetLatest(device);
      assert.deepEqual([result, sequence], [0, 1]);
      assert.ok(data.every((byte) => byte === 9));
      assert.equal(data.buffer, arrays[0].buffer);
    });
  }
});

describe('the lent arrays', () => {
  /** How many arrays of each step were collected at once after it; runs in a child. */
  async function collected({ addon, openDirectBackend: open, frameOf: frame, lendArrays: lend, until, sleep }, kind) {
    const { become: turn, fire: fireFrame } = open();
    let gone = 0;
    const registry = new FinalizationRegistry(() => (gone += 1));
    const good = frame('bgra', 8, 6);
    const watched = (change = (arrays) => arrays) => {
      const arrays = change(lend(good.dataSize));
      arrays.forEach((array) => array && registry.register(array));
      return arrays;
    };
    const settle = async () => {
      for (let round = 0; round < 5; round += 1) {
        gc();
        await sleep(1);
      }
      return gone;
    };
    const collect = (count) => until(`${count} arrays to be collected`, () => {
      gc();
      return gone === count;
    });
    const begin = (change) => addon.cameraPreviewStart(0, 8, 6, 30, watched(change));
    const steps = [];

    turn(kind, { frame: good });
    steps.push(begin((arrays) => Object.assign(arrays, { 2: null })));
    await collect(2);
    steps.push(begin((arrays) => Object.assign(arrays, { 2: new Uint8Array(1) })));
    await collect(5);
    turn(kind, { frame: good, script: 'answer ~set_frame_callback -3 0' });
    steps.push(begin());
    await collect(8);

    steps.push(begin());
    steps.push(await settle());
    fireFrame({ data: new Uint8Array(192).fill(5), width: 8, height: 6, format: 1, stride: 32 });
    const { data } = addon.cameraPreviewGetLatest(0);
    addon.cameraPreviewStop();
    await collect(11);
    steps.push(data.every((byte) => byte === 5));

    steps.push(begin());
    steps.push(begin());
    await collect(14);
    steps.push(await settle());
    addon.cameraStopCapture(-1);
    await collect(17);
    steps.push(begin());
    addon.cameraPreviewStart(0, 8, 6, 120);
    await collect(20);
    addon.cameraPreviewStop();
    return steps;
  }

  for (const kind of [dshow, avf]) {
    it(`of ${kind} are kept while the preview runs, and let go at a refusal, a stop and the next start`, async () => {
      const env = { OSTREL_TEST_ADDON: testingAddonPath };
      assert.deepEqual(await valueFromChild(collected, { args: [kind], env }), [-7, -11, -3, 0, 8, true, 0, 0, 14, 0]);
    });
  }
});

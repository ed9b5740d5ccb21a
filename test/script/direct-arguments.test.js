// Arguments of any type, and a backend that describes and delivers anything, while a direct preview
// runs: a call may give anything or throw an Error, but the process goes on. Each run is a child that
// must end well, without a word.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { testingAddonPath } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const seed = Number(process.env.OSTREL_TEST_SEED ?? Date.now() % 2 ** 32);
const options = { env: { OSTREL_TEST_ADDON: testingAddonPath }, cwd: makeTemporaryDirectory() };

/** Every value in every position of the calls that a direct preview knows; runs in a child. */
async function everyValueEverywhere({ addon, openDirectBackend, hammerPreview, lendArrays, makeOddValues, sleep }, kind, format) {
  const backend = openDirectBackend();
  const { size } = hammerPreview(backend, kind, format, { framesPerSecond: 1000 });
  let touches = 0;
  let calls = 0;
  const values = makeOddValues(() => (touches += 1));
  const isDirect = () => addon.cameraPreviewIsRunning() && addon.cameraPreviewIsDirect();
  const check = (error, what) => {
    if (!(error instanceof Error) || error.message === 'touched') {
      throw new Error(`${what}: ${error}`);
    }
  };
  const attempt = (what, call) => {
    calls += 1;
    try {
      call();
    } catch (error) {
      check(error, what);
    }
  };
  for (const name of ['cameraPreviewGetLatest', 'cameraPreviewGetLatestQualityFrame', 'cameraPreviewReleaseDirectSlot',
    'cameraPreviewReleaseAllDirectSlots', 'cameraGrabEncodedFrame', 'cameraPreviewIsDirect', 'cameraFrameInfo', 'cameraGrabFrame',
    'cameraGrabFrameRgba']) {
    for (let position = 0; position < 4; position += 1) {
      for (const value of values) {
        attempt(`${name}, argument ${position}`, () => addon[name](...Object.assign([0, 0, 0, 0], { [position]: value })));
      }
    }
    addon.cameraPreviewReleaseAllDirectSlots(0);
    await sleep(1);
  }
  const unharmed = isDirect();
  for (let place = 0; place < 3; place += 1) {
    for (const value of values) {
      attempt(`element ${place}`, () => addon.cameraPreviewStart(0, 64, 48, 30, Object.assign(lendArrays(size), { [place]: value })));
    }
  }
  for (const value of values) {
    attempt('the array itself', () => addon.cameraPreviewStart(0, 64, 48, 120, value));
    addon.cameraPreviewStop();
  }
  const last = addon.cameraPreviewStart(0, 64, 48, 30, lendArrays(size));
  const fired = backend.stopHammer();
  return { touches, unharmed, last, isDirect: isDirect(), calls: calls > 3000, fired: fired > 0 };
}

/** Random frames from a backend that tells random things, while script code calls anything; in a child. */
async function nonsense({ addon, openDirectBackend, lendArrays, makeRandom, kinds: prefixes }, start, rounds) {
  const random = makeRandom(start);
  const pick = (list) => list[random(list.length)];
  const { become, encodeJpeg, fire } = openDirectBackend();
  addon.loadTurboJpeg('libturbojpeg.so.0');
  const odd = [-2147483648, -1, 0, 1, 2, 3, 4, 8, 16, 17, 32, 64, 127, 4096, 65536, 2147483647];
  const usual = [2, 4, 8, 16, 32];
  const jpegs = [0, 1, 2, 3, 4, 5].map((subsampling) => encodeJpeg(Buffer.alloc(16 * 8 * 3, 99), 16, 8, subsampling));
  let running = 0;
  let shown = 0;
  for (let round = 0; round < rounds; round += 1) {
    const number = () => pick(random(3) === 0 ? odd : usual);
    const kind = pick(Object.keys(prefixes));
    const isJpeg = random(3) === 0;
    const frame = isJpeg ? { width: 16, height: 8, pixelFormat: 4 } : {
      width: number(), height: number(), bytesPerRow: number(), dataSize: pick([64, 192, 1000, ...odd]), pixelFormat: random(9) - 1,
      planeCount: number(), planes: [[number(), number()], [number(), number()]],
    };
    become(kind, { frame });
    if (addon.cameraPreviewStart(0, 64, 48, 30, lendArrays(pick([192, 1000, 4096]))) !== 0) {
      continue;
    }
    running += 1;
    for (let count = 0; count < 20; count += 1) {
      const data = isJpeg && random(4) > 0 ? pick(jpegs) : new Uint8Array(pick([0, 1, 3, 4, 64, 192, 1000, 5000]));
      // A stride and a height may promise more, but the sizes are true.
      fire({
        device: pick([0, 0, 0, 0, 1, -1]), data, flipped: random(3) - 1, format: isJpeg ? 4 : pick([-1, 0, 1, 1, 2, 2, 3, 3, 5, 6, 7, 7]),
        width: number(), height: number(), planeCount: number(), stride: number(), data1: pick([undefined, new Uint8Array(pick([1, 64, 200]))]),
        stride1: number(), timestamp: pick([0, -1, 1, 10 ** 15]), nullContext: random(20) === 0,
      });
      const { result, directSlot, sequence, data: view } = addon.cameraPreviewGetLatest(0);
      if (result === 0) {
        shown += 1;
        view.fill(1);
        addon.cameraPreviewReleaseDirectSlot(0, pick([directSlot, directSlot, number()]), pick([sequence, sequence, number()]));
      }
      addon.cameraPreviewReleaseAllDirectSlots(pick([0, 1, -1]));
    }
    addon.cameraGrabEncodedFrame(0);
    pick([() => addon.cameraPreviewStop(), () => addon.cameraStopCapture(0), () => {}])();
  }
  addon.cameraPreviewStop();
  return { running: running > rounds / 10, shown: shown > rounds / 10 };
}

describe('arguments of every type, with a direct preview', { concurrency: 2 }, () => {
  for (const [kind, format] of [['directshow', 'bgra'], ['avfoundation', 'mjpeg']]) {
    it(`of ${format} by ${kind}, are neither converted nor fatal, and do not stop it`, async () => {
      assert.deepEqual(await valueFromChild(everyValueEverywhere, { args: [kind, format], ...options }),
        { touches: 0, unharmed: true, last: 0, isDirect: true, calls: true, fired: true });
    });
  }
});

describe('a backend that tells and delivers nonsense', () => {
  it(`is survived by every call (seed ${seed})`, async () => {
    assert.deepEqual(await valueFromChild(nonsense, { args: [seed, 300], ...options }), { running: true, shown: true });
  });
});

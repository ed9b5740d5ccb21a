// Arguments of any type in any position, and a camera library that answers nonsense: a call may
// give anything or throw an Error, but the process goes on. Each run is a child that must end
// well, without a word.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath, skipUnderSanitizer } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const libraries = {
  camera: fakePath('libcnokhwa.so'),
  dinoLite: fakePath('libdinolite.so'),
  ostrel: fakePath('libostrel.so'),
};
const seed = Number(process.env.OSTREL_TEST_SEED ?? Date.now() % 2 ** 32);
// Recordings go to where they are asked to go.
const cwd = makeTemporaryDirectory();

/** Every value in every position of every function; runs in a child. */
async function everyValueEverywhere({ addon, loadFakes, calledFunctions, makeOddValues }, libraries) {
  loadFakes(addon, libraries);
  let touches = 0;
  let calls = 0;
  const promises = [];
  const values = makeOddValues(() => (touches += 1));
  const plain = {
    // A negative device starts nothing, so that the other arguments are read and no time passes.
    cameraPreviewStart: [-1, 64, 48, 120],
    cameraRecordingStart: ['a.mp4', 64, 48, 30, 1_000_000],
    loadCameraBackend: ['/nowhere'],
    loadTurboJpeg: ['/nowhere'],
    loadDinoLite: ['/nowhere'],
    loadOstrel: ['/nowhere'],
    lockFile: ['/nowhere/app.lock'],
    cameraVideoProcAmpSet: [0, 0, 0, 0],
  };
  for (const [name, call] of calledFunctions(addon)) {
    for (let position = 0; position < 6; position += 1) {
      for (const value of values) {
        const args = [...(plain[name] ?? [0, 0, 0]), 0, 0, 0].slice(0, 6);
        args[position] = value;
        if (name === 'cameraPreviewStart' && position === 0) {
          args.splice(1, 5, 64, 48, 120);
        }
        calls += 1;
        try {
          const answer = call(...args);
          if (answer instanceof Promise) {
            promises.push(answer);
          }
        } catch (error) {
          if (!(error instanceof Error) || error.message === 'touched') {
            throw new Error(`${name}, argument ${position}: ${error}`);
          }
        }
      }
      addon.cameraPreviewStop();
    }
  }
  const settled = await Promise.all(promises);
  return {
    touches,
    calls: calls > 20_000,
    promises: promises.length > 5_000 && settled.every((value) => ['boolean', 'number'].includes(typeof value) || Array.isArray(value)),
  };
}

/** Random arguments to random functions, while a preview runs; runs in a child. */
async function randomCalls({ addon, loadFakes, calledFunctions, makeOddValues, makeRandom, sleep }, libraries, start, count) {
  const random = makeRandom(start);
  const pick = (list) => list[random(list.length)];
  let touches = 0;
  const values = makeOddValues(() => (touches += 1));
  const functions = calledFunctions(addon);
  loadFakes(addon, libraries);
  // Slow previews and giant ones are for other cases.
  const toInt = (value, missing) => (typeof value === 'number' ? value | 0 : missing);
  const isTame = (name, [device, width, height, rate]) => name !== 'cameraPreviewStart' || toInt(device, -1) < 0 ||
    (toInt(width, 960) <= 1000 && toInt(height, 540) <= 1000 && toInt(rate, 30) >= 30);
  for (let done = 0; done < count; done += 1) {
    const [name, call] = pick(functions);
    const args = Array.from({ length: random(8) }, () => pick(values));
    if (!isTame(name, args)) {
      continue;
    }
    try {
      call.apply(pick(values), args);
    } catch (error) {
      if (!(error instanceof Error) || error.message === 'touched') {
        throw new Error(`${name}, call ${done}: ${error}`);
      }
    }
    if (done % 500 === 0) {
      addon.cameraPreviewStart(random(3), 64, 48, 120);
      await sleep(10);
      gc();
    }
  }
  return touches;
}

/** All calls against a camera library that answers anything; runs in a child. */
async function nonsense({ addon, openFakeCamera, makeRandom, sleep }, library, start, rounds) {
  const random = makeRandom(start);
  const pick = (list) => list[random(list.length)];
  const camera = openFakeCamera(library);
  addon.loadCameraBackend(library);
  const numbers = [-2147483648, -256, -13, -11, -10, -8, -7, -1, 0, 1, 2, 3, 255, 1000, 2147483647];
  // Any two of them, also of two frames, make a size that is small or that no int32 holds.
  const odd = [-2147483648, -1, 0, 2, 3, 7, 64, 501, 2147483647];
  const frame = () => `${pick([...odd, 1, 715827883])} ${pick(odd)} ${pick([...odd, 1920])}`;
  const symbols = ['initialize', 'has_videocapture_auth', 'devices_count', 'device_unique_id', 'device_format_width',
    'device_format_height', 'device_format_frame_rate', 'start_capture', 'start_capture_with_format', 'stop_capture'];
  for (let round = 0; round < rounds; round += 1) {
    camera.send(['reset', 'log_limit 0', `frame ${frame()}`, `frame_after 2 ${frame()}`, `frame_after 1 ${frame()}`,
      `content ${pick(['ramp', 'fill 255', 'none'])}`,
      ...symbols.map((symbol) => `default cnokhwa_${symbol} ${pick(numbers)}`),
      `default cnokhwa_device_formats_count ${pick([-2147483648, -1, 0, 3, 500, 2147483647])}`,
      `answer cnokhwa_has_first_frame ${pick(numbers)} ${pick(numbers)} 0`,
      `answer cnokhwa_grab_frame 0 ${pick(numbers)} 0 ${pick(numbers)} 0`,
      ...['unique_id', 'model_id', 'name', 'format_type'].map((text) => `unterminated cnokhwa_device_${text} ${random(256)}`),
    ].join('\n'));
    addon.cameraPreviewStart(0, pick([1, 16, 960]), pick([1, 9, 540]), 120);
    for (const name of ['cameraInitialize', 'cameraHasVideoCaptureAuth', 'cameraAskVideoCaptureAuth', 'cameraDevicesCount',
      'cameraDeviceUniqueId', 'cameraDeviceModelId', 'cameraDeviceName', 'cameraDeviceType', 'cameraDeviceFormats',
      'cameraStartCapture', 'cameraHasFirstFrame', 'cameraFrameInfo', 'cameraGrabFrame', 'cameraGrabFrameRgba',
      'cameraPreviewGetLatest', 'cameraPreviewGetLatestQualityFrame', 'cameraGrabFrame', 'cameraGrabFrameRgba']) {
      addon[name](0, pick([0, 1, 960]), pick([0, 1, 540]), pick([-1, 0, 3]));
    }
    await sleep(20);
    addon.cameraPreviewGetLatest(0, 0, new Uint8Array(4_000_000));
    addon.cameraPreviewGetLatestQualityFrame(0, 0);
    addon.cameraStopCapture(pick([-1, 0, 2147483647]));
    addon.cameraPreviewStop();
  }
  return rounds;
}

describe('arguments of every type', { concurrency: 2 }, () => {
  for (const [what, loaded] of [['without libraries', null], ['with libraries', libraries]]) {
    it(`in every position of every function, ${what}, are neither converted nor fatal`, async () => {
      assert.deepEqual(await valueFromChild(everyValueEverywhere, { args: [loaded], cwd }),
        { touches: 0, calls: true, promises: true });
    });

    it(`in random calls, ${what}, are neither converted nor fatal (seed ${seed})`, async () => {
      assert.equal(await valueFromChild(randomCalls, { args: [loaded, seed, 5000], cwd }), 0);
    });
  }
});

describe('a camera library that answers nonsense', () => {
  it(`is survived by every call and by the preview (seed ${seed})`, async () => {
    assert.equal(await valueFromChild(nonsense, { args: [libraries.camera, seed, 20], cwd }), 20);
  });
});

describe('sizes that no memory can hold', () => {
  // Runs in a child; each size is asked for while a preview runs.
  const startEach = ({ addon }, sizes) => sizes.map((size) => {
    addon.cameraPreviewStart(0, 64, 48, 120);
    try {
      return addon.cameraPreviewStart(0, ...size, 120);
    } catch (error) {
      return [error instanceof Error, addon.cameraPreviewIsRunning(), addon.cameraPreviewStart(0, 64, 48, 120)];
    }
  });

  it('throw an Error from cameraPreviewStart and leave no preview behind', async () => {
    const sizes = [[2147483647, 2147483647]];
    assert.deepEqual(await valueFromChild(startEach, { args: [sizes] }), [[true, false, 0]]);
  });

  it('throw where the memory ends, too', { skip: skipUnderSanitizer('it ends the process there') }, async () => {
    const sizes = [[2147483647, 1 << 30], [2147483647, 1], [46341, 46341], [100_000, 100_000]];
    const wrapper = ['prlimit', `--data=${2 ** 32}`];
    assert.deepEqual(await valueFromChild(startEach, { args: [sizes], wrapper }), sizes.map(() => [true, false, 0]));
  });

  it('and devices that no machine has cost nothing', async () => {
    assert.deepEqual(await valueFromChild(({ addon, openFakeCamera }, library) => {
      openFakeCamera(library);
      addon.loadCameraBackend(library);
      const started = process.memoryUsage().rss;
      const answers = [2147483647, 2147483646, 1 << 30, 5_000_000].flatMap((device) =>
        [addon.cameraStartCapture(device, 640, 480), addon.cameraStopCapture(device)]);
      return [answers, process.memoryUsage().rss - started < 2 ** 26];
    }, { args: [libraries.camera] }), [Array(8).fill(0), true]);
  });
});

// The reference backends of the two kinds with a frame callback: the same contract for both. Each shows
// the picture of the virtual microscope in its own layouts, through every way that leads to a frame.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { before, describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { addonPath, directAddonPath, referenceBackendPath, simulatorPath } from './support/environment.js';
import { readFrameCode } from './support/frame-code.js';
import { brightness, expectedPlanes, jpegLuma, meanDifference, offeredLayouts, tightPlanes } from './support/reference-backend.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const kinds = Object.keys(offeredLayouts);
const directory = makeTemporaryDirectory();
const [width, height] = [640, 480];
// Every frame is the same picture.
const still = { OSTREL_SIMULATOR_STAGE: '100:50', OSTREL_SIMULATOR_NOISE: '0', OSTREL_SIMULATOR_NUMBERS: '0' };
const helper = new URL('support/reference-backend.js', import.meta.url).href;

/** The picture as the camera library of Linux shows it: RGB, tight rows. */
let picture;
before(async () => {
  picture = await valueFromChild(async ({ addon, simulatorPath: library, until }) => {
    addon.loadCameraBackend(library);
    addon.cameraStartCapture(0, 0, 0, 0);
    await until('a frame', () => addon.cameraHasFirstFrame(0) === 0);
    return addon.cameraGrabFrame(0).data;
  }, { env: still });
});

/** Runs `body(reference, context, ...args)` in a process with the reference backend of a kind, capturing in `layout`. */
const withReference = (kind, layout, body, { env = still, args = [] } = {}) =>
  valueFromChild(async (context, url, backend, first, text, rest) => {
    const { openReference } = await import(url);
    const reference = openReference(backend);
    await reference.capture(first);
    return new Function(`return (${text})`)()(reference, context, ...rest);
  }, { args: [helper, kind, layout, body.toString(), args], env });

/** All ways to a frame in a layout: direct, its still, a grab, a reduced grab and the polling preview. */
const everyWay = async ({ addon, capture, lend, next, release }, { until, nextFrame }, layout) => {
  await capture(layout);
  const info = addon.cameraFrameInfo(0);
  const arrays = lend();
  const direct = await next();
  const isLent = direct.data.buffer === arrays[direct.directSlot].buffer &&
    direct.data.byteOffset === arrays[direct.directSlot].byteOffset;
  const frame = { ...direct, data: Buffer.from(direct.data) };
  release(direct);
  const quality = await until('a still', () => {
    const answer = addon.cameraPreviewGetLatestQualityFrame(0, 0);
    return answer.result === 0 && answer;
  });
  addon.cameraPreviewStop();
  const grabbed = addon.cameraGrabFrame(0);
  const reduced = addon.cameraGrabFrameRgba(0, 320, 240);
  addon.cameraPreviewStart(0, 640, 480, 120);
  const polled = info.pixelFormat === 'mjpeg'
    ? await until('a refusal', () => {
      const answer = addon.cameraPreviewGetLatest(0);
      return answer.droppedFrames > 0 && answer;
    })
    : await nextFrame(addon);
  addon.cameraPreviewStop();
  addon.cameraStopCapture(0);
  return { info, frame, isLent, quality, grabbed, reduced, polled };
};

const rgbOf = ({ data, pixelFormat }) => {
  const step = pixelFormat === 'rgb' ? 3 : 4;
  const order = pixelFormat === 'bgra' ? [2, 1, 0] : [0, 1, 2];
  const out = Buffer.alloc((data.length / step) * 3);
  for (let index = 0; index < data.length / step; index += 1) {
    order.forEach((from, to) => (out[3 * index + to] = data[step * index + from]));
  }
  return out;
};

const upsideDown = (rgb) =>
  Buffer.concat(Array.from({ length: height }, (_, y) => rgb.subarray((height - 1 - y) * width * 3, (height - y) * width * 3)));

/** Each pixel in both directions where a reduction by two takes it. */
const everySecond = (rgb) => {
  const out = Buffer.alloc((width / 2) * (height / 2) * 3);
  for (let y = 0; y < height; y += 2) {
    for (let x = 0; x < width; x += 2) {
      rgb.copy(out, ((y / 2) * (width / 2) + x / 2) * 3, (y * width + x) * 3, (y * width + x) * 3 + 3);
    }
  }
  return out;
};

/** That a picture is the microscope's, but for what its layout loses. */
function assertPicture(rgb, expected = picture) {
  assert.equal(rgb.length, expected.length);
  const apart = meanDifference(rgb, expected);
  assert.ok(apart < 4, `the pictures are ${apart} apart`);
}

describe('the reference backends', () => {
  it('are judged by a picture that looks otherwise when it stands on its head', () => {
    assert.ok(meanDifference(upsideDown(picture), picture) > 8);
  });
});

for (const [kind, padding, bottomUp] of [['directshow', 0, 0], ['directshow', 6, 1], ['avfoundation', 0, 0], ['avfoundation', 6, 0]]) {
  const rows = `${padding === 0 ? 'tight' : 'padded'} rows${bottomUp ? ', bottom up' : ''}`;
  describe(`the reference backend of ${kind}, in ${rows}, shows the microscope's picture in`, () => {
    const layouts = Object.values(offeredLayouts[kind]);
    let seen;
    before(async () => {
      const env = { ...still, OSTREL_SIMULATOR_ROW_PADDING: `${padding}`, OSTREL_SIMULATOR_BOTTOM_UP: `${bottomUp}` };
      seen = await withReference(kind, layouts[0], async (reference, context, wanted, text) => {
        const answers = {};
        for (const layout of wanted) {
          answers[layout] = await new Function(`return (${text})`)()(reference, context, layout);
        }
        return answers;
      }, { env, args: [layouts, everyWay.toString()] });
    });

    for (const [type, layout] of Object.entries(offeredLayouts[kind])) {
      const isJpeg = layout === 'mjpeg';
      const assertPlanes = (frame) => {
        const expected = expectedPlanes(layout, picture, width, height);
        const planes = tightPlanes(frame);
        assert.equal(planes.length, expected.length);
        planes.forEach((plane, index) => assert.ok(plane.equals(expected[index]), `plane ${index}`));
      };

      it(`direct frames of ${type}, in a lent array itself`, () => {
        const { info, frame, isLent } = seen[layout];
        assert.deepEqual([info.width, info.height, info.pixelFormat], [width, height, layout]);
        assert.deepEqual([frame.width, frame.height, frame.producerMode, isLent], [width, height, 'callback', true]);
        assert.equal(frame.pixelFormat, isJpeg ? 'i420' : layout);
        if (isJpeg) {
          assert.ok(meanDifference(brightness(frame), jpegLuma(picture)) < 3);
        } else {
          assertPlanes(frame);
          assert.equal(frame.planeStrides[0], frame.bytesPerRow);
        }
      });

      it(`stills and grabs from frames of ${type}`, () => {
        const { quality, grabbed, reduced } = seen[layout];
        assertPicture(rgbOf(quality));
        assert.equal(grabbed.result, 0);
        assertPicture(rgbOf(grabbed));
        assert.deepEqual([reduced.result, reduced.width, reduced.height], [0, width / 2, height / 2]);
        assertPicture(rgbOf({ ...reduced, pixelFormat: 'rgba' }), everySecond(picture));
      });

      it(isJpeg ? `no polled frames of ${type}, with -10` : `polled frames of ${type}`, () => {
        const { polled } = seen[layout];
        if (isJpeg) {
          assert.deepEqual([polled.result, polled.lastResult], [-256, -10]);
        } else {
          assert.deepEqual([polled.result, polled.pixelFormat, polled.producerMode], [0, layout, 'polling']);
          assertPlanes(polled);
        }
      });
    }
  });
}

for (const kind of kinds) {
  describe(`the reference backend of ${kind}`, () => {
    it('lists every size in each of its layouts', async () => {
      const seen = await withReference(kind, 'nv12', ({ addon }) => ({
        backend: addon.cameraBackend(),
        path: addon.cameraLoadPath(),
        authorised: addon.cameraHasVideoCaptureAuth(),
        devices: addon.cameraDevicesCount(),
        texts: [addon.cameraDeviceName(0), addon.cameraDeviceUniqueId(0), addon.cameraDeviceModelId(0), addon.cameraDeviceName(1)],
        formats: addon.cameraDeviceFormats(0),
        unknown: [addon.cameraDeviceFormats(1), addon.cameraStartCapture(1, 640, 480), addon.cameraStartCapture(0, 0, 0, 99)],
        encoded: addon.cameraStartCapture(0, 0, 0, 0, true),
      }));
      const { formats, ...rest } = seen;
      assert.deepEqual(rest, {
        backend: kind, path: referenceBackendPath(kind), authorised: 0, devices: 1,
        texts: ['Simulated microscope camera', 'simulated-camera-1', 'simulated-microscope-camera', ''],
        unknown: [[], -1, -1], encoded: -1,
      });
      const sizes = [[640, 480, 30], [1280, 720, 30], [1920, 1080, 30], [1920, 1080, 60], [2592, 1944, 15], [3840, 2160, 15]];
      assert.deepEqual(formats.map((format) => Object.values(format)),
        Object.keys(offeredLayouts[kind]).flatMap((type) => sizes.map((size) => [...size, type])));
    });

    for (const layout of ['nv12', 'mjpeg']) {
      it(`delivers frames of ${layout} in the order in which they were made, each once`, async () => {
        const frames = await withReference(kind, layout, async ({ addon, lend, next, release }) => {
          lend();
          const seen = [];
          for (let sequence = 0; seen.length < 12;) {
            const frame = await next(sequence);
            ({ sequence } = frame);
            seen.push({ ...frame, data: Buffer.from(frame.data) });
            release(frame);
          }
          addon.cameraStopCapture(0);
          return seen;
        }, { env: {} });
        const numbers = frames.map((frame) => readFrameCode(brightness(frame), width, height, width, 1));
        assert.ok(numbers.every((number, index) => number !== null && (index === 0 || number > numbers[index - 1])), `${numbers}`);
        frames.slice(1).forEach(({ sequence, timestampMs }, index) =>
          assert.ok(sequence > frames[index].sequence && timestampMs >= frames[index].timestampMs));
      });
    }

    it('decodes JPEG by itself where it is not asked for as it comes', async () => {
      const frame = await withReference(kind, 'mjpeg', async ({ addon, lend, next }, context, format) => {
        addon.cameraStartCapture(0, 0, 0, format, false);
        lend();
        const taken = await next();
        const copy = { ...taken, data: Buffer.from(taken.data) };
        addon.cameraStopCapture(0);
        return copy;
      }, { args: [Object.values(offeredLayouts[kind]).indexOf('mjpeg') * 6] });
      assert.equal(frame.pixelFormat, 'bgra');
      assert.ok(tightPlanes(frame)[0].equals(expectedPlanes('bgra', picture, width, height)[0]));
    });

    it('writes nothing into the arrays once the preview has ended', async () => {
      const results = await withReference(kind, 'nv12', async ({ addon, capture, lend, next }, { until }) => {
        const seen = [];
        for (const end of ['cameraPreviewStop', 'cameraStopCapture']) {
          for (let round = 0; round < 5; round += 1) {
            await capture('nv12');
            const arrays = lend();
            await next();
            addon[end](0);
            arrays.forEach((array) => array.fill(7));
            if (end === 'cameraPreviewStop') {
              // Two more frames: each grab waits for one that it has not had.
              addon.cameraGrabFrame(0);
              addon.cameraGrabFrame(0);
            }
            seen.push(arrays.every((array) => array.every((byte) => byte === 7)) && !addon.cameraPreviewIsRunning());
          }
        }
        return seen;
      });
      assert.deepEqual(results, Array(10).fill(true));
    });

    it('goes on with a direct preview when the camera comes back', async () => {
      const seen = await withReference(kind, 'nv12', async ({ addon, capture, lend, next, release }, { until }, url) => {
        const { MicroscopeControl } = await import(url);
        const control = await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL);
        lend();
        const { sequence } = await next();
        await control.run('unplug');
        const unplugged = [addon.cameraDevicesCount(), addon.cameraHasFirstFrame(0) === 0];
        await control.run('plug');
        addon.cameraPreviewReleaseAllDirectSlots(0);
        await capture('nv12');
        const again = await next(sequence + 2);
        release(again);
        control.close();
        addon.cameraStopCapture(0);
        return { unplugged, again: again.result };
      }, {
        args: [new URL('../../examples/lib/virtual-microscope.js', import.meta.url).href],
        env: { ...still, OSTREL_SIMULATOR_CONTROL: path.join(directory, kind) },
      });
      assert.deepEqual(seen, { unplugged: [0, false], again: 0 });
    });

    it('is recorded directly', async () => {
      const file = path.join(directory, `${kind}.mp4`);
      const status = await withReference(kind, 'nv12', async ({ addon, lend, next, release }, { until }, output) => {
        lend();
        release(await next());
        addon.cameraRecordingStart(output, 640, 480, 30, 1_000_000);
        await until('ten frames', () => {
          addon.cameraPreviewReleaseAllDirectSlots(0);
          const { framesWritten, error } = addon.cameraRecordingStatus();
          return framesWritten >= 10 || error;
        });
        const result = addon.cameraRecordingStop();
        addon.cameraStopCapture(0);
        return { result, error: addon.cameraRecordingStatus().error };
      }, { env: {}, args: [file] });
      assert.deepEqual(status, { result: 0, error: '' });
      assert.ok(fs.statSync(file).size > 10_000);
    });
  });
}

describe('the image control and the button of the reference backend of directshow', () => {
  it('are the lamp and the button of the microscope', async () => {
    const seen = await withReference('directshow', 'nv12', async ({ addon }, context, url) => {
      const { MicroscopeControl } = await import(url);
      const control = await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL);
      const answers = [addon.cameraHasVideoProcAmp(), addon.cameraVideoProcAmpRange(0, 0), addon.cameraVideoProcAmpGet(0, 0),
        addon.cameraVideoProcAmpSet(0, 0, 40, 2), addon.cameraVideoProcAmpGet(0, 0), addon.cameraVideoProcAmpSet(0, 0, 0, 2),
        addon.cameraVideoProcAmpGet(0, 0), addon.cameraVideoProcAmpSet(0, 0, 101, 2), addon.cameraVideoProcAmpGet(0, 1),
        addon.cameraButtonPressed(0), addon.cameraButtonTimestamp(0)];
      await control.run('press');
      answers.push(addon.cameraButtonPressed(0), addon.cameraButtonPressed(0), addon.cameraButtonTimestamp(0) > 0);
      control.close();
      addon.cameraStopCapture(0);
      return answers;
    }, {
      args: [new URL('../../examples/lib/virtual-microscope.js', import.meta.url).href],
      env: { ...still, OSTREL_SIMULATOR_CONTROL: path.join(directory, 'lamp') },
    });
    assert.deepEqual(seen, [true, { result: 0, min: 0, max: 100, step: 1, default: 100, caps: 2 }, { result: 0, value: 100, flags: 2 },
      { result: 0 }, { result: 0, value: 40, flags: 2 }, { result: 0 }, { result: 0, value: 0, flags: 2 }, { result: -20 },
      { result: -20, value: 0, flags: 0 }, 0, 0, 1, 0, true]);
  });
});

describe('the build of the addon that loads them', () => {
  it('has the exports of the addon that ships, in their order', async () => {
    const names = ({ addon }) => Object.keys(addon);
    const [shipped, direct] = await Promise.all([addonPath, directAddonPath].map((file) =>
      valueFromChild(names, { env: { OSTREL_TEST_ADDON: file } })));
    assert.deepEqual(direct, shipped);
  });

  it('loads the camera library of Linux as ever, and keeps what it loaded first', async () => {
    const seen = await valueFromChild(({ addon }, temporary, library, reference) => {
      const answers = [addon.loadCameraBackend(`${temporary}/none.so`), addon.getLastError()];
      answers.push(addon.loadCameraBackend(library), addon.cameraBackend(), addon.getLastError());
      answers.push(addon.loadCameraBackend(reference), addon.cameraBackend(), addon.cameraLoadPath());
      return answers;
    }, {
      args: [directory, simulatorPath, referenceBackendPath('directshow')],
      env: { OSTREL_TEST_ADDON: directAddonPath },
    });
    assert.deepEqual(seen.slice(0, 5), [false,
      'Could not load Linux camera backend library (libcnokhwa). Set OSTREL_NATIVE_DIR or pass explicit path.', true, 'linux-v4l2', '']);
    assert.deepEqual(seen.slice(5, 7), [true, 'linux-v4l2']);
    assert.match(seen[7], /libcnokhwa\.so$/);
  });

  it('is no way for the addon that ships to a reference backend', async () => {
    const seen = await valueFromChild(({ addon }, paths) => paths.map((file) => [addon.loadCameraBackend(file), addon.cameraBackend()]),
      { args: [kinds.map(referenceBackendPath)] });
    assert.deepEqual(seen, [[false, 'none'], [false, 'none']]);
  });
});

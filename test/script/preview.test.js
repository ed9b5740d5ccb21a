// The live preview: start, stop, and what script code gets when it polls.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { loadAddon } from './support/environment.js';
import { openFakeCamera, rampFrame, reduceToRgba, uniformFrame } from './support/fake-camera.js';
import { assertEmpty, device, emptyQuality, usePreview } from './support/preview.js';
import { nextFrame, sleep, until } from './support/waiting.js';

const frameKeys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'pixelFormat', 'planeOffsets', 'planeStrides',
  'sourceWidth', 'sourceHeight', 'sourceBytesPerRow', 'timestampMs', 'droppedFrames', 'producerFps', 'producerMode',
  'deliveryMode', 'producedFrames', 'lastResult', 'data'];

describe('without a camera library', () => {
  const addon = loadAddon();

  it('a preview that was never started is not running', () => {
    assert.equal(addon.cameraPreviewIsRunning(), false);
    assert.equal(addon.cameraPreviewIsDirect(), false);
    assertEmpty(addon.cameraPreviewGetLatest(0), {
      result: -1, sequence: 0, droppedFrames: 0, lastResult: -5, producerFps: 0, producedFrames: 0,
    });
    assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(0), emptyQuality(0));
    assert.equal(addon.cameraPreviewStop(0), 0);
  });

  it('a preview that was started waits, and shows frames once a library is there', async () => {
    assert.equal(addon.cameraPreviewStart(device, 64, 48, 120), 0);
    await until('a failed cycle', () => addon.cameraPreviewGetLatest(device).droppedFrames > 1);
    assertEmpty(addon.cameraPreviewGetLatest(device), { result: -256, sequence: 0, lastResult: -6 });

    const camera = openFakeCamera();
    camera.send('frame 16 9');
    assert.equal(addon.loadCameraBackend(camera.path), true);
    const { width, height } = await nextFrame(addon, { device });
    assert.deepEqual([width, height], [16, 9]);
    addon.cameraPreviewStop();
  });
});

describe('with a camera library', () => {
  const { addon, camera, startByHand, takeByHand } = usePreview();

  describe('start and stop', () => {
    it('a start is running until its stop, and neither touches the capture', () => {
      assert.equal(addon.cameraPreviewStart(device, 64, 48, 120), 0);
      assert.equal(addon.cameraPreviewIsRunning(), true);
      assert.equal(addon.cameraPreviewStop(device), 0);
      assert.equal(addon.cameraPreviewIsRunning(), false);
      assert.deepEqual(camera.calls().filter(({ symbol }) => /_capture/.test(symbol)), []);
    });

    it('a start of a negative device answers -1 and leaves what runs alone', async () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      const { sequence } = await nextFrame(addon, { device });
      for (const args of [[-1], [], ['0'], [-2147483648, 10, 10, 10]]) {
        assert.equal(addon.cameraPreviewStart(...args), -1);
      }
      await nextFrame(addon, { device, sequence });
    });

    it('a stop of another device does nothing; a negative one stops any', () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      assert.equal(addon.cameraPreviewStop(device + 1), 0);
      assert.equal(addon.cameraPreviewStop(0), 0);
      assert.equal(addon.cameraPreviewIsRunning(), true);
      assert.equal(addon.cameraPreviewStop(-2), 0);
      assert.equal(addon.cameraPreviewIsRunning(), false);
    });

    it('a stop without an index stops any', () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      assert.equal(addon.cameraPreviewStop(), 0);
      assert.equal(addon.cameraPreviewIsRunning(), false);
    });

    it('a start while one runs begins anew, on the new device', async () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      await until('some frames', () => addon.cameraPreviewGetLatest(device).sequence > 2);
      addon.cameraPreviewStop();
      startByHand();
      assert.deepEqual((await takeByHand()).sequence, 1);
      camera.send('release cnokhwa_grab_frame');
      assert.equal(addon.cameraPreviewStart(device + 1, 64, 48, 120), 0);
      assertEmpty(addon.cameraPreviewGetLatest(device), { result: -1, sequence: 0 });
      await nextFrame(addon, { device: device + 1 });
    });

    it('sizes and a rate below 1 count as 1', async () => {
      const started = performance.now();
      assert.equal(addon.cameraPreviewStart(device, 0, -5, 0), 0);
      const { width, height, data } = await nextFrame(addon, { device });
      assert.deepEqual([width, height, data.length], [1, 1, 4]);
      await sleep(200);
      const { producedFrames } = addon.cameraPreviewGetLatest(device);
      const elapsed = performance.now() - started;
      assert.ok(producedFrames <= elapsed * 0.001 + 1, `${producedFrames} frames in ${elapsed} ms`);
    });

    it('a rate above 120 counts as 120', async () => {
      const started = performance.now();
      addon.cameraPreviewStart(device, 64, 48, 500);
      const { producedFrames } = await until('40 frames', () => {
        const answer = addon.cameraPreviewGetLatest(device);
        return answer.producedFrames >= 40 && answer;
      });
      const elapsed = performance.now() - started;
      assert.ok(producedFrames <= elapsed * 0.12 + 2, `${producedFrames} frames in ${elapsed} ms`);
    });

    it('without numbers it is 960 by 540, 30 frames a second', async () => {
      camera.send('frame 1920 1080');
      const started = performance.now();
      addon.cameraPreviewStart(device, '64', null);
      const { width, height } = await nextFrame(addon, { device });
      assert.deepEqual([width, height], [960, 540]);
      await sleep(200);
      const { producedFrames } = addon.cameraPreviewGetLatest(device);
      const elapsed = performance.now() - started;
      assert.ok(producedFrames <= elapsed * 0.03 + 2, `${producedFrames} frames in ${elapsed} ms`);
    });

    it('buffers that no memory can hold throw an Error in plain words, and nothing runs then on the new device', () => {
      const other = device + 1;
      addon.cameraPreviewStart(device, 64, 48, 120);
      assert.throws(() => addon.cameraPreviewStart(other, 2147483647, 2147483647, 30),
        { name: 'Error', message: 'Not enough memory for a preview of 2147483647 by 2147483647 pixels' });
      assert.equal(addon.cameraPreviewIsRunning(), false);
      assertEmpty(addon.cameraPreviewGetLatest(other), { result: -256, sequence: 0, lastResult: -5 });
      assertEmpty(addon.cameraPreviewGetLatest(device), { result: -1, sequence: 0, lastResult: -5 });
      assert.equal(addon.cameraPreviewStart(device, 64, 48, 120), 0);
    });
  });

  describe('before the first frame', () => {
    it('a poll answers -256 and counts nothing', async () => {
      camera.send('default cnokhwa_has_first_frame -256');
      addon.cameraPreviewStart(device, 64, 48, 120);
      camera.send('wait_entered cnokhwa_has_first_frame 3');
      assertEmpty(addon.cameraPreviewGetLatest(device, 0), {
        result: -256, sequence: 0, droppedFrames: 0, lastResult: -256, producerFps: 0, producedFrames: 0,
      });
      assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device), emptyQuality(0));
      assert.equal(camera.entered('cnokhwa_grab_frame'), 0);
      camera.send('default cnokhwa_has_first_frame 0');
      await nextFrame(addon, { device });
    });

    it('a failed query counts as dropped, and its code is told', async () => {
      camera.send('answer cnokhwa_has_first_frame -7 5 -256\ndefault cnokhwa_has_first_frame -256');
      addon.cameraPreviewStart(device, 64, 48, 120);
      camera.send('wait_entered cnokhwa_has_first_frame 4');
      assertEmpty(addon.cameraPreviewGetLatest(device, 0), { result: -256, droppedFrames: 2, lastResult: 5 });
    });

    it('the query ends with the first frame', async () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      await until('three frames', () => addon.cameraPreviewGetLatest(device).producedFrames >= 3);
      assert.equal(camera.entered('cnokhwa_has_first_frame'), 1);
    });
  });

  describe('a frame', () => {
    it('is the camera frame reduced to RGBA', async () => {
      camera.send('frame 1920 1080\ncontent ramp');
      startByHand(960, 540);
      const earliest = Date.now();
      const frame = await takeByHand();
      assert.deepEqual(Object.keys(frame), frameKeys);
      const { timestampMs, producerFps, data, ...rest } = frame;
      assert.deepEqual(rest, {
        result: 0, sequence: 1, width: 960, height: 540, bytesPerRow: 3840, pixelFormat: 'rgba', planeOffsets: [0],
        planeStrides: [3840], sourceWidth: 1920, sourceHeight: 1080, sourceBytesPerRow: 5760, droppedFrames: 0,
        producerMode: 'polling', deliveryMode: 'copy', producedFrames: 1, lastResult: 0,
      });
      assert.ok(Object.is(frame.planeOffsets[0], 0));
      assert.ok(timestampMs >= earliest && timestampMs <= Date.now());
      assert.equal(producerFps, 0);
      assert.ok(Buffer.isBuffer(data));
      assert.ok(data.equals(reduceToRgba(rampFrame(1, 5760 * 1080), { width: 1920, height: 1080, step: 2 })));
    });

    for (const [source, size] of [
      ['640 480', [640, 480]],
      ['960 540', [960, 540]],
      ['1000 100', [500, 50]],
      ['1921 1080', [640, 360]],
      ['2000 1', [666, 1]],
      ['50 30 200', [50, 30]],
    ]) {
      it(`of ${source} (width, height, bytes a row) is shown as ${size.join(' by ')}`, async () => {
        camera.send(`frame ${source}\ncontent ramp`);
        const [width, height, bytesPerRow = 3 * width] = source.split(' ').map(Number);
        startByHand(960, 540);
        const frame = await takeByHand();
        assert.deepEqual([frame.width, frame.height, frame.bytesPerRow], [...size, size[0] * 4]);
        assert.deepEqual([frame.sourceWidth, frame.sourceHeight, frame.sourceBytesPerRow], [width, height, bytesPerRow]);
        const step = Math.trunc(width / size[0]);
        assert.ok(frame.data.equals(reduceToRgba(rampFrame(1, bytesPerRow * height), { width, height, bytesPerRow, step })));
      });
    }

    it('is given once: the next poll answers -256 with the same sequence until there is a newer one', async () => {
      startByHand();
      const first = await takeByHand();
      assertEmpty(addon.cameraPreviewGetLatest(device, first.sequence),
        { result: -256, sequence: 1, droppedFrames: 0, lastResult: 0, producedFrames: 1 });
      const second = await takeByHand({ sequence: first.sequence });
      assert.equal(second.sequence, 2);
      assert.deepEqual(second.data, reduceToRgba(uniformFrame(2, 16, 9), { width: 16, height: 9 }));
    });

    it('belongs to the preview of its device', async () => {
      startByHand();
      await takeByHand();
      for (const other of [device + 1, -1, '3', undefined]) {
        assertEmpty(addon.cameraPreviewGetLatest(other), { result: -1, sequence: 0, lastResult: 0, producedFrames: 1 });
        assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(other), emptyQuality(1));
      }
    });

    it('is newer than any sequence below 1, and than what is no number', async () => {
      startByHand();
      await takeByHand();
      for (const sequence of [0, -0, -1, -1e308, -Infinity, NaN, 0.99, '1', null, undefined, 1n, {}]) {
        assert.equal(addon.cameraPreviewGetLatest(device, sequence).result, 0, String(sequence));
        assert.equal(addon.cameraPreviewGetLatestQualityFrame(device, sequence).result, 0, String(sequence));
      }
      for (const sequence of [1, 1.5, 2 ** 32, 2 ** 53, 2 ** 63, 2 ** 64, 1e308, Infinity]) {
        assertEmpty(addon.cameraPreviewGetLatest(device, sequence), { result: -256, sequence: 1 });
        assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device, sequence), emptyQuality(1));
      }
    });

    it('is gone after the stop, while the number of dropped ones stays until the next start', async () => {
      camera.send('answer cnokhwa_grab_frame -8');
      addon.cameraPreviewStart(device, 64, 48, 120);
      await nextFrame(addon, { device });
      addon.cameraPreviewStop(device);
      const stopped = { result: -1, sequence: 0, droppedFrames: 1, lastResult: -5, producerFps: 0, producedFrames: 0 };
      assertEmpty(addon.cameraPreviewGetLatest(device), stopped);
      assertEmpty(addon.cameraPreviewGetLatest(-1), stopped);
      assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device), emptyQuality(0));
      startByHand();
      assertEmpty(addon.cameraPreviewGetLatest(device), { result: -256, droppedFrames: 0, lastResult: -256 });
    });
  });

  it('the worker asks the camera from a thread of its own', async () => {
    startByHand();
    await takeByHand();
    assert.equal(camera.calls('cnokhwa_grab_frame').some(({ thread }) => thread === process.pid), false);
  });

  describe('direct delivery, which this platform has not', () => {
    const arrays = () => [1, 2, 3].map(() => new Uint8Array(64 * 48 * 4));

    it('is refused with -13, and what runs goes on', async () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      const { sequence } = await nextFrame(addon, { device });
      for (const args of [
        [device, 64, 48, 120, arrays()], [device, 64, 48, 120, arrays().slice(1)], [device, 64, 48, 120, []],
        [-1, 64, 48, 120, arrays()], [0, 0, 0, 0, [null]], [device, 2147483647, 2147483647, 30, arrays()],
      ]) {
        assert.equal(addon.cameraPreviewStart(...args), -13);
      }
      assert.equal(addon.cameraPreviewIsRunning(), true);
      assert.equal(addon.cameraPreviewIsDirect(), false);
      await nextFrame(addon, { device, sequence });
    });

    it('starts nothing where nothing runs', () => {
      assert.equal(addon.cameraPreviewStart(device, 64, 48, 120, arrays()), -13);
      assert.equal(addon.cameraPreviewIsRunning(), false);
    });

    it('is not asked for by anything but an array', () => {
      for (const other of [undefined, null, false, 1, 'abc', {}, { length: 3 }, new Uint8Array(3), new Proxy(arrays(), {})]) {
        assert.equal(addon.cameraPreviewStart(device, 64, 48, 120, other), 0);
      }
    });

    it('has no slots to give back, and no encoded frame', () => {
      addon.cameraPreviewStart(device, 64, 48, 120);
      for (const args of [[], [device, 0, 1], [device, 3, 1], [-1, -1, NaN], ['0', null, {}]]) {
        assert.equal(addon.cameraPreviewReleaseDirectSlot(...args), -1);
        assert.equal(addon.cameraPreviewReleaseAllDirectSlots(...args), 0);
        const encoded = addon.cameraGrabEncodedFrame(...args);
        assert.deepEqual(Object.keys(encoded), ['result', 'data']);
        assert.deepEqual(encoded, { result: -256, data: null });
      }
    });
  });
});

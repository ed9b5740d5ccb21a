// Starting and stopping capture, and the frames that script code grabs by itself.

import assert from 'node:assert/strict';
import { before, beforeEach, describe, it } from 'node:test';

import { loadAddon } from './support/environment.js';
import { openFakeCamera, rampFrame, reduceToRgba, uniformFrame } from './support/fake-camera.js';

const addon = loadAddon();

const frameInfoKeys = ['width', 'height', 'bytesPerRow', 'dataSize', 'pixelFormat', 'planeOffsets', 'planeStrides'];
const grabKeys = ['width', 'height', 'bytesPerRow', 'pixelFormat', 'result', 'data', 'timestampMs'];
const sourceKeys = ['sourceWidth', 'sourceHeight', 'sourceBytesPerRow', 'result'];
const rgbaKeys = [...sourceKeys, 'width', 'height', 'bytesPerRow', 'data', 'timestampMs'];
const failedRgbaKeys = [...sourceKeys, 'data'];

function assertAnswer(answer, keys, values) {
  assert.deepEqual(Object.keys(answer), keys);
  for (const [key, value] of Object.entries(values)) {
    assert.deepEqual(answer[key], value, key);
  }
}

function assertNow(timestampMs, earliest) {
  assert.ok(Number.isInteger(timestampMs));
  assert.ok(timestampMs >= earliest && timestampMs <= Date.now(), `${timestampMs} is not between ${earliest} and now`);
}

describe('without a camera library', () => {
  it('starting, stopping and the first frame answer -6', () => {
    assert.equal(addon.cameraStartCapture(0, 640, 480), -6);
    assert.equal(addon.cameraStartCapture(0, 0, 0, 3, true), -6);
    assert.equal(addon.cameraStopCapture(0), -6);
    assert.equal(addon.cameraStopCapture(-1), -6);
    assert.equal(addon.cameraHasFirstFrame(0), -6);
  });

  it('a button is never pressed', () => {
    assert.ok(Object.is(addon.cameraButtonPressed(0), 0));
    assert.ok(Object.is(addon.cameraButtonTimestamp(0), 0));
  });

  it('the frame is unknown', () => {
    assertAnswer(addon.cameraFrameInfo(0), frameInfoKeys, {
      width: -1, height: -1, bytesPerRow: -1, dataSize: -1, pixelFormat: 'rgb', planeOffsets: [0], planeStrides: [-1],
    });
    assert.ok(Object.is(addon.cameraFrameInfo(0).planeOffsets[0], 0));
  });

  it('a grab answers -10 without having been tried', () => {
    assertAnswer(addon.cameraGrabFrame(0), grabKeys.slice(0, -1),
      { width: -1, height: -1, bytesPerRow: -1, pixelFormat: 'rgb', result: -10, data: null });
    assertAnswer(addon.cameraGrabFrameRgba(0), failedRgbaKeys,
      { sourceWidth: -1, sourceHeight: -1, sourceBytesPerRow: -1, result: -10, data: null });
  });

  it('there is no encoded frame', () => {
    assertAnswer(addon.cameraGrabEncodedFrame(0), ['result', 'data'], { result: -256, data: null });
  });
});

describe('with a camera library', () => {
  let camera;
  before(() => {
    camera = openFakeCamera();
    assert.equal(addon.loadCameraBackend(camera.path), true);
  });
  beforeEach(() => camera.send('reset'));
  const callList = (key) => camera.calls(key).map(({ symbol, args }) => `${symbol}(${args})`);

  describe('cameraStartCapture', () => {
    it('starts by size, with what the numbers are as int32', () => {
      addon.cameraStartCapture(1, 1920, 1080);
      addon.cameraStartCapture(2, 640.9, -480.9, -1);
      addon.cameraStartCapture(3, 2 ** 32 + 7, NaN, -5);
      assert.deepEqual(callList(), ['cnokhwa_start_capture(1,1920,1080)', 'cnokhwa_start_capture(2,640,-480)',
        'cnokhwa_start_capture(3,7,0)']);
    });

    it('takes -1, 0, 0 and no format for what is missing or no number', () => {
      addon.cameraStartCapture();
      addon.cameraStartCapture('0', '640', null, '3');
      addon.cameraStartCapture(undefined, undefined, undefined, undefined, undefined);
      assert.deepEqual(callList(), Array(3).fill('cnokhwa_start_capture(-1,0,0)'));
    });

    it('starts by format for an index of 0 or more, whatever the size', () => {
      addon.cameraStartCapture(1, 1920, 1080, 0);
      addon.cameraStartCapture(-1, 0, 0, 99);
      assert.deepEqual(callList(), ['cnokhwa_start_capture_with_format(1,0)', 'cnokhwa_start_capture_with_format(-1,99)']);
    });

    it('ignores the wish for encoded frames', () => {
      addon.cameraStartCapture(0, 640, 480, -1, true);
      addon.cameraStartCapture(0, 640, 480, 2, true);
      addon.cameraStartCapture(0, 640, 480, 2, 'yes');
      assert.deepEqual(callList(), ['cnokhwa_start_capture(0,640,480)', 'cnokhwa_start_capture_with_format(0,2)',
        'cnokhwa_start_capture_with_format(0,2)']);
    });

    it('gives the answer of the library', () => {
      camera.send('answer cnokhwa_start_capture 0 5 -99\nanswer cnokhwa_start_capture_with_format 0 7 -13');
      assert.deepEqual([1, 2, 3].map(() => addon.cameraStartCapture(0, 640, 480)), [0, 5, -99]);
      assert.deepEqual([1, 2, 3].map(() => addon.cameraStartCapture(0, 640, 480, 1)), [0, 7, -13]);
    });

    it('takes any device index that a library accepts', () => {
      for (const device of [0, 5, 4096, 2147483647, -2147483648]) {
        assert.equal(addon.cameraStartCapture(device, 2147483647, -2147483648), 0);
        assert.equal(addon.cameraStopCapture(device), 0);
      }
    });
  });

  describe('cameraStopCapture', () => {
    it('passes any index on, also one that was never started, and gives the answer', () => {
      camera.send('answer cnokhwa_stop_capture 0 -3 12 1');
      assert.deepEqual([0, -1, 2147483647].map((device) => addon.cameraStopCapture(device)), [0, -3, 12]);
      assert.equal(addon.cameraStopCapture('0'), 1);
      assert.deepEqual(callList(), ['cnokhwa_stop_capture(0)', 'cnokhwa_stop_capture(-1)',
        'cnokhwa_stop_capture(2147483647)', 'cnokhwa_stop_capture(-1)']);
    });

    it('tells the library before it waits for a preview that is held in a grab', async () => {
      camera.send('frame 8 6\nblock cnokhwa_grab_frame until cnokhwa_stop_capture');
      assert.equal(addon.cameraPreviewStart(4, 8, 6, 120), 0);
      camera.send('wait_entered cnokhwa_grab_frame 1');
      assert.equal(addon.cameraStopCapture(4), 0);
      assert.equal(addon.cameraPreviewIsRunning(), false);
      assert.deepEqual(camera.calls().slice(-2).map(({ symbol }) => symbol), ['cnokhwa_grab_frame', 'cnokhwa_stop_capture']);
    });

    it('leaves the preview of another device running; a negative index stops any', () => {
      camera.send('frame 8 6');
      addon.cameraPreviewStart(4, 8, 6, 120);
      addon.cameraStopCapture(3);
      assert.equal(addon.cameraPreviewIsRunning(), true);
      addon.cameraStopCapture(-7);
      assert.equal(addon.cameraPreviewIsRunning(), false);
    });
  });

  it('cameraHasFirstFrame gives the answer of the library', () => {
    camera.send('answer cnokhwa_has_first_frame 0 -256 -7 5');
    const answers = [1, 2, 3, 4].map(() => addon.cameraHasFirstFrame(3));
    assert.deepEqual(answers, [addon.RESULT_YES, addon.RESULT_NO, -7, 5]);
    assert.deepEqual(callList(), Array(4).fill('cnokhwa_has_first_frame(3)'));
  });

  it('a button is never pressed, and the library is not asked', () => {
    assert.deepEqual([addon.cameraButtonPressed(0), addon.cameraButtonTimestamp(0)], [0, 0]);
    assert.deepEqual(callList(), []);
  });

  describe('cameraFrameInfo', () => {
    it('describes the frame as the library does', () => {
      camera.send('frame 640 480 1984');
      assertAnswer(addon.cameraFrameInfo(0), frameInfoKeys, {
        width: 640, height: 480, bytesPerRow: 1984, dataSize: 1984 * 480, pixelFormat: 'rgb',
        planeOffsets: [0], planeStrides: [1984],
      });
      assert.ok(Object.is(addon.cameraFrameInfo(0).planeOffsets[0], 0));
    });

    it('passes impossible numbers on, and knows no size of them', () => {
      camera.send('frame -5 -2147483648 0');
      assertAnswer(addon.cameraFrameInfo(0), frameInfoKeys, {
        width: -5, height: -2147483648, bytesPerRow: 0, dataSize: -1, pixelFormat: 'rgb', planeOffsets: [0], planeStrides: [0],
      });
    });

    it('knows no size that an int32 cannot hold', () => {
      camera.send('frame 30000 32768 65536');
      assert.equal(addon.cameraFrameInfo(0).dataSize, -1);
      camera.send('frame 30000 32767 65536');
      assert.equal(addon.cameraFrameInfo(0).dataSize, 32767 * 65536);
    });
  });

  describe('cameraGrabFrame', () => {
    it('gives a copy of the frame', () => {
      camera.send('frame 16 9');
      const started = Date.now();
      const first = addon.cameraGrabFrame(2);
      assertAnswer(first, grabKeys, { width: 16, height: 9, bytesPerRow: 48, pixelFormat: 'rgb', result: 0 });
      assertNow(first.timestampMs, started);
      assert.ok(Buffer.isBuffer(first.data));
      assert.deepEqual(first.data, uniformFrame(1, 16, 9));
      assert.deepEqual(addon.cameraGrabFrame(2).data, uniformFrame(2, 16, 9));
      assert.deepEqual(first.data, uniformFrame(1, 16, 9));
      assert.deepEqual(callList('cnokhwa_grab_frame@2'), Array(2).fill('cnokhwa_grab_frame(2,ptr,432)'));
    });

    it('tells the library a tight size, also where its rows are padded', () => {
      camera.send('frame 16 9 64');
      const { bytesPerRow, data } = addon.cameraGrabFrame(0);
      assert.equal(bytesPerRow, 48);
      assert.equal(data.length, 48 * 9);
      assert.deepEqual(data, uniformFrame(1, 16, 9, 64).subarray(0, 48 * 9));
      assert.deepEqual(callList('cnokhwa_grab_frame'), ['cnokhwa_grab_frame(0,ptr,432)']);
    });

    it('gives zeros with the code of a grab that failed', () => {
      camera.send('frame 16 9\nanswer cnokhwa_grab_frame -8 -7 3');
      for (const result of [-8, -7, 3]) {
        const answer = addon.cameraGrabFrame(0);
        assertAnswer(answer, grabKeys, { width: 16, height: 9, bytesPerRow: 48, result });
        assert.deepEqual(answer.data, Buffer.alloc(432));
      }
    });

    it('gives zeros where the library writes nothing', () => {
      camera.send('frame 16 9\ncontent none');
      assert.deepEqual(addon.cameraGrabFrame(0).data, Buffer.alloc(432));
    });

    for (const [frame, answer] of [
      ['0 9', { width: 0, height: 9, bytesPerRow: -1, result: -10 }],
      ['-16 9', { width: -16, height: 9, bytesPerRow: -1, result: -10 }],
      ['16 0', { width: 16, height: 0, bytesPerRow: 48, result: -10 }],
      ['16 -1', { width: 16, height: -1, bytesPerRow: 48, result: -10 }],
      ['715827883 1 3', { width: 715827883, height: 1, bytesPerRow: -1, result: -10 }],
      ['2147483647 2147483647 3', { width: 2147483647, height: 2147483647, bytesPerRow: -1, result: -10 }],
      ['46341 46341 3', { width: 46341, height: 46341, bytesPerRow: 139023, result: -11 }],
      ['1 2147483647 3', { width: 1, height: 2147483647, bytesPerRow: 3, result: -11 }],
    ]) {
      it(`answers ${answer.result} for a frame of ${frame.split(' ').slice(0, 2).join(' by ')}, untried`, () => {
        camera.send(`frame ${frame}`);
        assertAnswer(addon.cameraGrabFrame(0), grabKeys.slice(0, -1), { ...answer, pixelFormat: 'rgb', data: null });
        assert.equal(camera.entered('cnokhwa_grab_frame'), 0);
      });
    }
  });

  describe('cameraGrabFrameRgba', () => {
    it('reduces a frame by whole steps to what fits, without a filter', () => {
      camera.send('frame 1920 1080\ncontent ramp');
      const started = Date.now();
      const answer = addon.cameraGrabFrameRgba(1);
      assertAnswer(answer, rgbaKeys, {
        sourceWidth: 1920, sourceHeight: 1080, sourceBytesPerRow: 5760, result: 0, width: 960, height: 540, bytesPerRow: 3840,
      });
      assertNow(answer.timestampMs, started);
      assert.ok(Buffer.isBuffer(answer.data));
      const expected = reduceToRgba(rampFrame(1, 5760 * 1080), { width: 1920, height: 1080, step: 2 });
      assert.ok(answer.data.equals(expected));
      assert.deepEqual(callList('cnokhwa_grab_frame'), ['cnokhwa_grab_frame(1,ptr,6220800)']);
    });

    for (const [source, limits, size] of [
      ['1921 1080', [960, 540], [640, 360]],
      ['640 480', [960, 540], [640, 480]],
      ['640 480', [], [640, 480]],
      ['960 540', [960, 540], [960, 540]],
      ['961 540', [960, 540], [480, 270]],
      ['1000 100', [960, 540], [500, 50]],
      ['1920 1080', [0, 540], [1, 1]],
      ['1920 1080', [-5, -2147483648], [1, 1]],
      ['64 36', [2147483647, 2147483647], [64, 36]],
      ['64 36', ['32', null], [64, 36]],
      ['64 36', [32, 36], [32, 18]],
      ['64 36', [64, 35.9], [32, 18]],
    ]) {
      it(`makes ${size.join(' by ')} of ${source.replace(' ', ' by ')} for limits of (${limits})`, () => {
        camera.send(`frame ${source}`);
        const { result, width, height, bytesPerRow, data } = addon.cameraGrabFrameRgba(0, ...limits);
        assert.deepEqual([result, width, height, bytesPerRow, data.length], [0, ...size, size[0] * 4, size[0] * size[1] * 4]);
        const pixel = Buffer.from([1, 0, 0, 255]);
        assert.deepEqual(data, Buffer.alloc(data.length, pixel));
      });
    }

    it('steps over the padding of the rows', () => {
      camera.send('frame 50 30 200\ncontent ramp');
      const { sourceBytesPerRow, data } = addon.cameraGrabFrameRgba(0, 20, 20);
      assert.equal(sourceBytesPerRow, 200);
      assert.deepEqual(data, reduceToRgba(rampFrame(1, 200 * 30), { width: 50, height: 30, bytesPerRow: 200, step: 3 }));
      assert.deepEqual(callList('cnokhwa_grab_frame'), ['cnokhwa_grab_frame(0,ptr,6000)']);
    });

    it('gives no picture where the grab failed', () => {
      camera.send('frame 16 9\nanswer cnokhwa_grab_frame -8 -256 1');
      for (const result of [-8, -256, 1]) {
        assertAnswer(addon.cameraGrabFrameRgba(0), failedRgbaKeys,
          { sourceWidth: 16, sourceHeight: 9, sourceBytesPerRow: 48, result, data: null });
      }
    });

    for (const [frame, result] of [
      ['0 9 48', -10], ['16 0 48', -10], ['16 9 0', -10], ['16 9 -48', -10], ['2147483647 9 48', -10],
      ['16 2147483647 48', -11], ['16 65536 65536', -11],
    ]) {
      it(`answers ${result} for a frame of ${frame.split(' ').join(', ')} (width, height, bytes a row), untried`, () => {
        camera.send(`frame ${frame}`);
        const [sourceWidth, sourceHeight, sourceBytesPerRow] = frame.split(' ').map(Number);
        assertAnswer(addon.cameraGrabFrameRgba(0), failedRgbaKeys,
          { sourceWidth, sourceHeight, sourceBytesPerRow, result, data: null });
        assert.equal(camera.entered('cnokhwa_grab_frame'), 0);
      });
    }

    it('survives rows that are shorter than their pixels', () => {
      camera.send('frame 1000 600 1');
      const { result, width, height, data } = addon.cameraGrabFrameRgba(0);
      assert.deepEqual([result, width, height, data.length], [0, 500, 300, 500 * 300 * 4]);
      assert.deepEqual(callList('cnokhwa_grab_frame'), ['cnokhwa_grab_frame(0,ptr,600)']);
    });
  });

  it('sizes that change between two answers are survived', () => {
    for (const change of ['4000 3000', '1 1', '16 9 4096', '-1 -1', '0 0 0']) {
      camera.send(`reset\nframe 16 9\nframe_after 1 ${change}`);
      assert.equal(addon.cameraGrabFrame(0).result, 0);
      addon.cameraGrabFrame(0);
      addon.cameraGrabFrameRgba(0);
      addon.cameraFrameInfo(0);
    }
    camera.send('reset\nframe 16 9\nanswer cnokhwa_frame_width 4000\nanswer cnokhwa_frame_height 3000');
    const { width, height, data } = addon.cameraGrabFrame(0);
    assert.deepEqual([width, height, data.length], [4000, 3000, 36_000_000]);
  });

  it('no call leaves an error text behind', () => {
    addon.loadTurboJpeg('');
    camera.send('default cnokhwa_start_capture -1\ndefault cnokhwa_stop_capture -1\ndefault cnokhwa_has_first_frame -8');
    [addon.cameraStartCapture, addon.cameraStopCapture, addon.cameraHasFirstFrame, addon.cameraGrabFrame,
      addon.cameraGrabFrameRgba, addon.cameraFrameInfo].forEach((call) => call(0));
    assert.equal(addon.getLastError(), 'No libjpeg-turbo library path was provided');
  });
});

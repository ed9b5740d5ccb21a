// Frames of a direct preview on their way from the backend's thread into the lent arrays and to
// script code, and the slots that they pass through.

import assert from 'node:assert/strict';
import { afterEach, describe, it } from 'node:test';

import { firedFrame, frameOf, kinds, lendArrays, openDirectBackend, pixelFormats } from './support/direct-backend.js';
import { rampFrame } from './support/fake-camera.js';
import { sleep, until } from './support/waiting.js';

const { addon, become, callList, fire, send, setGrabBytes } = openDirectBackend();
const [dshow, avf] = Object.keys(kinds);
const device = 0;
const layouts = ['bgra', 'nv12', 'yuy2', 'uyvy'];
const frameKeys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'dataLength', 'pixelFormat', 'planeOffsets',
  'planeStrides', 'sourceWidth', 'sourceHeight', 'sourceBytesPerRow', 'timestampMs', 'droppedFrames', 'producerFps',
  'producerMode', 'deliveryMode', 'producedFrames', 'lastResult', 'directSlot', 'data'];
const emptyKeys = ['result', 'data', 'sequence', 'droppedFrames', 'lastResult', 'producerFps', 'producedFrames'];
const noDeviceKeys = ['result', 'data', 'sequence', 'droppedFrames'];

afterEach(() => {
  addon.cameraPreviewStop();
  become('none');
});

/** Starts a direct preview of `frame` by `kind` into `arrays`. */
function begin(kind, frame, { arrays = lendArrays(frame.dataSize, 7), without, script } = {}) {
  become(kind, { frame, without, script });
  assert.equal(addon.cameraPreviewStart(device, 64, 48, 30, arrays), 0);
  return arrays;
}
const take = (sequence = 0, ...rest) => addon.cameraPreviewGetLatest(device, sequence, ...rest);
const release = (slot, sequence) => addon.cameraPreviewReleaseDirectSlot(device, slot, sequence);
const counters = () => {
  const { droppedFrames, lastResult, producedFrames } = take(Number.MAX_VALUE);
  return { droppedFrames, lastResult, producedFrames };
};

const avfFrame = (...args) => firedFrame(avf, ...args);

/** The rows of such bytes without what is behind their pixels. */
function tightRows({ width, height, pixelFormat, planes }, bytes) {
  const row = { [pixelFormats.bgra]: 4, [pixelFormats.nv12]: 1 }[pixelFormat] ?? 2;
  const rows = planes.flatMap(([offset, stride], plane) => Array.from({ length: plane === 0 ? height : height >> 1 }, (_, y) =>
    bytes.subarray(offset + y * stride, offset + y * stride + row * width)));
  return Buffer.concat(rows);
}

const assertData = (data, array, expected) => {
  assert.equal(Object.getPrototypeOf(data), Uint8Array.prototype);
  assert.deepEqual([data.buffer, data.byteOffset, data.length], [array.buffer, array.byteOffset, expected.length]);
  assert.ok(Buffer.from(expected).equals(data));
};

describe('a frame of DirectShow', () => {
  for (const layout of layouts) {
    for (const pad of [0, 10]) {
      it(`in ${layout}, ${pad > 0 ? 'of long rows' : 'tight'}, is the backend's bytes in a lent array, and its record`, () => {
        const frame = frameOf(layout, 16, 6, pad);
        const arrays = begin(dshow, frame);
        const bytes = rampFrame(1, frame.dataSize);
        const started = Date.now();
        assert.equal(fire({ data: bytes }), true);
        const answer = take();
        assert.deepEqual(Object.keys(answer), frameKeys);
        const { data, timestampMs, ...rest } = answer;
        assert.deepEqual(rest, {
          result: 0, sequence: 1, width: 16, height: 6, bytesPerRow: frame.bytesPerRow, dataLength: frame.dataSize,
          pixelFormat: layout, planeOffsets: frame.planes.map(([offset]) => offset),
          planeStrides: frame.planes.map(([, stride]) => stride), sourceWidth: 16, sourceHeight: 6,
          sourceBytesPerRow: frame.bytesPerRow, droppedFrames: 0, producerFps: 0, producerMode: 'callback',
          deliveryMode: 'copy', producedFrames: 1, lastResult: 0, directSlot: 0,
        });
        assert.ok(timestampMs >= started && timestampMs <= Date.now());
        assertData(data, arrays[0], bytes);
        // Nothing around the lent arrays is touched.
        for (const array of arrays) {
          const memory = new Uint8Array(array.buffer);
          const around = [...memory.subarray(0, array.byteOffset), ...memory.subarray(array.byteOffset + array.length)];
          assert.ok(around.every((byte) => byte === 7));
        }
      });
    }
  }

  it('is BGRA, tight, where the backend only tells the size', () => {
    const without = ['bytes_per_row', 'data_size', 'pixel_format', 'plane_count', 'plane_offset', 'plane_stride']
      .map((name) => `frame_${name}`);
    begin(dshow, { width: 8, height: 6, dataSize: 192 }, { without });
    fire({ data: rampFrame(2, 192) });
    const { pixelFormat, bytesPerRow, planeOffsets, planeStrides, dataLength } = take();
    assert.deepEqual([pixelFormat, bytesPerRow, planeOffsets, planeStrides, dataLength], ['bgra', 32, [0], [32], 192]);
  });

  for (const [what, planeCount, without, offsets, strides] of [
    ['one plane for a count of 0', 0, [], [3], [40]],
    ['one plane for a negative count', -1, [], [3], [40]],
    ['two planes for a count of 2', 2, [], [3, 50], [40, 41]],
    ['two planes for any higher count', 2147483647, [], [3, 50], [40, 41]],
    ['one plane without a count', 2, ['frame_plane_count'], [3], [40]],
    ['offsets of 0 and -1 without that entry', 2, ['frame_plane_offset'], [0, -1], [40, 41]],
    ['strides of a row and 0 without that entry', 2, ['frame_plane_stride'], [3, 50], [32, 0]],
  ]) {
    it(`tells of ${what}`, () => {
      begin(dshow, { ...frameOf('bgra', 8, 6), planeCount, planes: [[3, 40], [50, 41]] }, { without });
      fire({ data: rampFrame(1, 192) });
      const { planeOffsets, planeStrides } = take();
      assert.deepEqual([planeOffsets, planeStrides], [offsets, strides]);
      assert.ok(Object.is(planeOffsets[0], offsets[0]));
    });
  }

  it('that is flipped comes with its last row first', () => {
    for (const flipped of [1, -1, 2147483647]) {
      const frame = frameOf('bgra', 5, 4, 3);
      const arrays = begin(dshow, frame);
      const bytes = rampFrame(3, frame.dataSize);
      fire({ data: bytes, flipped });
      const rows = [3, 2, 1, 0].map((y) => bytes.subarray(y * 23, (y + 1) * 23));
      assertData(take().data, arrays[0], Buffer.concat(rows));
    }
  });

  it('that is flipped and longer than its rows leaves what is behind them alone', () => {
    const frame = frameOf('nv12', 4, 2);
    const arrays = begin(dshow, frame);
    const bytes = rampFrame(3, 12);
    fire({ data: bytes, flipped: 1 });
    assertData(take().data, arrays[0], Buffer.concat([bytes.subarray(4, 8), bytes.subarray(0, 4), Buffer.alloc(4, 7)]));
  });

  it('that is flipped and shorter than its rows is copied as it is', () => {
    const frame = frameOf('bgra', 8, 6);
    const arrays = begin(dshow, frame);
    fire({ data: rampFrame(4, 191), flipped: 1 });
    const answer = take();
    assert.deepEqual([answer.result, answer.dataLength], [0, 191]);
    assertData(answer.data, arrays[0], rampFrame(4, 191));
  });

  it('may be longer than the backend told before, as long as the array has room', () => {
    const arrays = begin(dshow, frameOf('bgra', 8, 6), { arrays: lendArrays(200) });
    fire({ data: rampFrame(4, 200) });
    assertData(take().data, arrays[0], rampFrame(4, 200));
  });

  it('that is longer than the array is dropped with -11, and its slot is free again', () => {
    const arrays = begin(dshow, frameOf('bgra', 8, 6));
    for (let count = 1; count <= 4; count += 1) {
      fire({ data: rampFrame(4, 193) });
      assert.deepEqual(counters(), { droppedFrames: count, lastResult: -11, producedFrames: 0 });
    }
    fire({ data: rampFrame(4, 192), size: 2n ** 63n });
    assert.equal(counters().droppedFrames, 5);
    assert.ok(arrays.every((array) => array.every((byte) => byte === 7)));
    fire({ data: rampFrame(5, 192) });
    assert.deepEqual(counters(), { droppedFrames: 5, lastResult: 0, producedFrames: 1 });
    assert.equal(take().sequence, 1);
  });

  it('without data, of no size, of another device, without a context or behind the stop is no frame', () => {
    begin(dshow, frameOf('bgra', 8, 6));
    const data = rampFrame(1, 192);
    for (const frame of [{ size: 192 }, { data, size: 0 }, { data, device: 1 }, { data, device: -1 }, { data, nullContext: true }]) {
      assert.equal(fire(frame), true);
    }
    assert.deepEqual(counters(), { droppedFrames: 0, lastResult: -256, producedFrames: 0 });
    addon.cameraPreviewStop();
    assert.equal(fire({ data }), false);
    assert.equal(fire({ data, late: true }), true);
    addon.cameraPreviewStart(device, 8, 6, 120);
    assert.equal(fire({ data, late: true }), true);
    assert.deepEqual(counters(), { droppedFrames: 0, lastResult: -256, producedFrames: 0 });
  });
});

describe('a frame of AVFoundation', () => {
  const now = () => {
    const earliest = Date.now();
    return (timestampMs) => timestampMs >= earliest && timestampMs <= Date.now();
  };

  for (const layout of layouts) {
    for (const pad of [0, 10]) {
      it(`in ${layout}, ${pad > 0 ? 'of long rows' : 'tight'}, lies in a lent array with tight rows, and its record`, () => {
        const source = frameOf(layout, 16, 6, pad);
        const tight = frameOf(layout, 16, 6);
        const arrays = begin(avf, frameOf(layout, 32, 12));
        const bytes = rampFrame(1, source.dataSize);
        assert.equal(fire(avfFrame(source, bytes, { timestamp: 5_999_999 })), true);
        const answer = take();
        assert.deepEqual(Object.keys(answer), frameKeys);
        const { data, ...rest } = answer;
        assert.deepEqual(rest, {
          result: 0, sequence: 1, width: 16, height: 6, bytesPerRow: tight.bytesPerRow, dataLength: tight.dataSize,
          pixelFormat: layout, planeOffsets: tight.planes.map(([offset]) => offset),
          planeStrides: tight.planes.map(([, stride]) => stride), sourceWidth: 16, sourceHeight: 6,
          sourceBytesPerRow: source.bytesPerRow, timestampMs: 5, droppedFrames: 0, producerFps: 0, producerMode: 'callback',
          deliveryMode: 'copy', producedFrames: 1, lastResult: 0, directSlot: 0,
        });
        assertData(data, arrays[0], tightRows(source, bytes));
      });
    }
  }

  it('may be of another layout and size than the backend told before, if it has room', () => {
    const arrays = begin(avf, frameOf('bgra', 4, 4));
    const source = frameOf('nv12', 8, 4);
    const bytes = rampFrame(2, source.dataSize);
    fire(avfFrame(source, bytes));
    const { width, pixelFormat, data } = take();
    assert.deepEqual([width, pixelFormat], [8, 'nv12']);
    assertData(data, arrays[0], bytes);
  });

  for (const [timestamp, expected] of [
    [1_700_000_000_123_999_999n, 1_700_000_000_123], [9_223_372_036_854_775_807n, 9_223_372_036_854], [1_000_000, 1],
    [999_999, null], [1, null], [0, null], [-1, null], [-(2n ** 63n), null],
  ]) {
    it(`with the time stamp ${timestamp} is stamped ${expected ?? 'by the clock'}`, () => {
      begin(avf, frameOf('bgra', 4, 4));
      const isNow = now();
      fire(avfFrame(frameOf('bgra', 4, 4), rampFrame(1, 64), { timestamp }));
      const { timestampMs } = take();
      assert.ok(expected === null ? isNow(timestampMs) : timestampMs === expected, `${timestampMs}`);
    });
  }

  const bgra = frameOf('bgra', 4, 4);
  const nv12 = frameOf('nv12', 4, 4);
  const whole = (frame, more) => avfFrame(frame, rampFrame(1, frame.dataSize), more);

  for (const [what, result, fired] of [
    ['RGB', -13, whole(bgra, { format: pixelFormats.rgb })],
    ['RGBA', -13, whole(bgra, { format: pixelFormats.rgba })],
    ['I420', -13, whole(bgra, { format: pixelFormats.i420 })],
    ['an unknown format', -13, whole(bgra, { format: 8 })],
    ['a negative format', -13, whole(bgra, { format: -2147483648 })],
    ['NV12 of an odd width', -13, whole(nv12, { width: 3 })],
    ['NV12 of an odd height', -13, whole(nv12, { height: 3 })],
    ['NV12 with one plane', -13, whole(nv12, { planeCount: 1 })],
    ['NV12 without a second plane', -13, { ...whole(nv12), data1: undefined }],
    ['a stride shorter than a row', -11, whole(bgra, { stride: 15 })],
    ['a stride of 0', -11, whole(bgra, { stride: 0 })],
    ['a negative stride', -11, whole(bgra, { stride: -16 })],
    ['rows beyond the data', -11, whole(bgra, { size: 63 })],
    ['no data', -11, whole(bgra, { size: 0 })],
    ['a height that no data holds', -11, whole(bgra, { height: 2147483647 })],
    ['a width that no row holds', -11, whole(bgra, { width: 2147483647 })],
    ['a stride that no data holds', -11, whole(bgra, { stride: 2147483647 })],
    ['NV12 with a short stride of colours', -11, whole(nv12, { stride1: 3 })],
    ['NV12 with colours beyond their data', -11, whole(nv12, { size1: 7 })],
    ['NV12 with a negative stride of colours', -11, whole(nv12, { stride1: -4 })],
    ['a frame larger than the array', -11, whole(frameOf('bgra', 5, 4))],
    ['NV12 larger than the array', -11, whole(frameOf('nv12', 8, 6))],
  ]) {
    it(`is dropped with ${result} for ${what}, and holds no slot`, () => {
      const arrays = begin(avf, bgra);
      for (let count = 1; count <= 4; count += 1) {
        assert.equal(fire(fired), true);
        assert.deepEqual(counters(), { droppedFrames: count, lastResult: result, producedFrames: 0 });
      }
      assert.ok(arrays.every((array) => array.every((byte) => byte === 7)));
      fire(whole(bgra));
      assert.deepEqual(counters(), { droppedFrames: 4, lastResult: 0, producedFrames: 1 });
    });
  }

  it('without data, of no size, of another device, without a context or behind the stop is no frame', () => {
    begin(avf, bgra);
    for (const more of [{ data: undefined }, { width: 0 }, { width: -4 }, { height: 0 }, { height: -2147483648 }, { device: 3 },
      { nullContext: true }]) {
      assert.equal(fire({ ...whole(bgra), ...more }), true);
    }
    assert.deepEqual(counters(), { droppedFrames: 0, lastResult: -256, producedFrames: 0 });
    addon.cameraPreviewStop();
    assert.equal(fire(whole(bgra, { late: true })), true);
    addon.cameraPreviewStart(device, 8, 6, 120);
    assert.equal(fire(whole(bgra, { late: true })), true);
    assert.equal(counters().producedFrames, 0);
  });

  it('that is JPEG in a preview of another format is passed on as the bytes that came', () => {
    const arrays = begin(avf, bgra);
    fire({ format: pixelFormats.mjpeg, width: 4, height: 4, data: rampFrame(6, 40) });
    const { dataLength, pixelFormat, data } = take();
    assert.deepEqual([dataLength, pixelFormat], [40, 'bgra']);
    assertData(data, arrays[0], rampFrame(6, 40));
    fire({ format: pixelFormats.mjpeg, width: 4, height: 4, data: rampFrame(6, 65) });
    assert.deepEqual(counters(), { droppedFrames: 1, lastResult: -11, producedFrames: 1 });
  });
});

for (const kind of [dshow, avf]) {
  describe(`the slots of ${kind}`, () => {
    const frame = frameOf('bgra', 8, 6);
    let number = 0;
    const shoot = () => {
      number += 1;
      const bytes = new Uint8Array(frame.dataSize).fill(number);
      assert.equal(fire(firedFrame(kind, frame, bytes)), true);
    };
    const open = () => {
      number = 0;
      return begin(kind, frame);
    };
    /** Takes a frame and asserts which it is and where it lies. */
    const expectFrame = (lastSequence, sequence, slot, content = sequence) => {
      const { result, sequence: taken, directSlot, data } = take(lastSequence);
      assert.deepEqual([result, taken, directSlot], [0, sequence, slot]);
      assert.ok(data.every((byte) => byte === content));
      return data;
    };
    const expectNone = (lastSequence, values) => {
      const answer = take(lastSequence);
      assert.deepEqual(Object.keys(answer), emptyKeys);
      const { producerFps, ...rest } = answer;
      assert.deepEqual(rest, { result: -256, data: null, ...values });
    };

    it('are taken in turn', () => {
      open();
      for (let round = 1; round <= 10; round += 1) {
        shoot();
        expectFrame(round - 1, round, (round - 1) % 3);
        assert.equal(release((round - 1) % 3, round), 0);
      }
    });

    it('hold back the newest frame alone: older finished ones are free, and not counted as dropped', () => {
      open();
      [1, 2, 3].forEach(shoot);
      expectFrame(0, 3, 2);
      expectNone(0, { sequence: 3, droppedFrames: 0, lastResult: 0, producedFrames: 3 });
      shoot();
      shoot();
      assert.equal(counters().droppedFrames, 0);
      expectFrame(3, 5, 1);
    });

    it('stay held until they are released, each for itself', () => {
      open();
      shoot();
      const first = expectFrame(0, 1, 0);
      shoot();
      shoot();
      const third = expectFrame(1, 3, 2);
      // The second was finished when the third was taken: free, and the next frame finds it.
      expectNone(1, { sequence: 3, droppedFrames: 0, lastResult: 0, producedFrames: 3 });
      shoot();
      assert.equal(counters().producedFrames, 4);
      const fourth = expectFrame(3, 4, 1);
      shoot();
      assert.deepEqual(counters(), { droppedFrames: 1, lastResult: -11, producedFrames: 4 });
      [[first, 1], [third, 3], [fourth, 4]].forEach(([data, byte]) => assert.ok(data.every((each) => each === byte)));
      assert.deepEqual([release(0, 1), release(1, 4), release(2, 3)], [0, 0, 0]);
      shoot();
      assert.deepEqual(counters(), { droppedFrames: 1, lastResult: 0, producedFrames: 5 });
    });

    it('that are all finished or held lose the new frame', () => {
      const arrays = open();
      [1, 2, 3, 4, 5].forEach(shoot);
      assert.deepEqual(counters(), { droppedFrames: 2, lastResult: -11, producedFrames: 3 });
      assert.deepEqual(arrays.map(([byte]) => byte), [1, 2, 3]);
      expectFrame(2, 3, 2);
      shoot();
      assert.equal(counters().droppedFrames, 2);
      expectFrame(3, 4, 0, 6);
    });

    it('give no frame that is not newer than the last', () => {
      open();
      shoot();
      for (const last of [1, 1.5, 2, 2 ** 53, Infinity]) {
        expectNone(last, { sequence: 1, droppedFrames: 0, lastResult: 0, producedFrames: 1 });
      }
      for (const last of [0, 0.9, -1, -Infinity, NaN, '5', null]) {
        expectFrame(last, 1, 0);
        addon.cameraPreviewReleaseAllDirectSlots(device);
        addon.cameraPreviewStop();
        open();
        shoot();
      }
    });

    it('are released by their own frame alone, and once', () => {
      open();
      shoot();
      assert.equal(release(0, 1), -7);
      expectFrame(0, 1, 0);
      for (const sequence of [0, 2, -1, NaN, '1', undefined, Infinity, 1n, {}]) {
        assert.equal(release(0, sequence), -7, `${String(sequence)}`);
      }
      assert.deepEqual([release(1, 1), release(2, 0), release(1, 0)], [-7, -7, -7]);
      for (const slot of [-1, 3, 4, 2147483647, -2147483648, undefined, '0', null]) {
        assert.equal(release(slot, 1), -1);
      }
      for (const other of [1, -1, undefined, '0']) {
        assert.equal(addon.cameraPreviewReleaseDirectSlot(other, 0, 1), -1);
      }
      assert.equal(release(0.9, 1.9), 0);
      assert.equal(release(0, 1), -7);
      addon.cameraPreviewStop();
      assert.equal(release(0, 1), -1);
    });

    it('are all released at once, finished and held ones', () => {
      const releaseAll = (...args) => assert.equal(addon.cameraPreviewReleaseAllDirectSlots(...args), 0);
      for (const args of [[device], [-1], [-2147483648], [], ['0']]) {
        open();
        shoot();
        expectFrame(0, 1, 0);
        shoot();
        shoot();
        releaseAll(1);
        releaseAll(2147483647);
        shoot();
        assert.deepEqual(counters(), { droppedFrames: 1, lastResult: -11, producedFrames: 3 });
        releaseAll(...args);
        expectNone(0, { sequence: 3, droppedFrames: 1, lastResult: -11, producedFrames: 3 });
        assert.equal(release(0, 1), -7);
        [5, 6, 7].forEach(shoot);
        assert.deepEqual(counters(), { droppedFrames: 1, lastResult: 0, producedFrames: 6 });
      }
      addon.cameraPreviewStop();
      releaseAll(-1);
    });

    it('are of no other device', () => {
      open();
      shoot();
      for (const other of [1, -1, undefined, 2147483647]) {
        const answer = addon.cameraPreviewGetLatest(other, 0);
        assert.deepEqual(Object.keys(answer), noDeviceKeys);
        assert.deepEqual(answer, { result: -1, data: null, sequence: 0, droppedFrames: 0 });
      }
      expectFrame(0, 1, 0);
    });

    it('take no notice of a target', () => {
      const arrays = open();
      shoot();
      const target = new Uint8Array(frame.dataSize);
      assert.equal(take(0, target).data.buffer, arrays[0].buffer);
      assert.ok(target.every((byte) => byte === 0));
    });

    it('leave what was taken to script code at the stop', () => {
      open();
      shoot();
      const data = expectFrame(0, 1, 0);
      addon.cameraPreviewStop();
      assert.ok(data.every((byte) => byte === 1));
      open();
      shoot();
      expectFrame(0, 1, 0);
      assert.ok(data.every((byte) => byte === 1));
    });

    it('start anew with the next preview, and its counters too', () => {
      open();
      [1, 2, 3, 4].forEach(shoot);
      take();
      open();
      assert.deepEqual(counters(), { droppedFrames: 0, lastResult: -256, producedFrames: 0 });
      shoot();
      expectFrame(0, 1, 0);
    });

    it('keep the count of lost frames over a stop', () => {
      open();
      [1, 2, 3, 4].forEach(shoot);
      addon.cameraPreviewStop();
      const { result, droppedFrames, lastResult, producedFrames } = take();
      assert.deepEqual([result, droppedFrames, lastResult, producedFrames], [-1, 1, -5, 0]);
    });

    it('make a rate of the frames of a second', async () => {
      open();
      const producerFps = await until('a rate', () => {
        shoot();
        const { sequence, directSlot, result } = take();
        if (result === 0) {
          release(directSlot, sequence);
        }
        return take().producerFps;
      });
      assert.ok(producerFps > 0 && producerFps * 10 === Math.trunc(producerFps * 10), `${producerFps}`);
    });
  });
}

describe('the quality picture of a direct preview', () => {
  const keys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'pixelFormat', 'timestampMs', 'data'];
  const picture = (sequence) => until('a picture', () => {
    const answer = addon.cameraPreviewGetLatestQualityFrame(device, sequence);
    return answer.result === 0 && answer;
  });
  const frame = frameOf('bgra', 8, 6);
  const bytes = rampFrame(5, frame.dataSize);
  const rgb = Buffer.from([...bytes].filter((_, index) => index % 4 !== 3))
    .map((_, index, all) => all[index - (index % 3) + 2 - (index % 3)]);

  const assertPicture = async (values, expected) => {
    const started = Date.now();
    const answer = await picture(0);
    assert.deepEqual(Object.keys(answer), keys);
    const { data, timestampMs, ...rest } = answer;
    assert.deepEqual(rest, { result: 0, sequence: 1, width: 8, height: 6, ...values });
    assert.ok(timestampMs >= started - 10_000 && timestampMs <= Date.now());
    assert.ok(Buffer.isBuffer(data) && data.equals(expected));
    assert.equal((await picture(1)).sequence, 2);
  };

  it('of DirectShow is RGB', async () => {
    begin(dshow, frame);
    setGrabBytes(bytes);
    fire({ data: bytes });
    await assertPicture({ bytesPerRow: 24, pixelFormat: 'rgb' }, rgb);
  });

  it('of AVFoundation is BGRA where that can be grabbed', async () => {
    begin(avf, frame, { script: 'default ~grab_bgra 1' });
    setGrabBytes(bytes);
    fire(avfFrame(frame, bytes));
    await assertPicture({ bytesPerRow: 32, pixelFormat: 'bgra' }, bytes);
  });

  it('of AVFoundation is RGB where that alone can be grabbed', async () => {
    begin(avf, { ...frame, bytesPerRow: 24 }, { without: ['grab_bgra'], script: 'default ~grab_rgb 1' });
    setGrabBytes(rgb);
    fire(avfFrame(frame, bytes));
    await assertPicture({ bytesPerRow: 24, pixelFormat: 'rgb' }, rgb);
  });

  for (const [kind, grab, script] of [[dshow, 'grab_frame', 'default ~grab_frame -8'], [avf, 'grab_bgra', '']]) {
    it(`of ${kind} that cannot be grabbed is none, and counts for nothing`, async () => {
      begin(kind, frame, { script });
      fire(firedFrame(kind, frame, bytes));
      await until('a grab', () => callList().some((call) => call.startsWith(grab)));
      await sleep(20);
      assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device, 0), { result: -256, sequence: 0, data: null });
      assert.deepEqual(counters(), { droppedFrames: 0, lastResult: 0, producedFrames: 1 });
    });
  }

  it('is not asked for before the first frame', async () => {
    begin(dshow, frame);
    await sleep(50);
    assert.deepEqual(callList().filter((call) => call.startsWith('grab')), []);
  });

  it('is stopped even while the backend grabs, once that returns', () => {
    begin(dshow, frame);
    send('block cdshow_grab_frame until cdshow_stop_capture');
    fire({ data: bytes });
    send('wait_entered cdshow_grab_frame 1');
    assert.equal(addon.cameraStopCapture(device), 0);
    assert.deepEqual([addon.cameraPreviewIsRunning(), addon.cameraPreviewIsDirect()], [false, false]);
    assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device, 0), { result: -256, sequence: 0, data: null });
  });
});

describe('in a direct preview of uncompressed frames', () => {
  it('there is no encoded frame, and JPEG means nothing', () => {
    for (const kind of [dshow, avf]) {
      const frame = frameOf('bgra', 8, 6);
      begin(kind, frame);
      const bytes = Buffer.concat([Buffer.of(0xff, 0xd8), rampFrame(1, 190)]);
      fire(firedFrame(kind, frame, bytes));
      const answer = addon.cameraGrabEncodedFrame(device);
      assert.deepEqual(Object.keys(answer), ['result', 'data']);
      assert.deepEqual(answer, { result: -256, data: null });
      assert.ok(bytes.equals(take().data));
    }
  });
});

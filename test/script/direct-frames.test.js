// Frames of a direct preview on their way from the backend's thread into the lent arrays and to
// script code.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { firedFrame, frameOf, kinds, lendArrays, pixelFormats } from './support/direct-backend.js';
import { assertData, device, useDirectPreview } from './support/direct-preview.js';
import { rampFrame } from './support/fake-camera.js';

const { addon, begin, counters, fire, take } = useDirectPreview();
const [dshow, avf] = Object.keys(kinds);
const layouts = ['bgra', 'nv12', 'yuy2', 'uyvy'];
const frameKeys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'dataLength', 'pixelFormat', 'planeOffsets',
  'planeStrides', 'sourceWidth', 'sourceHeight', 'sourceBytesPerRow', 'timestampMs', 'droppedFrames', 'producerFps',
  'producerMode', 'deliveryMode', 'producedFrames', 'lastResult', 'directSlot', 'data'];

const avfFrame = (...args) => firedFrame(avf, ...args);

/** The rows of such bytes without what is behind their pixels. */
function tightRows({ width, height, pixelFormat, planes }, bytes) {
  const row = { [pixelFormats.bgra]: 4, [pixelFormats.nv12]: 1 }[pixelFormat] ?? 2;
  const rows = planes.flatMap(([offset, stride], plane) => Array.from({ length: plane === 0 ? height : height >> 1 }, (_, y) =>
    bytes.subarray(offset + y * stride, offset + y * stride + row * width)));
  return Buffer.concat(rows);
}

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

  it('that is flipped and longer than its rows comes whole, what is behind them as it is', () => {
    const frame = { ...frameOf('yuy2', 4, 2), dataSize: 19 };
    const arrays = begin(dshow, frame);
    const bytes = rampFrame(3, 19);
    fire({ data: bytes, flipped: 1 });
    assertData(take().data, arrays[0], Buffer.concat([bytes.subarray(8, 16), bytes.subarray(0, 8), bytes.subarray(16)]));
  });

  it('of two planes that is flipped comes with the last row of each plane first', () => {
    const [width, height, row] = [6, 4, 8];
    const arrays = begin(dshow, { ...frameOf('nv12', width, height, row - width), dataSize: 50, planes: [[0, row], [33, row]] });
    const bytes = rampFrame(3, 50);
    fire({ data: bytes, flipped: 1 });
    const rows = (start, count) => Array.from({ length: count }, (_, y) =>
      bytes.subarray(start + (count - 1 - y) * row, start + (count - y) * row));
    assertData(take().data, arrays[0],
      Buffer.concat([...rows(0, 4), bytes.subarray(32, 33), ...rows(33, 2), bytes.subarray(49)]));
  });

  for (const [what, change] of [
    ['that is one plane by its count', { planeCount: 1 }],
    ['whose colour begins within its brightness', { planes: [[0, 6], [23, 6]] }],
    ['whose colour ends beyond the frame', { planes: [[0, 6], [25, 6]] }],
    ['whose colour has shorter rows than pixels', { planes: [[0, 6], [24, 5]] }],
  ]) {
    it(`of NV12 that is flipped is dropped with -11 ${what}`, () => {
      const arrays = begin(dshow, { ...frameOf('nv12', 6, 4), ...change });
      fire({ data: rampFrame(3, 36), flipped: 1 });
      assert.deepEqual(counters(), { droppedFrames: 1, lastResult: -11, producedFrames: 0 });
      assert.ok(arrays.every((array) => array.every((byte) => byte === 7)));
    });
  }

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

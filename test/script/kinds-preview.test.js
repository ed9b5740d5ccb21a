// The polling preview on a DirectShow or an AVFoundation camera library, in every pixel format.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { frameOf, kinds, pixelFormats } from './support/direct-backend.js';
import { device, useDirectPreview } from './support/direct-preview.js';
import { rampFrame } from './support/fake-camera.js';
import { until } from './support/waiting.js';

const { addon, become, callList, send, setGrabBytes, take } = useDirectPreview();
const [dshow, avf] = Object.keys(kinds);
const frameKeys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'pixelFormat', 'planeOffsets', 'planeStrides',
  'sourceWidth', 'sourceHeight', 'sourceBytesPerRow', 'timestampMs', 'droppedFrames', 'producerFps', 'producerMode',
  'deliveryMode', 'producedFrames', 'lastResult', 'data'];
const ready = { [dshow]: 'default ~has_first_frame 1', [avf]: 'default ~has_first_frame 1\ndefault ~grab_native 1\ndefault ~grab_rgb 1' };
const mainGrab = { [dshow]: 'grab_frame', [avf]: 'grab_native' };

/**
 * Starts a polling preview; gives its first frame, and the still with it, taken while the worker is
 * held before it grabs by `grab` for more than `grabs` times.
 */
async function firstFrame(kind, frame, bytes, { width = 64, height = 48, without = [], grab = mainGrab[kind], grabs = 1 } = {}) {
  become(kind, { frame, without, script: ready[kind] });
  setGrabBytes(bytes);
  const entry = kinds[kind] + grab;
  send(`block ${entry}\nrelease ${entry} ${grabs}`);
  try {
    assert.equal(addon.cameraPreviewStart(device, width, height, 120), 0);
    const answer = await until('a frame', () => {
      const found = take();
      return found.result === 0 && found;
    });
    assert.deepEqual(Object.keys(answer), frameKeys);
    return { answer, quality: addon.cameraPreviewGetLatestQualityFrame(device, 0) };
  } finally {
    send(`release ${entry}`);
  }
}

function assertFrame({ data, timestampMs, producerFps, ...rest }, values, expected) {
  assert.deepEqual(rest, {
    result: 0, sequence: 1, droppedFrames: 0, producerMode: 'polling', deliveryMode: 'copy', producedFrames: 1, lastResult: 0,
    planeOffsets: [0], planeStrides: [values.bytesPerRow], ...values,
  });
  assert.ok(data.equals(expected));
}

/** Every `step`-th pixel of every `step`-th row, `pixelBytes` each, as four bytes. */
function reduced(bytes, { width, height, bytesPerRow }, step, pixelBytes) {
  const [outWidth, outHeight] = [width, height].map((size) => Math.max(Math.trunc(size / step), 1));
  const out = Buffer.alloc(outWidth * outHeight * 4, 255);
  for (let y = 0; y < outHeight; y += 1) {
    for (let x = 0; x < outWidth; x += 1) {
      const start = y * step * bytesPerRow + x * step * pixelBytes;
      bytes.copy(out, (y * outWidth + x) * 4, start, start + pixelBytes);
    }
  }
  return out;
}

const tight = (bytes, { height, bytesPerRow }, row) =>
  Buffer.concat(Array.from({ length: height }, (_, y) => bytes.subarray(y * bytesPerRow, y * bytesPerRow + row)));

const source = ({ width, height, bytesPerRow }) => ({ sourceWidth: width, sourceHeight: height, sourceBytesPerRow: bytesPerRow });

for (const kind of [dshow, avf]) {
  // DirectShow has one way to grab, for the frame itself and for the still of a native layout.
  const stillGrabs = kind === dshow ? 1 : 0;

  describe(`a polling preview of ${kind}`, () => {
    for (const pad of [0, 10]) {
      const rows = pad > 0 ? 'long' : 'tight';

      it(`gives BGRA with ${rows} rows as it is, and a BGRA still`, async () => {
        const frame = frameOf('bgra', 16, 9, pad);
        const bytes = rampFrame(1, frame.dataSize);
        const { answer, quality } = await firstFrame(kind, frame, bytes);
        assertFrame(answer, { width: 16, height: 9, bytesPerRow: 64, pixelFormat: 'bgra', ...source(frame) }, tight(bytes, frame, 64));
        const { timestampMs, data, ...rest } = quality;
        assert.deepEqual(rest, { result: 0, sequence: 1, width: 16, height: 9, bytesPerRow: 64, pixelFormat: 'bgra' });
        assert.ok(data.equals(tight(bytes, frame, 64)));
      });

      it(`reduces BGRA with ${rows} rows by whole steps`, async () => {
        const frame = frameOf('bgra', 16, 9, pad);
        const bytes = rampFrame(2, frame.dataSize);
        const { answer } = await firstFrame(kind, frame, bytes, { width: 8, height: 4 });
        assertFrame(answer, { width: 5, height: 3, bytesPerRow: 20, pixelFormat: 'bgra', ...source(frame) }, reduced(bytes, frame, 3, 4));
      });

      for (const layout of ['nv12', 'yuy2', 'uyvy']) {
        it(`gives ${layout} with ${rows} rows as it is, never reduced`, async () => {
          const frame = frameOf(layout, 16, 8, pad);
          const bytes = rampFrame(3, frame.dataSize);
          const { answer } = await firstFrame(kind, frame, bytes, { width: 16, height: 16, grabs: stillGrabs + 1 });
          assertFrame(answer, {
            width: 16, height: 8, bytesPerRow: frame.bytesPerRow, pixelFormat: layout, ...source(frame),
            planeOffsets: frame.planes.map(([offset]) => offset), planeStrides: frame.planes.map(([, stride]) => stride),
          }, bytes);
        });
      }
    }

    for (const name of ['rgb', 'rgba', 'i420', 'mjpeg']) {
      it(`takes ${name} for RGB`, async () => {
        // The shortest row that DirectShow may mean, but for JPEG, has four bytes a pixel.
        const frame = { width: 16, height: 9, bytesPerRow: 64, dataSize: 576, pixelFormat: pixelFormats[name] };
        const bytes = rampFrame(4, 576);
        const { answer, quality } = await firstFrame(kind, frame, bytes);
        assertFrame(answer, { width: 16, height: 9, bytesPerRow: 64, pixelFormat: 'rgba', ...source(frame) }, reduced(bytes, frame, 1, 3));
        assert.deepEqual([quality.pixelFormat, quality.bytesPerRow], ['rgb', 48]);
        assert.ok(quality.data.equals(tight(bytes, frame, 48)));
      });
    }

    for (const [what, result, frame] of [
      ['an unknown width', -10, { ...frameOf('bgra', 16, 9), width: 0 }],
      ['an unknown height', -10, { ...frameOf('bgra', 16, 9), height: 0 }],
      ['a plane row that is too short', -10, { ...frameOf('bgra', 16, 9), planes: [[0, 63]] }],
      ['NV12 of one plane', -11, { ...frameOf('nv12', 16, 8), planeCount: 1 }],
      ['NV12 of planes that overlap', -11, { ...frameOf('nv12', 16, 8), planes: [[0, 16], [127, 16]] }],
      ['NV12 of a short row of colours', -11, { ...frameOf('nv12', 16, 8), planes: [[0, 16], [128, 15]] }],
      ['NV12 of colours beyond the data', -11, { ...frameOf('nv12', 16, 8), planes: [[0, 16], [129, 16]] }],
      ['YUY2 of two planes', -11, { ...frameOf('yuy2', 16, 8), planeCount: 2 }],
      ['a frame that is larger than the preview\'s buffers', -11, frameOf('nv12', 200, 200)],
    ]) {
      it(`counts ${what} as a loss with ${result}, and asks for no frame`, async () => {
        become(kind, { frame, script: ready[kind] });
        addon.cameraPreviewStart(device, 64, 48, 120);
        const { lastResult, producedFrames } = await until('a loss', () => {
          const answer = take();
          return answer.droppedFrames > 1 && answer;
        });
        assert.deepEqual([lastResult, producedFrames], [result, 0]);
        assert.deepEqual(callList().filter((call) => call.startsWith('grab')), []);
      });
    }

    const noGrab = kind === dshow ? ['grab_frame'] : ['grab_native', 'grab_rgb'];
    for (const [what, result, options] of [
      ['without the entry for a first frame', -6, { without: ['has_first_frame'] }],
      ['without an entry to grab', -6, { without: noGrab }],
      ['whose grab fails', -8, { script: kind === dshow ? 'default ~grab_frame -8' : 'default ~grab_native 0' }],
      ...(kind === dshow ? [['whose first frame is an error', -77, { script: 'default ~has_first_frame -77' }]] : []),
    ]) {
      it(`tells ${result} of a library ${what}`, async () => {
        const { without, script = '' } = options;
        become(kind, { frame: frameOf('bgra', 16, 9), without, script: `${ready[kind]}\n${script}` });
        addon.cameraPreviewStart(device, 64, 48, 120);
        const { lastResult } = await until('a loss', () => {
          const answer = take();
          return answer.droppedFrames > 1 && answer;
        });
        assert.equal(lastResult, result);
      });
    }

    it('without the format entry takes its own default', async () => {
      const frame = { width: 16, height: 9, bytesPerRow: 64, dataSize: 576 };
      const bytes = rampFrame(5, 576);
      const { answer } = await firstFrame(kind, frame, bytes, { without: ['frame_pixel_format'] });
      assert.equal(answer.pixelFormat, kind === dshow ? 'bgra' : 'rgba');
      assert.ok(answer.data.equals(reduced(bytes, frame, 1, kind === dshow ? 4 : 3)));
    });
  });
}

describe('the still of a native polling preview', () => {
  it('of DirectShow is converted to RGB where the layout can be', async () => {
    const grey = Buffer.alloc(192, 128);
    const { quality } = await firstFrame(dshow, frameOf('nv12', 16, 8), grey, { grabs: 2 });
    assert.deepEqual([quality.result, quality.pixelFormat, quality.bytesPerRow], [0, 'rgb', 48]);
    assert.ok(quality.data.every((byte) => byte === ((112 * 298 + 128) >> 8)));
  });

  it('of DirectShow is none of UYVY, which counts for nothing', async () => {
    const { answer, quality } = await firstFrame(dshow, frameOf('uyvy', 16, 8), rampFrame(1, 256), { grabs: 2 });
    assert.deepEqual(quality, { result: -256, sequence: 0, data: null });
    assert.deepEqual([answer.droppedFrames, answer.lastResult], [0, 0]);
  });

  it('of AVFoundation is what it grabs as RGB', async () => {
    const bytes = rampFrame(7, 384);
    const { quality } = await firstFrame(avf, { ...frameOf('yuy2', 16, 8), bytesPerRow: 48, dataSize: 384, planes: [[0, 48]] }, bytes);
    assert.deepEqual([quality.result, quality.pixelFormat, quality.bytesPerRow], [0, 'rgb', 48]);
    assert.ok(quality.data.equals(bytes));
  });
});

describe('a polling preview of AVFoundation without its native grab', () => {
  it('takes what it grabs as RGB', async () => {
    const frame = { width: 16, height: 9, bytesPerRow: 48, dataSize: 432, pixelFormat: pixelFormats.rgb };
    const bytes = rampFrame(8, 432);
    const { answer } = await firstFrame(avf, frame, bytes, { without: ['grab_native'], grab: 'grab_rgb' });
    assert.ok(answer.data.equals(reduced(bytes, frame, 1, 3)));
  });

  for (const [what, format, pad] of [['of RGB with long rows', 'rgb', 5], ['of BGRA', 'bgra', 0], ['of BGRA with long rows', 'bgra', 7]]) {
    for (const [reduction, size] of [[1, { width: 64, height: 48 }], [2, { width: 8, height: 8 }]]) {
      it(`shows frames ${what} as the RGB that it grabs, reduced by ${reduction}`, async () => {
        const [width, height] = [16, 9];
        const bytesPerRow = (format === 'bgra' ? 4 : 3) * width + pad;
        const frame = { width, height, bytesPerRow, dataSize: bytesPerRow * height, pixelFormat: pixelFormats[format] };
        const bytes = rampFrame(8, frame.dataSize);
        const { answer, quality } = await firstFrame(avf, frame, bytes, { ...size, without: ['grab_native'], grab: 'grab_rgb' });
        assert.deepEqual([answer.pixelFormat, answer.sourceBytesPerRow], ['rgba', bytesPerRow]);
        assert.ok(answer.data.equals(reduced(bytes, frame, reduction, 3)));
        const rows = Array.from({ length: height }, (_, y) => bytes.subarray(y * bytesPerRow, y * bytesPerRow + 3 * width));
        assert.deepEqual([quality.pixelFormat, quality.bytesPerRow], ['rgb', 3 * width]);
        assert.ok(quality.data.equals(Buffer.concat(rows)));
      });
    }
  }

  for (const [format, pad] of [['nv12', 0], ['nv12', 32], ['yuy2', 0], ['yuy2', 16], ['uyvy', 16]]) {
    it(`shows no frames of ${format} with rows ${pad} bytes longer than their pixels: -11`, async () => {
      become(avf, { frame: frameOf(format, 16, 8, pad), without: ['grab_native'], script: ready[avf] });
      addon.cameraPreviewStart(device, 64, 48, 120);
      const { lastResult, producedFrames } = await until('a loss', () => {
        const answer = take();
        return answer.droppedFrames > 1 && answer;
      });
      assert.deepEqual([lastResult, producedFrames], [-11, 0]);
    });
  }
});

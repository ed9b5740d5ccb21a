// Frames that script code grabs by itself from a DirectShow or an AVFoundation camera library, in
// every pixel format.

import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';

import { kinds, openDirectBackend, pixelFormats, subsamplings } from './support/direct-backend.js';
import { rampFrame, reduceToRgba } from './support/fake-camera.js';

const { addon, become, callList, encodeJpeg, send, setGrabBytes } = openDirectBackend();
after(() => become('none'));

const [dshow, avf] = Object.keys(kinds);
const { rgb, bgra, nv12, yuy2, mjpeg, rgba, i420, uyvy } = pixelFormats;
const grabKeys = ['width', 'height', 'bytesPerRow', 'pixelFormat', 'result', 'data', 'timestampMs'];
const sourceKeys = ['sourceWidth', 'sourceHeight', 'sourceBytesPerRow', 'result'];

/** The bytes of a pixel, as DirectShow frames are converted. */
function yuvToRgb(y, u, v, isHighDefinition) {
  const luma = Math.max(y - 16, 0) * 298 + 128;
  const [d, e] = [u - 128, v - 128];
  const [redE, greenD, greenE, blueD] = isHighDefinition ? [459, 55, 136, 541] : [409, 100, 208, 516];
  return [luma + redE * e, luma - greenD * d - greenE * e, luma + blueD * d]
    .map((scaled) => Math.min(Math.max(scaled >> 8, 0), 255));
}

/** What a grab of these bytes gives as RGB, rows tight. */
function toRgb(source, format, { width, height, bytesPerRow, planes = [] }) {
  const isHighDefinition = width >= 1280 || height >= 577;
  const out = Buffer.alloc(width * height * 3);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      const at = (offset) => source[y * bytesPerRow + offset];
      const pair = (x - (x % 2)) * 2;
      let pixel;
      if (format === bgra) {
        pixel = [at(4 * x + 2), at(4 * x + 1), at(4 * x)];
      } else if (format === yuy2) {
        pixel = yuvToRgb(at(2 * x), at(pair + 1), at(pair + 3), isHighDefinition);
      } else {
        const chroma = planes[1][0] + (y >> 1) * planes[1][1] + x - (x % 2);
        pixel = yuvToRgb(at(x), source[chroma], source[chroma + 1], isHighDefinition);
      }
      out.set(pixel, (y * width + x) * 3);
    }
  }
  return out;
}

const assertGrab = (answer, values) => {
  assert.deepEqual(Object.keys(answer), grabKeys);
  const { data, timestampMs, ...rest } = answer;
  assert.deepEqual(rest, values);
  assert.ok(Math.abs(timestampMs - Date.now()) < 60_000);
  assert.ok(Buffer.isBuffer(data));
  return data;
};

describe('cameraGrabFrame of DirectShow', () => {
  const shape = { width: 6, height: 4 };
  const answer = (width, height, result) => ({ width, height, bytesPerRow: 3 * width, pixelFormat: 'rgb', result });

  /** Frames that convert: their description and their bytes. */
  const convertible = [
    ['BGRA', bgra, { ...shape, bytesPerRow: 24, dataSize: 96 }],
    ['BGRA of longer rows', bgra, { ...shape, bytesPerRow: 31, dataSize: 124 }],
    ['BGRA of an odd size', bgra, { width: 5, height: 3, bytesPerRow: 20, dataSize: 60 }],
    ['YUY2', yuy2, { ...shape, bytesPerRow: 12, dataSize: 48 }],
    ['YUY2 of longer rows', yuy2, { ...shape, bytesPerRow: 17, dataSize: 68 }],
    ['YUY2 of an odd height', yuy2, { width: 6, height: 3, bytesPerRow: 12, dataSize: 36 }],
    ['YUY2 of high definition', yuy2, { width: 1280, height: 2, bytesPerRow: 2560, dataSize: 5120 }],
    ['YUY2 just below it', yuy2, { width: 2, height: 576, bytesPerRow: 4, dataSize: 2304 }],
    ['YUY2 just above it', yuy2, { width: 2, height: 577, bytesPerRow: 4, dataSize: 2308 }],
    ['NV12', nv12, { ...shape, bytesPerRow: 6, dataSize: 36, planes: [[0, 6], [24, 6]] }],
    ['NV12 of apart planes', nv12, { ...shape, bytesPerRow: 6, dataSize: 60, planes: [[0, 9], [40, 10]] }],
    ['NV12 of high definition', nv12, { width: 2, height: 578, bytesPerRow: 2, dataSize: 1734, planes: [[0, 2], [1156, 2]] }],
  ];
  for (const [what, format, frame] of convertible) {
    it(`converts ${what}`, () => {
      become(dshow, { frame: { ...frame, pixelFormat: format } });
      const bytes = rampFrame(7, frame.dataSize);
      setGrabBytes(bytes);
      const data = assertGrab(addon.cameraGrabFrame(0), answer(frame.width, frame.height, 0));
      const [[, stride] = [0, frame.bytesPerRow]] = frame.planes ?? [];
      assert.ok(data.equals(toRgb(bytes, format, { ...frame, bytesPerRow: stride })));
      assert.deepEqual(callList().filter((call) => call.startsWith('grab')), [`grab_frame(0,ptr,${frame.dataSize})`]);
    });
  }

  it('takes the stride of plane 0 before the bytes of a row', () => {
    become(dshow, { frame: { ...shape, bytesPerRow: 40, dataSize: 124, pixelFormat: bgra, planes: [[0, 31]] } });
    const bytes = rampFrame(1, 124);
    setGrabBytes(bytes);
    assert.ok(addon.cameraGrabFrame(0).data.equals(toRgb(bytes, bgra, { ...shape, bytesPerRow: 31 })));
  });

  it('needs but the grab and the size: without the rest a frame is tight BGRA', () => {
    become(dshow, {
      without: ['bytes_per_row', 'data_size', 'pixel_format', 'plane_count', 'plane_offset', 'plane_stride'].map((name) => `frame_${name}`),
      frame: shape,
    });
    const bytes = rampFrame(2, 96);
    setGrabBytes(bytes);
    const data = assertGrab(addon.cameraGrabFrame(0), answer(6, 4, 0));
    assert.ok(data.equals(toRgb(bytes, bgra, { ...shape, bytesPerRow: 24 })));
  });

  const tight = { [bgra]: { bytesPerRow: 24, dataSize: 96 }, [yuy2]: { bytesPerRow: 12, dataSize: 48 } };
  const planar = { bytesPerRow: 6, dataSize: 36, planes: [[0, 6], [24, 6]] };
  for (const [what, result, frame, without] of [
    ['an unknown width', -10, { width: 0, pixelFormat: bgra, dataSize: 96 }],
    ['an unknown height', -10, { height: -1, pixelFormat: bgra, dataSize: 96 }],
    ['an unknown size of the data', -11, { height: 4, pixelFormat: mjpeg, dataSize: 0 }],
    ['RGB', -13, { pixelFormat: rgb, bytesPerRow: 24, dataSize: 96 }],
    ['RGBA', -13, { pixelFormat: rgba, bytesPerRow: 24, dataSize: 96 }],
    ['I420', -13, { pixelFormat: i420, bytesPerRow: 24, dataSize: 96 }],
    ['UYVY', -13, { pixelFormat: uyvy, bytesPerRow: 12, dataSize: 48 }],
    ['an unknown format', -13, { pixelFormat: 99, bytesPerRow: 24, dataSize: 96 }],
    ['a stride of 0', -11, { pixelFormat: rgb, dataSize: 96, planes: [[0, 0]] }],
    ['BGRA of a short stride', -11, { pixelFormat: bgra, ...tight[bgra], planes: [[0, 23]] }],
    ['YUY2 of an odd width', -11, { width: 5, pixelFormat: yuy2, ...tight[yuy2] }],
    ['YUY2 of a short stride', -11, { pixelFormat: yuy2, ...tight[yuy2], planes: [[0, 11]] }],
    ['NV12 of an odd width', -11, { width: 5, pixelFormat: nv12, ...planar }],
    ['NV12 of an odd height', -11, { height: 3, pixelFormat: nv12, ...planar }],
    ['NV12 of a short luma stride', -11, { pixelFormat: nv12, ...planar, planes: [[0, 5], [24, 6]] }],
    ['NV12 of a short chroma stride', -11, { pixelFormat: nv12, ...planar, planes: [[0, 6], [24, 5]] }],
    ['NV12 of planes that overlap', -11, { pixelFormat: nv12, ...planar, planes: [[0, 6], [23, 6]] }],
    ['NV12 of chroma beyond the data', -11, { pixelFormat: nv12, ...planar, planes: [[0, 6], [25, 6]] }],
    ['NV12 of a product beyond int32', -11, { pixelFormat: nv12, ...planar, planes: [[0, 6], [24, 2147483647]] }],
    ['NV12 without plane offsets', -11, { pixelFormat: nv12, ...planar }, ['frame_plane_offset']],
    ['NV12 without plane strides', -11, { pixelFormat: nv12, ...planar }, ['frame_plane_stride']],
    ['any format without the grab', -6, { pixelFormat: bgra, ...tight[bgra] }, ['grab_frame']],
    ['an unknown data size without the grab', -6, { pixelFormat: mjpeg, dataSize: 0 }, ['grab_frame']],
  ]) {
    it(`answers ${result} for ${what}`, () => {
      become(dshow, { without, frame: { ...shape, ...frame } });
      const { data, ...grab } = addon.cameraGrabFrame(0);
      assert.equal(grab.result, result);
      if (result === -10) {
        assert.deepEqual([Object.keys(grab), data], [['width', 'height', 'bytesPerRow', 'pixelFormat', 'result'], null]);
        assert.deepEqual(callList().filter((call) => call.startsWith('grab')), []);
      } else {
        assert.ok(Buffer.isBuffer(data));
      }
    });
  }

  it('gives the code of a grab that failed', () => {
    become(dshow, { frame: { ...shape, pixelFormat: bgra, ...tight[bgra] }, script: 'answer ~grab_frame -7 -256 1' });
    for (const result of [-7, -256, 1]) {
      assertGrab(addon.cameraGrabFrame(0), answer(6, 4, result));
    }
  });

  it('sees black where a frame only claims to have rows', () => {
    become(dshow, { frame: { ...shape, bytesPerRow: 24, dataSize: 30, pixelFormat: bgra } });
    setGrabBytes(rampFrame(1, 96));
    const { result, data } = addon.cameraGrabFrame(0);
    assert.equal(result, 0);
    const seen = Buffer.concat([rampFrame(1, 30), Buffer.alloc(66)]);
    assert.ok(data.equals(toRgb(seen, bgra, { ...shape, bytesPerRow: 24 })));
  });
});

describe('cameraGrabFrame of MJPEG', () => {
  const [width, height] = [33, 17];
  const colour = [200, 60, 90];
  const picture = (sizeWidth, sizeHeight) => Buffer.alloc(sizeWidth * sizeHeight * 3, Buffer.from(colour));
  const grab = (bytes, script = '') => {
    become(dshow, { frame: { width, height, dataSize: bytes.length, pixelFormat: mjpeg }, script });
    setGrabBytes(bytes);
    return addon.cameraGrabFrame(0);
  };
  const whole = encodeJpeg(picture(width, height), width, height, subsamplings['4:2:0']);

  it('answers -13 before a JPEG library is loaded, having grabbed', () => {
    assert.equal(grab(whole).result, -13);
    // The whole room of the answer, since the JPEG of the grab may be longer than the one before.
    assert.deepEqual(callList().filter((call) => call.startsWith('grab')), [`grab_frame(0,ptr,${3 * width * height})`]);
  });

  describe('with a JPEG library', () => {
    before(() => assert.equal(addon.loadTurboJpeg('libturbojpeg.so.0'), true));

    for (const [name, code] of Object.entries(subsamplings)) {
      it(`decodes ${name}, of an odd size`, () => {
        const { result, data } = grab(encodeJpeg(picture(width, height), width, height, code));
        assert.equal(result, 0);
        const expected = name === 'grey' ? Array(3).fill(Math.round(0.299 * 200 + 0.587 * 60 + 0.114 * 90)) : colour;
        data.forEach((byte, index) => assert.ok(Math.abs(byte - expected[index % 3]) <= 4, `${index}: ${byte}`));
      });
    }

    it('answers -8 for what is no JPEG, is cut off, or has another size than fits', () => {
      assert.equal(grab(Buffer.from('no JPEG at all, but some bytes')).result, -8);
      assert.equal(grab(whole.subarray(0, 100)).result, -8);
      assert.equal(grab(Buffer.of(0xff, 0xd8, 0xff, 0xd9)).result, -8);
      assert.equal(grab(encodeJpeg(picture(2000, 2000), 2000, 2000, 2)).result, -8);
    });

    it('asks for the size of the data again, and answers -11 where that is none or too much', () => {
      for (const second of [0, -1, 3 * width * height + 1, 2147483647]) {
        const script = `answer ~frame_data_size ${whole.length} ${second}`;
        assert.equal(grab(whole, script).result, -11);
      }
      assert.equal(grab(whole, `answer ~frame_data_size ${whole.length} ${3 * width * height}`).result, 0);
    });

    it('answers the size of the data as room where a JPEG is longer than its picture', () => {
      const long = Buffer.concat([whole, Buffer.alloc(10_000)]);
      assert.equal(grab(long).result, 0);
      assert.deepEqual(callList().filter((call) => call.startsWith('grab')), [`grab_frame(0,ptr,${long.length})`]);
    });
  });
});

describe('cameraGrabFrame of AVFoundation', () => {
  const shape = { width: 6, height: 4 };
  const answer = (result) => ({ ...shape, bytesPerRow: 18, pixelFormat: 'rgb', result });

  for (const format of [...Object.values(pixelFormats), 99]) {
    it(`takes BGRA as it is, whatever the format is called (${format})`, () => {
      become(avf, { frame: { ...shape, bytesPerRow: 99, pixelFormat: format }, script: 'answer ~grab_bgra 1 0' });
      const bytes = rampFrame(3, 96);
      setGrabBytes(bytes);
      const values = { ...shape, bytesPerRow: 24, pixelFormat: 'bgra' };
      assert.ok(assertGrab(addon.cameraGrabFrame(0), { ...values, result: 0 }).equals(bytes));
      assertGrab(addon.cameraGrabFrame(0), { ...values, result: -8 });
      assert.deepEqual(callList().filter((call) => call.startsWith('grab')), Array(2).fill('grab_bgra(0,ptr,96)'));
    });
  }

  for (const [what, row, without, stride] of [
    ['tight rows', 18, [], 18],
    ['longer rows', 23, [], 23],
    ['rows told too short', 5, [], 18],
    ['rows that it does not tell', 0, ['frame_bytes_per_row'], 18],
  ]) {
    it(`takes RGB without that entry, of ${what}`, () => {
      become(avf, {
        without: ['grab_bgra', ...without], frame: { ...shape, bytesPerRow: row }, script: 'default ~grab_rgb 1',
      });
      const bytes = rampFrame(4, stride * 4);
      setGrabBytes(bytes);
      const data = assertGrab(addon.cameraGrabFrame(0), answer(0));
      const rows = [0, 1, 2, 3].map((y) => bytes.subarray(y * stride, y * stride + 18));
      assert.ok(data.equals(Buffer.concat(rows)));
      assert.deepEqual(callList().filter((call) => call.startsWith('grab')), [`grab_rgb(0,ptr,${stride * 4})`]);
    });
  }

  it('answers -8 for a grab that failed, and -6 without either entry', () => {
    become(avf, { without: ['grab_bgra'], frame: shape });
    assertGrab(addon.cameraGrabFrame(0), answer(-8));
    become(avf, { without: ['grab_bgra', 'grab_rgb'], frame: shape });
    assertGrab(addon.cameraGrabFrame(0), answer(-6));
  });

  it('answers -10 for an unknown size, and asks for no frame', () => {
    for (const frame of [{ width: 0, height: 4 }, { width: 6, height: -1 }]) {
      become(avf, { frame });
      const { result, data } = addon.cameraGrabFrame(0);
      assert.deepEqual([result, data], [-10, null]);
      assert.deepEqual(callList().filter((call) => call.startsWith('grab')), []);
    }
  });

  it('answers -11 where rows beyond int32 are told', () => {
    become(avf, { without: ['grab_bgra'], frame: { ...shape, bytesPerRow: 2147483647 }, script: 'default ~grab_rgb 1' });
    assert.equal(addon.cameraGrabFrame(0).result, -11);
  });
});

describe('cameraGrabFrameRgba', () => {
  const answerKeys = [...sourceKeys, 'width', 'height', 'bytesPerRow', 'data', 'timestampMs'];
  const shape = { width: 50, height: 30 };
  const frames = [
    [dshow, 'BGRA', bgra, { ...shape, bytesPerRow: 210, dataSize: 6300 }],
    [dshow, 'YUY2', yuy2, { ...shape, bytesPerRow: 100, dataSize: 3000 }],
    [dshow, 'NV12', nv12, { ...shape, bytesPerRow: 50, dataSize: 2250, planes: [[0, 50], [1500, 50]] }],
    [avf, 'RGB of longer rows', bgra, { ...shape, bytesPerRow: 170 }],
  ];
  for (const [kind, what, format, frame] of frames) {
    it(`of ${kind} reduces ${what}`, () => {
      become(kind, { frame: { ...frame, pixelFormat: format }, script: kind === avf ? 'default ~grab_rgb 1' : '' });
      const bytes = rampFrame(5, frame.bytesPerRow * (format === nv12 ? 45 : 30));
      setGrabBytes(bytes);
      const tight = kind === dshow ? toRgb(bytes, format, frame)
        : Buffer.concat(Array.from({ length: 30 }, (_, y) => bytes.subarray(y * 170, y * 170 + 150)));
      for (const [limits, step] of [[[20, 20], 3], [[], 1], [[0, 540], 50]]) {
        const answer = addon.cameraGrabFrameRgba(0, ...limits);
        assert.deepEqual(Object.keys(answer), answerKeys);
        const { data, timestampMs, ...rest } = answer;
        const width = Math.max(Math.trunc(50 / step), 1);
        assert.deepEqual(rest, {
          sourceWidth: 50, sourceHeight: 30, sourceBytesPerRow: 150, result: 0, width,
          height: Math.max(Math.trunc(30 / step), 1), bytesPerRow: 4 * width,
        });
        assert.ok(Number.isInteger(timestampMs));
        assert.ok(data.equals(reduceToRgba(tight, { ...shape, step })));
      }
    });
  }

  it('of AVFoundation never asks for BGRA', () => {
    become(avf, { frame: shape, script: 'default ~grab_rgb 1\ndefault ~grab_bgra 1' });
    assert.equal(addon.cameraGrabFrameRgba(0).result, 0);
    assert.deepEqual(callList().filter((call) => call.startsWith('grab')), ['grab_rgb(0,ptr,4500)']);
  });

  for (const [kind, what, result, options] of [
    [dshow, 'an unknown size', -10, { frame: { width: 0, height: 3 } }],
    [avf, 'an unknown size', -10, { frame: { width: 3, height: 0 } }],
    [dshow, 'an entry that is missing', -6, { frame: shape, without: ['grab_frame'] }],
    [avf, 'an entry that is missing', -6, { frame: shape, without: ['grab_rgb'] }],
    [dshow, 'a layout that is not converted', -13, { frame: { ...shape, bytesPerRow: 100, pixelFormat: uyvy } }],
    [dshow, 'a grab that failed', -99, { frame: shape, script: 'default ~grab_frame -99' }],
    [avf, 'a grab that failed', -8, { frame: shape }],
    [dshow, 'a frame beyond int32', -11, { frame: { width: 30_000, height: 30_000 } }],
  ]) {
    it(`of ${kind} answers ${result} for ${what}, without a picture`, () => {
      become(kind, options);
      const answer = addon.cameraGrabFrameRgba(0);
      assert.deepEqual(Object.keys(answer), [...sourceKeys, 'data']);
      assert.deepEqual([answer.result, answer.data], [result, null]);
    });
  }
});

// Recordings of direct previews in every layout: what is in the file is what the backend sent.

import assert from 'node:assert/strict';
import path from 'node:path';
import { afterEach, before, describe, it } from 'node:test';

import { firedFrame, frameOf, kinds, lendArrays, openDirectBackend, pixelFormats, subsamplings } from './support/direct-backend.js';
import { decodeYuv, decodingComplaints, probe, topBoxes } from './support/media.js';
import { makeTemporaryDirectory } from './support/temporary.js';
import { until } from './support/waiting.js';

const { addon, become, decodeJpeg, encodeJpeg, fire } = openDirectBackend();
const [dshow, avf] = Object.keys(kinds);
const directory = makeTemporaryDirectory();
const [width, height] = [128, 96];
const frameCount = 8;
const frameMs = 40;
const timestampOf = (number) => 1_700_000_000_000_000_000n + BigInt(number * frameMs) * 1_000_000n;

afterEach(() => {
  addon.cameraRecordingStop();
  addon.cameraPreviewStop();
  become('none');
});

const quadrant = (x, y) => (x < width / 2 ? 0 : 1) + (y < height / 2 ? 0 : 2);

/** The brightness and colours of the quadrants of a frame, as [Y, U, V]. */
const yuvOf = (number) => [[40, 100, 150], [80, 150, 100], [120, 128, 128], [160, 90, 90]].map(([y, u, v]) => [y + 8 * number, u, v]);

/** The colours of the quadrants of a frame, as [R, G, B]. */
const rgbOf = (number) => [[200, 40, 40], [40, 200, 40], [40, 40, 200], [60, 60, 60]].map((rgb) => rgb.map((c) => c + 6 * number));

/** What the conversion to the encoder's format makes of a colour. */
const toYuv = ([r, g, b]) => [((47 * r + 157 * g + 16 * b + 128) >> 8) + 16, ((-26 * r - 87 * g + 112 * b + 128) >> 8) + 128,
  ((112 * r - 102 * g - 10 * b + 128) >> 8) + 128];

/** The bytes of a frame of `frame`'s layout whose quadrants have these colours. */
function paint({ bytesPerRow, dataSize, pixelFormat, planes }, colours) {
  const out = Buffer.alloc(dataSize, 0xee);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      const colour = colours[quadrant(x, y)];
      const row = y * bytesPerRow;
      if (pixelFormat === pixelFormats.bgra) {
        out.set([colour[2], colour[1], colour[0], 0], row + 4 * x);
      } else if (pixelFormat === pixelFormats.nv12) {
        out[row + x] = colour[0];
        if (x % 2 === 0 && y % 2 === 0) {
          out.set(colour.slice(1), planes[1][0] + (y / 2) * planes[1][1] + x);
        }
      } else {
        const [first, second] = pixelFormat === pixelFormats.yuy2 ? [0, 1] : [1, 0];
        out[row + 2 * x + first] = colour[0];
        out[row + 2 * x + second] = colour[1 + (x % 2)];
      }
    }
  }
  return out;
}

const flip = (bytes, row) => Buffer.concat(Array.from({ length: height }, (_, y) =>
  bytes.subarray((height - 1 - y) * row, (height - y) * row)));

/** Lets script code give every slot back, as one that paints each frame does. */
function giveBack() {
  const { result, directSlot, sequence } = addon.cameraPreviewGetLatest(0);
  if (result === 0) {
    addon.cameraPreviewReleaseDirectSlot(0, directSlot, sequence);
  }
}

/** Records the frames that `shoot(number)` fires; gives what ffprobe says and the pictures. */
async function record(name, shoot) {
  const file = path.join(directory, `${name}.mp4`);
  assert.equal(addon.cameraRecordingStart(file, width, height, 25, 4_000_000), 0, addon.getLastError());
  for (let number = 0; number < frameCount; number += 1) {
    shoot(number);
    // The recorder holds each frame back until the next one is there.
    await until(`frame ${number}`, () => {
      giveBack();
      return addon.cameraPreviewGetLatest(0, 1e9).producedFrames > number &&
        addon.cameraRecordingStatus().framesWritten >= number;
    });
  }
  assert.equal(addon.cameraRecordingStop(), 0, addon.getLastError());
  const { framesWritten, framesDropped, error } = addon.cameraRecordingStatus();
  assert.deepEqual({ framesWritten, framesDropped, error }, { framesWritten: frameCount, framesDropped: 0, error: '' });
  assert.deepEqual(topBoxes(file), ['ftyp', 'moov', 'free', 'mdat']);
  assert.equal(decodingComplaints(file), '');
  const { stream, packets } = probe(file);
  assert.deepEqual([stream.codec_name, stream.width, stream.height, packets.length], ['h264', width, height, frameCount]);
  return { packets, pixels: decodeYuv(file) };
}

const sampleSize = (width * height * 3) / 2;

/** Asserts that the middles of the quadrants of each picture have the colours of `expected(number)`. */
function assertPictures(pixels, expected) {
  assert.equal(pixels.length, frameCount * sampleSize);
  for (let number = 0; number < frameCount; number += 1) {
    const picture = pixels.subarray(number * sampleSize, (number + 1) * sampleSize);
    for (const [index, colour] of expected(number).entries()) {
      const [x, y] = [(index % 2 ? 3 : 1) * (width / 4), (index > 1 ? 3 : 1) * (height / 4)];
      const chroma = width * height + (y / 2) * (width / 2) + x / 2;
      const found = [picture[y * width + x], picture[chroma], picture[chroma + (width * height) / 4]];
      found.forEach((value, part) => assert.ok(Math.abs(value - colour[part]) <= 4,
        `picture ${number}, quadrant ${index}: ${found} instead of ${colour}`));
    }
  }
}

function assertRisingTimes(packets) {
  packets.slice(1).forEach(({ pts }, index) => assert.ok(pts > packets[index].pts));
}

function begin(kind, frame, size) {
  become(kind, { frame });
  assert.equal(addon.cameraPreviewStart(0, width, height, 30, lendArrays(size)), 0);
}

describe('a recording of a direct preview', () => {
  for (const layout of ['bgra', 'nv12', 'yuy2', 'uyvy']) {
    const colours = layout === 'bgra' ? rgbOf : yuvOf;
    const expected = layout === 'bgra' ? (number) => rgbOf(number).map(toYuv) : yuvOf;
    for (const pad of [0, 10]) {
      const rows = pad > 0 ? 'long' : 'tight';
      const frame = frameOf(layout, width, height, pad);

      it(`of DirectShow in ${layout} with ${rows} rows shows its frames`, async () => {
        begin(dshow, frame, frame.dataSize);
        const { packets, pixels } = await record(`dshow-${layout}-${pad}`, (number) =>
          fire({ data: paint(frame, colours(number)) }));
        assertPictures(pixels, expected);
        assertRisingTimes(packets);
      });

      it(`of AVFoundation in ${layout} with ${rows} rows shows its frames, at their times`, async () => {
        begin(avf, frame, frame.dataSize);
        const { packets, pixels } = await record(`avf-${layout}-${pad}`, (number) =>
          fire(firedFrame(avf, frame, paint(frame, colours(number)), { timestamp: timestampOf(number) })));
        assertPictures(pixels, expected);
        packets.forEach(({ pts }, index) => assert.ok(Math.abs(pts - (index * frameMs) / 1000) < 0.0005, `${index} at ${pts}`));
      });
    }

    it(`of DirectShow in ${layout}, bottom up, shows its frames upright`, async () => {
      const frame = frameOf(layout, width, height, 6);
      const luma = frame.bytesPerRow * height;
      begin(dshow, frame, frame.dataSize);
      const { pixels } = await record(`flipped-${layout}`, (number) => {
        const painted = paint(frame, colours(number));
        const planes = [painted.subarray(0, luma), painted.subarray(luma)].map((plane) => flip(plane, frame.bytesPerRow));
        fire({ data: Buffer.concat(planes), flipped: 1 });
      });
      assertPictures(pixels, expected);
    });
  }

  describe('of a JPEG camera', () => {
    before(() => assert.equal(addon.loadTurboJpeg('libturbojpeg.so.0'), true));
    for (const kind of [dshow, avf]) {
      for (const name of ['4:2:0', '4:4:4', '4:2:2', 'grey']) {
        it(`by ${kind} in ${name} shows its frames`, async () => {
          begin(kind, { width, height, pixelFormat: pixelFormats.mjpeg }, sampleSize);
          const jpegs = Array.from({ length: frameCount }, (_, number) => {
            const bgra = paint(frameOf('bgra', width, height), rgbOf(number));
            const rgb = Buffer.from(Array.from({ length: width * height }, (_each, index) =>
              [bgra[4 * index + 2], bgra[4 * index + 1], bgra[4 * index]]).flat());
            return encodeJpeg(rgb, width, height, subsamplings[name]);
          });
          const { packets, pixels } = await record(`jpeg-${kind}-${name.replaceAll(':', '')}`, (number) =>
            fire({ data: jpegs[number], width, height, format: pixelFormats.mjpeg }));
          // The middles of the quadrants of the JPEG itself.
          assertPictures(pixels, (number) => [0, 1, 2, 3].map((index) => {
            const { planes } = decodeJpeg(jpegs[number]);
            return [0, 1, 2].map((part) => {
              const plane = planes[part];
              const [x, y] = [(index % 2 ? 0.75 : 0.25), (index > 1 ? 0.75 : 0.25)];
              return plane ? plane.data[Math.trunc(y * plane.height) * plane.width + Math.trunc(x * plane.width)] : 128;
            });
          }));
          assertRisingTimes(packets);
        });
      }
    }
  });

  it('holds nothing of frames of another size, and counts none', async () => {
    const frame = frameOf('bgra', width, height);
    begin(avf, frame, frame.dataSize);
    const other = frameOf('bgra', width - 2, height);
    const { pixels } = await record('other-size', (number) => {
      const shoot = (shape) =>
        fire(firedFrame(avf, shape, Buffer.alloc(shape.dataSize, 20 * number + 40), { timestamp: timestampOf(number) }));
      if (number === 4) {
        giveBack();
        // It takes part in the preview, and is counted there alone.
        const before = addon.cameraRecordingStatus();
        shoot(other);
        assert.equal(addon.cameraPreviewGetLatest(0).width, width - 2);
        addon.cameraPreviewReleaseAllDirectSlots(0);
        const { framesWritten, framesDropped } = addon.cameraRecordingStatus();
        assert.deepEqual([framesWritten, framesDropped], [before.framesWritten, before.framesDropped]);
      }
      shoot(frame);
    });
    assert.equal(pixels.length, frameCount * sampleSize);
  });
});

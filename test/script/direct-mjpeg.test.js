// Direct previews of JPEG cameras: every subsampling, sizes and data that do not fit, and frames
// that come faster than they are decoded.

import assert from 'node:assert/strict';
import { before, describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { kinds, lendArrays, pixelFormats, subsamplings } from './support/direct-backend.js';
import { assertData, device, useDirectPreview } from './support/direct-preview.js';
import { testingAddonPath } from './support/environment.js';
import { rampFrame } from './support/fake-camera.js';
import { until } from './support/waiting.js';

const { addon, begin: start, decodeJpeg, encodeJpeg, fire, take } = useDirectPreview();
const [dshow, avf] = Object.keys(kinds);
const [width, height] = [48, 34];
const size = (width * height * 3) / 2;
const frame = { width, height, pixelFormat: pixelFormats.mjpeg };
const none = { result: -256, data: null };

before(() => assert.equal(addon.loadTurboJpeg('libturbojpeg.so.0'), true));

/** A coloured picture with detail, different for each `seed`. */
const picture = (seed, pictureWidth = width, pictureHeight = height) =>
  Buffer.from(Array.from({ length: pictureWidth * pictureHeight }, (_, index) => {
    const [x, y] = [index % pictureWidth, Math.trunc(index / pictureWidth)];
    return [x * 5 + seed, 255 - y * 7, (x * y + seed * 31) % 256];
  }).flat().map((value) => value & 255));

const jpegOf = (seed, subsampling = '4:2:0', ...sizes) =>
  encodeJpeg(picture(seed, ...sizes), ...(sizes.length > 0 ? sizes : [width, height]), subsamplings[subsampling]);

/** A plane reduced or enlarged by area averages, rounded to nearest. */
function resample({ width: fromWidth, height: fromHeight, data }, toWidth, toHeight) {
  const out = Buffer.alloc(toWidth * toHeight);
  const span = (index, from, to) => {
    const first = Math.trunc((index * from) / to);
    const end = Math.trunc(((index + 1) * from) / to);
    return [first, end > first ? end : Math.min(first + 1, from)];
  };
  for (let y = 0; y < toHeight; y += 1) {
    const [y0, y1] = span(y, fromHeight, toHeight);
    for (let x = 0; x < toWidth; x += 1) {
      const [x0, x1] = span(x, fromWidth, toWidth);
      let sum = 0;
      for (let row = y0; row < y1; row += 1) {
        for (let column = x0; column < x1; column += 1) {
          sum += data[row * fromWidth + column];
        }
      }
      const count = (y1 - y0) * (x1 - x0);
      out[y * toWidth + x] = Math.trunc((sum + Math.trunc(count / 2)) / Math.max(count, 1));
    }
  }
  return out;
}

/** The JPEG as I420, from its own planes. */
function toI420(jpeg) {
  const { width: w, height: h, planes: [luma, ...chroma] } = decodeJpeg(jpeg);
  const planes = chroma.length > 0 ? chroma.map((plane) => resample(plane, w / 2, h / 2)) : [Buffer.alloc((w * h) / 2, 128)];
  return Buffer.concat([luma.data, ...planes]);
}

/** What a backend of `kind` hands over for a JPEG. */
const fired = (kind, data) => (kind === dshow ? { data } : { data, width: 1, height: 1, format: pixelFormats.mjpeg });

const begin = (kind = dshow) => start(kind, frame, { arrays: lendArrays(size, 7) });
const nextFrame = (sequence = 0) => until('a decoded frame', () => {
  const answer = take(sequence);
  return answer.result === 0 && answer;
});
const untilCounted = (what, test) => until(what, () => {
  const answer = take(Number.MAX_VALUE);
  return test(answer) && answer;
});

for (const kind of [dshow, avf]) {
  describe(`a JPEG frame of ${kind}`, () => {
    for (const name of Object.keys(subsamplings)) {
      it(`of ${name} is decoded to I420 in a lent array, and kept as it came`, async () => {
        const arrays = begin(kind);
        assert.deepEqual(addon.cameraGrabEncodedFrame(device), none);
        const jpeg = jpegOf(1, name);
        const started = Date.now();
        assert.equal(fire(fired(kind, jpeg)), true);
        const { data, timestampMs, ...rest } = await nextFrame();
        assert.deepEqual(rest, {
          result: 0, sequence: 1, width, height, bytesPerRow: width, dataLength: size, pixelFormat: 'i420',
          planeOffsets: [0, width * height, (width * height * 5) / 4], planeStrides: [width, width / 2, width / 2],
          sourceWidth: width, sourceHeight: height, sourceBytesPerRow: 0, droppedFrames: 0, producerFps: 0,
          producerMode: 'callback', deliveryMode: 'copy', producedFrames: 1, lastResult: 0, directSlot: 0,
        });
        assert.ok(timestampMs >= started && timestampMs <= Date.now());
        assertData(data, arrays[0], toI420(jpeg));
        const memory = new Uint8Array(arrays[0].buffer);
        assert.ok(memory.subarray(0, data.byteOffset).every((byte) => byte === 7));
        assert.ok(memory.subarray(data.byteOffset + size).every((byte) => byte === 7));

        const encoded = await until('the encoded frame', () => {
          const answer = addon.cameraGrabEncodedFrame(device);
          return answer.result === 0 && answer;
        });
        assert.deepEqual(Object.keys(encoded), ['result', 'sequence', 'width', 'height', 'mimeType', 'timestampMs', 'data']);
        assert.deepEqual({ ...encoded, data: undefined },
          { result: 0, sequence: 1, width, height, mimeType: 'image/jpeg', timestampMs, data: undefined });
        assert.ok(Buffer.isBuffer(encoded.data) && encoded.data.equals(jpeg));
      });
    }
  });
}

describe('the still of a JPEG preview', () => {
  it('is the frame at its full size, in RGB, with the time of the frame', async () => {
    begin();
    const flat = encodeJpeg(Buffer.alloc(width * height * 3, Buffer.of(200, 60, 90)), width, height, subsamplings['4:4:4']);
    fire({ data: flat });
    const { timestampMs } = await nextFrame();
    const still = await until('a still', () => {
      const answer = addon.cameraPreviewGetLatestQualityFrame(device, 0);
      return answer.result === 0 && answer;
    });
    assert.deepEqual({ ...still, data: undefined }, {
      result: 0, sequence: 1, width, height, bytesPerRow: 3 * width, pixelFormat: 'rgb', timestampMs, data: undefined,
    });
    assert.equal(still.data.length, width * height * 3);
    still.data.forEach((byte, index) => assert.ok(Math.abs(byte - [200, 60, 90][index % 3]) <= 3));
  });
});

describe('JPEG data that cannot be shown', () => {
  const whole = jpegOf(2);
  for (const kind of [dshow, avf]) {
    it(`is dropped at once with -8 where it does not begin as a JPEG, and reaches nobody, by ${kind}`, () => {
      const arrays = begin(kind);
      const others = [Buffer.of(0xff), Buffer.of(0xff, 0xd8), Buffer.of(0xff, 0xd8, 0xff), Buffer.of(0, 0, 0, 0),
        Buffer.of(0xff, 0xd9, 0xff, 0xd8), Buffer.of(0xd8, 0xff, 0xd8, 0xff), whole.subarray(1), rampFrame(1, 5000)];
      others.forEach((data, index) => {
        fire(fired(kind, data));
        const { droppedFrames, lastResult, producedFrames } = take();
        assert.deepEqual([droppedFrames, lastResult, producedFrames], [index + 1, -8, 0]);
      });
      assert.deepEqual(addon.cameraGrabEncodedFrame(device), none);
      assert.ok(arrays.every((array) => array.every((byte) => byte === 7)));
    });
  }

  for (const [what, data] of [
    ['is wider', jpegOf(1, '4:2:0', width + 2, height)],
    ['is higher', jpegOf(1, '4:4:4', width, height + 2)],
    ['is narrower', jpegOf(1, '4:2:0', width - 2, height)],
    ['is turned', jpegOf(1, '4:2:2', height, width)],
    ['has an odd width', jpegOf(1, '4:2:0', width - 1, height)],
    ['has an odd height', jpegOf(1, 'grey', width, height - 1)],
    ['is giant', jpegOf(1, '4:2:0', 3000, 3000)],
    ['has no picture', Buffer.of(0xff, 0xd8, 0xff, 0xd9)],
    ['ends in its header', whole.subarray(0, 100)],
    ['goes on with noise', Buffer.concat([Buffer.of(0xff, 0xd8), rampFrame(3, 4000)])],
  ]) {
    it(`is dropped with -8 where it ${what}, and the next frame is shown`, async () => {
      const arrays = begin();
      fire({ data });
      const { lastResult, producedFrames } = await untilCounted('a dropped frame', ({ droppedFrames }) => droppedFrames === 1);
      assert.deepEqual([lastResult, producedFrames], [-8, 0]);
      assert.ok(arrays.every((array) => array.every((byte) => byte === 7)));
      assert.deepEqual(addon.cameraGrabEncodedFrame(device), none);
      fire({ data: whole });
      const { data: shown, lastResult: result, directSlot } = await nextFrame();
      assert.deepEqual([result, directSlot], [0, 0]);
      assert.ok(toI420(whole).equals(shown));
      const { sequence } = await until('the encoded frame', () => {
        const answer = addon.cameraGrabEncodedFrame(device);
        return answer.result === 0 && answer;
      });
      // JPEGs are counted as they come, frames as they are shown.
      assert.equal(sequence, 2);
    });
  }

  it('that is cut off or corrupted anywhere is shown or dropped, and holds no slot', async () => {
    begin();
    let shown = 0;
    let lost = 0;
    for (const subsampling of ['4:2:0', '4:4:4', 'grey']) {
      const jpeg = jpegOf(3, subsampling);
      for (let cut = 50; cut < jpeg.length; cut += 97) {
        for (const data of [jpeg.subarray(0, cut), Buffer.concat([jpeg.subarray(0, cut), Buffer.alloc(40, 0xff), jpeg.subarray(cut + 40)])]) {
          fire({ data });
          const { droppedFrames, producedFrames } = await untilCounted('one frame more',
            (answer) => answer.droppedFrames + answer.producedFrames === shown + lost + 1);
          [shown, lost] = [producedFrames, droppedFrames];
          addon.cameraPreviewReleaseAllDirectSlots(device);
        }
      }
    }
    assert.ok(lost > 20, `${lost} lost, ${shown} shown`);
    fire({ data: whole });
    assert.ok(toI420(whole).equals((await nextFrame()).data));
  });
});

describe('slots that are all taken', () => {
  it('lose the decoded frame without a code, and give later ones a place again', async () => {
    begin();
    for (let number = 1; number <= 3; number += 1) {
      fire({ data: jpegOf(number) });
      await nextFrame(number - 1);
    }
    fire({ data: jpegOf(4) });
    const { lastResult, producedFrames } = await untilCounted('a dropped frame', ({ droppedFrames }) => droppedFrames === 1);
    assert.deepEqual([lastResult, producedFrames], [0, 3]);
    // The frame that was lost is not what was decoded last.
    assert.equal(addon.cameraGrabEncodedFrame(device).sequence, 3);
    assert.equal(addon.cameraPreviewReleaseDirectSlot(device, 1, 2), 0);
    fire({ data: jpegOf(5) });
    const { sequence, directSlot, data } = await nextFrame(3);
    assert.deepEqual([sequence, directSlot], [4, 1]);
    assert.ok(toI420(jpegOf(5)).equals(data));
    const { sequence: encoded } = await until('the encoded frame', () => {
      const answer = addon.cameraGrabEncodedFrame(device);
      return answer.sequence === 5 && answer;
    });
    assert.equal(encoded, 5);
  });
});

describe('the encoded frame', () => {
  it('is of this device alone, and gone with the preview', async () => {
    begin();
    fire({ data: jpegOf(1) });
    await nextFrame();
    await until('the encoded frame', () => addon.cameraGrabEncodedFrame(device).result === 0);
    for (const other of [1, -1, undefined, '0']) {
      assert.deepEqual(addon.cameraGrabEncodedFrame(other), none);
    }
    addon.cameraPreviewStop();
    assert.deepEqual(addon.cameraGrabEncodedFrame(device), none);
    begin();
    assert.deepEqual(addon.cameraGrabEncodedFrame(device), none);
  });

  it('is a copy', async () => {
    begin();
    const jpeg = jpegOf(1);
    fire({ data: jpeg });
    const { data } = await until('the encoded frame', () => {
      const answer = addon.cameraGrabEncodedFrame(device);
      return answer.result === 0 && answer;
    });
    data.fill(0);
    assert.ok(addon.cameraGrabEncodedFrame(device).data.equals(jpeg));
  });
});

describe('with a JPEG library under the test\'s control', () => {
  const env = { OSTREL_TEST_ADDON: testingAddonPath };

  /** A preview whose decoder is the fake; runs `body(tools, ...args)` in a child. */
  const withFakeDecoder = (body, args = []) => valueFromChild(async (context, text, rest) => {
    const { addon: child, openDirectBackend: open, lendArrays: lend, fakePath, openFake, until: wait } = context;
    const backend = open();
    const library = fakePath('libturbojpeg.so');
    const decoder = openFake(library);
    child.loadTurboJpeg(library);
    const begin = (script = '') => {
      decoder.send(`reset\ndefault tjDecompressHeader3.width 8\ndefault tjDecompressHeader3.height 6\n` +
        `default tjDecompressHeader3.subsampling 2\ndefault tjDecompressToYUVPlanes.y 1\n${script}`);
      backend.become('directshow', { frame: { width: 8, height: 6, pixelFormat: 4 } });
      return child.cameraPreviewStart(0, 8, 6, 30, lend(72));
    };
    const jpeg = (number) => Uint8Array.of(0xff, 0xd8, number, number);
    const counted = (test) => wait('the counters', () => {
      const answer = child.cameraPreviewGetLatest(0, Number.MAX_VALUE);
      return test(answer) && answer;
    });
    const body = new Function(`return (${text})`)();
    return body({ addon: child, backend, decoder, begin, jpeg, counted, until: wait }, ...rest);
  }, { args: [body.toString(), args], env });

  it('frames that come while one is decoded replace each other, and only the newest is decoded', async () => {
    const result = await withFakeDecoder(async ({ addon: child, backend, decoder, begin, jpeg, counted, until: wait }) => {
      begin('block tjDecompressToYUVPlanes');
      backend.fire({ data: jpeg(1) });
      decoder.send('wait_entered tjDecompressToYUVPlanes 1');
      const counts = [2, 3, 4, 5].map((number) => {
        backend.fire({ data: jpeg(number) });
        return child.cameraPreviewGetLatest(0).droppedFrames;
      });
      const before = child.cameraGrabEncodedFrame(0).result;
      decoder.send('release tjDecompressToYUVPlanes');
      const { droppedFrames, lastResult } = await counted(({ producedFrames }) => producedFrames === 2);
      const encoded = await wait('the newest', () => {
        const answer = child.cameraGrabEncodedFrame(0);
        return answer.sequence === 5 && answer;
      });
      return { counts, before, droppedFrames, lastResult, data: [...encoded.data] };
    });
    assert.deepEqual(result,
      { counts: [0, 1, 2, 3], before: -256, droppedFrames: 3, lastResult: 0, data: [0xff, 0xd8, 5, 5] });
  });

  it('a decoder that cannot be made ends the worker with -13, and the preview stays', async () => {
    const result = await withFakeDecoder(async ({ addon: child, backend, begin, jpeg, counted }) => {
      const started = begin('answer tjInitDecompress 0');
      await counted(({ lastResult }) => lastResult === -13);
      backend.fire({ data: jpeg(1) });
      backend.fire({ data: jpeg(2) });
      const { droppedFrames, producedFrames } = child.cameraPreviewGetLatest(0);
      const running = child.cameraPreviewIsRunning();
      child.cameraPreviewStop();
      return { started, running, droppedFrames, producedFrames };
    });
    assert.deepEqual(result, { started: 0, running: true, droppedFrames: 1, producedFrames: 0 });
  });

  it('frames of other sizes cost themselves and make no new decoder', async () => {
    const result = await withFakeDecoder(async ({ backend, begin, decoder, jpeg, counted }) => {
      begin();
      const drops = [];
      for (const [number, width] of [10, 12, 14].entries()) {
        decoder.send(`default tjDecompressHeader3.width ${width}`);
        backend.fire({ data: jpeg(number) });
        const { lastResult } = await counted(({ droppedFrames }) => droppedFrames === number + 1);
        drops.push(lastResult);
      }
      decoder.send('default tjDecompressHeader3.width 8');
      backend.fire({ data: jpeg(4) });
      const { lastResult } = await counted(({ producedFrames }) => producedFrames === 1);
      return [drops, lastResult, decoder.entered('tjInitDecompress'), decoder.entered('tjDestroy')];
    });
    assert.deepEqual(result, [[-8, -8, -8], 0, 1, 0]);
  });

  it('a refused header costs its frame and makes a new decoder', async () => {
    const result = await withFakeDecoder(async ({ backend, begin, decoder, jpeg, counted }) => {
      begin('answer tjDecompressHeader3 -1 0');
      backend.fire({ data: jpeg(1) });
      const { lastResult } = await counted(({ droppedFrames }) => droppedFrames === 1);
      backend.fire({ data: jpeg(2) });
      await counted(({ producedFrames }) => producedFrames === 1);
      return [lastResult, decoder.entered('tjInitDecompress'), decoder.entered('tjDestroy')];
    });
    assert.deepEqual(result, [-8, 2, 1]);
  });

  it('a new decoder that cannot be made leaves the preview going with the old one', async () => {
    const result = await withFakeDecoder(async ({ addon: child, backend, begin, decoder, jpeg, counted }) => {
      begin('answer tjInitDecompress 1 0 0 1\nanswer tjDecompressHeader3 -1 -1 0');
      const drops = [];
      for (const number of [1, 2]) {
        backend.fire({ data: jpeg(number) });
        const { lastResult } = await counted(({ droppedFrames }) => droppedFrames === number);
        drops.push(lastResult);
      }
      backend.fire({ data: jpeg(3) });
      const { droppedFrames, lastResult } = await counted(({ producedFrames }) => producedFrames === 1);
      const made = [decoder.entered('tjInitDecompress'), decoder.entered('tjDestroy')];
      child.cameraPreviewStop();
      return { drops, droppedFrames, lastResult, made, destroyed: decoder.entered('tjDestroy') };
    });
    assert.deepEqual(result, { drops: [-8, -8], droppedFrames: 2, lastResult: 0, made: [3, 0], destroyed: 1 });
  });

  it('a frame that fails to decode gives its slot back', async () => {
    const result = await withFakeDecoder(async ({ backend, begin, jpeg, counted }) => {
      begin('answer tjDecompressToYUVPlanes -1 -1 -1 -1 -1 0');
      const results = [];
      for (let number = 1; number <= 5; number += 1) {
        backend.fire({ data: jpeg(number) });
        const { lastResult } = await counted(({ droppedFrames }) => droppedFrames === number);
        results.push(lastResult);
      }
      backend.fire({ data: jpeg(6) });
      const { droppedFrames, lastResult } = await counted(({ producedFrames }) => producedFrames === 1);
      return [...results, droppedFrames, lastResult];
    });
    assert.deepEqual(result, [-8, -8, -8, -8, -8, 5, 0]);
  });

  it('a still that fails to decode counts for nothing, and the next frame tries again', async () => {
    const result = await withFakeDecoder(async ({ addon: child, backend, begin, decoder, jpeg, counted, until: wait }) => {
      begin('answer tjDecompress2 -1 0\ndefault tjDecompress2.byte 9');
      backend.fire({ data: jpeg(1) });
      await counted(({ producedFrames }) => producedFrames === 1);
      await wait('the encoded frame', () => child.cameraGrabEncodedFrame(0).result === 0);
      const first = child.cameraPreviewGetLatestQualityFrame(0, 0);
      child.cameraPreviewReleaseAllDirectSlots(0);
      backend.fire({ data: jpeg(2) });
      const { sequence } = await wait('a still', () => {
        const answer = child.cameraPreviewGetLatestQualityFrame(0, 0);
        return answer.result === 0 && answer;
      });
      const { droppedFrames } = child.cameraPreviewGetLatest(0, 5);
      return [first, sequence, droppedFrames, decoder.entered('tjDecompress2')];
    });
    assert.deepEqual(result, [{ result: -256, sequence: 0, data: null }, 1, 0, 2]);
  });

  it('each preview has a decoder of its own, destroyed at its end', async () => {
    const result = await withFakeDecoder(({ addon: child, begin, decoder }) => {
      begin();
      decoder.send('wait_finished tjInitDecompress 1');
      child.cameraPreviewStop();
      return decoder.calls().map(({ symbol }) => symbol);
    });
    assert.deepEqual(result, ['tjInitDecompress', 'tjDestroy']);
  });

  it('a stop waits for the frame in work, and ends a worker that waits for one at once', async () => {
    const result = await withFakeDecoder(async ({ addon: child, backend, begin, decoder, jpeg }) => {
      begin('delay tjDecompressToYUVPlanes 100');
      backend.fire({ data: jpeg(1) });
      decoder.send('wait_entered tjDecompressToYUVPlanes 1');
      child.cameraPreviewStop();
      const finished = decoder.send('stats tjDecompressToYUVPlanes');
      return [/finished=1/.test(finished), child.cameraPreviewIsRunning()];
    });
    assert.deepEqual(result, [true, false]);
  });
});

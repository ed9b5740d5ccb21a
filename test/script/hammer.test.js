// Polling as fast as script can, while the worker makes frames as fast as it may: the content of
// every frame proves that it is whole. OSTREL_TEST_HAMMER_SECONDS sets how long each case takes.

import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';

import { loadAddon } from './support/environment.js';
import { openFakeCamera } from './support/fake-camera.js';
import { sleep } from './support/waiting.js';

const addon = loadAddon();
const milliseconds = Number(process.env.OSTREL_TEST_HAMMER_SECONDS ?? 2) * 1000;
// Only a failure hammers for as long as this beyond that.
const longestMs = 60_000;
const [width, height] = [320, 240];
const size = width * height * 4;

/** The number that all pixels of a whole frame carry; fails on any other frame. */
function wholeNumber(data, pixelBytes) {
  const bytes = Buffer.from(data.buffer, data.byteOffset, data.length);
  assert.ok(bytes.subarray(pixelBytes).equals(bytes.subarray(0, bytes.length - pixelBytes)), 'a torn frame');
  return bytes.readUIntLE(0, 3);
}

/** Calls `poll` without a pause for a while, and until it has seen enough; gives timers a turn now and then. */
async function hammer(poll, isEnough) {
  const end = performance.now() + milliseconds;
  const latest = end + longestMs;
  while (performance.now() < end || (!isEnough() && performance.now() < latest)) {
    for (let count = 0; count < 500; count += 1) {
      poll();
    }
    await sleep(0);
  }
}

describe('a preview that is polled without a pause', () => {
  before(() => {
    const camera = openFakeCamera();
    camera.send(`frame ${width} ${height}\nlog_limit 0`);
    assert.equal(addon.loadCameraBackend(camera.path), true);
    addon.cameraPreviewStart(0, width, height, 120);
  });
  after(() => addon.cameraPreviewStop());

  it('gives whole frames and whole quality pictures, rising, each with the pixels of its number', async () => {
    const targets = [new Uint8Array(size), new Uint8Array(size + 64).subarray(3), undefined];
    const newest = { sequence: 0, number: 0, picture: 0, pictureNumber: 0 };
    let polls = 0;
    let copies = 0;
    let offset;

    const takeFrame = (sequence, target) => {
      const frame = addon.cameraPreviewGetLatest(0, sequence, target);
      if (frame.result !== 0) {
        assert.equal(frame.result, -256);
        return;
      }
      copies += 1;
      assert.equal(frame.data.length, size);
      assert.equal(frame.data[3], 255);
      const number = wholeNumber(frame.data, 4);
      offset ??= number - frame.sequence;
      assert.equal(number - frame.sequence, offset);
      assert.ok(frame.sequence >= newest.sequence);
      newest.sequence = frame.sequence;
    };
    const takePicture = () => {
      const picture = addon.cameraPreviewGetLatestQualityFrame(0, 0);
      if (picture.result !== 0) {
        assert.equal(newest.picture, 0);
        return;
      }
      const number = wholeNumber(picture.data, 3);
      assert.ok(picture.sequence >= newest.picture && number >= newest.pictureNumber);
      assert.equal(picture.sequence > newest.picture, number > newest.pictureNumber);
      newest.picture = picture.sequence;
      newest.pictureNumber = number;
    };

    const isEnough = () => newest.sequence > milliseconds / 1000 && newest.picture > 1 && copies > newest.sequence;
    await hammer(() => {
      polls += 1;
      // Mostly the newest frame whether it was seen or not: it is copied while others are made.
      takeFrame(polls % 10 === 0 ? newest.sequence : 0, targets[polls % 3]);
      if (polls % 100 === 0) {
        takePicture();
      }
    }, isEnough);
    assert.ok(isEnough(), `${copies} copies of ${newest.sequence} frames, ${newest.picture} pictures`);
    assert.equal(addon.cameraPreviewGetLatest(0).droppedFrames, 0);
  });
});

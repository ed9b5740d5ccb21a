// Direct previews whose backend calls back without a pause, while the preview's worker takes stills
// or decodes, and script code takes, keeps and gives back frames as fast as it can: the content of
// every frame proves that it is whole, and that nobody writes what script code holds.
// OSTREL_TEST_HAMMER_SECONDS sets how long each case takes.

import assert from 'node:assert/strict';
import { afterEach, describe, it } from 'node:test';

import { frameOf, hammerPreview, kinds, lendArrays, openDirectBackend } from './support/direct-backend.js';
import { makeRandom } from './support/odd-values.js';
import { sleep } from './support/waiting.js';

const backend = openDirectBackend();
const { addon, become, decodeJpeg, send, startHammer, stopHammer } = backend;
const milliseconds = Number(process.env.OSTREL_TEST_HAMMER_SECONDS ?? 1) * 1000;
// Only a failure hammers for as long as this beyond that.
const longestMs = 60_000;
const [dshow, avf] = Object.keys(kinds);
const random = makeRandom(Number(process.env.OSTREL_TEST_SEED ?? Date.now() % 2 ** 32));

let isHammering = false;
afterEach(() => {
  if (isHammering) {
    stopHammer();
  }
  isHammering = false;
  addon.cameraPreviewStop();
  become('none');
});

/** Calls `poll` without a pause for a while, and until it has seen enough; gives timers a turn now and then. */
async function hammer(poll, { duration = milliseconds, isEnough = () => true } = {}) {
  const end = performance.now() + duration;
  const latest = end + longestMs;
  while (performance.now() < end || (!isEnough() && performance.now() < latest)) {
    for (let count = 0; count < 200; count += 1) {
      poll();
    }
    await sleep(0);
  }
}

/** The number that all of a whole frame's bytes carry; fails on any other frame. */
function wholeNumber(data) {
  const bytes = Buffer.from(data.buffer, data.byteOffset, data.length);
  assert.ok(bytes.subarray(4).equals(bytes.subarray(0, bytes.length - 4)), 'a torn frame');
  return bytes.readUInt32LE(0);
}

/** The index of the flat picture that a decoded frame shows; fails on any other frame. */
function wholePicture(levels) {
  return (data) => {
    const bytes = Buffer.from(data.buffer, data.byteOffset, data.length);
    const luma = 64 * 48;
    assert.ok(bytes.subarray(1, luma).equals(bytes.subarray(0, luma - 1)), 'a torn frame');
    assert.ok(bytes.subarray(luma).every((byte) => byte === 128));
    const level = levels.indexOf(bytes[0]);
    assert.notEqual(level, -1, `${bytes[0]}`);
    return level;
  };
}

/**
 * Takes frames, keeps up to two of them for a while, and gives them back in any order. `read` proves
 * a frame whole and gives what identifies it; `isEnough(taken)` says whether it may end. Gives the number of
 * frames taken.
 */
async function takeAndGiveBack(read, assertOrder, isEnough) {
  const held = [];
  let newest = { sequence: 0, content: -1 };
  let taken = 0;
  await hammer(() => {
    const { result, sequence, directSlot, data } = addon.cameraPreviewGetLatest(0, random(4) === 0 ? 0 : newest.sequence);
    if (result === 0) {
      const content = read(data);
      assert.ok(sequence > newest.sequence, `${sequence} after ${newest.sequence}`);
      assertOrder(content, newest, sequence);
      newest = { sequence, content };
      held.push({ sequence, directSlot, data, content });
      taken += 1;
    } else {
      assert.equal(result, -256);
    }
    if (held.length > 2 || (held.length > 0 && random(3) === 0)) {
      const [frame] = held.splice(random(held.length), 1);
      assert.equal(read(frame.data), frame.content, 'a frame changed while it was held');
      assert.equal(addon.cameraPreviewReleaseDirectSlot(0, frame.directSlot, frame.sequence), 0);
      assert.equal(addon.cameraPreviewReleaseDirectSlot(0, frame.directSlot, frame.sequence), -7);
    }
  }, { isEnough: () => isEnough(taken) });
  return taken;
}

describe('a direct preview that is hammered', () => {
  for (const [kind, format] of [[dshow, 'bgra'], [dshow, 'nv12'], [avf, 'yuy2'], [avf, 'nv12']]) {
    it(`in ${format} by ${kind} gives whole frames, rising, and loses none uncounted`, async () => {
      hammerPreview(backend, kind, format, { width: 320, height: 240 });
      isHammering = true;
      send('log_limit 0\ndefault avf_grab_bgra 1');
      let stills = 0;
      const isEnough = (count) => count > milliseconds / 10 && stills > 0;
      const taken = await takeAndGiveBack((data) => {
        const picture = addon.cameraPreviewGetLatestQualityFrame(0, stills);
        stills = picture.sequence;
        return wholeNumber(data);
      }, (content, newest) => assert.ok(content > newest.content), isEnough);
      const fired = stopHammer();
      isHammering = false;
      const { producedFrames, droppedFrames } = addon.cameraPreviewGetLatest(0, Number.MAX_VALUE);
      assert.equal(producedFrames + droppedFrames, fired);
      assert.ok(isEnough(taken), `${taken} of ${producedFrames} frames taken, ${fired} fired, ${stills} stills`);
    });
  }

  for (const kind of [dshow, avf]) {
    it(`in JPEG by ${kind} gives whole frames and whole JPEGs, and loses none uncounted`, async () => {
      const { jpegs } = hammerPreview(backend, kind, 'mjpeg', { framesPerSecond: 5000 });
      isHammering = true;
      const levels = jpegs.map((jpeg) => decodeJpeg(jpeg).planes[0].data[0]);
      let encoded = 0;
      const isEnough = (count) => count > milliseconds / 20 && encoded > 0;
      const taken = await takeAndGiveBack((data) => {
        const latest = addon.cameraGrabEncodedFrame(0);
        if (latest.result === 0) {
          assert.ok(latest.sequence >= encoded);
          encoded = latest.sequence;
          assert.ok(latest.data.equals(jpegs[(encoded - 1) % jpegs.length]), `JPEG ${encoded}`);
        }
        return wholePicture(levels)(data);
      }, () => {}, isEnough);
      const fired = stopHammer();
      isHammering = false;
      const { producedFrames, droppedFrames } = addon.cameraPreviewGetLatest(0, Number.MAX_VALUE);
      // One of them may still wait for the decoder, another be in it.
      const open = fired - producedFrames - droppedFrames;
      assert.ok(open >= 0 && open <= 2, `${open} of ${fired}`);
      assert.ok(isEnough(taken), `${taken} of ${producedFrames} frames taken, ${fired} fired`);
    });
  }

  it('and given back all at once, again and again, never stands still', async () => {
    hammerPreview(backend, dshow, 'bgra');
    isHammering = true;
    let newest = 0;
    const isEnough = () => newest > milliseconds / 10;
    await hammer(() => {
      const { result, sequence } = addon.cameraPreviewGetLatest(0, 0);
      if (result === 0) {
        assert.ok(sequence > newest);
        newest = sequence;
      }
      if (random(4) === 0) {
        assert.equal(addon.cameraPreviewReleaseAllDirectSlots(random(2) - 1), 0);
      }
    }, { isEnough });
    const { producedFrames } = addon.cameraPreviewGetLatest(0, Number.MAX_VALUE);
    assert.ok(isEnough(), `${newest} of ${producedFrames}`);
  });

  for (const [kind, format] of [[dshow, 'bgra'], [avf, 'nv12'], [dshow, 'mjpeg']]) {
    it(`in ${format} by ${kind} starts and stops at any moment, and touches no array behind a stop`, async () => {
      const { size } = hammerPreview(backend, kind, format);
      isHammering = true;
      send('log_limit 0');
      let rounds = 0;
      await hammer(() => {
        rounds += 1;
        const before = lendArrays(size, 7);
        assert.equal(addon.cameraPreviewStart(0, 64, 48, 30, before), 0);
        if (rounds % 3 === 0) {
          addon.cameraPreviewGetLatest(0);
        }
        if (rounds % 2 === 0) {
          addon.cameraPreviewStop();
          const copies = before.map((array) => Buffer.from(array));
          addon.cameraPreviewReleaseAllDirectSlots(-1);
          before.forEach((array, index) => assert.ok(copies[index].equals(array)));
        }
        if (rounds % 50 === 0) {
          globalThis.gc?.();
        }
      }, { isEnough: () => rounds > 10 });
      assert.ok(rounds > 10);
    });
  }

  it('by a backend whose frames are refused in every way counts them all', async () => {
    const frame = frameOf('nv12', 64, 48);
    become(avf, { frame });
    addon.cameraPreviewStart(0, 64, 48, 30, lendArrays(frame.dataSize, 7));
    const data = new Uint8Array(64 * 48);
    const data1 = new Uint8Array(64 * 24);
    const good = { width: 64, height: 48, format: 2, planeCount: 2, data, stride: 64, data1, stride1: 64 };
    let fired = 0;
    for (const bad of [{ stride: 63 }, { stride1: 65 }, { planeCount: 1 }, { format: 4, data: new Uint8Array(frame.dataSize + 1) }]) {
      startHammer({ ...good, ...bad }, {});
      isHammering = true;
      await hammer(() => addon.cameraPreviewGetLatest(0), { duration: milliseconds / 20 });
      fired += stopHammer();
      isHammering = false;
    }
    const { producedFrames, droppedFrames } = addon.cameraPreviewGetLatest(0);
    assert.deepEqual([producedFrames, droppedFrames], [0, fired]);
  });
});

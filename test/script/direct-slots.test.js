// The slots that the frames of a direct preview pass through: free, being written, finished, held.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { firedFrame, frameOf, kinds } from './support/direct-backend.js';
import { device, useDirectPreview } from './support/direct-preview.js';
import { until } from './support/waiting.js';

const { addon, begin, counters, fire, release, take } = useDirectPreview();
const emptyKeys = ['result', 'data', 'sequence', 'droppedFrames', 'lastResult', 'producerFps', 'producedFrames'];
const noDeviceKeys = ['result', 'data', 'sequence', 'droppedFrames'];

for (const kind of Object.keys(kinds)) {
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

// The kit's frames: each once, from whoever's preview, and nothing left running.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { frames } from '../../kit/index.js';
import { valueFromChild } from './support/child.js';
import { reduceToRgba, uniformFrame } from './support/fake-camera.js';
import { device, usePreview } from './support/preview.js';
import { until } from './support/waiting.js';

const keys = ['sequence', 'missed', 'width', 'height', 'bytesPerRow', 'pixelFormat', 'sourceWidth', 'sourceHeight', 'timestampMs',
  'droppedFrames', 'producedFrames', 'producerFps', 'data'];
const end = { value: undefined, done: true };
const reason = new Error('enough');

describe('frames', () => {
  const { addon, camera, startByHand } = usePreview();
  const open = (options = {}) => frames({ native: addon, device, ...options });
  const own = { capture: {}, preview: { width: 16, height: 9, frameRate: 120 } };
  const release = (count = 1) => camera.send(`release cnokhwa_grab_frame ${count}`);
  const pixels = (number) => reduceToRgba(uniformFrame(number, 16, 9), { width: 16, height: 9 });
  const stops = () => camera.calls('cnokhwa_stop_capture').map(({ args }) => args);
  const published = (sequence) =>
    until(`frame ${sequence}`, () => addon.cameraPreviewGetLatest(device).sequence === sequence);

  /** A preview ends only when its camera lets go of it. */
  function stopByHand() {
    camera.send('release cnokhwa_grab_frame');
    addon.cameraPreviewStop(device);
  }

  async function next(iteration) {
    const promise = iteration.next();
    release();
    return (await promise).value;
  }

  it('come as the preview makes them, each once', async () => {
    startByHand();
    const iteration = open();
    for (let number = 1; number <= 4; number += 1) {
      const frame = await next(iteration);
      assert.deepEqual(Object.keys(frame), keys);
      const { timestampMs, producerFps, data, ...rest } = frame;
      assert.deepEqual(rest, { sequence: number, missed: 0, width: 16, height: 9, bytesPerRow: 64, pixelFormat: 'rgba',
        sourceWidth: 16, sourceHeight: 9, droppedFrames: 0, producedFrames: number });
      assert.deepEqual(Buffer.from(data), pixels(number));
      assert.equal(data.constructor, Uint8Array);
    }
    await iteration.return();
    assert.equal(addon.cameraPreviewIsRunning(), true);
    assert.deepEqual(stops(), []);
  });

  it('are always the newest, and tell how many were missed', async () => {
    startByHand();
    const iteration = open();
    await next(iteration);
    release(3);
    await published(4);
    const { value } = await iteration.next();
    assert.deepEqual([value.sequence, value.missed], [4, 2]);
    await iteration.return();
  });

  it('keep their bytes until ring - 1 more were given', async () => {
    startByHand();
    const iteration = open({ ring: 3 });
    const taken = [];
    for (let number = 1; number <= 6; number += 1) {
      taken.push((await next(iteration)).data);
      taken.slice(-3).forEach((data, i, last) =>
        assert.deepEqual(Buffer.from(data), pixels(number - last.length + 1 + i), `after ${number}`));
    }
    assert.equal(new Set(taken.map(({ buffer }) => buffer)).size, 3);
    assert.equal(taken[0].buffer, taken[3].buffer);
    await iteration.return();
  });

  it('may be transferred: another array takes the place', async () => {
    startByHand();
    const iteration = open({ ring: 2 });
    const { data } = await next(iteration);
    structuredClone(data.buffer, { transfer: [data.buffer] });
    await next(iteration);
    assert.deepEqual(Buffer.from((await next(iteration)).data), pixels(3));
    await iteration.return();
  });

  it('go on with a preview that was started anew, with another size', async () => {
    startByHand();
    const iteration = open();
    await next(iteration);
    await next(iteration);
    const promise = iteration.next();
    stopByHand();
    camera.send('reset\nframe 32 18');
    startByHand();
    release();
    const { sequence, missed, width } = (await promise).value;
    assert.deepEqual([sequence, missed, width], [1, 0, 32]);
    await iteration.return();
  });

  it('come to each of two iterations, and to each of several calls', async () => {
    startByHand();
    const [one, other] = [open(), open()];
    const calls = [one.next(), other.next(), one.next()];
    release();
    const [first, second] = await Promise.all(calls.slice(0, 2));
    assert.deepEqual([first.value.sequence, second.value.sequence], [1, 1]);
    assert.notEqual(first.value.data.buffer, second.value.data.buffer);
    release();
    assert.equal((await calls[2]).value.sequence, 2);
    assert.equal((await other.next()).value.sequence, 2);
    await Promise.all([one.return(), other.return()]);
  });

  it('end when somebody else stops the preview', async () => {
    startByHand();
    const iteration = open();
    await next(iteration);
    const calls = [iteration.next(), iteration.next()];
    stopByHand();
    assert.deepEqual(await Promise.all(calls), [end, end]);
    assert.deepEqual(await iteration.next(), end);
  });

  it('follow a device that is asked for each time, and wait while there is none', async () => {
    startByHand();
    let where = -1;
    const iteration = open({ device: () => where });
    const promise = iteration.next();
    release();
    await published(1);
    where = device + 1;
    await new Promise(setImmediate);
    where = device;
    assert.equal((await promise).value.sequence, 1);
    await iteration.return();
  });

  it('start and stop what they are asked to own', async () => {
    const iteration = open(own);
    assert.deepEqual(camera.calls().map(({ symbol }) => symbol), []);
    await iteration.next();
    assert.deepEqual(camera.calls('cnokhwa_start_capture').map(({ args }) => args), [`${device},0,0`]);
    assert.equal(addon.cameraPreviewIsRunning(), true);
    assert.deepEqual(await iteration.return(7), { value: 7, done: true });
    assert.equal(addon.cameraPreviewIsRunning(), false);
    assert.deepEqual(stops(), [`${device}`]);
    assert.deepEqual(await iteration.next(), end);
    await iteration.return();
    assert.deepEqual(stops(), [`${device}`]);
  });

  for (const [how, leave] of [
    ['break', async (iteration) => {
      for await (const frame of iteration) {
        assert.equal(frame.sequence > 0, true);
        break;
      }
    }],
    ['throw', (iteration) => assert.rejects(async () => {
      for await (const frame of iteration) {
        throw new Error(`at ${typeof frame}`);
      }
    }, { message: 'at object' })],
    ['throw()', async (iteration) => {
      await iteration.next();
      await assert.rejects(iteration.throw(reason), reason);
    }],
    ['return() while somebody waits', async (iteration) => {
      await iteration.next();
      const calls = [iteration.next(), iteration.next()];
      await iteration.return();
      assert.deepEqual((await Promise.all(calls)).at(-1), end);
    }],
  ]) {
    it(`stop what they own at a ${how}`, async () => {
      await leave(open(own));
      assert.equal(addon.cameraPreviewIsRunning(), false);
      assert.deepEqual(stops(), [`${device}`]);
    });
  }

  describe('at an abort', () => {
    it('before the start, start nothing', async () => {
      const iteration = open({ ...own, signal: AbortSignal.abort(reason) });
      await assert.rejects(iteration.next(), reason);
      assert.deepEqual(await iteration.next(), end);
      assert.deepEqual(camera.calls(), []);
    });

    it('while somebody waits, tell the reason to the first and end for the others', async () => {
      startByHand();
      const abort = new AbortController();
      const iteration = open({ signal: abort.signal });
      const calls = [iteration.next(), iteration.next()];
      abort.abort(reason);
      await assert.rejects(calls[0], reason);
      assert.deepEqual(await calls[1], end);
    });

    it('between two calls, stop at once and tell the next', async () => {
      const abort = new AbortController();
      const iteration = open({ ...own, signal: abort.signal });
      await iteration.next();
      abort.abort(reason);
      await until('the stop', () => !addon.cameraPreviewIsRunning());
      await assert.rejects(iteration.next(), reason);
      assert.deepEqual(await iteration.next(), end);
    });

    it('with a reason of nothing, still fail', async () => {
      startByHand();
      const abort = new AbortController();
      const iteration = open({ signal: abort.signal });
      const promise = iteration.next();
      abort.abort(null);
      await assert.rejects(promise, (error) => error === null);
    });
  });

  describe('refuse', () => {
    it('to begin without a preview', async () => {
      await assert.rejects(open().next(), new Error('No preview of camera 3 is running: start one, or pass `preview`.'));
    });

    it('to replace a preview that runs', async () => {
      startByHand();
      await assert.rejects(open(own).next(),
        new Error('A preview is running already: leave out `preview` to share it, or stop it first.'));
      assert.equal(addon.cameraPreviewIsRunning(), true);
      assert.deepEqual(camera.calls('cnokhwa_start_capture'), []);
    });

    it('to capture what another iteration captures, until that has ended', async () => {
      const first = open(own);
      await first.next();
      await assert.rejects(open({ capture: {} }).next(),
        new Error('Camera 3 is being captured already: leave out `capture` to share it.'));
      const sharing = open();
      await sharing.next();
      await first.return();
      assert.deepEqual(await sharing.next(), end);
      const again = open(own);
      await again.next();
      await again.return();
    });

    it('a camera that does not start, in words and without those of an older failure', async () => {
      addon.loadOstrel('/nowhere/libostrel.so');
      for (const code of [-1, -42]) {
        camera.send(`answer cnokhwa_start_capture ${code}`);
        await assert.rejects(open(own).next(), (error) => error.code === code && error.message ===
          `cameraStartCapture for camera 3 gave ${code}: the camera library does not start this camera, with a code of its own.`);
      }
      assert.equal(addon.getLastError(), 'Could not load Ostrel native library');
      assert.equal(addon.cameraPreviewIsRunning(), false);
    });

    for (const [options, Kind, message] of [
      [null, TypeError, '`options` takes an object, not null.'],
      [{ device: '0' }, TypeError, '`device` takes a whole number from 0 to 2147483647, not "0".'],
      [{ device: -1 }, RangeError, '`device` takes a whole number from 0 to 2147483647, not -1.'],
      [{ ring: 1 }, RangeError, '`ring` takes a whole number from 2 to 64, not 1.'],
      [{ ring: 2.5 }, RangeError, '`ring` takes a whole number from 2 to 64, not 2.5.'],
      [{ preview: true }, TypeError, '`preview` takes an object, not true.'],
      [{ preview: { frameRate: 121 } }, RangeError, '`frameRate` takes a whole number from 1 to 120, not 121.'],
      [{ preview: { width: 0 } }, RangeError, '`width` takes a whole number from 1 to 16384, not 0.'],
      [{ capture: { format: {} } }, TypeError, '`format` takes a whole number from -1 to 2147483647, not an object.'],
      [{ signal: {} }, TypeError, '`signal` takes an AbortSignal, not an object.'],
    ]) {
      it(message, () => {
        assert.throws(() => frames(options && { native: addon, ...options }), new Kind(message));
      });
    }
  });
});

describe('a process', () => {
  it('ends by itself after an iteration that ended, was aborted, or was left alone', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon, kit, openFakeCamera }) => {
      const camera = openFakeCamera();
      camera.send('frame 16 9');
      addon.loadCameraBackend(camera.path);
      const own = { native: addon, capture: {}, preview: { width: 16, height: 9, frameRate: 120 } };
      const seen = [];
      for await (const { sequence } of kit.frames(own)) {
        seen.push(sequence > 0);
        if (seen.length === 3) {
          break;
        }
      }
      const abort = new AbortController();
      const aborted = kit.frames({ ...own, signal: abort.signal });
      await aborted.next();
      const waiting = aborted.next().then(() => aborted.next()).catch(({ message }) => message);
      abort.abort(new Error('enough'));
      seen.push(await waiting);
      const left = kit.frames(own);
      await left.next();
      return seen;
    }), [true, true, true, 'enough']);
  });
});

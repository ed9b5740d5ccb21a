// The parts of the kit that only compute: no camera, no clock.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { CameraHealth } from '../../kit/camera-health.js';
import { CommandQueue } from '../../kit/command-queue.js';
import { FramePace } from '../../kit/frame-pace.js';
import { FrameRing } from '../../kit/frame-ring.js';
import { addonFileOf, nativeOf } from '../../kit/native.js';
import { PressDetector } from '../../kit/press-detector.js';
import { colourTags, refusalOfSize, usualBitrate, warningsFor } from '../../kit/recording-plan.js';
import { CallError, cameraMeaning, recordingResults } from '../../kit/results.js';
import { addonPath, loadAddon } from './support/environment.js';

describe('the pace of looking for frames', () => {
  it('asks four times a period before the first frame, at most every 50 ms', () => {
    assert.equal(new FramePace(40).waitFrom(1000), 10);
    assert.equal(new FramePace(1000).waitFrom(1000), 50);
  });

  it('waits until the next frame is due, then a millisecond at a time, then longer and longer', () => {
    const pace = new FramePace(40);
    pace.saw({ sequence: 1, timestampMs: 1000 });
    assert.deepEqual([1000, 1010, 1039, 1040, 1041, 1048, 1056, 1200, 9000].map((now) => pace.waitFrom(now)),
      [40, 30, 1, 1, 1, 1, 2, 20, 50]);
  });

  it('learns the period, also from frames that were missed', () => {
    const pace = new FramePace(40);
    pace.saw({ sequence: 1, timestampMs: 1000 });
    pace.saw({ sequence: 2, timestampMs: 1020 });
    assert.equal(pace.periodMs, 36);
    pace.saw({ sequence: 4, timestampMs: 1072 });
    assert.equal(pace.periodMs, 34);
    assert.equal(pace.waitFrom(1072), 34);
  });

  it('does not learn from a preview that began anew, nor from a clock that jumps', () => {
    const pace = new FramePace(40);
    pace.saw({ sequence: 9, timestampMs: 1000 });
    pace.saw({ sequence: 1, timestampMs: 9000 });
    assert.equal(pace.periodMs, 40);
    pace.saw({ sequence: 2, timestampMs: 5000 });
    assert.equal(pace.periodMs, 40 + (1 - 40) * 0.2);
    assert.equal(pace.waitFrom(1000), pace.periodMs);
  });
});

describe('the ring of target arrays', () => {
  it('gives no target in the first round and the same arrays in all others', () => {
    const ring = new FrameRing(2);
    const first = new Uint8Array(8);
    const second = new Uint8Array(8);
    assert.equal(ring.target(), undefined);
    assert.equal(ring.keep(first).buffer, first.buffer);
    assert.equal(ring.target(), undefined);
    assert.equal(ring.keep(second).buffer, second.buffer);
    assert.equal(ring.target().buffer, first.buffer);
    assert.equal(ring.keep(new Uint8Array(first.buffer, 0, 4)).length, 4);
    assert.equal(ring.target().buffer, second.buffer);
  });

  it('takes the array of a frame that did not fit, and forgets one whose memory has gone', () => {
    const ring = new FrameRing(2);
    ring.keep(new Uint8Array(8));
    const other = new Uint8Array(8);
    ring.keep(other);
    const larger = new Uint8Array(16);
    ring.keep(larger);
    structuredClone(other.buffer, { transfer: [other.buffer] });
    assert.equal(ring.target(), undefined);
    ring.keep(new Uint8Array(8));
    assert.equal(ring.target().buffer, larger.buffer);
  });
});

describe('the health of a preview', () => {
  const limits = { graceMs: 5000, stallMs: 800 };
  const answer = (sequence, lastResult = 0, result = -256) => ({ result, sequence, lastResult });
  const looks = (health, steps) => steps.map(([now, ...rest]) => health.look(now, answer(...rest)));

  it('is fine with the first frame and as long as frames come', () => {
    const health = new CameraHealth(limits);
    health.start(0);
    assert.deepEqual(looks(health, [[100, 0, -256], [4999, 0, -8], [5000, 1], [5700, 2], [6500, 2]]),
      ['waiting', 'waiting', 'fine', 'fine', 'waiting']);
  });

  it('stalls after the grace at the start, and after the silence later', () => {
    const health = new CameraHealth(limits);
    health.start(0);
    assert.deepEqual(looks(health, [[5000, 0, -256], [5001, 0, -256]]), ['waiting', 'stalled']);
    health.start(0);
    assert.deepEqual(looks(health, [[10, 1], [810, 1], [811, 1]]), ['fine', 'waiting', 'stalled']);
    assert.equal(health.isFailing, false);
    assert.equal(health.silentMs(811), 801);
  });

  it('fails at once where the camera answers with an error, but not during the grace', () => {
    const health = new CameraHealth(limits);
    health.start(0);
    assert.deepEqual(looks(health, [[10, 0, -1], [20, 1], [30, 1, -1], [40, 1, -256], [900, 1, -1]]),
      ['waiting', 'fine', 'failing', 'waiting', 'stalled']);
    assert.equal(health.isFailing, true);
  });

  it('recovers with three frames within the silence, not with one now and then', () => {
    const health = new CameraHealth(limits);
    health.start(0);
    assert.deepEqual(looks(health, [[10, 1], [900, 1], [1000, 2], [2000, 3], [3000, 4], [3100, 5], [3200, 6], [3300, 7]]),
      ['fine', 'stalled', 'waiting', 'waiting', 'waiting', 'waiting', 'recovered', 'fine']);
    assert.equal(health.silenceMs, 3190);
  });

  it('tells the recovery of a preview that was started for a camera found again', () => {
    const health = new CameraHealth(limits);
    health.start(100, { tellRecovery: true });
    assert.deepEqual(looks(health, [[200, 2], [300, 3], [400, 4]]), ['waiting', 'recovered', 'fine']);
    assert.equal(health.silenceMs, 200);
  });

  it('takes a count that falls for a new preview, and none for a rest with a grace behind it', () => {
    const health = new CameraHealth(limits);
    health.start(0);
    assert.deepEqual(looks(health, [[10, 50], [20, 1], [30, 0, -5, -1], [5030, 0, -256], [5031, 0, -256]]),
      ['fine', 'fine', 'resting', 'waiting', 'stalled']);
  });
});

describe('presses of a button', () => {
  it('count once, held or not, and again after a release', () => {
    const presses = new PressDetector(200);
    const samples = [[0, false], [50, true], [100, true], [150, false], [300, true], [500, true], [701, true], [750, false]];
    assert.deepEqual(samples.filter(([now, isPressed]) => presses.saw(isPressed, now)).map(([now]) => now), [50, 701]);
  });
});

describe('the queue of commands', () => {
  /** Work that ends when it is told to. */
  function makeWork(log) {
    const running = [];
    const work = (name) => () => {
      log.push(name);
      return new Promise((resolve, reject) => running.push({ resolve, reject }));
    };
    const settle = async (how, value) => {
      running.shift()[how](value);
      await new Promise(setImmediate);
    };
    return { work, settle, running };
  }

  it('runs one at a time, in order, whatever becomes of those before', async () => {
    const log = [];
    const { work, settle, running } = makeWork(log);
    const queue = new CommandQueue();
    const outcomes = [queue.run(work('a')), queue.run(work('b')), queue.run(work('c'))];
    outcomes[0].catch(() => {});
    assert.deepEqual(log, ['a']);
    await settle('reject', new Error('no'));
    assert.deepEqual([log, running.length], [['a', 'b'], 1]);
    await settle('resolve', 2);
    await settle('resolve', 3);
    assert.deepEqual((await Promise.allSettled(outcomes)).map(({ value, reason }) => value ?? reason.message), ['no', 2, 3]);
  });

  it('lets the newest take the place of one that waits at the end under its key, and no other', async () => {
    const log = [];
    const { work, settle } = makeWork(log);
    const queue = new CommandQueue();
    const outcomes = [['focus', '1'], ['focus', '2'], ['focus', '3'], [null, 'step'], ['focus', '4'], ['focus', '5']]
      .map(([key, name]) => queue.run(work(name), { key }));
    for (const value of ['one', 'three', 'step', 'five']) {
      await settle('resolve', value);
    }
    assert.deepEqual(log, ['1', '3', 'step', '5']);
    assert.deepEqual(await Promise.all(outcomes), ['one', 'three', 'three', 'step', 'five', 'five']);
  });

  it('withdraws what waits, and no more waits for what runs, at an abort', async () => {
    const log = [];
    const { work, settle } = makeWork(log);
    const queue = new CommandQueue();
    const abort = new AbortController();
    const { signal } = abort;
    const outcomes = [queue.run(work('runs'), { signal }), queue.run(work('waits'), { signal }),
      queue.run(work('shared'), { key: 'k', signal }), queue.run(work('shared'), { key: 'k' })];
    abort.abort(new Error('enough'));
    const settled = await Promise.allSettled(outcomes.slice(0, 3));
    assert.deepEqual(settled.map(({ reason }) => reason.message), ['enough', 'enough', 'enough']);
    assert.deepEqual(log, ['runs']);
    await settle('resolve');
    assert.deepEqual(log, ['runs', 'shared']);
    await settle('resolve', 4);
    assert.equal(await outcomes[3], 4);
    assert.throws(() => queue.run(work('late'), { signal }), { message: 'enough' });
    assert.deepEqual(log, ['runs', 'shared']);
  });
});

describe('the plan of a recording', () => {
  it('takes a tenth of a bit a pixel, within what the recorder takes', () => {
    assert.equal(usualBitrate({ width: 1920, height: 1080, frameRate: 30 }), 6_220_800);
    assert.equal(usualBitrate({ width: 64, height: 48, frameRate: 1 }), 1_000_000);
    assert.equal(usualBitrate({ width: 8192, height: 8192, frameRate: 120 }), 100_000_000);
  });

  it('refuses odd and huge sizes in words', () => {
    const source = { sourceWidth: 1922, sourceHeight: 1080 };
    assert.equal(refusalOfSize({ width: 64, height: 48, ...source }), null);
    assert.equal(refusalOfSize({ width: 961, height: 540, ...source }),
      'The preview is 961 x 540 pixels, made from 1922 x 1080, and only even sizes can be recorded. ' +
      'A preview shows every nth pixel of every nth row: start it with another size, or capture another format.');
    assert.equal(refusalOfSize({ width: 64, height: 47, sourceWidth: 64, sourceHeight: 47 }),
      'The preview is 64 x 47 pixels, and only even sizes can be recorded. ' +
      'A preview shows every nth pixel of every nth row: start it with another size, or capture another format.');
    assert.equal(refusalOfSize({ width: 8194, height: 2, sourceWidth: 8194, sourceHeight: 2 }),
      'The preview is 8194 x 2 pixels, and at most 8192 a side can be recorded. Start the preview with a smaller size.');
  });

  it('knows which sizes are tagged otherwise than their pixels are made', () => {
    const tagged = [[1280, 480], [1278, 576], [1278, 578]].map(([width, height]) => colourTags(width, height));
    assert.deepEqual(tagged, [
      { tags: 'bt709', pixels: 'bt709', differ: false },
      { tags: 'bt601', pixels: 'bt709', differ: true },
      { tags: 'bt709', pixels: 'bt709', differ: false },
    ]);
    assert.deepEqual(warningsFor({ width: 960, height: 540, pixelFormat: 'rgba' }).map(({ code }) => code), ['colour-tags']);
    assert.deepEqual(warningsFor({ width: 960, height: 540, pixelFormat: 'nv12' }), []);
    assert.deepEqual(warningsFor({ width: 1920, height: 1080, pixelFormat: 'bgra' }), []);
  });
});

describe('errors of native calls', () => {
  it('tell the call, its code, the meaning and the words', () => {
    const error = new CallError({ call: 'cameraRecordingStart', code: -3, words: 'No space', meanings: recordingResults });
    assert.deepEqual([error.name, error.message, error.code], ['CallError', 'cameraRecordingStart gave -3: the recording failed ("No space").', -3]);
    assert.equal(new CallError({ call: 'cameraRecordingStop', code: -77, meanings: recordingResults }).message,
      'cameraRecordingStop gave -77: an unknown code.');
    assert.equal(new CallError({ call: 'cameraGrabFrame', code: -13, advice: 'Do y.' }).message,
      'cameraGrabFrame gave -13: the camera library cannot do this.\nDo y.');
  });

  it('tell in words what each number of a camera call means', () => {
    const own = 'a code of the camera library itself';
    const noLibrary = 'no camera library is loaded, or it lacks the function';
    const frames = [[-5, 'the preview is not running'], [-6, noLibrary], [-8, 'the frame could not be taken'],
      [-10, 'the frame size is unknown'], [-11, 'the frame does not fit'], [-13, 'the camera library cannot do this'],
      [-256, 'nothing yet, or nothing new'], [-20, own]];
    const expected = {
      cameraInitialize: [[-6, noLibrary], [-1, 'the camera library does not start, with a code of its own']],
      cameraHasVideoCaptureAuth: [[-6, noLibrary], [1, 'the camera library does not allow it, with a code of its own']],
      cameraDevicesCount: [[-6, noLibrary], [-1, 'the camera library cannot list cameras, with a code of its own']],
      cameraStartCapture: [[-6, noLibrary], [-13, 'the camera library cannot start by a format'],
        [-1, 'the camera library does not start this camera, with a code of its own']],
      cameraStopCapture: [[-6, noLibrary], [-1, 'the camera library does not stop this camera, with a code of its own']],
      cameraHasFirstFrame: [[-6, noLibrary], [-256, 'nothing yet'], [-1, own]],
      cameraPreviewStart: [[-1, 'there is no camera with a negative index'],
        [-13, 'the camera library does not deliver into arrays']],
      cameraPreviewGetLatest: [...frames, [-1, 'there is no preview of this device']],
      cameraPreviewGetLatestQualityFrame: [...frames, [-1, own]],
      cameraGrabFrame: [...frames, [-1, own]],
      cameraGrabFrameRgba: [...frames, [-1, own]],
      lastResult: [...frames, [-1, own]],
    };
    for (const [call, rows] of Object.entries(expected)) {
      assert.deepEqual(rows.map(([code]) => [code, cameraMeaning(call, code)]), rows, call);
    }
    assert.equal(cameraMeaning('cameraRecordingStart', -1), null);
    const returnsCodes = /^camera(Initialize|HasVideoCaptureAuth|DevicesCount|StartCapture|StopCapture|HasFirstFrame|GrabFrame.*|Preview(Start|GetLatest.*))$/;
    assert.deepEqual(Object.keys(expected).slice(0, -1), Object.keys(loadAddon()).filter((name) => returnsCodes.test(name))
      .sort((a, b) => Object.keys(expected).indexOf(a) - Object.keys(expected).indexOf(b)));
  });

  it('of a camera leave out the last error, which is of something else', () => {
    for (const call of ['cameraStartCapture', 'cameraStartCapture for camera 7', 'cameraStartCapture(7)']) {
      assert.equal(new CallError({ call, code: -1, words: 'Could not load Ostrel native library' }).message,
        `${call} gave -1: the camera library does not start this camera, with a code of its own.`);
    }
  });
});

describe('the native object', () => {
  const addon = loadAddon();

  it('is taken as it is given, and refused where it is something else', () => {
    assert.equal(nativeOf({ native: addon }), addon);
    for (const native of [1, 'native', {}, () => {}]) {
      assert.throws(() => nativeOf({ native }), new TypeError('`native` takes the native object: the main export of the package.'));
    }
  });

  it('is traced to the file that it came from', () => {
    assert.equal(addonFileOf(addon), addonPath);
    assert.equal(addonFileOf({}, '/named.node'), '/named.node');
    assert.throws(() => addonFileOf({ ...addon }),
      new Error('It cannot be told which file the native object came from: name it as `addonFile`.'));
    for (const addonFile of ['', 1, null]) {
      assert.throws(() => addonFileOf(addon, addonFile), new TypeError("`addonFile` takes the path of the native object's file."));
    }
  });
});

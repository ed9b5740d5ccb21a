// The preview in several environments at once: some start and stop it, with sizes that grow and
// shrink, while others poll. Each runs in a worker thread of its own, in a child process, where a
// fault in memory ends no more than the test. OSTREL_TEST_HAMMER_SECONDS sets how long each takes.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath, testingAddonPath } from './support/environment.js';

const milliseconds = Number(process.env.OSTREL_TEST_HAMMER_SECONDS ?? 2) * 1000;
// Only a failure takes as long as this beyond that.
const longestMs = 60_000;
const sizes = [[64, 48], [640, 480], [8, 6], [1280, 960], [16, 12], [320, 240]];

/** What a worker does while `goesOn`, which it tells whether it has seen enough, and what it answers then. In a worker thread. */
const roles = {
  /** Looks at the alpha of the frames that it gets, and at their geometry. */
  poll({ addon, goesOn, wait }, { target: targetBytes = 0, least = 1 }) {
    const target = targetBytes > 0 ? new Uint8Array(targetBytes) : undefined;
    const seen = { polls: 0, frames: 0, results: [], faults: [] };
    while (goesOn(seen.frames >= least)) {
      const { result, data, ...frame } = addon.cameraPreviewGetLatest(0, 0, target);
      seen.polls += 1;
      if (!seen.results.includes(result)) {
        seen.results.push(result);
      }
      if (result !== 0) {
        wait(0);
        continue;
      }
      seen.frames += 1;
      const { width, height, bytesPerRow, sequence } = frame;
      if (data.length !== bytesPerRow * height || bytesPerRow !== width * 4 || sequence < 1) {
        seen.faults.push(`${width} x ${height}, ${bytesPerRow} bytes a row, ${data.length} bytes, frame ${sequence}`);
      }
      for (let at = 3; at < data.length; at += 4 * 61) {
        if (data[at] !== 255) {
          seen.faults.push(`alpha ${data[at]} at ${at} of ${data.length}`);
          break;
        }
      }
      addon.cameraPreviewGetLatestQualityFrame(0, 0);
    }
    return { ...seen, faults: seen.faults.slice(0, 5) };
  },

  /** Starts one preview after the other, most for some frames, some for none; now and then it stops one. */
  restart({ addon, goesOn, wait }, { sizes: all, first = 0 }) {
    const results = new Set();
    let starts = 0;
    for (let round = first; goesOn(starts > 3); round += 1) {
      results.add(addon.cameraPreviewStart(0, ...all[round % all.length], 120));
      starts += 1;
      wait([0, 12, 3, 25][round % 4]);
      if (round % 5 === 0) {
        results.add(addon.cameraPreviewStop(round % 2 - 1));
      }
    }
    return { starts, results: [...results] };
  },

  /** Starts and stops the capture, which ends the preview too. */
  capture({ addon, goesOn, wait }) {
    const results = new Set();
    while (goesOn(true)) {
      results.add(addon.cameraStartCapture(0, 640, 480));
      wait(5);
      results.add(addon.cameraStopCapture(0));
    }
    return [...results];
  },

  /** Lends arrays to one direct preview after the other and takes frames from each. */
  lend({ addon, goesOn, wait }, { bytes, first = 0, least = 0 }) {
    const seen = { starts: 0, frames: 0, results: [], faults: [] };
    while (goesOn(seen.starts > 3 && seen.frames >= least)) {
      const arrays = [1, 2, 3].map(() => new Uint8Array(bytes));
      const result = addon.cameraPreviewStart(0, 64, 48, 120, arrays);
      seen.starts += result === 0 ? 1 : 0;
      if (!seen.results.includes(result)) {
        seen.results.push(result);
      }
      for (let poll = 0; poll < 40; poll += 1) {
        const frame = addon.cameraPreviewGetLatest(0);
        if (frame.result === 0) {
          seen.frames += 1;
          if (frame.data.buffer !== arrays[frame.directSlot].buffer || frame.data.length !== bytes) {
            seen.faults.push(`slot ${frame.directSlot}, ${frame.data.length} bytes`);
          }
          addon.cameraPreviewReleaseDirectSlot(0, frame.directSlot, frame.sequence);
        } else {
          wait(0);
        }
      }
      if ((seen.starts + first) % 3 === 0) {
        addon.cameraPreviewStop();
      }
    }
    return { ...seen, faults: seen.faults.slice(0, 5) };
  },

  /** Gives back what others hold, and asks for what there is. */
  disturb({ addon, goesOn, wait }) {
    while (goesOn(true)) {
      addon.cameraPreviewReleaseAllDirectSlots(-1);
      addon.cameraPreviewReleaseDirectSlot(0, 1, 1);
      addon.cameraGrabEncodedFrame(0);
      addon.cameraPreviewGetLatest(0);
      wait(1);
    }
    return true;
  },
};

/** Runs the roles of `cast`, a list of [role, options], each in a worker of a child; gives what each answers. */
const play = (cast, { prepare = '() => {}', env } = {}) => valueFromChild(async (context, { acts, ms, longestMs: longest, first, library }) => {
  const { Worker } = await import('node:worker_threads');
  const { once } = await import('node:events');
  new Function(`return (${first})`)()(context, library);
  const satisfied = new Int32Array(new SharedArrayBuffer(4 * acts.length));
  const workers = acts.map(([act, options], own) => new Worker(`
    const { parentPort, workerData: { addonPath, options, own, satisfied, ms, longest } } = require('node:worker_threads');
    const addon = require(addonPath);
    const cell = new Int32Array(new SharedArrayBuffer(4));
    const wait = (time) => Atomics.wait(cell, 0, 0, time);
    const roles = { ${act} };
    const [role] = Object.values(roles);
    const end = performance.now() + ms;
    // All go on until the last of them has seen enough.
    const goesOn = (isEnough) => {
      if (isEnough) {
        Atomics.store(satisfied, own, 1);
      }
      const now = performance.now();
      return now < end || (now < end + longest && satisfied.some((each, i) => Atomics.load(satisfied, i) === 0));
    };
    parentPort.postMessage(role({ addon, wait, goesOn }, options));
  `, { eval: true, execArgv: [], workerData: { addonPath: context.addonPath, options, own, satisfied, ms, longest } }));
  const answers = await Promise.all(workers.map(async (worker) => {
    const [[answer], [code]] = await Promise.all([once(worker, 'message'), once(worker, 'exit')]);
    return code === 0 ? answer : code;
  }));
  context.addon.testing?.stopHammer?.();
  return { answers, running: context.addon.cameraPreviewStop() === 0 && context.addon.cameraPreviewIsRunning() };
}, {
  args: [{
    acts: cast.map(([name, options = {}]) => [roles[name].toString(), options]),
    ms: milliseconds,
    longestMs,
    first: prepare.toString(),
    library: fakePath('libcnokhwa.so'),
  }],
  env,
});

const useFakeCamera = ({ addon, openFakeCamera }, library) => {
  openFakeCamera(library).send('frame 640 480\nlog_limit 0');
  addon.loadCameraBackend(library);
};

const useDirectBackend = (context) => {
  const { become, startHammer } = context.openDirectBackend();
  const frame = context.frameOf('bgra', 64, 48);
  become('directshow', { frame });
  startHammer({ data: new Uint8Array(frame.dataSize) }, { framesPerSecond: 400 });
};

const largest = 1280 * 960 * 4;

/** Whether the poller's answers were those of a preview that others restart, and its frames whole. */
function assertWhole({ frames, faults, results }) {
  assert.deepEqual(faults, []);
  assert.ok(frames > 0);
  assert.deepEqual(results.filter((result) => ![0, -1, -256].includes(result)), []);
}

describe('a preview in several environments', () => {
  it('gives one environment whole frames while another one restarts it with other sizes', async () => {
    const { answers: [poller, starter] } =
      await play([['poll', { target: largest }], ['restart', { sizes }]], { prepare: useFakeCamera });
    assertWhole(poller);
    assert.deepEqual(starter.results, [0]);
    assert.ok(starter.starts > 3);
  });

  it('gives one environment whole frames while another one restarts it with growing sizes', async () => {
    const growing = Array.from({ length: 60 }, (_, index) => [16 + index * 20, 12 + index * 15]);
    const { answers: [poller, starter] } = await play([['poll'], ['restart', { sizes: growing }]], { prepare: useFakeCamera });
    assertWhole(poller);
    assert.deepEqual(starter.results, [0]);
  });

  it('gives several environments whole frames, with and without a target', async () => {
    const { answers } = await play(
      [['poll', { target: largest }], ['poll', { least: 0 }], ['poll', { target: 64 * 48 * 4, least: 0 }], ['restart', { sizes }]], { prepare: useFakeCamera });
    assert.deepEqual(answers.slice(0, 3).flatMap(({ faults }) => faults), []);
    assert.ok(answers.slice(0, 3).some(({ frames }) => frames > 0));
  });

  it('may be started and stopped by several at once', async () => {
    const { answers: [poller, ...starters], running } = await play(
      [['poll', { target: largest, least: 0 }], ['restart', { sizes }], ['restart', { sizes, first: 3 }], ['capture']], { prepare: useFakeCamera });
    assert.deepEqual(poller.faults, []);
    assert.deepEqual(starters.map((starter) => starter.results ?? starter), [[0], [0], [0]]);
    assert.ok(starters[0].starts > 3 && starters[1].starts > 3);
    assert.equal(running, false);
  });
});

describe('a direct preview in several environments', () => {
  const bytes = 64 * 48 * 4;
  const options = { prepare: useDirectBackend, env: { OSTREL_TEST_ADDON: testingAddonPath } };

  it('gives each frame to the environment that lent the array, whoever starts and stops', async () => {
    const { answers: [one, other, restarter, disturber], running } = await play(
      [['lend', { bytes }], ['lend', { bytes, first: 1 }], ['restart', { sizes: [[64, 48]] }], ['disturb']], options);
    assert.deepEqual([...one.faults, ...other.faults], []);
    assert.deepEqual([one.results, other.results, restarter.results, disturber], [[0], [0], [0], true]);
    assert.ok(one.starts > 3 && other.starts > 3);
    assert.equal(running, false);
  });

  it('gives its lender frames while another environment gives them back', async () => {
    const { answers: [lender] } = await play([['lend', { bytes, least: 1 }], ['disturb']], options);
    assert.deepEqual([lender.faults, lender.results], [[], [0]]);
    assert.ok(lender.frames > 0);
  });
});

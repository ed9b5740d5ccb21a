// For tests of a microscope library that hangs for ever in one of its functions. Both functions run
// in a child that never gets its owner thread back, and is killed.

import assert from 'node:assert/strict';

import { pollDinoLite, startDinoLite } from './fake-dino-lite.js';
import { pollAll, startInstrument } from './fake-ostrel.js';

// The shortest time for which any call waits for the owner thread.
const shortestWaitMs = 5000;
// What a slow machine may add to a wait.
const slackMs = 10_000;

/** That a call waited as long as it may, in milliseconds, and no longer. */
export function assertWaited(waited, ms) {
  assert.ok(waited >= ms && waited < ms + slackMs, `waited ${waited} ms instead of ${ms}`);
}

/** That no poll waited for the owner thread: the longest one took less than any wait. */
export function assertPolled(longestPoll) {
  assert.ok(longestPoll < shortestWaitMs, `a poll of everything took ${longestPoll} ms`);
}

/** What the two microscope families call what the tests use of them. */
export const hangFamilies = {
  ostrel: {
    start: startInstrument,
    poll: pollAll,
    lastError: 'ostrelLastError',
    next: ['ostrelDisposeAsync', 'ostrelFocusFarAsync'],
    promises: [['ostrelInitAsync'], ['ostrelDevicesAsync'], ['ostrelSelectDeviceAsync', 0], ['ostrelDisposeAsync']],
    state: () => undefined,
  },
  dinoLite: {
    start: startDinoLite,
    poll: (addon) => {
      addon.dinoLiteDebugState();
      return pollDinoLite(addon);
    },
    lastError: 'dinoLiteLastError',
    next: ['dinoLiteDisposeAsync', 'dinoLiteToggleLedAsync'],
    promises: [['dinoLiteInitAsync'], ['dinoLiteDevicesAsync'], ['dinoLiteSelectDeviceAsync', 0],
      ['dinoLiteEnableMicrotouchAsync']],
    state: (addon) => addon.dinoLiteDebugState(),
  },
};

/**
 * A library that hangs in `symbol`: the call of `row` that leads there, what it gives and when, and
 * what everybody else gets meanwhile.
 */
export async function hangOnTheOwnerThread({ addon, hangFamilies: families, nextFrame }, family, symbol, row) {
  const { library: file, poll: behindAPoll, call, unstarted, script } = row;
  const { start, poll, lastError, next: nextCalls, state } = families[family];
  const fake = await start(addon, file, { select: !unstarted });
  const errors = () => [addon.getLastError(), addon[lastError]()];
  fake.send(`${script ?? ''}\nblock ${symbol}`);
  if (behindAPoll) {
    poll(addon);
  }

  const begin = performance.now();
  const given = await addon[call](1);
  const waited = performance.now() - begin;
  const firstErrors = errors();
  const [hung] = fake.calls(symbol);

  let telemetry;
  let longestPoll = 0;
  for (let i = 0; i < 2000; i += 1) {
    const pollBegin = performance.now();
    telemetry = poll(addon);
    addon.getLastError();
    longestPoll = Math.max(longestPoll, performance.now() - pollBegin);
  }

  // Whoever comes next waits and fails in the same way; the camera goes on.
  addon.loadTurboJpeg('');
  const { sequence } = await nextFrame(addon);
  const nextBegin = performance.now();
  const next = await Promise.all(nextCalls.map((name) => addon[name]()));
  const nextWaited = performance.now() - nextBegin;
  const frame = await nextFrame(addon, { sequence });
  addon.cameraPreviewStop();
  return {
    given,
    waited,
    firstErrors,
    hung: hung !== undefined && hung.thread !== process.pid && / active=1 /.test(fake.send(`stats ${symbol}`)),
    telemetry,
    longestPoll,
    next,
    nextWaited,
    nextErrors: errors(),
    camera: frame.sequence > sequence,
    state: state(addon),
  };
}

/** All promises at once, with a library that hangs in `symbol`, while the script thread goes on. */
export async function hangAllPromises({ addon, hangFamilies: families }, family, symbol, file) {
  const { start, lastError, promises } = families[family];
  const fake = await start(addon, file, { select: false });
  fake.send(`block ${symbol}`);
  let turns = 0;
  const turning = setInterval(() => (turns += 1), 100);
  const time = async (name, ...args) => {
    const begin = performance.now();
    return [await addon[name](...args), performance.now() - begin];
  };
  // The pool's threads may reach the owner thread in any order: the rest come when the first one hangs there.
  const [first, ...others] = promises;
  const hanging = time(...first);
  fake.send(`wait_entered ${symbol} 1`);
  const answers = await Promise.all([hanging, ...others.map((call) => time(...call))]);
  clearInterval(turning);
  return { answers, turns, errors: [addon.getLastError(), addon[lastError]()], entered: fake.entered(symbol) };
}

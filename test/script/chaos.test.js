// Four environments at once, each calling random functions of all 95 with random, mostly valid arguments,
// while environments end and others begin. Every answer must be well formed for its function, every
// frame whole, and the process must end well and in silence.
//
//   OSTREL_CHAOS_SEED      the seed of a failure: the same calls with the same arguments in each environment
//   OSTREL_CHAOS_SECONDS   how long each case takes

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { names } from './support/chaos/arguments.js';
import { scenarios } from './support/chaos/process.js';
import { valueFromChild } from './support/child.js';
import { loadAddon } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const seed = Number(process.env.OSTREL_CHAOS_SEED ?? Date.now() % 2 ** 32);
const seconds = Number(process.env.OSTREL_CHAOS_SECONDS ?? 2);
// Far above what a call may wait for: 20 seconds for a library, behind others that wait for it too.
const longestCallMs = 100_000;

/** Runs in a child. */
async function inProcess(_, url, options) {
  const { runChaos } = await import(url);
  return runChaos(options);
}

describe('four environments that call random functions at once', () => {
  it('call every function that the addon has', () => {
    const functions = Object.entries(loadAddon()).filter(([, value]) => typeof value === 'function');
    assert.deepEqual([...names].sort(), functions.map(([name]) => name).sort());
  });

  for (const scenario of Object.keys(scenarios)) {
    it(`get whole answers from ${scenario}, and none of them crashes or hangs (seed ${seed})`, async (t) => {
      const url = new URL('support/chaos/process.js', import.meta.url).href;
      const options = { scenario, seed, seconds, directory: makeTemporaryDirectory(), longestCallMs };
      const { problems, counts, frames, lives } = await valueFromChild(inProcess,
        { args: [url, options], timeout: 1000 * seconds + 4 * longestCallMs });
      assert.deepEqual(problems, []);
      assert.deepEqual(names.filter((name) => counts[name] === 0), []);
      assert.ok(frames.copied + frames.direct > 0, 'no frame was looked at');
      assert.ok(lives > 4, 'no environment was ended');
      const total = Object.values(counts).reduce((sum, count) => sum + count);
      t.diagnostic(`${total} calls, ${frames.copied} copied and ${frames.direct} direct frames, ${lives} environments`);
    });
  }
});

// How the promises of the device functions settle, whatever runs behind them.

import assert from 'node:assert/strict';
import { createHook } from 'node:async_hooks';
import { createRequire } from 'node:module';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath, untidyEnvironment } from './support/environment.js';

const probePath = fakePath('promise_probe.node');
const probe = createRequire(import.meta.url)(probePath);

const kinds = {
  boolean: { value: true, initial: false, unknown: 'Native SDK operation failed with an unknown error' },
  integer: { value: 2147483647, initial: -1, unknown: 'Native SDK operation failed with an unknown error' },
  devices: {
    value: [{ index: 7, uniqueId: 'id \u00b5', name: 'first' }, { index: -2, uniqueId: '', name: '' }],
    initial: [],
    unknown: 'Native SDK device enumeration failed with an unknown error',
  },
};

const rejectionOf = (promise) => promise.then(() => assert.fail('it resolved'), (reason) => reason);

for (const [kind, { value, initial, unknown }] of Object.entries(kinds)) {
  describe(`a promise of ${kind}`, () => {
    it('resolves with what the callable returns', async () => {
      const promise = probe[kind]('value');
      assert.ok(promise instanceof Promise);
      assert.deepEqual(await promise, value);
    });

    for (const [outcome, message] of [['text', 'the lens is \u00b5'], ['number', unknown], ['none', 'bad_function_call']]) {
      it(`is rejected with the words "${message}"`, async () => {
        const reason = await rejectionOf(probe[kind](outcome));
        assert.equal(Object.getPrototypeOf(reason), Error.prototype);
        assert.equal(reason.message, message);
        assert.equal(reason.code, undefined);
      });
    }

    it('resolves with its first value where what was thrown has no words', async () => {
      assert.deepEqual(await probe[kind]('initial'), initial);
    });

    it('leaves the last error alone', () => assert.equal(probe.lastError(), 'earlier'));
  });
}

describe('a list of devices', () => {
  it('holds plain objects with their properties in order', async () => {
    for (const device of await probe.devices('value')) {
      assert.deepEqual(Object.keys(device), ['index', 'uniqueId', 'name']);
      assert.equal(Object.getPrototypeOf(device), Object.prototype);
    }
  });
});

describe('the name of a promise', () => {
  it('is what async hooks see', async () => {
    const types = [];
    const hook = createHook({ init: (id, type) => types.push(type) }).enable();
    await Promise.all([probe.boolean('value'), probe.integer('value'), probe.devices('value')]);
    hook.disable();
    assert.deepEqual(types.filter((type) => type.startsWith('Probe')), ['ProbeBoolean', 'ProbeInteger', 'ProbeDevices']);
  });
});

describe('many promises at once', () => {
  it('all settle, each with its own value', async () => {
    const outcomes = Array.from({ length: 300 }, (_, i) => [Object.keys(kinds)[i % 3], ['value', 'text', 'initial'][i % 7 % 3]]);
    const settled = await Promise.allSettled(outcomes.map(([kind, outcome]) => probe[kind](outcome)));
    assert.deepEqual(settled.map(({ value, reason }) => reason?.message ?? value),
      outcomes.map(([kind, outcome]) => (outcome === 'text' ? 'the lens is \u00b5' : kinds[kind][outcome])));
  });
});

// A promise that its environment no longer lets settle stays with the runtime as eight bytes.
describe('a worker thread that is terminated with promises pending', () => {
  for (const outcome of ['held', 'held text']) {
    it(`does no harm where they would ${outcome === 'held' ? 'resolve' : 'be rejected'}`, async () => {
      assert.deepEqual(await valueFromChild(async ({ sleep }, file, wanted) => {
        const { Worker } = await import('node:worker_threads');
        const { once } = await import('node:events');
        const { createRequire: makeRequire } = await import('node:module');
        const worker = new Worker(`
          const { parentPort, workerData: { file, wanted } } = require('node:worker_threads');
          const probe = require(file);
          for (const kind of ['boolean', 'integer', 'devices']) {
            probe[kind](wanted);
          }
          parentPort.postMessage('pending');
          setInterval(() => {}, 1000);
        `, { eval: true, execArgv: [], workerData: { file, wanted } });
        await once(worker, 'message');
        const ended = worker.terminate();
        const here = makeRequire(file)(file);
        // The end of the thread waits for what its pool threads run.
        await sleep(20);
        here.release();
        return [await ended, await here.boolean('value')];
      }, { args: [probePath, outcome], env: untidyEnvironment }), [1, true]);
    });
  }
});

describe('a process that ends with promises pending', () => {
  it('waits for none that it cannot see, and ends cleanly', async () => {
    assert.equal(await valueFromChild(async (context, file) => {
      const { createRequire: makeRequire } = await import('node:module');
      const here = makeRequire(file)(file);
      here.boolean('held');
      here.devices('held');
      setTimeout(() => {
        here.release();
        process.exit(0);
      }, 10);
      return 'pending';
    }, { args: [probePath], env: untidyEnvironment }), 'pending');
  });
});

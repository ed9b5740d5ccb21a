// The commands to the microscopes: each family's waiting calls, through its one queue.

import { CommandQueue } from './command-queue.js';
import { nativeOf } from './native.js';
import { describe, signalOption } from './options.js';

const highestFocus = 255;
const timedOut = / SDK call timed out$/;
// The shortest time-out of a native call. A text of an earlier one may still stand.
const shortestTimeoutMs = 4900;

const families = {
  ostrel: { queues: new WeakMap(), lastError: 'ostrelLastError', load: 'loadOstrel' },
  dinoLite: { queues: new WeakMap(), lastError: 'dinoLiteLastError', load: 'loadDinoLite' },
};

function queueOf(native, { queues }) {
  if (!queues.has(native)) {
    queues.set(native, new CommandQueue());
  }
  return queues.get(native);
}

/** Why a call failed, in words. */
function failureOf(native, { lastError, load }, call, elapsedMs) {
  const general = native.getLastError();
  const words = elapsedMs > shortestTimeoutMs && timedOut.test(general) ? general : native[lastError]();
  return new Error(`${call} failed: ${words || `no reason was given; was ${load} called?`}`);
}

/** What the commands of a family are made of: `ask(call, args, isDone, { key, signal })`. */
function askerFor(native, family) {
  const queue = queueOf(native, family);
  return async (call, args, isDone, { key, options }) => queue.run(async () => {
    const started = performance.now();
    const answer = await native[call](...args);
    const elapsedMs = performance.now() - started;
    if (!isDone(answer, elapsedMs)) {
      throw failureOf(native, family, `${call}(${args.map(describe).join(', ')})`, elapsedMs);
    }
    return answer;
  }, { key, signal: signalOption(options) });
}

const isTrue = (answer) => answer;
// An empty list may be the truth.
const isListed = (list, elapsedMs) => list.length > 0 || elapsedMs < shortestTimeoutMs;

function checkIndex(index) {
  if (!Number.isInteger(index) || index < 0) {
    throw new RangeError(`A microscope's index is a whole number from 0 on, not ${describe(index)}.`);
  }
}

/** The commands that both families have; `prefix` begins the names of their functions. */
function commonCommands(ask, prefix) {
  const run = async (...args) => void (await ask(...args));
  return {
    init: (force = false, options = {}) => run(`${prefix}InitAsync`, [force === true], isTrue, { key: `init ${force === true}`, options }),
    devices: (options = {}) => ask(`${prefix}DevicesAsync`, [], isListed, { key: 'devices', options }),
    async select(index, options = {}) {
      checkIndex(index);
      await run(`${prefix}SelectDeviceAsync`, [index], isTrue, { key: 'select', options });
    },
    dispose: (options = {}) => run(`${prefix}DisposeAsync`, [], isTrue, { key: 'dispose', options }),
    run,
  };
}

/** See index.d.ts. */
export function ostrelCommands(options = {}) {
  const { run, ...common } = commonCommands(askerFor(nativeOf(options), families.ostrel), 'ostrel');
  return {
    ...common,
    async setFocus(position, choice = {}) {
      if (!Number.isInteger(position) || position < 0 || position > highestFocus) {
        throw new RangeError(`A focus position is a whole number from 0 to ${highestFocus}, not ${describe(position)}.`);
      }
      await run('ostrelSetFocusPositionAsync', [position], isTrue, { key: 'focus', options: choice });
    },
    focusNear: (choice = {}) => run('ostrelFocusNearAsync', [], isTrue, { options: choice }),
    focusFar: (choice = {}) => run('ostrelFocusFarAsync', [], isTrue, { options: choice }),
    autoFocus: (choice = {}) => run('ostrelTriggerAutoFocusAsync', [], isTrue, { key: 'autoFocus', options: choice }),
    setLed: (on, choice = {}) => run('ostrelSetLedStateAsync', [Boolean(on)], isTrue, { key: 'led', options: choice }),
  };
}

/** See index.d.ts. */
export function dinoLiteCommands(options = {}) {
  const native = nativeOf(options);
  const ask = askerFor(native, families.dinoLite);
  const { run, ...common } = commonCommands(ask, 'dinoLite');
  return {
    ...common,
    enableMicrotouch: (enabled = true, choice = {}) =>
      run('dinoLiteEnableMicrotouchAsync', [Boolean(enabled)], isTrue, { key: 'microtouch', options: choice }),
    // -1 may also be a mode of the microscope.
    toggleLed: (choice = {}) => ask('dinoLiteToggleLedAsync', [],
      (mode, elapsedMs) => mode !== -1 || (native.dinoLiteLastError() === '' && elapsedMs < shortestTimeoutMs), { options: choice }),
  };
}

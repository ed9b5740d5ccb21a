// The commands to the microscopes: each family's waiting calls, through its one queue.

import { CommandQueue } from './command-queue.js';
import { nativeOf } from './native.js';
import { describe, signalOption } from './options.js';

const highestFocus = 255;
const timedOut = / SDK call timed out$/;
// The shortest time-out of a native call. A text of an earlier one may still stand.
const shortestTimeoutMs = 4900;

// One queue for a family, whichever native object is asked: the libraries and the pool are the process's. So
// both families together hold two threads of the pool at most, and the others read files meanwhile.
const families = {
  ostrel: { queue: new CommandQueue(), lastError: 'ostrelLastError', load: 'loadOstrel', tooMany: /^Ostrel SDK reported \d+ devices; / },
  dinoLite: { queue: new CommandQueue(), lastError: 'dinoLiteLastError', load: 'loadDinoLite', tooMany: /^Dino-Lite SDK reported \d+ devices; / },
};

/** Why a call failed, in words. */
function failureOf(native, { lastError, load }, call, elapsedMs) {
  const general = native.getLastError();
  const words = elapsedMs > shortestTimeoutMs && timedOut.test(general) ? general : native[lastError]();
  return new Error(`${call} failed: ${words || `no reason was given; was ${load} called?`}`);
}

/** What the commands of a family are made of: `ask(call, args, isDone, { key, signal })`. */
function askerFor(native, family) {
  return async (call, args, isDone, { key, options }) => family.queue.run(async () => {
    const started = performance.now();
    const answer = await native[call](...args);
    const elapsedMs = performance.now() - started;
    if (!isDone(answer, elapsedMs, family.tooMany.test(native.getLastError()))) {
      throw failureOf(native, family, `${call}(${args.map(describe).join(', ')})`, elapsedMs);
    }
    return answer;
  }, { key, signal: signalOption(options) });
}

const isTrue = (answer) => answer;
// An empty list may be the truth, or that of a library that counts more than can be listed.
const isListed = (list, elapsedMs, isTooLong) => list.length > 0 || (elapsedMs < shortestTimeoutMs && !isTooLong);

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

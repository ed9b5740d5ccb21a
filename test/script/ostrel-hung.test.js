// A microscope library that hangs for ever in any one of its functions. Each case is a process that
// never gets its owner thread back, and is killed; they all wait at the same time.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromHungChild } from './support/child.js';
import { fakePath, readSymbols, untidyEnvironment } from './support/environment.js';
import { assertPolled, assertWaited, hangAllPromises, hangOnTheOwnerThread } from './support/hang.js';

const library = fakePath('libostrel.so');
const timedOut = 'Ostrel SDK call timed out';

// By the function that hangs: the call that leads there, what it gives, and how long it may wait.
// A function that a poll reaches is met by whoever waits behind the poll.
const behindAPoll = { poll: true, call: 'ostrelGetSelectedDevice', gives: -1, ms: 5000 };
const onTheOwnerThread = {
  Init: { call: 'ostrelInit', gives: false, ms: 20_000, unstarted: true },
  Destroy: { call: 'ostrelDispose', gives: false, ms: 5000 },
  GetDevicesCount: { call: 'ostrelDeviceCount', gives: 0, ms: 5000 },
  GetDeviceUniqueId: { call: 'ostrelDeviceUniqueId', gives: '', ms: 5000 },
  GetDeviceFriendlyName: { call: 'ostrelDeviceFriendlyName', gives: '', ms: 5000 },
  SelectDeviceNumber: { call: 'ostrelSelectDevice', gives: false, ms: 10_000 },
  GetScopeStatus: behindAPoll,
  GetPixelSizeMicrons: { ...behindAPoll, library: fakePath('without_GetPixelSizeInfo/libostrel.so') },
  GetPixelSizeInfo: behindAPoll,
  GetLensGroupInfo: behindAPoll,
  IsCapturePressed: behindAPoll,
  GetVersionInfo: { call: 'ostrelSelectDevice', gives: false, ms: 10_000 },
  GetProtocolVersionInfo: { call: 'ostrelSelectDeviceAsync', gives: false, ms: 10_000 },
  TriggerAutoFocus: { call: 'ostrelTriggerAutoFocusAsync', gives: false, ms: 5000 },
  GetFocusPosition: { call: 'ostrelFocusNearAsync', gives: false, ms: 5000 },
  SetFocusPosition: { call: 'ostrelSetFocusPositionAsync', gives: false, ms: 5000 },
  FocusNearStep: { call: 'ostrelFocusNearAsync', gives: false, ms: 5000 },
  FocusFarStep: { call: 'ostrelFocusFarAsync', gives: false, ms: 5000 },
  SetLedState: { call: 'ostrelSetLedStateAsync', gives: false, ms: 5000 },
};
// These three functions call the library on the thread of the script that asks.
const onTheScriptThread = {
  GetApiVersion: 'ostrelCapabilities',
  GetLedState: 'ostrelGetLedState',
  GetLastErrorString: 'ostrelLastError',
};

/** Runs in a child. */
async function hangOnTheScriptThread({ addon, addonPath, startInstrument, pollAll, nextFrame, until }, symbol, call, file) {
  const { Worker } = await import('node:worker_threads');
  const fake = await startInstrument(addon, file, { select: true });
  fake.send(`block ${symbol}`);
  new Worker(`
    const { workerData: { addonPath, call } } = require('node:worker_threads');
    require(addonPath)[call]();
  `, { eval: true, execArgv: [], workerData: { addonPath, call } });
  await until('the call', () => fake.entered(symbol) === 1);
  const { sequence } = await nextFrame(addon);
  const given = [addon.ostrelDeviceCount(), addon.ostrelSelectDevice(0), addon.ostrelGetSelectedDevice(),
    await addon.ostrelFocusNearAsync(), await addon.ostrelSetLedStateAsync(true), await addon.ostrelDevicesAsync(),
    addon.ostrelSelectDevice(9), addon.getLastError(), addon.ostrelLastError(), addon.ostrelDispose()];
  for (let i = 0; i < 2000; i += 1) {
    pollAll(addon);
  }
  return [given, (await nextFrame(addon, { sequence })).sequence > sequence];
}

const options = (args) => ({ args, env: untidyEnvironment });

describe('a library that hangs for ever', { concurrency: 32 }, () => {
  it('is tried in every one of its functions', () => {
    assert.deepEqual([...Object.keys(onTheOwnerThread), ...Object.keys(onTheScriptThread)].sort(),
      readSymbols('devices/ostrel_symbols.h').map(({ name }) => name).sort());
  });

  for (const [symbol, row] of Object.entries(onTheOwnerThread)) {
    it(`in ${symbol} makes ${row.call} give up after ${row.ms} ms, and nothing else wait`, async () => {
      const { waited, longestPoll, nextWaited, telemetry, ...rest } =
        await valueFromHungChild(hangOnTheOwnerThread, options(['ostrel', symbol, { library, ...row }]));
      assert.deepEqual(rest, {
        given: row.gives,
        firstErrors: [timedOut, ''],
        hung: true,
        next: [false, false],
        nextErrors: [timedOut, ''],
        camera: true,
        state: undefined,
      });
      assertWaited(waited, row.ms);
      assertWaited(nextWaited, 5000);
      assertPolled(longestPoll);
      assert.equal(telemetry.ostrelGetScopeStatus, -1);
      assert.equal(telemetry.ostrelGetFocusPosition, -1);
      assert.equal(telemetry.ostrelIsCapturePressed, false);
    });
  }

  for (const [symbol, call] of Object.entries(onTheScriptThread)) {
    it(`in ${symbol} holds the thread that calls ${call}, and no other`, async () => {
      assert.deepEqual(await valueFromHungChild(hangOnTheScriptThread, options([symbol, call, library])), [
        [2, true, 0, true, true, [{ index: 0, uniqueId: '', name: '' }, { index: 1, uniqueId: '', name: '' }], false,
          ...Array(2).fill('Ostrel SDK device selection received an unavailable device index'), true], true]);
    });
  }

  it('lets every promise resolve with its failure value in its own time, and the script go on', async () => {
    const { answers, turns, errors, entered } = await valueFromHungChild(hangAllPromises, options(['ostrel', 'Init', library]));
    assert.deepEqual(answers.map(([value]) => value), [false, [], false, false]);
    [20_000, 20_000, 10_000, 5000].forEach((ms, i) => assertWaited(answers[i][1], ms));
    // Of about 200; a script thread that waits has none.
    assert.ok(turns >= 5, `${turns} turns`);
    assert.deepEqual(errors, [timedOut, '']);
    assert.equal(entered, 1);
  });
});

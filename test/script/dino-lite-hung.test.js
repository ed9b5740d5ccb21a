// A Dino-Lite library that hangs for ever in any one of its functions. Each case is a process that
// never gets its owner thread back, and is killed; they all wait at the same time.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromHungChild } from './support/child.js';
import { fakePath, readSymbols, untidyEnvironment } from './support/environment.js';
import { unknownDinoLite } from './support/fake-dino-lite.js';
import { assertPolled, assertWaited, hangAllPromises, hangOnTheOwnerThread } from './support/hang.js';

const library = fakePath('libdinolite.so');
const timedOut = 'Dino-Lite SDK call timed out';
const noBackend = { ok: false, supportsAmr: false, dnxLoadAttempted: false, backend: '', path: '', reason: '' };

// By the function that hangs: the call that leads there, what it gives, and how long it may wait.
// A function that a poll reaches is met by whoever waits behind the poll.
const behindAPoll = { poll: true, call: 'dinoLiteGetSelectedDevice', gives: -1, ms: 5000 };
const inASelection = { call: 'dinoLiteSelectDevice', gives: false, ms: 10_000 };
const inAPromisedSelection = { ...inASelection, call: 'dinoLiteSelectDeviceAsync' };
const hangs = {
  dl_initialize: { call: 'dinoLiteInit', gives: false, ms: 20_000, unstarted: true },
  dl_devices_count: { call: 'dinoLiteInitAsync', gives: false, ms: 20_000, unstarted: true },
  dl_get_device_unique_id: { call: 'dinoLiteDeviceId', gives: '', ms: 5000 },
  dl_get_device_name: { call: 'dinoLiteDevicesAsync', gives: [], ms: 20_000 },
  dl_select_device: { ...inASelection, script: 'default dl_get_selected_device 0' },
  dl_unselect_device: { call: 'dinoLiteDispose', gives: false, ms: 5000 },
  dl_get_selected_device: inAPromisedSelection,
  dl_device_supports_amr: inASelection,
  dl_get_amr: behindAPoll,
  dl_get_fovx: { ...behindAPoll, call: 'dinoLiteDeviceCount', gives: 0 },
  dl_get_amr_update_count: { call: 'dinoLiteSelectBackendForProductId', gives: noBackend, ms: 20_000 },
  dl_device_supports_microtouch: inAPromisedSelection,
  dl_microtouch_pressed: { ...behindAPoll, call: 'dinoLiteSupportsAmr', gives: false },
  dl_led_mode_count: inASelection,
  dl_led_mode: inAPromisedSelection,
  dl_set_led_state: { call: 'dinoLiteToggleLed', gives: -1, ms: 5000 },
  dl_initialize_selected_device: inASelection,
  dl_get_last_error: { ...inASelection, script: 'default dl_select_device 0' },
};

const options = (args) => ({ args, env: untidyEnvironment });

describe('a Dino-Lite library that hangs for ever', { concurrency: 32 }, () => {
  it('is tried in every one of its functions that is called at all', () => {
    assert.deepEqual([...Object.keys(hangs), 'dl_supports_amr'].sort(),
      readSymbols('devices/dino_lite_symbols.h').map(({ name }) => name).sort());
  });

  for (const [symbol, row] of Object.entries(hangs)) {
    it(`in ${symbol} makes ${row.call} give up after ${row.ms} ms, and nothing else wait`, async () => {
      const { waited, longestPoll, nextWaited, state, ...rest } =
        await valueFromHungChild(hangOnTheOwnerThread, options(['dinoLite', symbol, { library, ...row }]));
      assert.deepEqual(rest, {
        given: row.gives,
        firstErrors: [timedOut, ''],
        hung: true,
        telemetry: unknownDinoLite,
        next: [false, -1],
        nextErrors: [timedOut, ''],
        camera: true,
      });
      assertWaited(waited, row.ms);
      assertWaited(nextWaited, 5000);
      assertPolled(longestPoll);
      // After a dispose that was not done in time nobody sees the device any more.
      const { loaded, backend, path, selectedDeviceIndex, ledModes, error } = state;
      assert.deepEqual({ loaded, backend, path, selectedDeviceIndex, ledModes, error },
        { loaded: false, backend: '', path: '', selectedDeviceIndex: -1, ledModes: [], error: timedOut });
    });
  }

  it('lets every promise resolve with its failure value in its own time, and the script go on', async () => {
    const { answers, turns, errors, entered } =
      await valueFromHungChild(hangAllPromises, options(['dinoLite', 'dl_initialize', library]));
    assert.deepEqual(answers.map(([value]) => value), [false, [], false, false]);
    [20_000, 20_000, 10_000, 5000].forEach((ms, i) => assertWaited(answers[i][1], ms));
    // Of about 200; a script thread that waits has none.
    assert.ok(turns >= 5, `${turns} turns`);
    assert.deepEqual(errors, [timedOut, '']);
    assert.equal(entered, 1);
  });
});

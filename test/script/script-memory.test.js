// Memory that the addon gives to script code: what happens when there is none, and where it comes from.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { skipUnderSanitizer } from './support/environment.js';

describe('a picture that does not fit into memory', { skip: skipUnderSanitizer('the limit is one of the address space') }, () => {
  /** Runs in a child: what `call` throws while there is room for `room` more bytes only, and whether it works again. */
  async function callWithin({ addon, openFakeCamera, until }, call, room) {
    const { readFileSync } = await import('node:fs');
    const { spawnSync } = await import('node:child_process');
    const camera = openFakeCamera();
    camera.send('frame 6000 4000');
    addon.loadCameraBackend(camera.path);
    const calls = {
      cameraGrabFrame: () => addon.cameraGrabFrame(0),
      cameraPreviewGetLatest: () => addon.cameraPreviewGetLatest(0),
    };
    if (call !== 'cameraGrabFrame') {
      addon.cameraPreviewStart(0, 6000, 4000, 5);
      // Without a copy: its memory would be given back at a time of the engine's own.
      await until('a frame', () => addon.cameraPreviewGetLatest(0, Number.MAX_SAFE_INTEGER).producedFrames > 0);
      // The worker needs memory too.
      camera.send('default cnokhwa_grab_frame -8');
      const { droppedFrames } = addon.cameraPreviewGetLatest(0, Number.MAX_SAFE_INTEGER);
      await until('a failed grab', () =>
        addon.cameraPreviewGetLatest(0, Number.MAX_SAFE_INTEGER).droppedFrames > droppedFrames);
    }
    const limit = (bytes) => spawnSync('prlimit', ['--pid', String(process.pid), `--as=${bytes}:unlimited`]).status;
    const size = Number(/^VmSize:\s+(\d+) kB$/m.exec(readFileSync('/proc/self/status', 'utf8'))[1]) * 1024;
    if (limit(size + room) !== 0) {
      return 'no prlimit';
    }
    const outcomeOf = () => {
      try {
        return calls[call]().result;
      } catch (error) {
        return `${error.constructor.name}: ${error.message}`;
      }
    };
    const without = outcomeOf();
    limit('unlimited');
    const withMemory = outcomeOf();
    addon.cameraPreviewStop();
    return { without, withMemory };
  }

  for (const call of ['cameraGrabFrame', 'cameraPreviewGetLatest']) {
    it(`is an exception of ${call}, which works again with memory`, async () => {
      const { without, withMemory } = await valueFromChild(callWithin, { args: [call, 8 << 20] });
      assert.equal(without, 'RangeError: Array buffer allocation failed');
      assert.equal(withMemory, 0);
    });
  }
});

describe('the array of a fused picture', () => {
  /** Runs in a child: fuses after, or before, a script has put another constructor in place. */
  async function fuse({ loadAddon }, isBeforeLoad, kind) {
    const { makeRequest } = await import(`${process.env.OSTREL_TEST_SUPPORT}/focus-stack.js`);
    const request = makeRequest();
    const Real = globalThis.Uint8Array;
    const replacements = {
      failing: function Uint8Array() {
        throw new RangeError('Array buffer allocation failed');
      },
      short: function Uint8Array() {
        return new Real(3);
      },
      other: function Uint8Array() {
        return { length: 4 };
      },
    };
    const replace = () => (globalThis.Uint8Array = replacements[kind]);
    if (isBeforeLoad) {
      replace();
    }
    const addon = loadAddon();
    replace();
    try {
      const { data } = addon.edofMultibandFuse(request);
      return [data instanceof Real, data.length === data.buffer.byteLength, data.byteOffset];
    } catch (error) {
      return [Object.getPrototypeOf(error) === Error.prototype, error.message];
    } finally {
      globalThis.Uint8Array = Real;
    }
  }

  const env = { OSTREL_TEST_SUPPORT: new URL('support', import.meta.url).href };

  it('that cannot be allocated is an Error of the fusion', async () => {
    assert.deepEqual(await valueFromChild(fuse, { args: [true, 'failing'], env }), [true, 'Array buffer allocation failed']);
  });

  it('is refused if what was in the place of the constructor made no such array', async () => {
    for (const kind of ['short', 'other']) {
      assert.deepEqual(await valueFromChild(fuse, { args: [true, kind], env }),
        [true, 'The environment cannot allocate a byte array']);
    }
  });

  it('is the same after script code has replaced the constructor', async () => {
    for (const kind of ['failing', 'short', 'other']) {
      assert.deepEqual(await valueFromChild(fuse, { args: [false, kind], env }), [true, true, 0]);
    }
  });
});

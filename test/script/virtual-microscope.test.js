// The hand at the virtual microscope, as script code has it.

import assert from 'node:assert/strict';
import path from 'node:path';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const controlModule = new URL('../../examples/lib/virtual-microscope.js', import.meta.url).href;

describe('The hand at the virtual microscope', () => {
  it('changes what the camera sees', async () => {
    const seen = await valueFromChild(async ({ addon, simulatorPath, until }, url) => {
      const { MicroscopeControl } = await import(url);
      addon.loadCameraBackend(simulatorPath);
      addon.cameraInitialize();
      const control = await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL);
      addon.cameraStartCapture(0, 0, 0, 0);
      await until('a frame', () => addon.cameraHasFirstFrame(0) === 0);
      // The third frame from now on has been begun since.
      const grab = () => [1, 2, 3].map(() => addon.cameraGrabFrame(0).data).at(-1);
      const frames = [grab()];
      for (const command of ['focus 60', 'focus 128', 'light 0']) {
        await control.run(command);
        frames.push(grab());
      }
      const refusal = await control.run('focus 256').catch((error) => error.message);
      const status = await control.run('status');
      await control.run('unplug');
      const unplugged = [addon.cameraDevicesCount(), addon.cameraHasFirstFrame(0)];
      await control.run('plug');
      const plugged = [addon.cameraDevicesCount(), addon.cameraHasFirstFrame(0)];
      control.close();
      return {
        moved: !frames[1].equals(frames[0]),
        back: frames[2].equals(frames[0]),
        brightest: Math.max(...frames[3].subarray(0, 100_000)),
        refusal,
        status: status.replace(/ frame \d+$/, ''),
        unplugged,
        plugged,
      };
    }, {
      args: [controlModule],
      env: {
        OSTREL_SIMULATOR_CONTROL: path.join(directory, 'control'),
        OSTREL_SIMULATOR_STAGE: '0:0',
        OSTREL_SIMULATOR_NUMBERS: '0',
        OSTREL_SIMULATOR_NOISE: '0',
      },
    });
    assert.ok(seen.brightest <= 12);
    delete seen.brightest;
    assert.deepEqual(seen, {
      moved: true,
      back: true,
      refusal: 'focus 256: these arguments are not understood',
      status: 'plugged 1 focus 128 moving 0 scanning 0 light 0 magnification 50 stage 0:0',
      unplugged: [0, -1],
      plugged: [1, -2],
    });
  });

  it('is known to be gone when it hangs up', async () => {
    const refusals = await valueFromChild(async ({ addon, simulatorPath }, url) => {
      const { MicroscopeControl } = await import(url);
      addon.loadCameraBackend(simulatorPath);
      addon.cameraInitialize();
      const control = await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL);
      const refusalOf = (command) => control.run(command).catch((error) => error.message.replace(/x+/, 'x'));
      return [await refusalOf('x'.repeat(5000)), await refusalOf('status')];
    }, { args: [controlModule], env: { OSTREL_SIMULATOR_CONTROL: path.join(directory, 'gone') } });
    assert.deepEqual(refusals, ['x: the virtual microscope has gone', 'status: the virtual microscope has gone']);
  });
});

// The image controls, which no camera library of this platform has.

import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';

import { loadAddon } from './support/environment.js';
import { openFakeCamera } from './support/fake-camera.js';

const addon = loadAddon();
const calls = [
  ['cameraVideoProcAmpRange', 2, 'Expected (deviceIndex, property)',
    { result: -9, min: 0, max: 0, step: 0, default: 0, caps: 0 }],
  ['cameraVideoProcAmpGet', 2, 'Expected (deviceIndex, property)', { result: -9, value: 0, flags: 0 }],
  ['cameraVideoProcAmpSet', 4, 'Expected (deviceIndex, property, value, flags)', { result: -9 }],
];

function describeControls() {
  it('are reported as missing', () => {
    assert.equal(addon.cameraHasVideoProcAmp(), false);
  });

  for (const [name, count, expected, answer] of calls) {
    const numbers = [0, addon.VIDEOPROCAMP_GAIN, 5, addon.VIDEOPROCAMP_FLAG_MANUAL].slice(0, count);

    it(`${name} answers -9 and zeros, and leaves the last error alone`, () => {
      addon.loadTurboJpeg('');
      const result = addon[name](...numbers);
      assert.deepEqual(Object.keys(result), Object.keys(answer));
      assert.deepEqual(result, answer);
      assert.equal(addon.getLastError(), 'No libjpeg-turbo library path was provided');
    });

    it(`${name} throws a TypeError for fewer than ${count} arguments`, () => {
      for (let length = 0; length < count; length += 1) {
        assert.throws(() => addon[name](...numbers.slice(0, length)), (error) =>
          error instanceof TypeError && error.message === expected);
      }
    });

    it(`${name} throws for an argument that is no number, and converts none`, () => {
      const others = ['0', null, undefined, true, 1n, Symbol('0'), {}, [], new Number(0),
        { valueOf: () => assert.fail('converted') }];
      for (let position = 0; position < count; position += 1) {
        for (const other of others) {
          const args = Object.assign([...numbers], { [position]: other });
          assert.throws(() => addon[name](...args), (error) =>
            error instanceof Error && error.message === 'A number was expected');
        }
      }
    });

    it(`${name} takes any number, whatever its size`, () => {
      for (const number of [NaN, Infinity, -Infinity, -0, 2 ** 31, 2 ** 32 + 5, 1e308]) {
        assert.deepEqual(addon[name](...numbers.fill(number)), answer);
      }
    });

    it(`${name} ignores further arguments`, () => {
      assert.deepEqual(addon[name](...numbers, 'more', null), answer);
    });
  }
}

describe('image controls without a camera library', describeControls);

describe('image controls with the Linux camera library', () => {
  let camera;
  before(() => {
    camera = openFakeCamera();
    assert.equal(addon.loadCameraBackend(camera.path), true);
  });
  after(() => assert.deepEqual(camera.calls(), []));
  describeControls();
});

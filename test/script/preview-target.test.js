// The array that script code lends for the frames of a preview.

import assert from 'node:assert/strict';
import { beforeEach, describe, it } from 'node:test';

import { reduceToRgba, uniformFrame } from './support/fake-camera.js';
import { usePreview } from './support/preview.js';

describe('the target array', () => {
  const { startByHand, takeByHand } = usePreview();
  const size = 16 * 9 * 4;
  const expected = (number) => reduceToRgba(uniformFrame(number, 16, 9), { width: 16, height: 9 });
  let number;
  beforeEach(() => {
    number = 0;
    startByHand();
  });
  const take = async (target) => takeByHand({ sequence: number++, target });

  it('receives the frame, and the data is a view of it', async () => {
    const target = new Uint8Array(size + 10).fill(7);
    const { data } = await take(target);
    assert.equal(Object.getPrototypeOf(data), Uint8Array.prototype);
    assert.deepEqual([data.buffer, data.byteOffset, data.length], [target.buffer, 0, size]);
    assert.ok(expected(1).equals(data));
    assert.deepEqual([...target.subarray(size)], Array(10).fill(7));
  });

  it('may have just the size of the frame', async () => {
    const target = new Uint8Array(size);
    const { data } = await take(target);
    assert.equal(data.buffer, target.buffer);
  });

  it('may begin anywhere in its memory', async () => {
    const memory = new Uint8Array(size + 100).fill(7);
    const { data } = await take(memory.subarray(13, 13 + size + 20));
    assert.deepEqual([data.buffer, data.byteOffset, data.length], [memory.buffer, 13, size]);
    assert.ok(expected(1).equals(data));
    assert.ok(memory.subarray(0, 13).every((byte) => byte === 7));
    assert.ok(memory.subarray(13 + size).every((byte) => byte === 7));
  });

  it('may be a Buffer, of the pool too', async () => {
    const target = Buffer.allocUnsafe(size);
    const { data } = await take(target);
    assert.deepEqual([data.buffer, data.byteOffset, data.length], [target.buffer, target.byteOffset, size]);
    assert.ok(expected(1).equals(target));
  });

  it('is ignored if it is one byte too short', async () => {
    const target = new Uint8Array(size - 1);
    const { data } = await take(target);
    assert.ok(Buffer.isBuffer(data));
    assert.deepEqual(data, expected(1));
    assert.ok(target.every((byte) => byte === 0));
  });

  it('is ignored if its part that begins later is too short', async () => {
    const { data } = await take(new Uint8Array(size + 5).subarray(6));
    assert.ok(Buffer.isBuffer(data));
  });

  const detached = () => {
    const target = new Uint8Array(size);
    structuredClone(target.buffer, { transfer: [target.buffer] });
    return target;
  };
  const shrunk = () => {
    const memory = new ArrayBuffer(size, { maxByteLength: 2 * size });
    const target = new Uint8Array(memory);
    memory.resize?.(size - 1);
    return memory.resize ? target : null;
  };
  for (const [what, make] of [
    ['a Uint8ClampedArray', () => new Uint8ClampedArray(size)],
    ['an Int8Array', () => new Int8Array(size)],
    ['a Uint16Array', () => new Uint16Array(size)],
    ['a Float64Array', () => new Float64Array(size)],
    ['a BigUint64Array', () => new BigUint64Array(size)],
    ['a DataView', () => new DataView(new ArrayBuffer(size))],
    ['an ArrayBuffer', () => new ArrayBuffer(size)],
    ['an array of numbers', () => Array(size).fill(0)],
    ['null', () => null],
    ['a number', () => size],
    ['a proxy of a Uint8Array', () => new Proxy(new Uint8Array(size), {})],
    ['an array over shared memory', () => new Uint8Array(new SharedArrayBuffer(size))],
    ['a detached array', detached],
    ['an array whose memory has shrunk', shrunk],
  ]) {
    it(`is ignored if it is ${what}`, async () => {
      const { data } = await take(make());
      assert.ok(Buffer.isBuffer(data));
      assert.deepEqual(data, expected(1));
    });
  }

  it('may lie in memory that can be resized', async () => {
    const memory = new ArrayBuffer(size, { maxByteLength: 2 * size });
    const { data } = await take(new Uint8Array(memory));
    assert.ok(expected(1).equals(data));
  });

  it('does not hold the frame back from the worker', async () => {
    const target = new Uint8Array(size);
    for (let frame = 1; frame <= 10; frame += 1) {
      const { data } = await take(frame % 2 === 0 ? target : undefined);
      assert.ok(expected(frame).equals(data));
    }
  });

  it('leaves earlier answers alone', async () => {
    const first = await take();
    await take(new Uint8Array(size));
    await take();
    assert.deepEqual(first.data, expected(1));
  });
});

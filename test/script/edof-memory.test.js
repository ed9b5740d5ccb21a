// Memory of the fusion: arrays that change while a request is read or fused, and what happens when
// the system has no more memory or threads to give.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { loadAddon, skipUnderSanitizer } from './support/environment.js';
import { assertRefused, makeRequest } from './support/focus-stack.js';

const { edofMultibandFuse } = loadAddon();

/** The arrays of a request: how to reach them, and how a changed one is refused. */
const arrays = {
  rgba: [(request) => [request.frames[1], 'rgba'], 'Native EDOF frame RGBA length is invalid'],
  x: [(request) => [request.fields[1], 'x'], 'Native EDOF field x length is invalid'],
  y: [(request) => [request.fields[1], 'y'], 'Native EDOF field y length is invalid'],
  confidence: [(request) => [request.fields[1], 'confidence'], 'Native EDOF field confidence length is invalid'],
  weights: [(request) => [request.weights, 1], 'Native EDOF weight length is invalid'],
};

/** `request` with `act` run by the very last getter, after everything has been checked. */
const actingLast = (request, act) => Object.defineProperty(request, 'maxThreads', { get: () => void act() });

describe('an array that changes after it was read', () => {
  const bytesOf = (array) => array.length * array.BYTES_PER_ELEMENT;
  const inBuffer = (array, buffer) => {
    const view = new array.constructor(buffer, 0, array.length);
    view.set(array);
    return view;
  };

  for (const [name, [find, message]] of Object.entries(arrays)) {
    it(`is refused if ${name} was detached`, () => {
      const request = makeRequest();
      const [holder, key] = find(request);
      assertRefused(actingLast(request, () => structuredClone(0, { transfer: [holder[key].buffer] })), message);
      assert.equal(holder[key].length, 0);
    });

    it(`is refused if ${name} was shrunk`, () => {
      const request = makeRequest();
      const [holder, key] = find(request);
      const bytes = bytesOf(holder[key]);
      holder[key] = inBuffer(holder[key], new ArrayBuffer(bytes, { maxByteLength: bytes }));
      assertRefused(actingLast(request, () => holder[key].buffer.resize(bytes - 4)), message);
    });

    it(`is refused if ${name} follows a buffer that grows`, () => {
      for (const Memory of [ArrayBuffer, SharedArrayBuffer]) {
        const request = makeRequest();
        const [holder, key] = find(request);
        const bytes = bytesOf(holder[key]);
        const buffer = new Memory(bytes, { maxByteLength: bytes + 4 });
        holder[key] = new holder[key].constructor(buffer);
        assertRefused(actingLast(request, () => (buffer.resize ?? buffer.grow).call(buffer, bytes + 4)), message);
      }
    });

    it(`is taken if ${name} stands in a buffer that was resized behind it`, () => {
      const request = makeRequest();
      const expected = edofMultibandFuse(request).data;
      const [holder, key] = find(request);
      const bytes = bytesOf(holder[key]);
      holder[key] = inBuffer(holder[key], new ArrayBuffer(bytes, { maxByteLength: 4 * bytes }));
      actingLast(request, () => {
        holder[key].buffer.resize(3 * bytes);
        holder[key].buffer.resize(bytes);
      });
      assert.deepEqual(edofMultibandFuse(request).data, expected);
    });

    it(`is read where it lies at the end if ${name} is replaced`, () => {
      const request = makeRequest();
      const expected = edofMultibandFuse(request).data;
      const [holder, key] = find(request);
      actingLast(request, () => {
        holder[key] = new holder[key].constructor(1);
        globalThis.gc?.();
      });
      assert.deepEqual(edofMultibandFuse(request).data, expected);
    });

    it(`may lie in shared memory, fixed or growable: ${name}`, () => {
      const request = makeRequest();
      const expected = edofMultibandFuse(request).data;
      const [holder, key] = find(request);
      const bytes = bytesOf(holder[key]);
      const plain = holder[key];
      holder[key] = inBuffer(plain, new SharedArrayBuffer(bytes));
      assert.deepEqual(edofMultibandFuse(request).data, expected);
      holder[key] = inBuffer(plain, new SharedArrayBuffer(bytes, { maxByteLength: 2 * bytes }));
      actingLast(request, () => holder[key].buffer.grow(2 * bytes));
      assert.deepEqual(edofMultibandFuse(request).data, expected);
    });
  }

  it('is refused in the order of the stack if there are several', () => {
    const request = makeRequest();
    actingLast(request, () => structuredClone(0, {
      transfer: [request.weights[0].buffer, request.fields[1].x.buffer, request.frames[2].rgba.buffer, request.fields[0].y.buffer],
    }));
    assertRefused(request, 'Native EDOF field y length is invalid');
  });

  it('is refused by its own check if a getter in between emptied it', () => {
    const request = makeRequest();
    const { y } = request.fields[0];
    Object.defineProperty(request.fields[0], 'x', {
      get() {
        structuredClone(0, { transfer: [y.buffer] });
        return new Float32Array(4);
      },
    });
    assertRefused(request, 'Native EDOF field y length is invalid');
  });

  it('makes no difference if it is the list that shrinks', () => {
    for (const [key, message] of [
      ['frames', 'Native EDOF frame or field is invalid'],
      ['fields', 'Native EDOF frame or field is invalid'],
      ['weights', 'Native EDOF weights must be Float32Array values'],
    ]) {
      const request = makeRequest();
      const confidence = request.fields[0].confidence;
      Object.defineProperty(request.fields[0], 'confidence', {
        get() {
          request[key].length = 1;
          return confidence;
        },
      });
      assertRefused(request, message);
    }
  });
});

describe('shared memory', () => {
  it('may be written by another thread during the fusion', async () => {
    const result = await valueFromChild(async ({ addon, until }) => {
      const { Worker } = await import('node:worker_threads');
      const [width, height, mapWidth, mapHeight] = [200, 150, 40, 30];
      const shared = (Type, length) => new Type(new SharedArrayBuffer(length * Type.BYTES_PER_ELEMENT));
      const list = (make) => [0, 1, 2].map(make);
      const request = {
        width, height, referenceIndex: 0,
        frames: list(() => ({ rgba: shared(Uint8Array, width * height * 4), sourcePixelsPerOutputPixel: 1 })),
        fields: list(() => ({
          mapWidth, mapHeight, accepted: true,
          x: shared(Float32Array, mapWidth * mapHeight),
          y: shared(Float32Array, mapWidth * mapHeight),
          confidence: shared(Float32Array, mapWidth * mapHeight).fill(1),
        })),
        weights: list(() => shared(Float32Array, mapWidth * mapHeight).fill(1)),
      };
      const state = new Int32Array(new SharedArrayBuffer(4));
      const worker = new Worker(`
        import { workerData } from 'node:worker_threads';
        const { arrays, state } = workerData;
        const numbers = [NaN, Infinity, -Infinity, 1e30, -1e30, 3e38, -3e38, 0, 1, 5, 39, 40];
        Atomics.store(state, 0, 1);
        for (let i = 0; Atomics.load(state, 0) === 1; i += 1) {
          for (const array of arrays) {
            array[(i * 7919) % array.length] = numbers[i % numbers.length];
          }
        }`, { eval: true, workerData: { state, arrays: [
        ...request.frames.map(({ rgba }) => rgba), ...request.fields.flatMap(({ x, y, confidence }) => [x, y, confidence]),
        ...request.weights] } });
      const ended = new Promise((resolve) => { worker.on('exit', resolve); });
      await until('the worker to write', () => Atomics.load(state, 0) === 1);
      let bytes = 0;
      for (let i = 0; i < 20; i += 1) {
        bytes += addon.edofMultibandFuse({ ...request, maxThreads: 1 + (i % 4) }).data.length;
      }
      Atomics.store(state, 0, 2);
      await ended;
      return bytes;
    });
    assert.equal(result, 20 * 200 * 150 * 4);
  });
});

describe('what the system refuses', { skip: skipUnderSanitizer('the limit is one of the address space') }, () => {
  /** Runs in a child: fuses with no more than `room` bytes of address space left. */
  async function fuseWithin({ addon }, room, width, height, maxThreads) {
    const { readFileSync } = await import('node:fs');
    const { spawnSync } = await import('node:child_process');
    const cells = (value) => new Float32Array(4).fill(value);
    const list = (make) => [0, 1, 2].map(make);
    const request = {
      width, height, referenceIndex: 0, maxThreads,
      frames: list(() => ({ rgba: new Uint8Array(width * height * 4), sourcePixelsPerOutputPixel: 1 })),
      fields: list(() => ({ mapWidth: 2, mapHeight: 2, x: cells(0), y: cells(0), confidence: cells(1), accepted: true })),
      weights: list(() => cells(1)),
    };
    addon.edofMultibandFuse({ ...request, width: 1, height: 1, frames: list(() => ({ ...request.frames[0], rgba: new Uint8Array(4) })) });
    const limit = (bytes) => spawnSync('prlimit', ['--pid', String(process.pid), `--as=${bytes}:unlimited`]).status;
    const size = Number(/^VmSize:\s+(\d+) kB$/m.exec(readFileSync('/proc/self/status', 'utf8'))[1]) * 1024;
    if (limit(size + room) !== 0) {
      return 'no prlimit';
    }
    try {
      addon.edofMultibandFuse(request);
      return 'fused';
    } catch (error) {
      return `${Object.getPrototypeOf(error) === Error.prototype} ${error.message}`;
    }
  }

  it('memory is an Error of script code', async () => {
    assert.equal(await valueFromChild(fuseWithin, { args: [16 << 20, 2000, 1000, 1] }), 'true std::bad_alloc');
  });

  it('a thread is an Error of script code', async () => {
    assert.equal(await valueFromChild(fuseWithin, { args: [2 << 20, 100, 60, 8] }), 'true Resource temporarily unavailable');
  });
});

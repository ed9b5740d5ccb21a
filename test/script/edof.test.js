// The fusion of a focus stack as script code calls it.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import { describe, it } from 'node:test';

import { loadAddon, referencePath } from './support/environment.js';
import { assertRefused, makeRandomRequest, makeRequest } from './support/focus-stack.js';

const { edofMultibandFuse, getLastError } = loadAddon();
const reference = createRequire(import.meta.url)(referencePath('fuse_reference.node'));

function assertLikeReference(request) {
  const { data } = edofMultibandFuse(request);
  assert.deepEqual(Buffer.from(data), Buffer.from(reference.fuse(request)));
}

describe('the result of a fusion', () => {
  it('has five keys in their order', () => {
    assert.deepEqual(Object.keys(edofMultibandFuse(makeRequest())), ['data', 'backend', 'simd', 'threads', 'durationMs']);
  });

  it('holds the image in memory of its own', () => {
    const { data } = edofMultibandFuse(makeRequest({ width: 7, height: 3 }));
    assert.equal(Object.getPrototypeOf(data), Uint8Array.prototype);
    assert.equal(data.length, 7 * 3 * 4);
    assert.equal(data.byteOffset, 0);
    assert.equal(Object.getPrototypeOf(data.buffer), ArrayBuffer.prototype);
    assert.equal(data.buffer.byteLength, 7 * 3 * 4);
    assert.ok(data.every((byte, index) => index % 4 !== 3 || byte === 255));
    assert.notEqual(edofMultibandFuse(makeRequest()).data.buffer, data.buffer);
  });

  it('tells how it was made', () => {
    const before = performance.now();
    const { backend, simd, durationMs } = edofMultibandFuse(makeRequest());
    const passed = performance.now() - before;
    assert.equal(backend, 'native-cpp');
    assert.equal(simd, /^flags.*\bavx2\b/m.test(fs.readFileSync('/proc/cpuinfo', 'utf8')) ? 'avx2' : 'sse2');
    assert.ok(durationMs > 0 && durationMs <= passed, `${durationMs} of ${passed}`);
  });

  it('is the same for the same request', () => {
    const request = makeRandomRequest(1, [[130, 74]]);
    assert.deepEqual(edofMultibandFuse(request).data, edofMultibandFuse(request).data);
  });

  it('leaves the request and the last error alone', () => {
    const request = makeRandomRequest(2, [[20, 10]]);
    const copy = structuredClone(request);
    const lastError = getLastError();
    edofMultibandFuse(request);
    assertRefused({ ...request, width: 0 }, 'Native EDOF dimensions are invalid');
    assert.deepEqual(request, copy);
    assert.equal(getLastError(), lastError);
  });
});

describe('the bytes of a fusion', () => {
  const sizeClasses = {
    'tiny images': { sizes: [[1, 1], [2, 1], [1, 2], [3, 3], [5, 4], [8, 8]], count: 600 },
    'rows, columns and single levels': { sizes: [[1, 40], [40, 1], [64, 9], [65, 36], [64, 37], [30, 20]], count: 200 },
    'two and three levels': { sizes: [[65, 37], [66, 38], [100, 60], [129, 73]], count: 30 },
    'four levels': { sizes: [[257, 145], [264, 152]], count: 4 },
  };
  for (const [name, { sizes, count }] of Object.entries(sizeClasses)) {
    it(`are the reference's for ${name}`, () => {
      for (let seed = 1; seed <= count; seed += 1) {
        const request = { ...makeRandomRequest(seed, sizes), maxThreads: [1, 2, 5, 8][seed % 4] };
        const { data } = edofMultibandFuse(request);
        assert.ok(Buffer.from(data).equals(Buffer.from(reference.fuse(request))), `seed ${seed}`);
      }
    });
  }

  it('do not depend on the number of threads', () => {
    const request = makeRandomRequest(3, [[320, 240]]);
    const [one, ...others] = [1, 2, 5, 8].map((maxThreads) => edofMultibandFuse({ ...request, maxThreads }));
    assert.equal(one.threads, 1);
    for (const { data } of others) {
      assert.deepEqual(data, one.data);
    }
  });

  it('go by each frame\'s own map size', () => {
    const request = makeRequest();
    request.fields[1] = { ...makeRequest({ mapWidth: 3, mapHeight: 1 }).fields[1] };
    request.weights[1] = new Float32Array(3).fill(1);
    assertLikeReference(request);
  });
});

describe('a request is taken', () => {
  it('with 3 and with 11 frames', () => {
    assertLikeReference(makeRequest({ count: 3 }));
    assertLikeReference(makeRequest({ count: 11 }));
  });

  it('with fractions cut toward zero', () => {
    const exact = { ...makeRequest(), referenceIndex: 2 };
    const request = { ...exact, width: 4.9, height: 4.5, referenceIndex: 2.9 };
    request.fields = request.fields.map((field) => ({ ...field, mapWidth: 2.1, mapHeight: 2.999 }));
    assert.deepEqual(edofMultibandFuse(request).data, edofMultibandFuse(exact).data);
    assertLikeReference({ ...exact, referenceIndex: -0.5 });
  });

  it('as a function, with frames and fields that are functions', () => {
    const plain = makeRequest();
    const asFunction = (object) => Object.assign(() => {}, object);
    const request = asFunction({ ...plain, frames: plain.frames.map(asFunction), fields: plain.fields.map(asFunction) });
    assert.deepEqual(edofMultibandFuse(request).data, edofMultibandFuse(plain).data);
  });

  it('with Buffers, subclasses and views within larger buffers', () => {
    const plain = makeRequest();
    const expected = edofMultibandFuse(plain).data;
    const request = makeRequest();
    request.frames[0].rgba = Buffer.from(request.frames[0].rgba);
    request.frames[1].rgba = new (class extends Uint8Array {})(request.frames[1].rgba);
    const odd = new Uint8Array(64 + 5);
    odd.set(request.frames[2].rgba, 5);
    request.frames[2].rgba = odd.subarray(5);
    const wide = new Float32Array(9);
    wide.set(request.weights[0], 3);
    request.weights[0] = wide.subarray(3, 7);
    assert.deepEqual(edofMultibandFuse(request).data, expected);
  });

  it('with `accepted` of any type, by truthiness', () => {
    const resultOf = (accepted) => {
      const request = makeRequest();
      request.fields[1].accepted = accepted;
      return edofMultibandFuse(request).data;
    };
    const [yes, no] = [resultOf(true), resultOf(false)];
    assert.notDeepEqual(yes, no);
    for (const truthy of ['0', [], {}, -1, 1n, Symbol('yes')]) {
      assert.deepEqual(resultOf(truthy), yes);
    }
    for (const falsy of [undefined, null, NaN, '', 0, -0, 0n]) {
      assert.deepEqual(resultOf(falsy), no);
    }
    const request = makeRequest();
    delete request.fields[1].accepted;
    assert.deepEqual(edofMultibandFuse(request).data, no);
  });
});

describe('the worker limit', () => {
  const threadsOf = (maxThreads) => edofMultibandFuse({ ...makeRequest(), maxThreads }).threads;

  it('is half of the processors by default, rounded up', () => {
    // A process may be bound to fewer processors than there are.
    const allowed = [os.cpus().length, os.availableParallelism()]
      .map((count) => Math.min(8, Math.max(1, Math.ceil(count / 2))));
    const { threads } = edofMultibandFuse(makeRequest());
    assert.ok(allowed.includes(threads), `${threads}`);
  });

  it('is cut toward zero and clamped to 1 to 8', () => {
    const expected = [[1, 1], [5, 5], [8, 8], [8.9, 8], [9, 8], [100, 8], [0.9, 1], [0, 1], [-0, 1], [-3, 1], [2 ** 31 - 1, 8]];
    for (const [maxThreads, threads] of expected) {
      assert.equal(threadsOf(maxThreads), threads, `${maxThreads}`);
    }
  });

  it('is 1 for what no 32 bits hold', () => {
    for (const maxThreads of [2 ** 31, 1e12, -1e12, 1e308]) {
      assert.equal(threadsOf(maxThreads), 1, `${maxThreads}`);
    }
  });

  it('keeps its default for everything that is no number', () => {
    const { threads } = edofMultibandFuse(makeRequest());
    for (const maxThreads of ['4', '', null, undefined, true, 7n, {}, [3], new Number(7)]) {
      assert.equal(threadsOf(maxThreads), threads, String(maxThreads));
    }
  });

  it('is refused if it is not finite', () => {
    for (const maxThreads of [NaN, Infinity, -Infinity]) {
      assertRefused({ ...makeRequest(), maxThreads }, 'Native EDOF maxThreads is invalid');
    }
  });
});

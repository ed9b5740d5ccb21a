// The fusion of a focus stack as script code calls it.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { loadAddon, referencePath, skipUnderSanitizer } from './support/environment.js';
import { makeRandomRequest, makeRequest } from './support/focus-stack.js';

const { edofMultibandFuse, getLastError } = loadAddon();
const reference = createRequire(import.meta.url)(referencePath('fuse_reference.node'));

/** Asserts that `request` is refused by a plain Error with exactly this text. */
function assertRefused(request, message) {
  assert.throws(() => edofMultibandFuse(request), (error) => {
    assert.equal(error.message, message);
    assert.equal(Object.getPrototypeOf(error), Error.prototype);
    assert.equal(error.code, undefined);
    return true;
  });
}

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
    const lastError = getLastError?.();
    edofMultibandFuse(request);
    assertRefused({ ...request, width: 0 }, 'Native EDOF dimensions are invalid');
    assert.deepEqual(request, copy);
    assert.equal(getLastError?.(), lastError);
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

describe('a request is refused', () => {
  it('if it is no object', () => {
    const message = 'edofMultibandFuse requires an input object';
    assert.throws(() => edofMultibandFuse(), { message });
    for (const value of [undefined, null, 1, 'request', true, Symbol('request'), 1n]) {
      assertRefused(value, message);
    }
  });

  it('for each required number that is none, or not finite', () => {
    const places = {
      width: (request) => request,
      height: (request) => request,
      referenceIndex: (request) => request,
      sourcePixelsPerOutputPixel: (request) => request.frames[1],
      mapWidth: (request) => request.fields[2],
      mapHeight: (request) => request.fields[0],
    };
    for (const [key, place] of Object.entries(places)) {
      for (const value of [undefined, null, '4', true, {}, [4], 4n, new Number(4)]) {
        const request = makeRequest();
        place(request)[key] = value;
        assertRefused(request, `Native EDOF requires numeric ${key}`);
      }
      for (const value of [NaN, Infinity, -Infinity]) {
        const request = makeRequest();
        place(request)[key] = value;
        assertRefused(request, `Native EDOF received invalid ${key}`);
      }
    }
  });

  it('for sizes outside 1 to 16384', () => {
    for (const size of [0, -1, 0.9, -0.5, 16385, 2 ** 31, -(2 ** 31), 1e12, 1e308]) {
      const message = 'Native EDOF dimensions are invalid';
      assertRefused({ ...makeRequest(), width: size }, message);
      assertRefused({ ...makeRequest(), height: size }, message);
      for (const key of ['mapWidth', 'mapHeight']) {
        const request = makeRequest();
        request.fields[1][key] = size;
        assertRefused(request, message);
      }
    }
  });

  it('for lists that are no arrays', () => {
    for (const key of ['frames', 'fields', 'weights']) {
      for (const list of [undefined, null, {}, { length: 3 }, 'abc', new Float32Array(3), new Proxy([1, 2, 3], {})]) {
        assertRefused({ ...makeRequest(), [key]: list }, 'Native EDOF frames, fields, and weights must be arrays');
      }
    }
  });

  it('for a stack of another length', () => {
    const message = 'Native EDOF stack lengths are invalid';
    for (const count of [0, 1, 2, 12, 13]) {
      assertRefused(makeRequest({ count }), message);
    }
    for (const key of ['fields', 'weights']) {
      const longer = makeRequest();
      longer[key].push(longer[key][0]);
      assertRefused(longer, message);
      const shorter = makeRequest();
      shorter[key].pop();
      assertRefused(shorter, message);
    }
  });

  it('for a reference index outside the stack', () => {
    for (const referenceIndex of [-1, 3, 11, 1e12, -1e12, 2 ** 31]) {
      assertRefused({ ...makeRequest(), referenceIndex }, 'Native EDOF reference index is invalid');
    }
  });

  it('for a frame or a field that is no object', () => {
    for (const key of ['frames', 'fields']) {
      for (const value of [undefined, null, 5, 'frame', true]) {
        const request = makeRequest();
        request[key][2] = value;
        assertRefused(request, 'Native EDOF frame or field is invalid');
      }
    }
    const holes = makeRequest();
    delete holes.frames[1];
    assertRefused(holes, 'Native EDOF frame or field is invalid');
  });

  it('for pixels of another type or length', () => {
    const others = [undefined, null, [], {}, new ArrayBuffer(64), new DataView(new ArrayBuffer(64)), new Uint8ClampedArray(64),
      new Int8Array(64), new Float32Array(64), new BigUint64Array(64), new Proxy(new Uint8Array(64), {})];
    for (const rgba of others) {
      const request = makeRequest();
      request.frames[1].rgba = rgba;
      assertRefused(request, 'Native EDOF frame RGBA data must be Uint8Array');
    }
    for (const length of [0, 63, 65, 16, 48]) {
      const request = makeRequest();
      request.frames[1].rgba = new Uint8Array(length);
      assertRefused(request, 'Native EDOF frame RGBA length is invalid');
    }
  });

  it('for a scale that is not positive', () => {
    for (const scale of [0, -0, -1, -5e-324]) {
      const request = makeRequest();
      request.frames[2].sourcePixelsPerOutputPixel = scale;
      assertRefused(request, 'Native EDOF physical scale must be positive');
    }
  });

  it('for maps of another type or length', () => {
    for (const key of ['x', 'y', 'confidence']) {
      for (const map of [undefined, null, [0, 1, 0, 1], new Float64Array(4), new Int32Array(4), new Uint8Array(16), new ArrayBuffer(16)]) {
        const request = makeRequest();
        request.fields[1][key] = map;
        assertRefused(request, `Native EDOF field ${key} must be Float32Array`);
      }
      for (const length of [0, 3, 5, 16]) {
        const request = makeRequest();
        request.fields[1][key] = new Float32Array(length);
        assertRefused(request, `Native EDOF field ${key} length is invalid`);
      }
    }
  });

  it('for weights of another type or length', () => {
    for (const weights of [undefined, null, [1, 1, 1, 1], new Float64Array(4), new Uint8Array(16)]) {
      const request = makeRequest();
      request.weights[1] = weights;
      assertRefused(request, 'Native EDOF weights must be Float32Array values');
    }
    // The length goes by the map, not by the image.
    for (const length of [0, 3, 5, 16]) {
      const request = makeRequest();
      request.weights[1] = new Float32Array(length);
      assertRefused(request, 'Native EDOF weight length is invalid');
    }
  });

  it('for its first fault in the order of reading, and then for the next', () => {
    const request = {
      maxThreads: NaN,
      frames: 1,
      fields: [5, {}, {}],
      weights: [0, 0],
    };
    const steps = [
      ['Native EDOF requires numeric width', () => { request.width = Infinity; }],
      ['Native EDOF received invalid width', () => { request.width = 0; }],
      ['Native EDOF requires numeric height', () => { request.height = NaN; }],
      ['Native EDOF received invalid height', () => { request.height = 2; }],
      ['Native EDOF dimensions are invalid', () => { request.width = 2; }],
      ['Native EDOF requires numeric referenceIndex', () => { request.referenceIndex = NaN; }],
      ['Native EDOF received invalid referenceIndex', () => { request.referenceIndex = -1; }],
      ['Native EDOF frames, fields, and weights must be arrays', () => { request.frames = [1, {}]; }],
      ['Native EDOF stack lengths are invalid', () => { request.frames.push({}); }],
      ['Native EDOF stack lengths are invalid', () => { request.weights.push(0); }],
      ['Native EDOF reference index is invalid', () => { request.referenceIndex = 1; }],
      ['Native EDOF frame or field is invalid', () => { request.frames[0] = { rgba: [] }; }],
      ['Native EDOF frame or field is invalid', () => { request.fields[0] = { mapHeight: 16385 }; }],
      ['Native EDOF frame RGBA data must be Uint8Array', () => { request.frames[0].rgba = new Uint8Array(3); }],
      ['Native EDOF frame RGBA length is invalid', () => { request.frames[0].rgba = new Uint8Array(16); }],
      ['Native EDOF requires numeric sourcePixelsPerOutputPixel', () => { request.frames[0].sourcePixelsPerOutputPixel = NaN; }],
      ['Native EDOF received invalid sourcePixelsPerOutputPixel', () => { request.frames[0].sourcePixelsPerOutputPixel = 0; }],
      ['Native EDOF physical scale must be positive', () => { request.frames[0].sourcePixelsPerOutputPixel = 1; }],
      ['Native EDOF requires numeric mapWidth', () => { request.fields[0].mapWidth = 0; }],
      ['Native EDOF dimensions are invalid', () => { request.fields[0].mapHeight = 3; }],
      ['Native EDOF dimensions are invalid', () => { request.fields[0].mapWidth = 2; }],
      ['Native EDOF field x must be Float32Array', () => { request.fields[0].x = new Float32Array(5); }],
      ['Native EDOF field x length is invalid', () => { request.fields[0].x = new Float32Array(6); }],
      ['Native EDOF field y must be Float32Array', () => { request.fields[0].y = new Float32Array(5); }],
      ['Native EDOF field y length is invalid', () => { request.fields[0].y = new Float32Array(6); }],
      ['Native EDOF field confidence must be Float32Array', () => { request.fields[0].confidence = new Float32Array(5); }],
      ['Native EDOF field confidence length is invalid', () => { request.fields[0].confidence = new Float32Array(6); }],
      ['Native EDOF weights must be Float32Array values', () => { request.weights[0] = new Float32Array(4); }],
      ['Native EDOF weight length is invalid', () => { request.weights[0] = new Float32Array(6); }],
      ['Native EDOF frame RGBA data must be Uint8Array', () => {
        for (const key of ['frames', 'fields', 'weights']) {
          request[key].fill(request[key][0]);
        }
      }],
      ['Native EDOF maxThreads is invalid', () => { request.maxThreads = 1; }],
    ];
    for (const [message, mend] of steps) {
      assertRefused(request, message);
      mend();
    }
    assertLikeReference(request);
  });

  it('by a plain Error with the words of what a getter throws', () => {
    const withGetter = (thrown) => Object.defineProperty(makeRequest(), 'weights', { get() { throw thrown; } });
    assertRefused(withGetter(new TypeError('not today')), 'not today');
    assertRefused(withGetter(new RangeError('')), '');
    for (const thrown of [42, null, undefined, 'text', Symbol('thrown'), { message: 5 }, { get message() { throw new Error('x'); } }]) {
      assertRefused(withGetter(thrown), '');
    }
  });
});

/** `request` with every read of a property written down in `trace`. */
function traced(request, trace) {
  const watch = (object, name) => new Proxy(object, {
    get(target, key) {
      trace.push(`${name}${String(key)}`);
      return target[key];
    },
    has(target, key) {
      trace.push(`${name}${String(key)} in`);
      return key in target;
    },
  });
  // A proxy of an array is no array, so its elements become getters.
  const watchList = (list, name) => {
    const copy = [];
    list.forEach((element, index) => Object.defineProperty(copy, index, {
      get() {
        trace.push(`${name}[${index}]`);
        return element;
      },
    }));
    return copy;
  };
  return watch({
    ...request,
    frames: watchList(request.frames.map((frame, i) => watch(frame, `frame${i}.`)), 'frames'),
    fields: watchList(request.fields.map((field, i) => watch(field, `field${i}.`)), 'fields'),
    weights: watchList(request.weights, 'weights'),
  }, '');
}

describe('the reading of a request', () => {
  it('asks for each property once, in a fixed order', () => {
    const trace = [];
    edofMultibandFuse(traced(makeRequest(), trace));
    const perFrame = [0, 1, 2].flatMap((i) => [
      `frames[${i}]`, `fields[${i}]`, `frame${i}.rgba`, `frame${i}.sourcePixelsPerOutputPixel`, `field${i}.mapWidth`,
      `field${i}.mapHeight`, `field${i}.x`, `field${i}.y`, `field${i}.confidence`, `field${i}.accepted`, `weights[${i}]`,
    ]);
    assert.deepEqual(trace, ['width', 'height', 'referenceIndex', 'frames', 'fields', 'weights', ...perFrame, 'maxThreads']);
  });

  it('ends at the first failure', () => {
    const request = makeRequest();
    request.fields[1].y = null;
    const trace = [];
    assertRefused(traced(request, trace), 'Native EDOF field y must be Float32Array');
    assert.deepEqual(trace.slice(-4), ['field1.mapWidth', 'field1.mapHeight', 'field1.x', 'field1.y']);
    assert.ok(!trace.includes('maxThreads'));
  });
});

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

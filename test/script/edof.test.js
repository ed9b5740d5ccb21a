// The fusion of a focus stack as script code calls it.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import { describe, it } from 'node:test';

import { loadAddon, referencePath } from './support/environment.js';
import { assertRefused, makeRandomRequest, makeRequest } from './support/focus-stack.js';
import { makeOddValues } from './support/odd-values.js';

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

describe('a value of any type', () => {
  const places = {
    ...Object.fromEntries(['width', 'height', 'referenceIndex', 'frames', 'fields', 'weights', 'maxThreads']
      .map((key) => [key, (request) => [request, key]])),
    frame: (request) => [request.frames, 1],
    rgba: (request) => [request.frames[1], 'rgba'],
    sourcePixelsPerOutputPixel: (request) => [request.frames[1], 'sourcePixelsPerOutputPixel'],
    field: (request) => [request.fields, 1],
    ...Object.fromEntries(['mapWidth', 'mapHeight', 'x', 'y', 'confidence', 'accepted']
      .map((key) => [key, (request) => [request.fields[1], key]])),
    weight: (request) => [request.weights, 1],
  };

  const assertSurvived = (request) => {
    try {
      assert.equal(edofMultibandFuse(request).backend, 'native-cpp');
    } catch (error) {
      assert.equal(Object.getPrototypeOf(error), Error.prototype);
    }
  };

  it('as the request gives an Error', () => {
    makeOddValues(() => {}).forEach(assertSurvived);
  });

  for (const [name, place] of Object.entries(places)) {
    it(`as ${name} gives an image or an Error`, () => {
      for (const value of makeOddValues(() => {})) {
        const request = makeRequest();
        const [holder, key] = place(request);
        holder[key] = value;
        assertSurvived(request);
      }
    });
  }
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

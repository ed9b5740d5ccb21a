// Which requests of a fusion are refused, in which words, and in which order they are read.

import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, it } from 'node:test';

import { loadAddon, referencePath } from './support/environment.js';
import { assertRefused, makeRequest } from './support/focus-stack.js';
import { makeOddValues } from './support/odd-values.js';

const { edofMultibandFuse } = loadAddon();
const reference = createRequire(import.meta.url)(referencePath('fuse_reference.node'));

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
    assert.deepEqual(Buffer.from(edofMultibandFuse(request).data), Buffer.from(reference.fuse(request)));
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

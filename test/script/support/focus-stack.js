// Requests of a fusion for script tests: small ones that are good, and seeded ones of every kind.

import assert from 'node:assert/strict';

import { loadAddon } from './environment.js';
import { makeRandom } from './odd-values.js';

/** A good request: three frames of 4 by 4 pixels with maps of 2 by 2 cells, all different. */
export function makeRequest({ width = 4, height = 4, mapWidth = 2, mapHeight = 2, count = 3 } = {}) {
  const cells = mapWidth * mapHeight;
  const indices = Array.from({ length: count }, (_, i) => i);
  return {
    width,
    height,
    referenceIndex: 0,
    frames: indices.map((i) => ({
      rgba: new Uint8Array(width * height * 4).map((_, byte) => byte * (i + 3)),
      sourcePixelsPerOutputPixel: 1,
    })),
    fields: indices.map(() => ({
      mapWidth,
      mapHeight,
      x: new Float32Array(cells).map((_, cell) => cell % mapWidth),
      y: new Float32Array(cells).map((_, cell) => Math.floor(cell / mapWidth)),
      confidence: new Float32Array(cells).fill(1),
      accepted: true,
    })),
    weights: indices.map((i) => new Float32Array(cells).fill(i + 1)),
  };
}

const oddFloats = [NaN, Infinity, -Infinity, 3e38, -3e38, 1e-45, -0, 1e-8, 16384, -1];

/** A good request of any kind; everything follows from `seed`. `sizes`: [width, height] to choose from. */
export function makeRandomRequest(seed, sizes) {
  const random = makeRandom(seed);
  const uniform = (low, high) => low + (random(2 ** 24) / 2 ** 24) * (high - low);
  const choose = (values) => values[random(values.length)];
  const [width, height] = choose(sizes);
  const count = 3 + random(9);
  const weightKind = choose(['plain', 'plain', 'zero', 'tiny', 'signed', 'odd']);
  const weight = () => ({
    plain: uniform(0, 1), zero: 0, tiny: uniform(0, 2e-8), signed: uniform(-1, 1), odd: random(5) === 0 ? choose(oddFloats) : 1,
  })[weightKind];
  const frames = [];
  const fields = [];
  const weights = [];
  for (let i = 0; i < count; i += 1) {
    const [mapWidth, mapHeight] = choose([[1, 1], [2, 3], [width, height], [1 + random(width), 1 + random(height)], [2 * width, 3]]);
    const spread = choose([0, 0.2, 3]);
    const oddRate = choose([0, 0, 30]);
    const makeMap = (value) => {
      const map = new Float32Array(mapWidth * mapHeight);
      return map.map((_, cell) => (oddRate > 0 && random(oddRate) === 0 ? choose(oddFloats) : value(cell)));
    };
    frames.push({
      rgba: new Uint8Array(width * height * 4).map(() => random(256)),
      sourcePixelsPerOutputPixel: choose([1, 1, 0.75, 1.25, 1 + 2 ** -52, 1e-300, 1e300]),
    });
    fields.push({
      mapWidth,
      mapHeight,
      x: makeMap((cell) => (cell % mapWidth) + uniform(-spread, spread)),
      y: makeMap((cell) => Math.floor(cell / mapWidth) + uniform(-spread, spread)),
      confidence: makeMap(() => choose([1, 1, uniform(0, 0.1), Math.fround(0.02), 0])),
      accepted: random(4) > 0,
    });
    weights.push(new Float32Array(mapWidth * mapHeight).map(weight));
  }
  return { width, height, referenceIndex: random(count), frames, fields, weights };
}

/** Asserts that `request` is refused by a plain Error with exactly this text. */
export function assertRefused(request, message) {
  assert.throws(() => loadAddon().edofMultibandFuse(request), (error) => {
    assert.equal(error.message, message);
    assert.equal(Object.getPrototypeOf(error), Error.prototype);
    assert.equal(error.code, undefined);
    return true;
  });
}

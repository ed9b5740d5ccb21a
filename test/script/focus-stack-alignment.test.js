// How the frames of a focus stack are brought to one another.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { coarseDetail } from '../../kit/focus-stack/choose-frames.js';
import { makeField, mapPositions, mapSizeFor } from '../../kit/focus-stack/fields.js';
import { measureSharpness } from '../../kit/focus-stack/focus-measure.js';
import { solveSymmetric } from '../../kit/focus-stack/linear-equations.js';
import { halve, lumaOf, makePlane, pyramidOf, sampleBilinear, smooth } from '../../kit/focus-stack/planes.js';
import { prepareFrame, register } from '../../kit/focus-stack/registration.js';
import { compose, identity, invert, rotationOf, scaleOf } from '../../kit/focus-stack/similarity.js';
import { alignFrames, joinNeighbours } from '../../kit/focus-stack/stack-alignment.js';
import { constantFrame, makeScene, makeStack, renderScene } from './support/synthetic-stack.js';

const similarity = (scale, rotation, tx, ty) => ({ a: scale * Math.cos(rotation), b: scale * Math.sin(rotation), tx, ty });

/** How far two similarities take a corner of the picture apart, at most. */
function cornerError(one, other, { width, height }) {
  const apart = ([u, v]) => Math.hypot(
    (one.a - other.a) * u - (one.b - other.b) * v + one.tx - other.tx,
    (one.b - other.b) * u + (one.a - other.a) * v + one.ty - other.ty);
  return Math.max(...[[-1, -1], [1, -1], [-1, 1], [1, 1]].map(([x, y]) => apart([x * width / 2, y * height / 2])));
}

function assertNear(actual, expected, tolerance) {
  assert.ok(Math.abs(actual - expected) <= tolerance, `${actual} is not within ${tolerance} of ${expected}`);
}

describe('planes', () => {
  it('take brightness from the three colours and not from the transparency', () => {
    const luma = lumaOf({ width: 2, height: 2, rgba: Uint8Array.of(255, 0, 0, 9, 0, 255, 0, 8, 0, 0, 255, 7, 255, 255, 255, 0) });
    [54.213, 182.376, 18.411, 255].forEach((value, i) => assertNear(luma.data[i], value, 1e-3));
  });

  it('are halved by the mean of two by two, without an odd last row and column', () => {
    const half = halve(makePlane(3, 3, Float32Array.of(1, 3, 100, 5, 7, 100, 100, 100, 100)));
    assert.deepEqual({ ...half, data: [...half.data] }, { width: 1, height: 1, data: [4] });
    assert.deepEqual({ ...halve(makePlane(1, 2, Float32Array.of(2, 4))) }, { width: 1, height: 1, data: Float32Array.of(3) });
  });

  it('form pyramids down to the smallest side', () => {
    assert.deepEqual(pyramidOf(makePlane(100, 61), 15).map(({ width, height }) => [width, height]), [[100, 61], [50, 30], [25, 15]]);
  });

  it('stay what they are under smoothing where they are constant, and keep their mean elsewhere', () => {
    smooth(makePlane(9, 5, new Float32Array(45).fill(7)), 2).data.forEach((value) => assertNear(value, 7, 1e-5));
    const spot = makePlane(41, 41);
    spot.data[20 * 41 + 20] = 1000;
    const smoothed = smooth(spot, 2);
    assertNear(smoothed.data.reduce((sum, value) => sum + value), 1000, 0.1);
    const variance = smoothed.data.reduce((sum, value, i) => sum + value * ((i % 41) - 20) ** 2, 0) / 1000;
    assertNear(variance, 6, 0.01);
  });

  it('are sampled between their pixels up to the last one, and nowhere outside', () => {
    const plane = makePlane(2, 2, Float32Array.of(0, 10, 20, 30));
    assert.equal(sampleBilinear(plane, 0.5, 0.5), 15);
    assert.equal(sampleBilinear(plane, 1, 1), 30);
    assert.equal(sampleBilinear(plane, 1.01, 0), NaN);
    assert.equal(sampleBilinear(plane, 0, -0.01), NaN);
    assert.equal(sampleBilinear(plane, NaN, 0), NaN);
  });
});

describe('symmetric equations', () => {
  it('are solved', () => {
    const x = solveSymmetric(Float64Array.of(4, 2, 0, 2, 5, 1, 0, 1, 3), [8, 15, 11]);
    [1, 2, 3].forEach((value, i) => assertNear(x[i], value, 1e-12));
  });

  it('have no answer where they are singular or not numbers', () => {
    assert.equal(solveSymmetric(Float64Array.of(1, 1, 1, 1), [1, 1]), null);
    assert.equal(solveSymmetric(Float64Array.of(0), [0]), null);
    assert.equal(solveSymmetric(Float64Array.of(NaN), [0]), null);
    assert.equal(solveSymmetric(Float64Array.of(1), [Infinity]), null);
  });
});

describe('similarities', () => {
  it('vanish together with their inverse', () => {
    const transform = similarity(1.3, 0.2, 5, -7);
    const { a, b, tx, ty } = compose(transform, invert(transform));
    [[a, 1], [b, 0], [tx, 0], [ty, 0]].forEach(([value, expected]) => assertNear(value, expected, 1e-12));
  });

  it('tell scale and rotation', () => {
    assertNear(scaleOf(similarity(0.9, -0.1, 1, 2)), 0.9, 1e-12);
    assertNear(rotationOf(similarity(0.9, -0.1, 1, 2)), -0.1, 1e-12);
  });
});

describe('the registration of two frames', () => {
  const size = { width: 480, height: 270 };
  const scene = makeScene(7);
  const fixed = prepareFrame(renderScene(scene, size));

  for (const [name, transform, tolerance] of [
    ['nothing', identity, 0.02],
    ['a shift', similarity(1, 0, 6.3, -4.6), 0.05],
    ['a scale', similarity(0.97, 0, 0, 0), 0.1],
    ['a rotation', similarity(1, 0.01, 0, 0), 0.1],
    ['all of them', similarity(1.03, -0.008, -9.4, 5.2), 0.15],
  ]) {
    it(`finds ${name} to within ${tolerance} pixels at the corners`, () => {
      const { transform: found, score } = register(fixed, prepareFrame(renderScene(scene, size, transform)));
      const error = cornerError(found, transform, size);
      assert.ok(error <= tolerance, `${error} pixels`);
      assert.ok(score > 0.95, `score ${score}`);
    });
  }

  it('finds the place of a blurred and darker frame', () => {
    const transform = similarity(0.985, 0, 3.1, 2.4);
    const blurred = smooth(renderScene(scene, size, transform), 3);
    blurred.data.forEach((value, i) => (blurred.data[i] = 0.8 * value + 10));
    const error = cornerError(register(fixed, prepareFrame(blurred)).transform, transform, size);
    assert.ok(error <= 0.4, `${error} pixels`);
  });

  it('works on a smaller copy of large frames, in their own pixels', () => {
    const large = { width: 1281, height: 721 };
    const transform = similarity(0.98, 0.004, 8.5, -3.25);
    const { transform: found } = register(prepareFrame(renderScene(scene, large)), prepareFrame(renderScene(scene, large, transform)));
    const error = cornerError(found, transform, large);
    assert.ok(error <= 0.4, `${error} pixels`);
  });

  it('does not take unrelated frames for the same', () => {
    const { score } = register(fixed, prepareFrame(renderScene(makeScene(1234), size)));
    assert.ok(score < 0.3, `score ${score}`);
  });

  it('says nothing of frames without detail', () => {
    const flat = prepareFrame(lumaOf(constantFrame(200, 120, 99)));
    assert.deepEqual(register(flat, flat), { transform: { a: 1, b: 0, tx: 0, ty: 0 }, score: 0 });
  });
});

describe('the alignment of a stack', () => {
  const size = { width: 320, height: 200 };
  const breathing = [0, 1, 2, 3, 4].map((i) => similarity(1 - 0.008 * i, 0, 0.7 * i, -0.5 * i));
  const frames = makeStack({ ...size, seed: 3, count: 5, transforms: breathing }).map(lumaOf);
  const prepared = frames.map(prepareFrame);
  const details = frames.map((luma) => coarseDetail(measureSharpness(luma, { mapWidth: 64, mapHeight: 40 })));
  const expected = (reference) => breathing.map((transform) => compose(transform, invert(breathing[reference])));

  it('finds how all frames lie to the reference', () => {
    const { reference, placements } = alignFrames(prepared, details, size);
    placements.forEach(({ registered, transform }, i) => {
      const error = cornerError(transform, expected(reference)[i], size);
      assert.ok(registered && error <= 1, `frame ${i}: ${registered}, ${error} pixels`);
    });
  });

  it('takes the sharpest frame for the reference, if the view is the same', () => {
    const still = makeStack({ ...size, seed: 3, count: 3 }).map((frame) => prepareFrame(lumaOf(frame)));
    const unequal = [1, 1, 3].map((value) => makePlane(32, 20, new Float32Array(640).fill(value)));
    assert.equal(alignFrames(still, unequal, size).reference, 2);
  });

  it('does not depend on the order of the frames', () => {
    const order = [3, 0, 4, 2, 1];
    const straight = alignFrames(prepared, details, size);
    const mixed = alignFrames(order.map((i) => prepared[i]), order.map((i) => details[i]), size);
    assert.equal(order[mixed.reference], straight.reference);
    const placementOf = ({ placements }, i) => ({ ...placements[i], neighbour: undefined });
    order.forEach((i, position) => assert.deepEqual(placementOf(mixed, position), placementOf(straight, i)));
  });

  it('leaves out a frame that shows something else', () => {
    const stranger = prepareFrame(renderScene(makeScene(99), size));
    const { reference, placements } = alignFrames([prepared[0], stranger, prepared[1], prepared[2]], details, size);
    assert.deepEqual(placements.map(({ registered }) => registered), [true, false, true, true]);
    assert.notEqual(reference, 1);
  });

  it('tells how far it is', () => {
    const told = [];
    alignFrames(prepared, details, size, (done) => told.push(done));
    assert.deepEqual(told, [...told].sort((a, b) => a - b));
    assert.equal(told.at(-1), 1);
  });

  it('joins each frame over its best match', () => {
    const scores = [[0, 0.9, 0.8, 0.1], [0.9, 0, 0.95, 0.1], [0.8, 0.95, 0, 0.1], [0.1, 0.1, 0.1, 0]];
    const { neighbours, trees } = joinNeighbours(scores);
    assert.deepEqual(neighbours.map((list) => [...list].sort()), [[1], [0, 2], [1], []]);
    assert.equal(new Set(trees.slice(0, 3)).size, 1);
    assert.notEqual(trees[3], trees[0]);
  });
});

describe('fields', () => {
  it('have cells of two pixels on a frame of 1920 by 1080, and no more than pixels on small ones', () => {
    assert.deepEqual(mapSizeFor({ width: 1920, height: 1080 }), { mapWidth: 960, mapHeight: 540 });
    assert.deepEqual(mapSizeFor({ width: 3840, height: 2160 }), { mapWidth: 960, mapHeight: 540 });
    assert.deepEqual(mapSizeFor({ width: 129, height: 73 }), { mapWidth: 129, mapHeight: 73 });
    assert.deepEqual(mapSizeFor({ width: 16384, height: 1 }), { mapWidth: 16384, mapHeight: 1 });
  });

  it('are the cells themselves where nothing moves', () => {
    const { x, y } = mapPositions(identity, { width: 8, height: 6 }, { mapWidth: 4, mapHeight: 3 });
    assert.deepEqual([...x.data], [0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3]);
    assert.deepEqual([...y.data], [0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2]);
  });

  it('and the scale together lead where the similarity does', () => {
    const size = { width: 101, height: 67 };
    const mapSize = { mapWidth: 50, mapHeight: 33 };
    const transform = similarity(0.9, 0.05, 4, -3);
    const { field, sourcePixelsPerOutputPixel: scale } = makeField(transform, size, mapSize, makePlane(50, 33));
    assertNear(scale, 0.9, 1e-12);
    const cell = 20 * 50 + 11;
    const u = (11 + 0.5) * size.width / 50 - size.width / 2;
    const v = (20 + 0.5) * size.height / 33 - size.height / 2;
    const centre = { x: (size.width - 1) / 2, y: (size.height - 1) / 2 };
    const sourceX = ((field.x[cell] + 0.5) * size.width / 50 - 0.5 - centre.x) * scale + centre.x;
    const sourceY = ((field.y[cell] + 0.5) * size.height / 33 - 0.5 - centre.y) * scale + centre.y;
    assertNear(sourceX, transform.a * u - transform.b * v + transform.tx + centre.x, 1e-4);
    assertNear(sourceY, transform.b * u + transform.a * v + transform.ty + centre.y, 1e-4);
  });
});

// Which regions of a focus stack count, and the whole way to one sharp picture.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { drawOutBorder } from '../../kit/focus-stack/border.js';
import { chooseFrames, coarseDetail } from '../../kit/focus-stack/choose-frames.js';
import { measureSharpness, noiseFloor } from '../../kit/focus-stack/focus-measure.js';
import { focusWeights, regionSharpness, winnerShares } from '../../kit/focus-stack/focus-weights.js';
import { analyseFrame, makeRequest, measureStack } from '../../kit/focus-stack/measure-stack.js';
import { lumaOf, makePlane } from '../../kit/focus-stack/planes.js';
import { identity } from '../../kit/focus-stack/similarity.js';
import { edgeTransfer, keptSharpness, meanGradient } from '../../bench/lib/fusion-figures.js';
import { loadAddon } from './support/environment.js';
import { constantFrame, greyFrame, makeScene, makeStack, renderScene } from './support/synthetic-stack.js';

const planeOf = (width, height, ...values) => makePlane(width, height, Float32Array.from(values));
const measure = (frames) => measureStack(frames.map(analyseFrame));
const fuse = (frames, measured) => loadAddon().edofMultibandFuse(makeRequest(frames, measured)).data;

describe('the sharpness of a cell', () => {
  it('is the mean square of the modified Laplacian over its pixels', () => {
    const plane = planeOf(4, 2, 0, 0, 0, 0, 0, 3, 0, 0);
    // Rows of |2f - left - right| + |2f - above - below|, beyond the border the border itself.
    const detail = [[0, 3, 0, 0], [3, 6 + 3, 3, 0]];
    const mean = (columns) => columns.reduce((sum, x) => sum + detail[0][x] ** 2 + detail[1][x] ** 2, 0) / 4;
    assert.deepEqual([...measureSharpness(plane, { mapWidth: 2, mapHeight: 1 }).data], [mean([0, 1]), mean([2, 3])]);
  });

  it('shares the pixels out evenly where cells and pixels do not match', () => {
    const plane = makePlane(7, 5);
    const sharpness = measureSharpness(plane, { mapWidth: 3, mapHeight: 2 });
    assert.deepEqual([...sharpness.data], [0, 0, 0, 0, 0, 0]);
  });

  it('is nothing but noise in the smoothest twentieth', () => {
    assert.equal(noiseFloor(planeOf(100, 1, ...Array.from({ length: 100 }, (_, i) => 99 - i))), 5);
  });
});

describe('the weights', () => {
  const regions = [planeOf(3, 1, 2, 0, NaN), planeOf(3, 1, 1, 0, 4)];

  it('prefer the sharper frame by the fifth power and sum to one', () => {
    const [first, second] = focusWeights(regions).map(({ data }) => data);
    assert.equal(first[0], Math.fround(1 / (1 + 1 / 32)));
    assert.equal(second[0], Math.fround(1 / 32 / (1 + 1 / 32)));
  });

  it('are equal where nothing is to be seen, and zero where a frame does not reach', () => {
    const [first, second] = focusWeights(regions).map(({ data }) => data);
    assert.deepEqual([first[1], second[1]], [0.5, 0.5]);
    assert.deepEqual([first[2], second[2]], [0, 1]);
  });

  it('are zero where no frame reaches', () => {
    assert.deepEqual(focusWeights([planeOf(1, 1, NaN), planeOf(1, 1, NaN)]).map(({ data }) => data[0]), [0, 0]);
  });

  it('count the cells in which a frame is the sharpest', () => {
    assert.deepEqual(winnerShares([planeOf(4, 1, 2, 0, NaN, 5), planeOf(4, 1, 1, 0, 4, 6)]), [0.25, 0.5]);
  });

  it('come from what is above the noise', () => {
    const flat = regionSharpness(makePlane(20, 20, new Float32Array(400).fill(3)), 3);
    assert.deepEqual(new Set(flat.data), new Set([0]));
    const partly = regionSharpness(planeOf(2, 1, 9, NaN), 3);
    assert.ok(partly.data[0] > 0 && Number.isNaN(partly.data[1]));
  });
});

describe('a stack that is too long', () => {
  const detail = (...values) => planeOf(values.length, 1, ...values);

  it('keeps the frames that show most together, in their order', () => {
    const details = [detail(9, 0, 0), detail(8, 1, 0), detail(0, 7, 0), detail(0, 6, 1), detail(0, 0, 5)];
    assert.deepEqual(chooseFrames(details, 3), [0, 2, 4]);
  });

  it('keeps all where there are few, also if they are all the same', () => {
    assert.deepEqual(chooseFrames([detail(1), detail(1)], 5), [0, 1]);
    assert.deepEqual(chooseFrames([detail(0), detail(0), detail(0)], 2), [0, 1]);
  });

  it('is judged on parts of the picture', () => {
    const parts = coarseDetail(planeOf(4, 2, 4, 4, 9, 9, 4, 4, 9, 9), { columns: 2, rows: 1 });
    assert.deepEqual({ ...parts, data: [...parts.data] }, { width: 2, height: 1, data: [2, 3] });
    assert.deepEqual([...coarseDetail(planeOf(1, 1, 16)).data], [4]);
  });
});

describe('a measured stack', () => {
  const size = { width: 320, height: 200 };
  const scene = { ...size, seed: 5, count: 4 };
  const frames = makeStack(scene);
  const measured = measure(frames);

  it('gives each region to the frame that is sharp there', () => {
    let right = 0;
    let all = 0;
    for (let y = 0; y < size.height; ++y) {
      for (let x = 0; x < size.width; ++x) {
        const strip = Math.trunc(x * 4 / size.width);
        // A frame is sharp in all of its strip; near the edge of a strip its neighbour nearly is.
        if (Math.abs(x - (strip + 0.5) * size.width / 4) < size.width / 16) {
          const weights = measured.frames.map((frame) => frame.weights[y * size.width + x]);
          right += weights[strip] === Math.max(...weights) ? 1 : 0;
          all += 1;
        }
      }
    }
    assert.ok(right / all > 0.97, `${right} of ${all}`);
  });

  it('accepts every frame that is the sharpest somewhere', () => {
    assert.deepEqual(measured.frames.map(({ accepted }) => accepted), [true, true, true, true]);
    measured.frames.forEach(({ share }) => assert.ok(share > 0.15 && share < 0.35, String(share)));
  });

  it('has finite numbers everywhere, weights that sum to one, and confidence above the threshold', () => {
    const { mapWidth, mapHeight } = measured.frames[0].field;
    for (let cell = 0; cell < mapWidth * mapHeight; ++cell) {
      let sum = 0;
      for (const { field, weights } of measured.frames) {
        assert.ok(Number.isFinite(field.x[cell]) && Number.isFinite(field.y[cell]));
        assert.ok(field.confidence[cell] >= 0 && field.confidence[cell] <= 1);
        assert.ok(weights[cell] === 0 || field.confidence[cell] >= 0.05);
        sum += weights[cell];
      }
      assert.ok(Math.abs(sum - 1) < 1e-5, `cell ${cell}: ${sum}`);
    }
  });

  it('leaves out a frame that is nowhere the sharpest, with all its weights zero', () => {
    const dull = lumaOf(frames[1]).data.map((value) => 0.5 * value + 40);
    const { frames: result } = measure([...frames, greyFrame(makePlane(size.width, size.height, dull))]);
    assert.deepEqual([result[4].registered, result[4].accepted], [true, false]);
    assert.deepEqual(new Set(result[4].weights), new Set([0]));
  });

  it('leaves out a frame of something else, with all its weights zero', () => {
    const { frames: result } = measure([...frames, greyFrame(renderScene(makeScene(77), size))]);
    assert.deepEqual(result.map(({ registered, accepted }) => [registered, accepted]),
      [[true, true], [true, true], [true, true], [true, true], [false, false]]);
    assert.deepEqual(new Set(result[4].weights), new Set([0]));
  });

  it('is the same whatever the order of the frames', () => {
    const order = [2, 0, 3, 1];
    const mixed = measure(order.map((i) => frames[i]));
    assert.equal(order[mixed.reference], measured.reference);
    order.forEach((i, position) => assert.deepEqual(mixed.frames[position], measured.frames[i]));
  });

  it('refuses frames of several sizes', () => {
    const analyses = [constantFrame(8, 8, 1), constantFrame(8, 9, 1)].map(analyseFrame);
    assert.throws(() => measureStack(analyses), new RangeError('The frames of a stack have one size'));
  });

  for (const [width, height] of [[1, 1], [1, 7], [2, 3], [300, 1], [64, 48]]) {
    it(`of ${width} by ${height} pixels without any detail comes out as it is`, () => {
      const flat = [90, 90, 90].map((value) => constantFrame(width, height, value));
      const result = measure(flat);
      for (const { field, weights } of result.frames) {
        [field.x, field.y, field.confidence, weights].forEach((map) => assert.ok(map.every(Number.isFinite)));
      }
      assert.deepEqual(new Set(fuse(flat, result)), new Set([90, 255]));
    });
  }
});

describe('a fused stack', () => {
  const size = { width: 320, height: 200 };

  it('comes nearer to the truth than any frame, also if the frames lie apart', () => {
    const transforms = [0, 1, 2, 3].map((i) => ({ a: 1 - 0.006 * i, b: 0, tx: 1.3 * i, ty: -0.8 * i }));
    const frames = makeStack({ ...size, seed: 11, count: 4, transforms });
    const measured = measure(frames);
    const { reference } = measured;
    const truth = renderScene(makeScene(11), size, transforms[reference]);
    const inner = (x, y) => x > 12 && y > 12 && x < size.width - 12 && y < size.height - 12;
    const errorOf = (luma) => {
      let sum = 0;
      luma.data.forEach((value, i) => (sum += inner(i % size.width, Math.trunc(i / size.width)) ? Math.abs(value - truth.data[i]) : 0));
      return sum / luma.data.length;
    };
    const fused = errorOf(lumaOf({ ...size, rgba: fuse(frames, measured) }));
    // The same frames as they would be if the scene lay in all of them as in the reference.
    const still = makeStack({ ...size, seed: 11, count: 4, transforms: transforms.map(() => transforms[reference]) });
    const single = Math.min(...still.map((frame) => errorOf(lumaOf(frame))));
    assert.ok(fused < 0.5 * single, `${fused} against ${single}`);
  });
});

describe('the border of a fused picture', () => {
  const picture = () => ({ width: 4, height: 3, rgba: Uint8Array.from({ length: 48 }, (_, byte) => Math.trunc(byte / 4)) });
  const drawnOut = (mapSize) => {
    const drawn = picture();
    drawOutBorder(drawn, mapSize);
    return Array.from({ length: 12 }, (_, pixel) => drawn.rgba[4 * pixel]);
  };

  it('gets the pixels next to it where cells are coarse', () => {
    assert.deepEqual(drawnOut({ mapWidth: 2, mapHeight: 3 }), [1, 1, 2, 2, 5, 5, 6, 6, 9, 9, 10, 10]);
    assert.deepEqual(drawnOut({ mapWidth: 4, mapHeight: 1 }), [4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7]);
    assert.deepEqual(drawnOut({ mapWidth: 2, mapHeight: 1 }), [5, 5, 6, 6, 5, 5, 6, 6, 5, 5, 6, 6]);
  });

  it('stays where cells are pixels', () => {
    assert.deepEqual(drawnOut({ mapWidth: 4, mapHeight: 3 }), [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11]);
  });
});

describe('the figures of fusion quality', () => {
  const size = { width: 160, height: 96 };
  const sharp = renderScene(makeScene(21), size, identity);
  const [left, right] = makeStack({ ...size, seed: 21, count: 2, noise: 0 }).map(lumaOf);

  it('are full for the best of all frames', () => {
    assert.ok(Math.abs(keptSharpness(sharp, [sharp, left]) - 1) < 1e-3);
    assert.ok(edgeTransfer(sharp, [sharp]) > 0.97);
  });

  it('rank a sharp result over each half of it', () => {
    for (const figure of [keptSharpness, edgeTransfer]) {
      const [whole, ...halves] = [sharp, left, right].map((result) => figure(result, [left, right]));
      halves.forEach((half) => assert.ok(half < whole, `${half} against ${whole}`));
    }
    assert.ok(meanGradient(left) < meanGradient(sharp));
  });

  it('give nothing for what is more than there was', () => {
    const noisy = makePlane(size.width, size.height, sharp.data.map((value, i) => value + (i % 2 ? 30 : -30)));
    assert.ok(Math.abs(keptSharpness(noisy, [sharp]) - 1) < 1e-6);
    assert.ok(edgeTransfer(noisy, [sharp]) < edgeTransfer(sharp, [sharp]));
  });

  it('measure gradients in steps of brightness per pixel', () => {
    const ramp = makePlane(100, 100, new Float32Array(10_000).map((_, i) => 2 * (i % 100)));
    assert.ok(Math.abs(meanGradient(ramp) - 2 * (98 / 100) ** 2) < 1e-4);
  });
});

// Registration of two frames of a focus stack: which similarity takes the spots of one frame to the
// same spots of the other.
//
// Least squares on brightness after Lucas and Kanade (1981), in the inverse compositional form of
// Baker and Matthews (2004), from coarse to fine. Frames of a focus stack differ in blur, which
// moves no edge, and in parts that only one of them shows well: those get small robust weights.

import { compareLight, findEdgePoints, robustWeights } from './edge-points.js';
import { solveSymmetric } from './linear-equations.js';
import { combine, halve, pyramidOf, sampleBilinear, smooth } from './planes.js';
import { compose, identity, invert } from './similarity.js';

// The finest level has at most this many pixels a side: finer ones differ more in blur and noise
// than they tell about the place.
const largestSide = 640;
const smallestSide = 30;
// In pixels of each level; slower changes of brightness are light, not detail.
const backgroundRadius = 6;
// Whole pixels of the coarsest level that frames may lie apart, beside what least squares find.
const searchReach = 4;
const maxIterations = 30;
// Movement of an iteration, in pixels of the level, that counts as standing still.
const standstill = 0.003;

/** Brightness without its slow changes: edges and texture alone. */
function detailOf(plane) {
  return combine(plane, smooth(plane, backgroundRadius), (value, background) => value - background);
}

/**
 * What registration needs of a frame, from its brightness: levels, each half the size of the one
 * before, with `pixelSize` in pixels of the frame and its centre in pixels of the level.
 */
export function prepareFrame(luma) {
  let plane = luma;
  let pixelSize = 1;
  while (Math.max(plane.width, plane.height) > largestSide) {
    plane = halve(plane);
    pixelSize *= 2;
  }
  return pyramidOf(plane, smallestSide).map((level, i) => {
    const size = pixelSize * 2 ** i;
    const prepared = {
      ...detailOf(level),
      pixelSize: size,
      centreX: luma.width / 2 / size - 0.5,
      centreY: luma.height / 2 / size - 0.5,
    };
    return { ...prepared, points: findEdgePoints(prepared) };
  });
}

/** Values of `level` where `transform` takes the points; NaN outside. */
function sampleAt(level, points, { a, b, tx, ty }) {
  const samples = new Float32Array(points.count);
  for (let k = 0; k < points.count; ++k) {
    const u = points.x[k] - level.centreX;
    const v = points.y[k] - level.centreY;
    samples[k] = sampleBilinear(level, a * u - b * v + tx + level.centreX, b * u + a * v + ty + level.centreY);
  }
  return samples;
}

/**
 * One step of the least squares: how `transform` has to be preceded, inverted, and how far that
 * moves, or null where the picture says nothing. Unknowns: scale, rotation, two shifts.
 */
function stepTowards(level, points, samples) {
  const { gain, offset } = compareLight(points, samples);
  const residuals = samples.map((sample, k) => sample - gain * points.value[k] - offset);
  const weights = robustWeights(residuals);
  const n = 4;
  const matrix = new Float64Array(n * n);
  const right = new Float64Array(n);
  const slope = new Float64Array(n);
  // In units of the size, so that all unknowns are of one magnitude.
  const unit = level.width / 2;
  for (let k = 0; k < points.count; ++k) {
    if (weights[k] === 0) {
      continue;
    }
    const u = (points.x[k] - level.centreX) / unit;
    const v = (points.y[k] - level.centreY) / unit;
    const gx = points.gx[k] * gain;
    const gy = points.gy[k] * gain;
    slope[0] = gx * u + gy * v;
    slope[1] = gy * u - gx * v;
    slope[2] = gx;
    slope[3] = gy;
    for (let row = 0; row < n; ++row) {
      const weighted = weights[k] * slope[row];
      right[row] += weighted * residuals[k];
      for (let column = 0; column <= row; ++column) {
        matrix[row * n + column] += weighted * slope[column];
      }
    }
  }
  const solution = solveSymmetric(matrix, right);
  if (!solution) {
    return null;
  }
  const [scale, rotation, tx, ty] = solution;
  return {
    delta: { a: 1 + scale / unit, b: rotation / unit, tx, ty },
    movement: Math.hypot(scale, rotation) + Math.hypot(tx, ty),
  };
}

/** Starts from `transform`, in pixels of the level; gives { transform, score }. */
function registerLevel(fixed, moving, transform) {
  let current = transform;
  let samples = sampleAt(moving, fixed.points, current);
  for (let iteration = 0; iteration < maxIterations; ++iteration) {
    const step = stepTowards(fixed, fixed.points, samples);
    if (!step || !(step.movement < fixed.width / 4)) {
      break;
    }
    current = compose(current, invert(step.delta));
    samples = sampleAt(moving, fixed.points, current);
    if (step.movement < standstill) {
      break;
    }
  }
  return { transform: current, score: compareLight(fixed.points, samples).correlation };
}

/** The shift of whole pixels that matches best; none if all match alike. */
function searchShift(fixed, moving) {
  const scoreOf = (transform) => compareLight(fixed.points, sampleAt(moving, fixed.points, transform)).correlation;
  let best = { transform: identity, score: scoreOf(identity) };
  for (let ty = -searchReach; ty <= searchReach; ++ty) {
    for (let tx = -searchReach; tx <= searchReach; ++tx) {
      const transform = { ...identity, tx, ty };
      const score = scoreOf(transform);
      if (score > best.score) {
        best = { transform, score };
      }
    }
  }
  return best.transform;
}

const scaled = (transform, factor) => ({ ...transform, tx: transform.tx * factor, ty: transform.ty * factor });

/**
 * Registers `moving` against `fixed`, two frames from `prepareFrame`. Gives the similarity that
 * takes a spot of `fixed` to the same spot of `moving`, in pixels of the frames, and `score`, the
 * correlation that it reaches, at most 1. `finestLevel`: where to stop. `start`: a similarity
 * that is already near; only the level where to stop is then looked at.
 */
export function register(fixed, moving, { finestLevel = 0, start = null } = {}) {
  const coarsest = fixed.length - 1;
  const finest = Math.min(finestLevel, coarsest);
  let level = start ? finest : coarsest;
  let transform = start ? scaled(start, 1 / fixed[level].pixelSize) : searchShift(fixed[level], moving[level]);
  for (;;) {
    const found = registerLevel(fixed[level], moving[level], transform);
    if (level === finest) {
      return { ...found, transform: scaled(found.transform, fixed[level].pixelSize) };
    }
    transform = scaled(found.transform, 2);
    --level;
  }
}

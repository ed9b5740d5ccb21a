// How much each frame counts in each region, from how sharp the frames are there.

import { makePlane, smooth } from './planes.js';

// Both chosen on real stacks. Cells up to about this far away decide together: smaller regions let
// noise and glints decide, larger ones bring halos. The fifth power makes the sharpest frame win,
// but lets equally sharp ones mix.
const regionRadius = 4;
const sharpen = (ratio) => ratio * ratio * ratio * ratio * ratio;

/**
 * Sharpness in regions: `sharpness` lies on the cells of the result; NaN where the frame does not
 * reach. `noise` is taken off, so that flat regions decide nothing.
 */
export function regionSharpness({ width, height, data }, noise) {
  const regions = smooth(makePlane(width, height, data.map((value) => (value > noise ? value - noise : 0))), regionRadius);
  for (let cell = 0; cell < data.length; ++cell) {
    regions.data[cell] = Number.isNaN(data[cell]) ? NaN : Math.max(regions.data[cell], 0);
  }
  return regions;
}

/** The share of the cells in which each of the frames is the sharpest. */
export function winnerShares(regions) {
  const wins = regions.map(() => 0);
  const cells = regions[0].data.length;
  for (let cell = 0; cell < cells; ++cell) {
    let winner = -1;
    let best = 0;
    for (let i = 0; i < regions.length; ++i) {
      if (regions[i].data[cell] > best) {
        best = regions[i].data[cell];
        winner = i;
      }
    }
    if (winner >= 0) {
      wins[winner] += 1;
    }
  }
  return wins.map((count) => count / cells);
}

/**
 * The weights of the frames, planes from `regionSharpness`: in each cell they sum to 1. Frames that
 * do not reach a cell count nothing there, and where nothing is to be seen all others count alike.
 */
export function focusWeights(regions) {
  const weights = regions.map(({ width, height }) => makePlane(width, height));
  for (let cell = 0; cell < regions[0].data.length; ++cell) {
    let best = 0;
    for (const { data } of regions) {
      best = data[cell] > best ? data[cell] : best;
    }
    let sum = 0;
    for (let i = 0; i < regions.length; ++i) {
      const value = regions[i].data[cell];
      const weight = Number.isNaN(value) ? 0 : best > 0 ? sharpen(value / best) : 1;
      weights[i].data[cell] = weight;
      sum += weight;
    }
    for (let i = 0; sum > 0 && i < weights.length; ++i) {
      weights[i].data[cell] /= sum;
    }
  }
  return weights;
}

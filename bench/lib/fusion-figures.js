// Figures for the quality of a fused picture that need no perfect picture to compare with. All work
// on brightness (luma planes of 0 to 255) of the result and of the aligned frames.

import { makePlane } from '../../kit/focus-stack/planes.js';

/** Gradients by the Sobel operator: { strength, angle }, two planes; the border row stays 0. */
function sobel({ width, height, data }) {
  const strength = makePlane(width, height);
  const angle = makePlane(width, height);
  for (let y = 1; y < height - 1; ++y) {
    for (let i = y * width + 1; i < (y + 1) * width - 1; ++i) {
      const [nw, n, ne] = [data[i - width - 1], data[i - width], data[i - width + 1]];
      const [sw, s, se] = [data[i + width - 1], data[i + width], data[i + width + 1]];
      const gx = ne + 2 * data[i + 1] + se - nw - 2 * data[i - 1] - sw;
      const gy = sw + 2 * s + se - nw - 2 * n - ne;
      strength.data[i] = Math.hypot(gx, gy);
      angle.data[i] = gx === 0 ? Math.PI / 2 : Math.atan(gy / gx);
    }
  }
  return { strength, angle };
}

/** The mean gradient strength, in steps of brightness per pixel. */
export function meanGradient(luma) {
  return sobel(luma).strength.data.reduce((sum, value) => sum + value, 0) / 8 / luma.data.length;
}

function tileMeans({ width, height, data }, tile) {
  const columns = Math.floor(width / tile);
  const rows = Math.floor(height / tile);
  const means = new Float64Array(columns * rows);
  for (let y = 0; y < rows * tile; ++y) {
    for (let x = 0; x < columns * tile; ++x) {
      means[Math.trunc(y / tile) * columns + Math.trunc(x / tile)] += data[y * width + x] / tile ** 2;
    }
  }
  return means;
}

/**
 * The share of the best sharpness that the result keeps: over tiles of 32 by 32 pixels, its mean
 * gradient against that of the frame which is best in the tile. A tile counts as much as its best
 * gradient, and more than all of it counts as all of it, so that halos and noise don't help.
 */
export function keptSharpness(result, frames, tile = 32) {
  const tiles = (luma) => tileMeans(sobel(luma).strength, tile);
  const kept = tiles(result);
  const best = frames.map(tiles).reduce((most, means) => most.map((value, i) => Math.max(value, means[i])));
  let sum = 0;
  let all = 0;
  best.forEach((value, i) => {
    sum += Math.min(kept[i], value);
    all += value;
  });
  return sum / all;
}

/**
 * How well the edges of the frames are found again in the result, Q^(AB/F) after Xydeas and
 * Petrovic (Electronics Letters 36, 2000) with their constants, for any number of frames: each
 * edge of each frame is compared in strength and direction and counts as its strength.
 */
export function edgeTransfer(result, frames) {
  const fused = sobel(result);
  let sum = 0;
  let weights = 0;
  for (const frame of frames) {
    const { strength, angle } = sobel(frame);
    for (let i = 0; i < strength.data.length; ++i) {
      const weight = strength.data[i];
      if (weight > 0) {
        const other = fused.strength.data[i];
        const ratio = Math.min(weight, other) / Math.max(weight, other);
        const turn = 1 - Math.abs(angle.data[i] - fused.angle.data[i]) / (Math.PI / 2);
        const quality = 0.9994 / (1 + Math.exp(-15 * (ratio - 0.5))) * 0.9879 / (1 + Math.exp(-22 * (turn - 0.8)));
        sum += weight * quality;
        weights += weight;
      }
    }
  }
  return sum / weights;
}

// How far the alignment of a frame can be trusted, region by region.

import { boxBlur, combine, makePlane, sampleBilinear } from './planes.js';

// Half the side of a region, in pixels of the level on which frames are registered.
const regionRadius = 8;
// The fusion drops what it cannot trust at all. Blur alone lowers a correlation a good deal, so no
// region falls below this.
const leastConfidence = 0.05;

/** The level as seen from the reference: where `transform` leads, 0 outside. */
function seenFromReference(level, { a, b, tx, ty }) {
  const { width, height, centreX, centreY, pixelSize } = level;
  const seen = makePlane(width, height);
  for (let y = 0, i = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x, ++i) {
      const u = x - centreX;
      const v = y - centreY;
      const sampleX = a * u - b * v + tx / pixelSize + centreX;
      const sampleY = b * u + a * v + ty / pixelSize + centreY;
      const sample = sampleBilinear(level, sampleX, sampleY);
      seen.data[i] = Number.isNaN(sample) ? 0 : sample;
    }
  }
  return seen;
}

/** The correlation of two planes about each pixel; their means are near 0 already. */
function localCorrelation(plane, other) {
  const product = (a, b) => boxBlur(combine(a, b, (x, y) => x * y), regionRadius);
  const energies = combine(product(plane, plane), product(other, other), (x, y) => Math.sqrt(Math.max(x * y, 0)));
  // The constant keeps regions of noise from deciding.
  return combine(product(plane, other), energies, (common, energy) => (common + 0.1) / (energy + 0.1));
}

/**
 * The confidence in each cell of a map: how well the frame matches the neighbour against which it
 * was registered. Both are given as { level, transform }: a level of `prepareFrame` and the
 * similarity from the reference. `positions`: where the cells lie in the frame, { x, y } in cells;
 * cells outside of the frame get 0.
 */
export function measureConfidence(frame, neighbour, positions) {
  const match = localCorrelation(
    seenFromReference(frame.level, frame.transform), seenFromReference(neighbour.level, neighbour.transform));
  const { width, height, data: x } = positions.x;
  const y = positions.y.data;
  const confidence = makePlane(width, height);
  for (let row = 0, cell = 0; row < height; ++row) {
    const matchY = Math.min(Math.max((row + 0.5) * match.height / height - 0.5, 0), match.height - 1);
    for (let column = 0; column < width; ++column, ++cell) {
      const matchX = Math.min(Math.max((column + 0.5) * match.width / width - 0.5, 0), match.width - 1);
      const isInside = x[cell] >= -0.5 && y[cell] >= -0.5 && x[cell] <= width - 0.5 && y[cell] <= height - 0.5;
      const value = Math.min(Math.max(sampleBilinear(match, matchX, matchY), leastConfidence), 1);
      confidence.data[cell] = isInside ? value : 0;
    }
  }
  return confidence;
}

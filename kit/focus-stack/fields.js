// Maps of a frame for the fusion: cells over the result, and where their spots lie in the frame.

import { makePlane } from './planes.js';
import { scaleOf } from './similarity.js';

// About half a million cells keep seams within two pixels of a 1920 by 1080 picture.
const preferredCells = 500_000;

/** The size of the maps for pictures of this size: { mapWidth, mapHeight }. */
export function mapSizeFor({ width, height }) {
  const cell = Math.max(1, Math.sqrt(width * height / preferredCells));
  const cells = (length) => Math.max(1, Math.round(length / Math.round(cell)));
  return { mapWidth: cells(width), mapHeight: cells(height) };
}

/**
 * Where the spot of each cell lies in a frame, as positions in its own map: { x, y }, two planes.
 * `transform` takes spots of the result to spots of the frame.
 */
export function mapPositions(transform, size, { mapWidth, mapHeight }) {
  const x = makePlane(mapWidth, mapHeight);
  const y = makePlane(mapWidth, mapHeight);
  const perColumn = size.width / mapWidth;
  const perRow = size.height / mapHeight;
  const { a, b, tx, ty } = transform;
  for (let row = 0, cell = 0; row < mapHeight; ++row) {
    const v = (row + 0.5 - mapHeight / 2) * perRow;
    for (let column = 0; column < mapWidth; ++column, ++cell) {
      const u = (column + 0.5 - mapWidth / 2) * perColumn;
      x.data[cell] = (a * u - b * v + tx) / perColumn + mapWidth / 2 - 0.5;
      y.data[cell] = (b * u + a * v + ty) / perRow + mapHeight / 2 - 0.5;
    }
  }
  return { x, y };
}

/**
 * The field that the fusion takes, but for `accepted`, and the frame's scale. The fusion applies
 * the scale about the centre by itself, so the maps hold what is left without it.
 */
export function makeField(transform, size, mapSize, confidence) {
  const scale = scaleOf(transform);
  const unscaled = Object.fromEntries(Object.entries(transform).map(([key, value]) => [key, value / scale]));
  const { x, y } = mapPositions(unscaled, size, mapSize);
  return {
    sourcePixelsPerOutputPixel: scale,
    field: { ...mapSize, x: x.data, y: y.data, confidence: confidence.data },
  };
}

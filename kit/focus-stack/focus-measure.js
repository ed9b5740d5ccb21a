// How sharp each region of one frame is.

import { makePlane } from './planes.js';

/** The cell of each of `length` pixels when they are shared out among `cells` cells. */
function cellsOf(length, cells) {
  return Int32Array.from({ length }, (_, i) => Math.trunc((i + 0.5) * cells / length));
}

/**
 * The sharpness of each cell: the mean square of the modified Laplacian (Nayar and Nakagawa, 1994),
 * |2 f(x) - f(x-1) - f(x+1)| + |2 f(y) - f(y-1) - f(y+1)|, which answers to detail of a pixel or
 * two and hardly to what is blurred.
 */
export function measureSharpness({ width, height, data }, { mapWidth, mapHeight }) {
  const sharpness = makePlane(mapWidth, mapHeight);
  const counts = new Float32Array(mapWidth * mapHeight);
  const columns = cellsOf(width, mapWidth);
  const rows = cellsOf(height, mapHeight);
  for (let y = 0; y < height; ++y) {
    const above = y > 0 ? -width : 0;
    const below = y < height - 1 ? width : 0;
    for (let x = 0, i = y * width; x < width; ++x, ++i) {
      const left = x > 0 ? -1 : 0;
      const right = x < width - 1 ? 1 : 0;
      const twice = 2 * data[i];
      const detail = Math.abs(twice - data[i + left] - data[i + right]) +
        Math.abs(twice - data[i + above] - data[i + below]);
      const cell = rows[y] * mapWidth + columns[x];
      sharpness.data[cell] += detail * detail;
      counts[cell] += 1;
    }
  }
  for (let cell = 0; cell < counts.length; ++cell) {
    sharpness.data[cell] /= counts[cell];
  }
  return sharpness;
}

/** What noise alone would measure: the value that the smoothest twentieth of the cells stays below. */
export function noiseFloor({ data }) {
  const step = Math.max(1, Math.trunc(data.length / 20_000));
  const sample = data.filter((_, cell) => cell % step === 0).sort();
  return sample[Math.trunc(sample.length / 20)];
}

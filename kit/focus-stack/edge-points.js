// The pixels that tell how two frames lie to one another: those on edges and texture.

const maxPoints = 40_000;

/**
 * The pixels of a level with the steepest edges, at most some 40,000 spread over the picture:
 * { count, x, y, value, gx, gy }, with the gradient (gx, gy) per pixel.
 */
export function findEdgePoints({ width, height, data }) {
  const steepness = new Float32Array(data.length);
  let sum = 0;
  for (let y = 1; y < height - 1; ++y) {
    for (let i = y * width + 1; i < (y + 1) * width - 1; ++i) {
      steepness[i] = Math.abs(data[i + 1] - data[i - 1]) + Math.abs(data[i + width] - data[i - width]);
      sum += steepness[i];
    }
  }
  const threshold = sum / data.length;
  const steep = steepness.reduce((count, value) => count + (value > threshold ? 1 : 0), 0);
  const size = Math.min(steep, maxPoints);
  const points = { count: 0 };
  for (const key of ['x', 'y', 'value', 'gx', 'gy']) {
    points[key] = new Float32Array(size);
  }
  let seen = 0;
  for (let i = 0; points.count < size; ++i) {
    if (steepness[i] > threshold && seen++ >= points.count * (steep / size)) {
      const k = points.count++;
      points.x[k] = i % width;
      points.y[k] = Math.trunc(i / width);
      points.value[k] = data[i];
      points.gx[k] = (data[i + 1] - data[i - 1]) / 2;
      points.gy[k] = (data[i + width] - data[i - width]) / 2;
    }
  }
  return points;
}

/** The median of |value|, of a sample of the values; those that are not numbers are left out. */
function medianMagnitude(values) {
  const step = Math.max(1, Math.trunc(values.length / 2000));
  const magnitudes = [];
  for (let k = 0; k < values.length; k += step) {
    if (!Number.isNaN(values[k])) {
      magnitudes.push(Math.abs(values[k]));
    }
  }
  return Float32Array.from(magnitudes).sort()[magnitudes.length >> 1] ?? 0;
}

/**
 * How much each residual counts, 0 to 1, after Geman and McClure: those far above the usual come
 * from parts that only one of the frames shows well. 0 for what is not a number.
 */
export function robustWeights(residuals) {
  const spread = 2.5 * medianMagnitude(residuals) + 1e-3;
  return residuals.map((residual) => {
    const square = (residual / spread) * (residual / spread);
    return Number.isNaN(square) ? 0 : 1 / ((1 + square) * (1 + square));
  });
}

/**
 * How the samples follow the values of the points: { correlation, gain, offset }, with samples
 * near gain * value + offset. The correlation is -1 to 1, and 0 where there is nothing to compare.
 */
export function compareLight(points, samples) {
  let count = 0;
  let [a, b, aa, bb, ab] = [0, 0, 0, 0, 0];
  for (let k = 0; k < points.count; ++k) {
    const value = points.value[k];
    const sample = samples[k];
    if (!Number.isNaN(sample)) {
      ++count;
      a += value;
      b += sample;
      aa += value * value;
      bb += sample * sample;
      ab += value * sample;
    }
  }
  const spreadA = aa - a * a / count;
  const spreadB = bb - b * b / count;
  const common = ab - a * b / count;
  if (!(spreadA > 1e-6 && spreadB > 1e-6 && count > points.count / 4)) {
    return { correlation: 0, gain: 1, offset: 0 };
  }
  const gain = common / spreadA;
  return { correlation: common / Math.sqrt(spreadA * spreadB), gain, offset: (b - gain * a) / count };
}

// Planes of numbers, such as the brightness of a picture: { width, height, data }, rows packed.

export function makePlane(width, height, data = new Float32Array(width * height)) {
  return { width, height, data };
}

/** The brightness (Rec. 709 luma, 0 to 255) of RGBA pixels. */
export function lumaOf({ width, height, rgba }) {
  const luma = makePlane(width, height);
  const { data } = luma;
  for (let i = 0, byte = 0; i < data.length; ++i, byte += 4) {
    data[i] = 0.2126 * rgba[byte] + 0.7152 * rgba[byte + 1] + 0.0722 * rgba[byte + 2];
  }
  return luma;
}

/** Half the size, each value the mean of 2 by 2; an odd last row or column is left out. */
export function halve({ width, height, data }) {
  const half = makePlane(Math.max(1, width >> 1), Math.max(1, height >> 1));
  const right = width > 1 ? 1 : 0;
  const below = height > 1 ? width : 0;
  for (let y = 0, out = 0; y < half.height; ++y) {
    for (let x = 0, i = 2 * y * width; x < half.width; ++x, i += 2, ++out) {
      half.data[out] = 0.25 * (data[i] + data[i + right] + data[i + below] + data[i + below + right]);
    }
  }
  return half;
}

/** The plane and its halves, down to where the smaller side would fall below `smallestSide`. */
export function pyramidOf(plane, smallestSide) {
  const levels = [plane];
  while (Math.min(levels.at(-1).width, levels.at(-1).height) >= 2 * smallestSide) {
    levels.push(halve(levels.at(-1)));
  }
  return levels;
}

/** Means over 2 * radius + 1 values of a row; beyond its ends a row goes on with its last value. */
function boxRows(source, target, width, height, radius) {
  const scale = 1 / (2 * radius + 1);
  const row = new Float32Array(width + 2 * radius + 1);
  for (let y = 0; y < height; ++y) {
    const start = y * width;
    row.fill(source[start], 0, radius);
    row.set(source.subarray(start, start + width), radius);
    row.fill(source[start + width - 1], radius + width);
    let sum = 0;
    for (let i = 0; i < 2 * radius + 1; ++i) {
      sum += row[i];
    }
    for (let x = 0; x < width; ++x) {
      target[start + x] = sum * scale;
      sum += row[x + 2 * radius + 1] - row[x];
    }
  }
}

/** The same down the columns, whole rows at a time, which is kinder to the cache. */
function boxColumns(source, target, width, height, radius) {
  const scale = 1 / (2 * radius + 1);
  const sums = new Float64Array(width);
  const add = (row, sign) => {
    const start = Math.min(Math.max(row, 0), height - 1) * width;
    for (let x = 0; x < width; ++x) {
      sums[x] += sign * source[start + x];
    }
  };
  for (let row = -radius; row <= radius; ++row) {
    add(row, 1);
  }
  for (let y = 0; y < height; ++y) {
    const start = y * width;
    for (let x = 0; x < width; ++x) {
      target[start + x] = sums[x] * scale;
    }
    add(y + radius + 1, 1);
    add(y - radius, -1);
  }
}

/** The mean of the square of 2 * radius + 1 values about each value. */
export function boxBlur({ width, height, data }, radius) {
  const blurred = makePlane(width, height);
  const rows = new Float32Array(data.length);
  boxRows(data, rows, width, height, radius);
  boxColumns(rows, blurred.data, width, height, radius);
  return blurred;
}

/** Three box filters: nearly a Gaussian with the variance radius * (radius + 1). */
export function smooth(plane, radius) {
  return boxBlur(boxBlur(boxBlur(plane, radius), radius), radius);
}

/** A plane of the same size with `combine(value, otherValue)`. */
export function combine(plane, other, combineValues) {
  const combined = makePlane(plane.width, plane.height);
  for (let i = 0; i < combined.data.length; ++i) {
    combined.data[i] = combineValues(plane.data[i], other.data[i]);
  }
  return combined;
}

/** The value of a plane between its pixels, bilinear; NaN outside. */
export function sampleBilinear({ width, height, data }, x, y) {
  if (!(x >= 0 && y >= 0 && x <= width - 1 && y <= height - 1)) {
    return NaN;
  }
  const x0 = Math.trunc(x);
  const y0 = Math.trunc(y);
  const right = x0 + 1 < width ? 1 : 0;
  const below = y0 + 1 < height ? width : 0;
  const fx = x - x0;
  const i = y0 * width + x0;
  const top = data[i] + (data[i + right] - data[i]) * fx;
  const bottom = data[i + below] + (data[i + below + right] - data[i + below]) * fx;
  return top + (bottom - top) * (y - y0);
}

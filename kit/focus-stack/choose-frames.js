// Which frames of a long stack to fuse.

import { makePlane } from './planes.js';

/** A coarse plane of what a frame has to offer: the root of its sharpness, averaged over parts. */
export function coarseDetail(sharpness, { columns = 64, rows = 36 } = {}) {
  const width = Math.min(columns, sharpness.width);
  const height = Math.min(rows, sharpness.height);
  const detail = makePlane(width, height);
  const counts = new Float32Array(width * height);
  for (let y = 0, cell = 0; y < sharpness.height; ++y) {
    const firstPart = Math.trunc(y * height / sharpness.height) * width;
    for (let x = 0; x < sharpness.width; ++x, ++cell) {
      const part = firstPart + Math.trunc(x * width / sharpness.width);
      detail.data[part] += Math.sqrt(sharpness.data[cell]);
      counts[part] += 1;
    }
  }
  detail.data.forEach((sum, part) => (detail.data[part] = sum / counts[part]));
  return detail;
}

/**
 * The indices, rising, of the `count` frames that show most of the object sharply together: one
 * after the other, the frame that adds most to what the chosen ones show. `details`: each frame's,
 * from `coarseDetail`.
 */
export function chooseFrames(details, count) {
  const chosen = [];
  let shown = new Float32Array(details[0].data.length);
  while (chosen.length < Math.min(count, details.length)) {
    let best = { gain: -1 };
    details.forEach(({ data }, index) => {
      if (!chosen.includes(index)) {
        const gain = data.reduce((sum, value, cell) => sum + Math.max(value - shown[cell], 0), 0);
        best = gain > best.gain ? { gain, index } : best;
      }
    });
    chosen.push(best.index);
    shown = shown.map((value, cell) => Math.max(value, details[best.index].data[cell]));
  }
  return chosen.sort((a, b) => a - b);
}

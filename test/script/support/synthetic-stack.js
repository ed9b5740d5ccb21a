// Focus stacks whose truth is known, made from a seed.

import { makePlane, smooth } from '../../../kit/focus-stack/planes.js';
import { identity, invert } from '../../../kit/focus-stack/similarity.js';
import { makeRandom } from './odd-values.js';

const octaves = [3, 7, 19, 53];

/** A scene of seeded texture: brightness at any place, in pixels from its centre. */
export function makeScene(seed) {
  const random = makeRandom(seed);
  const table = Float32Array.from({ length: 4096 }, () => random(1 << 16) / (1 << 16));
  const lattice = (x, y, octave) => table[(Math.imul(x, 73) + Math.imul(y, 911) + octave * 1301) & 4095];
  const ease = (t) => t * t * (3 - 2 * t);
  return (u, v) => octaves.reduce((sum, spacing, octave) => {
    const x = Math.floor(u / spacing);
    const y = Math.floor(v / spacing);
    const fx = ease(u / spacing - x);
    const fy = ease(v / spacing - y);
    const top = lattice(x, y, octave) * (1 - fx) + lattice(x + 1, y, octave) * fx;
    const bottom = lattice(x, y + 1, octave) * (1 - fx) + lattice(x + 1, y + 1, octave) * fx;
    return sum + 60 * (top * (1 - fy) + bottom * fy);
  }, 0);
}

/** The brightness of a frame in which the spot (u, v) of the scene lies where `transform` takes it. */
export function renderScene(scene, { width, height }, transform = identity) {
  const back = invert(transform);
  const plane = makePlane(width, height);
  for (let y = 0, i = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x, ++i) {
      const u = x - (width - 1) / 2;
      const v = y - (height - 1) / 2;
      plane.data[i] = scene(back.a * u - back.b * v + back.tx, back.b * u + back.a * v + back.ty);
    }
  }
  return plane;
}

export function greyFrame({ width, height, data }) {
  const rgba = new Uint8Array(4 * data.length);
  data.forEach((value, i) => rgba.fill(Math.min(Math.max(Math.round(value), 0), 255), 4 * i, 4 * i + 3));
  data.forEach((_, i) => (rgba[4 * i + 3] = 255));
  return { width, height, rgba };
}

/**
 * A stack of `count` frames: frame i is sharp in the i-th of `count` upright strips of the scene
 * and blurred elsewhere, the more the farther away. `transforms`: where the scene lies in each.
 */
export function makeStack({ seed = 1, width = 320, height = 200, count = 3, transforms = [], noise = 1 } = {}) {
  const scene = makeScene(seed);
  const random = makeRandom(seed + 1);
  return Array.from({ length: count }, (_, index) => {
    const sharp = renderScene(scene, { width, height }, transforms[index]);
    const blurred = Array.from({ length: count + 1 }, (__, distance) => (distance === 0 ? sharp : smooth(sharp, 2 * distance)));
    const back = invert(transforms[index] ?? identity);
    const data = sharp.data.map((___, i) => {
      const u = (i % width) - (width - 1) / 2;
      const v = Math.trunc(i / width) - (height - 1) / 2;
      // In strips from the middle of this one; half a strip is sharp, then the blur grows evenly.
      const away = Math.abs(((back.a * u - back.b * v + back.tx) / width + 0.5) * count - 0.5 - index);
      const blur = Math.min(Math.max(away - 0.5, 0), count - 0.001);
      const less = Math.trunc(blur);
      const value = blurred[less].data[i] + (blurred[less + 1].data[i] - blurred[less].data[i]) * (blur - less);
      return value + noise * (random(3) - 1);
    });
    return greyFrame(makePlane(width, height, data));
  });
}

export const constantFrame = (width, height, value) => greyFrame(makePlane(width, height, new Float32Array(width * height).fill(value)));

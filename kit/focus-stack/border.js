// The border of a fused picture.

/** How many pixels at either end of a line of `length` lie outside of the centres of its cells. */
function pixelsOutside(length, cells) {
  let outside = 0;
  while ((outside + 0.5) * cells / length - 0.5 < 0) {
    ++outside;
  }
  return outside;
}

/**
 * Draws the picture out to its border, in place. The fusion has no detail for the outermost half
 * cell of coarse maps, as no cell lies beyond it: a line of a pixel or two, which now gets the
 * pixels next to it.
 */
export function drawOutBorder({ width, height, rgba }, { mapWidth, mapHeight }) {
  const left = pixelsOutside(width, mapWidth);
  const top = pixelsOutside(height, mapHeight);
  const pixels = new Uint32Array(rgba.buffer, rgba.byteOffset, width * height);
  for (let y = top; y < height - top; ++y) {
    const start = y * width;
    pixels.fill(pixels[start + left], start, start + left);
    pixels.fill(pixels[start + width - 1 - left], start + width - left, start + width);
  }
  for (let y = 0; y < top; ++y) {
    pixels.copyWithin(y * width, top * width, (top + 1) * width);
    pixels.copyWithin((height - 1 - y) * width, (height - 1 - top) * width, (height - top) * width);
  }
}

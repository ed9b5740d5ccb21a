// A contact sheet of a fused focus stack: frames, weight maps and the result in one picture.

import { writeFile } from 'node:fs/promises';

import sharp from 'sharp';

import { withPixelSize } from './png.js';

const columns = 4;
const tileWidth = 480;
const gap = 8;
const background = '#202020';

const pixels = ({ width, height, rgba }) => sharp(rgba, { raw: { width, height, channels: 4 } });

function weightPicture({ mapWidth, mapHeight }, weights) {
  const grey = Uint8Array.from(weights, (weight) => Math.round(255 * Math.min(Math.max(weight, 0), 1)));
  return sharp(grey, { raw: { width: mapWidth, height: mapHeight, channels: 1 } }).toColourspace('srgb');
}

/**
 * Writes the sheet as PNG. From the top: the frames in their order, `columns` in a row, each with
 * its weight map (white where the frame alone counts, black where it does not) below it, and the
 * result over the whole width at the bottom. `frames`: { width, height, rgba } each; `fused`: what the
 * kit's fuseStack gives of them.
 */
export async function writeContactSheet(file, frames, fused) {
  const tileHeight = Math.max(1, Math.round(tileWidth * fused.height / fused.width));
  const tile = async (image, size) => image.resize({ ...size, fit: 'fill' }).removeAlpha().png().toBuffer();
  const small = { width: tileWidth, height: tileHeight };
  const parts = [];
  const place = (input, column, row) =>
    parts.push({ input, left: gap + column * (tileWidth + gap), top: gap + row * (tileHeight + gap) });
  for (const [i, frame] of frames.entries()) {
    const row = 2 * Math.trunc(i / columns);
    const { field, weights } = fused.frames[i];
    place(await tile(pixels(frame), small), i % columns, row);
    place(await tile(weightPicture(field, weights), small), i % columns, row + 1);
  }
  const rows = 2 * Math.ceil(frames.length / columns);
  const width = columns * (tileWidth + gap) - gap;
  const height = Math.max(1, Math.round(width * fused.height / fused.width));
  place(await tile(pixels(fused), { width, height }), 0, rows);
  const sheet = { width: width + 2 * gap, height: rows * (tileHeight + gap) + height + 2 * gap };
  const png = await sharp({ create: { ...sheet, channels: 3, background } }).composite(parts).png().toBuffer();
  await writeFile(file, withPixelSize(png));
}

// Pictures from and to files, as the examples need them: { width, height, rgba }.

import { readdir, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';

import sharp from 'sharp';

import { withPixelSize } from './png.js';

const isPicture = /\.(png|jpe?g)$/i;
// 2 comes before 10.
const naturalOrder = new Intl.Collator('en', { numeric: true }).compare;

/** The pictures in a folder, in natural order of their names. */
export async function listPictures(folder) {
  const isFolder = await stat(folder).then((entry) => entry.isDirectory(), () => false);
  if (!isFolder) {
    throw new Error(`There is no folder ${folder}.`);
  }
  const names = (await readdir(folder)).filter((name) => isPicture.test(name));
  if (names.length === 0) {
    throw new Error(`${folder} holds no pictures (.png, .jpg, .jpeg).`);
  }
  return names.sort(naturalOrder).map((name) => path.join(folder, name));
}

async function decode(file) {
  // Turned as the camera says, 8 bits a channel, without what a transparency would hide.
  const image = sharp(file).rotate().toColourspace('srgb').removeAlpha().ensureAlpha();
  const { data, info } = await image.raw({ depth: 'uchar' }).toBuffer({ resolveWithObject: true });
  return { width: info.width, height: info.height, rgba: new Uint8Array(data.buffer, data.byteOffset, data.length) };
}

export async function readPicture(file) {
  try {
    return await decode(file);
  } catch (error) {
    throw new Error(`${file} can't be read as a picture: ${error.message.split('\n')[0]}.`);
  }
}

export async function writePng(file, { width, height, rgba }) {
  const png = await sharp(rgba, { raw: { width, height, channels: 4 } }).removeAlpha().png({ compressionLevel: 6 }).toBuffer();
  await writeFile(file, withPixelSize(png));
}

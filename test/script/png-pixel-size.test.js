// The size of a pixel that PNG files carry.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import sharp from 'sharp';

import { withPixelSize } from '../../examples/lib/png.js';
import { cameraMicrons, previewMicrons } from '../../viewer/page/optics.js';
import { chunksOf, pixelMicrons } from './support/png-chunks.js';

/** CRC-32 bit by bit, as the PNG standard words it. */
function crc32(bytes) {
  let crc = 0xffffffff;
  for (const byte of bytes) {
    crc ^= byte;
    for (let bit = 0; bit < 8; ++bit) {
      crc = crc & 1 ? (crc >>> 1) ^ 0xedb88320 : crc >>> 1;
    }
  }
  return (crc ^ 0xffffffff) >>> 0;
}

describe('the pixels of a PNG', () => {
  const pixels = Buffer.from(Array.from({ length: 48 }, (_, i) => 5 * i));
  const encoded = () => sharp(pixels, { raw: { width: 4, height: 4, channels: 3 } }).png().toBuffer();
  const types = (png) => chunksOf(png).map(({ type }) => type);

  it('are a millimetre by sharp, which is what has to go', async () => {
    assert.equal(pixelMicrons(await encoded()), 1000);
  });

  it('get their true size, ahead of the picture, and all else stays', async () => {
    const png = withPixelSize(await encoded(), 0.7);
    assert.deepEqual(types(png), ['IHDR', 'pHYs', 'IDAT', 'IEND']);
    const [header, size] = chunksOf(png);
    assert.deepEqual([size.body.readUInt32BE(0), size.body.readUInt32BE(4), size.body[8]], [1428571, 1428571, 1]);
    for (const { type, covered, sum } of chunksOf(png)) {
      assert.equal(sum, crc32(covered), type);
    }
    assert.deepEqual([header.body.readUInt32BE(0), header.body.readUInt32BE(4)], [4, 4]);
    assert.deepEqual(await sharp(png).raw().toBuffer(), pixels);
  });

  it('have none where it is not known, or is no size', async () => {
    for (const microns of [undefined, null, 0, -1, NaN, Infinity, 1e-4, 3e6]) {
      assert.deepEqual(types(withPixelSize(await encoded(), microns)), ['IHDR', 'IDAT', 'IEND'], String(microns));
    }
  });
});

describe('micrometres a pixel', () => {
  const pixel = { micronsPerPixel: 0.7, width: 1920, height: 1080 };

  it('are those of the camera for a still, and larger by the step for a preview', () => {
    const microscope = { pixel, fieldOfView: null };
    assert.equal(cameraMicrons(microscope, 1920), 0.7);
    assert.equal(previewMicrons(microscope, { width: 960, sourceWidth: 1920 }), 1.4);
    assert.equal(previewMicrons(microscope, { width: 640, sourceWidth: 1921 }), null);
    assert.equal(previewMicrons({ pixel: { ...pixel, width: 0 } }, { width: 640, sourceWidth: 1921 }), 0.7 * 3);
    assert.equal(previewMicrons(microscope, { width: 1920, sourceWidth: 1920 }), 0.7);
  });

  it('come from the field of view where the pixel is told for other frames, and are not known without either', () => {
    assert.equal(cameraMicrons({ pixel, fieldOfView: 448 }, 640), 0.7);
    assert.equal(cameraMicrons({ pixel: null, fieldOfView: null }, 640), null);
    assert.equal(cameraMicrons(null, 640), null);
    assert.equal(previewMicrons(null, { width: 1, sourceWidth: 1 }), null);
  });
});

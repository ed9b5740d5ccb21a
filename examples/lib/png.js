// How large the pixels of a PNG are.

import { gzipSync } from 'node:zlib';

const signatureBytes = 8;
// Length, type and checksum of a chunk.
const frameBytes = 12;
const headerEnd = signatureBytes + frameBytes + 13;
const perMetre = 1;
const mostPerMetre = 2 ** 31 - 1;

/** The CRC-32 of bytes, with which a gzip stream ends as well. */
function checksum(bytes) {
  const stream = gzipSync(bytes);
  return stream.readUInt32LE(stream.length - 8);
}

function chunk(type, body) {
  const bytes = Buffer.alloc(frameBytes + body.length);
  bytes.writeUInt32BE(body.length, 0);
  bytes.write(type, 4, 'latin1');
  body.copy(bytes, 8);
  bytes.writeUInt32BE(checksum(bytes.subarray(4, 8 + body.length)), 8 + body.length);
  return bytes;
}

function pixelSizeChunk(microns) {
  const body = Buffer.alloc(9);
  const pixels = Math.round(1e6 / microns);
  body.writeUInt32BE(pixels, 0);
  body.writeUInt32BE(pixels, 4);
  body.writeUInt8(perMetre, 8);
  return chunk('pHYs', body);
}

const isTold = (microns) => microns > 0 && 1e6 / microns >= 0.5 && 1e6 / microns <= mostPerMetre;

/**
 * A PNG without what its encoder said of the size of its pixels, sharp a millimetre for instance; with
 * `microns`, their true size where that is known.
 */
export function withPixelSize(png, microns = null) {
  const parts = [];
  for (let at = headerEnd; at < png.length;) {
    const end = at + frameBytes + png.readUInt32BE(at);
    if (png.toString('latin1', at + 4, at + 8) !== 'pHYs') {
      parts.push(png.subarray(at, end));
    }
    at = end;
  }
  return Buffer.concat([png.subarray(0, headerEnd), ...(isTold(microns) ? [pixelSizeChunk(microns)] : []), ...parts]);
}

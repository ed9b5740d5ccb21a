// Reads the number that each frame of the simulated camera carries; simulator/frame_code.h
// describes the layout. Frames may be whole or reduced, grey, RGB or RGBA.

const UNITS_PER_HEIGHT = 45;
const MARGIN = 2;
const COLUMNS = 14;
const ROWS = 6;
const BIT_COLUMNS = COLUMNS - 2;
const NUMBER_BITS = 32;
const CHECKSUM_BITS = 16;
const SMALLEST_CONTRAST = 96;

/** CRC-16 of a frame number, polynomial 0x1021, start 0xFFFF, most significant bit first. */
export function frameCodeChecksum(number) {
  let crc = 0xffff;
  for (let bit = NUMBER_BITS - 1; bit >= 0; bit -= 1) {
    const carry = ((crc >>> 15) ^ (number >>> bit)) & 1;
    crc = ((crc << 1) ^ (carry ? 0x1021 : 0)) & 0xffff;
  }
  return crc;
}

/**
 * The frame number in `pixels` (a Uint8Array), or null where no undamaged code is found.
 * `bytesPerPixel`: 1 for grey, 3 for RGB, 4 for RGBA.
 */
export function readFrameCode(pixels, width, height, bytesPerRow, bytesPerPixel) {
  const edge = (units) => Math.trunc((units * height) / UNITS_PER_HEIGHT);
  if (height < 1 || width < edge(MARGIN + COLUMNS) + 1) {
    return null;
  }
  const channel = bytesPerPixel >= 3 ? 1 : 0;

  // Mean brightness of the inner half of a cell, away from the blur of its edges.
  const readCell = (column, row) => {
    const x0 = edge(MARGIN + column + 0.25);
    const x1 = Math.max(edge(MARGIN + column + 0.75), x0 + 1);
    const y0 = edge(MARGIN + row + 0.25);
    const y1 = Math.max(edge(MARGIN + row + 0.75), y0 + 1);
    let sum = 0;
    for (let y = y0; y < y1; y += 1) {
      for (let x = x0; x < x1; x += 1) {
        sum += pixels[y * bytesPerRow + x * bytesPerPixel + channel];
      }
    }
    return sum / ((x1 - x0) * (y1 - y0));
  };

  const whites = [];
  const blacks = [];
  for (let column = 0; column < COLUMNS; column += 1) {
    whites.push(readCell(column, 0));
    if (column > 0) {
      blacks.push(readCell(column, ROWS - 1));
    }
  }
  for (let row = 1; row < ROWS - 1; row += 1) {
    whites.push(readCell(0, row));
    blacks.push(readCell(COLUMNS - 1, row));
  }
  const darkestWhite = Math.min(...whites);
  const brightestBlack = Math.max(...blacks);
  if (!(darkestWhite - brightestBlack >= SMALLEST_CONTRAST)) {
    return null;
  }
  const threshold = (darkestWhite + brightestBlack) / 2;

  const readBits = (first, count) => {
    let value = 0;
    for (let bit = first; bit < first + count; bit += 1) {
      const white = readCell(1 + (bit % BIT_COLUMNS), 1 + Math.floor(bit / BIT_COLUMNS)) > threshold;
      value = value * 2 + (white ? 1 : 0);
    }
    return value;
  };
  const number = readBits(0, NUMBER_BITS);
  return readBits(NUMBER_BITS, CHECKSUM_BITS) === frameCodeChecksum(number) ? number : null;
}

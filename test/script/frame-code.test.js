// The reader of simulated frame numbers, on codes painted by the layout's own words.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { frameCodeChecksum, readFrameCode } from './support/frame-code.js';

// White cells of row 0 and column 0, black ones of row 5 and column 13, and 48 bits between.
function paintCode(number, width, height, bytesPerPixel) {
  const pixels = new Uint8Array(width * height * bytesPerPixel).fill(150);
  const bits =
    number.toString(2).padStart(32, '0') + frameCodeChecksum(number).toString(2).padStart(16, '0');
  const unit = height / 45;
  const edge = (cell) => Math.floor((2 + cell) * unit);
  for (let row = 0; row < 6; row += 1) {
    for (let column = 0; column < 14; column += 1) {
      let white = bits[(row - 1) * 12 + column - 1] === '1';
      if (row === 0 || column === 0) {
        white = true;
      } else if (row === 5 || column === 13) {
        white = false;
      }
      for (let y = edge(row); y < edge(row + 1); y += 1) {
        const start = y * width + edge(column);
        const end = y * width + edge(column + 1);
        pixels.fill(white ? 255 : 0, start * bytesPerPixel, end * bytesPerPixel);
      }
    }
  }
  return pixels;
}

function reduce(pixels, width, height, bytesPerPixel, step) {
  const small = { width: Math.floor(width / step), height: Math.floor(height / step) };
  small.pixels = new Uint8Array(small.width * small.height * bytesPerPixel);
  for (let y = 0; y < small.height; y += 1) {
    for (let x = 0; x < small.width; x += 1) {
      const from = (y * step * width + x * step) * bytesPerPixel;
      const to = (y * small.width + x) * bytesPerPixel;
      small.pixels.set(pixels.subarray(from, from + bytesPerPixel), to);
    }
  }
  return small;
}

test('the checksum is the CRC-16 of the four bytes', () => {
  assert.equal(frameCodeChecksum(0x31323334), 0x5349);
  assert.equal(frameCodeChecksum(0), 0x84c0);
});

test('a code is read from grey, RGB and RGBA frames', () => {
  for (const bytesPerPixel of [1, 3, 4]) {
    for (const number of [0, 1, 299, 0x12345678, 0xffffffff]) {
      const pixels = paintCode(number, 640, 480, bytesPerPixel);
      assert.equal(readFrameCode(pixels, 640, 480, 640 * bytesPerPixel, bytesPerPixel), number);
    }
  }
});

test('a code is read from reduced frames', () => {
  for (const [width, height] of [[640, 480], [1920, 1080], [1921, 1080]]) {
    const pixels = paintCode(0xa5c3f00f, width, height, 4);
    for (const step of [2, 3, 4]) {
      const small = reduce(pixels, width, height, 4, step);
      assert.equal(
        readFrameCode(small.pixels, small.width, small.height, small.width * 4, 4),
        0xa5c3f00f,
        `${width}x${height} by ${step}`,
      );
    }
  }
});

test('a damaged code and no code at all are null', () => {
  const pixels = paintCode(77, 640, 480, 1);
  const unit = 480 / 45;
  for (let y = Math.floor(5 * unit); y < 6 * unit; y += 1) {
    const start = y * 640 + Math.floor(10 * unit);
    for (let x = start; x < start + 11; x += 1) {
      pixels[x] = 255 - pixels[x];
    }
  }
  assert.equal(readFrameCode(pixels, 640, 480, 640, 1), null);
  assert.equal(readFrameCode(new Uint8Array(640 * 480), 640, 480, 640, 1), null);
  assert.equal(readFrameCode(new Uint8Array(4), 1, 1, 4, 4), null);
  assert.equal(readFrameCode(new Uint8Array(0), 640, 480, 640, 1), null);
});

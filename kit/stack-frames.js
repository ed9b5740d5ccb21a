// The frames of a stack on their way to the worker thread.

import { setImmediate as nextTurn } from 'node:timers/promises';

import { describe } from './options.js';

const largestSide = 16384;
// A piece takes about a millisecond, so that the event loop goes on between two.
const pieceBytes = 1 << 22;

/** The bytes of a frame as a Uint8Array; throws where it is no frame, or of another size than `first`. */
export function checkFrame(frame, index, first) {
  const { width, height, rgba } = frame ?? {};
  const isSide = (side) => Number.isInteger(side) && side >= 1 && side <= largestSide;
  if (!isSide(width) || !isSide(height)) {
    throw new RangeError(`Frame ${index} is ${describe(width)} x ${describe(height)}: a side has 1 to ${largestSide} pixels.`);
  }
  if (!(rgba instanceof Uint8Array || rgba instanceof Uint8ClampedArray)) {
    throw new TypeError(`Frame ${index} has no \`rgba\`, an array of bytes.`);
  }
  if (rgba.length !== width * height * 4) {
    throw new RangeError(`Frame ${index} has ${rgba.length} bytes, not ${width * height * 4} for ${width} x ${height} pixels.`);
  }
  if (first && (width !== first.width || height !== first.height)) {
    throw new RangeError(`The frames of a stack have one size, but frame 0 is ${first.width} x ${first.height} ` +
      `and frame ${index} is ${width} x ${height}.`);
  }
  return new Uint8Array(rgba.buffer, rgba.byteOffset, rgba.length);
}

/** A copy of bytes, made a piece at a time. */
async function copyInPieces(bytes, signal) {
  const copy = new Uint8Array(bytes.length);
  for (let start = 0; start < bytes.length; start += pieceBytes) {
    copy.set(bytes.subarray(start, start + pieceBytes), start);
    await nextTurn(undefined, { signal });
  }
  return copy;
}

/** Bytes that may be transferred: the given ones with `transfer`, if they are all of their buffer, else a copy. */
export function detachable(bytes, { transfer, signal }) {
  const isWhole = bytes.buffer instanceof ArrayBuffer && bytes.buffer.byteLength === bytes.length;
  return transfer && isWhole ? bytes : copyInPieces(bytes, signal);
}

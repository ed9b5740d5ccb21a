// The script tests' side of the fake camera library.

import { createRequire } from 'node:module';

import { fakePath } from './environment.js';

const paddingByte = 0xee;
const rampPeriod = 251;

function parseCall(line) {
  const fields = Object.fromEntries(line.split(' ').map((field) => field.split(/=(.*)/s).slice(0, 2)));
  return { symbol: fields.symbol, args: fields.args, thread: Number(fields.thread) };
}

/**
 * The fake at `path`, which the addon is to load too. `send(commands)` runs the commands of
 * fake_control.h.
 */
export function openFakeCamera(path = fakePath('libcnokhwa.so')) {
  const { send } = createRequire(import.meta.url)(fakePath('fake_control.node')).open(path);
  return {
    path,
    send,
    /** The logged calls of one symbol or of all, oldest first: { symbol, args, thread }. */
    calls: (key = '') => send(`log ${key}`).split('\n').slice(1).map(parseCall),
    /** How many calls have entered so far. */
    entered: (key) => Number(/entered=(\d+)/.exec(send(`stats ${key}`))[1]),
    /** How many frames were delivered so far. */
    frames: () => Number(send('frames').split(' ')[1]),
  };
}

/** The bytes of frame `number` with uniform content, as frame_content.h makes them. */
export function uniformFrame(number, width, height, bytesPerRow = 3 * width) {
  const frame = Buffer.alloc(height * bytesPerRow, paddingByte);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      frame.writeUIntLE(number, y * bytesPerRow + 3 * x, 3);
    }
  }
  return frame;
}

/** The bytes of frame `number` with ramp content, as frame_content.h makes them. */
export function rampFrame(number, size) {
  return Buffer.from(Array.from({ length: size }, (_, offset) => (offset + number * 31) % rampPeriod));
}

/** An RGB frame reduced to RGBA by taking the top left pixel of each `step` by `step` of them. */
export function reduceToRgba(frame, { width, height, bytesPerRow = 3 * width, step = 1 }) {
  const outWidth = Math.max(Math.trunc(width / step), 1);
  const outHeight = Math.max(Math.trunc(height / step), 1);
  const out = Buffer.alloc(outWidth * outHeight * 4, 255);
  for (let y = 0; y < outHeight; y += 1) {
    for (let x = 0; x < outWidth; x += 1) {
      frame.copy(out, (y * outWidth + x) * 4, y * step * bytesPerRow + 3 * x * step,
        y * step * bytesPerRow + 3 * x * step + 3);
    }
  }
  return out;
}

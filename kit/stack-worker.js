// A worker thread's side of stack-fusion.js: measures the frames as they come, then fuses them.

import { createRequire } from 'node:module';
import { parentPort, workerData } from 'node:worker_threads';

import { drawOutBorder } from './focus-stack/border.js';
import { chooseFrames, coarseDetail } from './focus-stack/choose-frames.js';
import { mapSizeFor } from './focus-stack/fields.js';
import { measureSharpness } from './focus-stack/focus-measure.js';
import { analyseFrame, fewestFrames, makeRequest, measureStack, mostFrames } from './focus-stack/measure-stack.js';
import { lumaOf } from './focus-stack/planes.js';

const { addonFile, expected, givesBack } = workerData;
const stack = [];
let measuringMs = 0;

const tell = (stage, stageDone) => parentPort.postMessage({ stage, stageDone });
const meanOf = (values) => values.reduce((sum, value) => sum + value, 0) / values.length;

function timed(work) {
  const started = performance.now();
  const result = work();
  measuringMs += performance.now() - started;
  return result;
}

function measure(frame) {
  stack.push({ index: stack.length, frame, analysis: timed(() => analyseFrame(frame)) });
  tell('measuring', expected ? Math.min(stack.length / expected, 1) : 0);
}

/** Of a longer stack, the frames that together show most sharply. */
function choose() {
  if (stack.length <= mostFrames) {
    return stack;
  }
  tell('choosing', 0);
  const chosen = timed(() => chooseFrames(stack.map(({ analysis }) => analysis.detail), mostFrames));
  return chosen.map((index) => stack[index]);
}

function gainOf(result, chosen) {
  const detail = coarseDetail(measureSharpness(lumaOf(result), mapSizeFor(result)));
  const best = Math.max(...chosen.map(({ analysis }) => meanOf(analysis.detail.data)));
  return best > 0 ? meanOf(detail.data) / best : NaN;
}

function fuse() {
  if (stack.length < fewestFrames) {
    throw new Error(`A focus stack has at least ${fewestFrames} frames; there ${stack.length === 1 ? 'is one' : `are ${stack.length}`}.`);
  }
  const chosen = choose();
  const measured = timed(() => measureStack(chosen.map(({ analysis }) => analysis), (done) => tell('aligning', done)));
  tell('fusing', 0);
  const native = createRequire(import.meta.url)(addonFile);
  const { data, durationMs, threads, simd } = native.edofMultibandFuse(makeRequest(chosen.map(({ frame }) => frame), measured));
  const { width, height, reference, frames } = measured;
  const result = { width, height, rgba: new Uint8Array(data.buffer, data.byteOffset, data.length) };
  drawOutBorder(result, frames[0].field);
  tell('fusing', 1);
  return {
    ...result,
    reference,
    frames: frames.map((frame, i) => ({ index: chosen[i].index, accepted: frame.field.accepted, ...frame })),
    gain: gainOf(result, chosen),
    measuringMs,
    fusingMs: durationMs,
    threads,
    simd,
    ...(givesBack ? { sources: stack.map(({ frame }) => frame) } : {}),
  };
}

/** All memory of the result moves; nothing of it is copied. */
function buffersOf({ rgba, frames, sources = [] }) {
  const maps = frames.flatMap(({ field, weights }) => [field.x, field.y, field.confidence, weights]);
  return [...new Set([rgba, ...maps, ...sources.map((frame) => frame.rgba)].map(({ buffer }) => buffer))];
}

parentPort.on('message', ({ frame, isLast }) => {
  try {
    if (frame) {
      measure(frame);
    }
    if (isLast) {
      const result = fuse();
      parentPort.postMessage({ result }, buffersOf(result));
    }
  } catch (error) {
    parentPort.postMessage({ error });
  }
});

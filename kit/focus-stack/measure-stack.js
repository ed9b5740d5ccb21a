// Measures a focus stack for edofMultibandFuse: which region is sharp in which frame, and how the
// frames lie to one another.
//
//   const analyses = frames.map(analyseFrame);        // { width, height, rgba } each
//   const measured = measureStack(analyses);
//   const { data } = addon.edofMultibandFuse(makeRequest(frames, measured));
//   const fused = { width, height, rgba: data };
//   drawOutBorder(fused, measured.frames[0].field);

import { coarseDetail } from './choose-frames.js';
import { measureConfidence } from './confidence.js';
import { makeField, mapPositions, mapSizeFor } from './fields.js';
import { measureSharpness, noiseFloor } from './focus-measure.js';
import { focusWeights, regionSharpness, winnerShares } from './focus-weights.js';
import { lumaOf, makePlane, sampleBilinear } from './planes.js';
import { prepareFrame } from './registration.js';
import { rotationOf, scaleOf } from './similarity.js';
import { alignFrames } from './stack-alignment.js';

export const fewestFrames = 3;
export const mostFrames = 11;

// A frame that is the sharpest in less than this share of the picture adds only noise.
const leastShare = 0.001;

/** What has to be known of one frame by itself; its pixels are not needed any more after that. */
export function analyseFrame(frame) {
  const { width, height } = frame;
  const luma = lumaOf(frame);
  const sharpness = measureSharpness(luma, mapSizeFor(frame));
  return { width, height, levels: prepareFrame(luma), sharpness, detail: coarseDetail(sharpness) };
}

/** A plane of a frame as seen on the cells of the result; NaN where the frame does not reach. */
function onResult(plane, { x, y }) {
  const seen = makePlane(plane.width, plane.height);
  // A cell reaches half a cell beyond its centre.
  const clamp = (position, last) =>
    (position >= -0.5 && position <= last + 0.5 ? Math.min(Math.max(position, 0), last) : NaN);
  for (let cell = 0; cell < seen.data.length; ++cell) {
    seen.data[cell] = sampleBilinear(plane, clamp(x.data[cell], plane.width - 1), clamp(y.data[cell], plane.height - 1));
  }
  return seen;
}

/** Which frames give pixels, and the weights of all: 0 for those that do not. */
function weighFrames(analyses, seen, placements, reference) {
  const registered = placements.flatMap((placement, i) => (placement.registered ? [i] : []));
  const regions = registered.map((i) => regionSharpness(seen[i], noiseFloor(analyses[i].sharpness)));
  const shares = winnerShares(regions);
  // The fusion falls back to the reference where nothing else reaches, so that one always counts.
  const kept = registered.map((_, k) => k).filter((k) => shares[k] >= leastShare || registered[k] === reference);
  const keptWeights = focusWeights(kept.map((k) => regions[k]));
  const weights = analyses.map(({ sharpness }) => makePlane(sharpness.width, sharpness.height));
  kept.forEach((k, position) => (weights[registered[k]] = keptWeights[position]));
  const accepted = new Set(kept.map((k) => registered[k]));
  return { weights, isAccepted: (i) => accepted.has(i), shareOf: (i) => shares[registered.indexOf(i)] ?? 0 };
}

/**
 * Measures the stack: { reference, frames }, with for each frame the `field`, the `weights` and
 * `sourcePixelsPerOutputPixel` that the fusion takes, and for people `registered`, `accepted`,
 * `scale`, `rotation` (radians), `shiftX` and `shiftY` (pixels) against the reference, `score`
 * (the correlation with the neighbour in focus) and `share` (of the picture, in which it is the
 * sharpest). `onProgress` is called with 0 to 1.
 */
export function measureStack(analyses, onProgress = () => {}) {
  const [{ width, height }] = analyses;
  if (analyses.some((analysis) => analysis.width !== width || analysis.height !== height)) {
    throw new RangeError('The frames of a stack have one size');
  }
  const size = { width, height };
  const mapSize = mapSizeFor(size);
  const alignmentShare = 0.7;
  const { reference, placements } = alignFrames(
    analyses.map(({ levels }) => levels), analyses.map(({ detail }) => detail), size,
    (done) => onProgress(done * alignmentShare));
  const placed = placements.map(({ transform, neighbour }, i) => {
    const positions = mapPositions(transform, size, mapSize);
    const confidence = measureConfidence(
      { level: analyses[i].levels[0], transform },
      { level: analyses[neighbour].levels[0], transform: placements[neighbour].transform }, positions);
    onProgress(alignmentShare + (1 - alignmentShare) * (i + 1) / analyses.length);
    return { ...makeField(transform, size, mapSize, confidence), seen: onResult(analyses[i].sharpness, positions) };
  });
  const { weights, isAccepted, shareOf } = weighFrames(analyses, placed.map(({ seen }) => seen), placements, reference);
  const frames = placements.map(({ registered, transform, score }, i) => ({
    field: { ...placed[i].field, accepted: isAccepted(i) },
    weights: weights[i].data,
    sourcePixelsPerOutputPixel: placed[i].sourcePixelsPerOutputPixel,
    registered,
    accepted: isAccepted(i),
    scale: scaleOf(transform),
    rotation: rotationOf(transform),
    shiftX: transform.tx,
    shiftY: transform.ty,
    score,
    share: shareOf(i),
  }));
  return { ...size, reference, frames };
}

/** The request for edofMultibandFuse: the pixels of `frames` as `measured` by `measureStack`. */
export function makeRequest(frames, measured) {
  return {
    width: measured.width,
    height: measured.height,
    referenceIndex: measured.reference,
    frames: frames.map(({ rgba }, i) => ({
      rgba,
      sourcePixelsPerOutputPixel: measured.frames[i].sourcePixelsPerOutputPixel,
    })),
    fields: measured.frames.map(({ field }) => field),
    weights: measured.frames.map(({ weights }) => weights),
  };
}

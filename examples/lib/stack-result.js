// The second half of making one sharp picture from a measured stack, for all examples that do:
// telling what was measured, fusing, and writing the pictures.

import { mkdir } from 'node:fs/promises';
import path from 'node:path';

import { Step } from '../../scripts/lib/output.js';
import { drawOutBorder } from '../../kit/focus-stack/border.js';
import { makeRequest } from '../../kit/focus-stack/measure-stack.js';
import { row, seconds } from './report.js';

function remarkOn({ registered, accepted }, isReference) {
  if (!registered) {
    return 'left out: does not match the others';
  }
  if (!accepted) {
    return 'left out: nowhere the sharpest';
  }
  return isReference ? 'reference' : '';
}

const numberColumns = ({ scale, shiftX, shiftY, score, share }) => [
  scale.toFixed(4).padStart(7), shiftX.toFixed(1).padStart(9), shiftY.toFixed(1).padStart(9),
  score.toFixed(2).padStart(7), `${(100 * share).toFixed(1)} %`.padStart(10)].join(' ');

/** A line for each frame of what `measureStack` gives; `labels` name the frames, below `title`. */
export function printFrames(title, labels, { frames, reference }) {
  const width = Math.max(title.length, ...labels.map((label) => label.length));
  console.log(`\n  ${title.padEnd(width)}   scale   shift x   shift y   match   sharpest`);
  frames.forEach((frame, i) => {
    const numbers = frame.registered ? numberColumns(frame) : ' '.repeat(46);
    console.log(`  ${labels[i].padEnd(width)} ${numbers}  ${remarkOn(frame, i === reference)}`.trimEnd());
  });
  console.log('');
}

/** The sharp picture, { width, height, rgba }, of frames and what `measureStack` says of them. */
export function fuseStack(addon, frames, measured) {
  const step = new Step('fusing');
  step.progress('...');
  const { data, durationMs, threads, simd } = addon.edofMultibandFuse(makeRequest(frames, measured));
  step.done(`${seconds(durationMs)}, at most ${threads} threads, ${simd}`);
  const result = { width: frames[0].width, height: frames[0].height, rgba: data };
  drawOutBorder(result, measured.frames[0].field);
  return result;
}

/** Writes the sharp picture and the contact sheet into `folder` and tells where they lie. */
export async function writeStackResult(folder, frames, measured, result) {
  // The npm package behind these may not be there yet when an example starts.
  const { writePng } = await import('./pictures.js');
  const { writeContactSheet } = await import('./contact-sheet.js');
  await mkdir(folder, { recursive: true });
  const fusedFile = path.join(folder, 'fused.png');
  const sheetFile = path.join(folder, 'contact-sheet.png');
  await writePng(fusedFile, result);
  await writeContactSheet(sheetFile, frames, measured, result);
  row('sharp picture', fusedFile);
  row('contact sheet', `${sheetFile}  (frames, each with its weights below; the result)`);
}

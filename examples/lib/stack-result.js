// Making one sharp picture from a stack, for all examples that do: fusing, telling what was measured,
// and writing the pictures.

import { mkdir } from 'node:fs/promises';
import path from 'node:path';

import { fuseStack } from '../../kit/index.js';
import { Step } from '../../scripts/lib/output.js';
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

/** A line for each frame of what `fuseFrames` gives; `labels` name the frames, below `title`. */
export function printFrames(title, labels, { frames, reference }) {
  const width = Math.max(title.length, ...labels.map((label) => label.length));
  console.log(`\n  ${title.padEnd(width)}   scale   shift x   shift y   match   sharpest`);
  frames.forEach((frame, i) => {
    const numbers = frame.registered ? numberColumns(frame) : ' '.repeat(46);
    console.log(`  ${labels[i].padEnd(width)} ${numbers}  ${remarkOn(frame, i === reference)}`.trimEnd());
  });
  console.log('');
}

/** Fuses `count` frames, an iterable or an asynchronous one; gives what the kit's fuseStack gives. */
export async function fuseFrames(addon, frames, count) {
  const step = new Step('measuring');
  let read = 0;
  const fused = await fuseStack({
    native: addon,
    frames,
    onProgress: ({ stage, stageDone }) => step.progress(
      stage === 'measuring' ? `${read += 1} of ${count}` : `${stage}, ${Math.round(100 * stageDone)} %`),
  });
  const { width, height, measuringMs, fusingMs, threads, simd } = fused;
  step.done(`${count} frames of ${width} x ${height} in ${seconds(measuringMs)}`);
  row('fusing', `${seconds(fusingMs)}, at most ${threads} threads, ${simd}`);
  return fused;
}

/** Writes the sharp picture and the contact sheet into `folder` and tells where they lie. */
export async function writeStackResult(folder, frames, fused) {
  // The npm package behind these may not be there yet when an example starts.
  const { writePng } = await import('./pictures.js');
  const { writeContactSheet } = await import('./contact-sheet.js');
  await mkdir(folder, { recursive: true });
  const fusedFile = path.join(folder, 'fused.png');
  const sheetFile = path.join(folder, 'contact-sheet.png');
  await writePng(fusedFile, fused);
  await writeContactSheet(sheetFile, frames, fused);
  row('sharp picture', fusedFile);
  row('contact sheet', `${sheetFile}  (frames, each with its weights below; the result)`);
}

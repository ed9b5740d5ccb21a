// From a folder of pictures of one focus stack to one sharp picture.
//
//   npm run example:fuse -- FOLDER [--output FOLDER]
//
// The pictures (PNG or JPEG, one size, in natural order of their names) are measured in script
// code, see kit/focus-stack/, and fused by the addon.

import path from 'node:path';
import { parseArgs } from 'node:util';

import { Step } from '../scripts/lib/output.js';
import { chooseFrames } from '../kit/focus-stack/choose-frames.js';
import { analyseFrame, fewestFrames, measureStack, mostFrames } from '../kit/focus-stack/measure-stack.js';
import { loadAddon } from './lib/load-addon.js';
import { recordingsDirectory, row, runExample, seconds, timeName, userPath } from './lib/report.js';
import { fuseStack, printFrames, writeStackResult } from './lib/stack-result.js';

const usage = 'npm run example:fuse -- FOLDER [--output FOLDER]';
const largestSide = 16384;

function readArguments() {
  const { values, positionals } = parseArgs({ allowPositionals: true, options: { output: { type: 'string' } } });
  if (positionals.length !== 1) {
    throw new Error(`Name one folder with the pictures of a focus stack: ${usage}`);
  }
  const folder = userPath(positionals[0]);
  const ownFolder = path.join(recordingsDirectory, `${timeName()}-${path.basename(folder)}`);
  return { folder, output: values.output ? userPath(values.output) : ownFolder };
}

/** What needs the npm packages; they may not be there yet. */
async function loadPackages() {
  try {
    return await import('./lib/pictures.js');
  } catch (error) {
    throw new Error(`The npm packages are not ready (${error.message.split('\n')[0]}). Run "npm start" first.`);
  }
}

/** Reads the pictures one after the other and checks them; gives what `analyse` makes of each. */
async function readStack(step, files, readPicture, analyse) {
  const results = [];
  let first;
  for (const [i, file] of files.entries()) {
    step.progress(`${i + 1} of ${files.length}  ${path.basename(file)}`);
    const frame = await readPicture(file);
    first ??= frame;
    if (frame.width !== first.width || frame.height !== first.height) {
      throw new Error(`The pictures of a focus stack have one size, but ${path.basename(files[0])} has ` +
        `${first.width} x ${first.height} pixels and ${path.basename(file)} has ${frame.width} x ${frame.height}.`);
    }
    if (Math.max(frame.width, frame.height) > largestSide) {
      throw new Error(`${path.basename(file)} has ${frame.width} x ${frame.height} pixels, but at most ` +
        `${largestSide} a side can be fused.`);
    }
    results.push(analyse(frame));
  }
  return results;
}

/** At most as many files as can be fused: of a longer stack, those that together show most sharply. */
async function thinOut(files, readPicture) {
  if (files.length < fewestFrames) {
    const there = files.length === 1 ? 'is one' : `are ${files.length}`;
    throw new Error(`A focus stack has at least ${fewestFrames} pictures; there ${there}.`);
  }
  if (files.length <= mostFrames) {
    return files;
  }
  const step = new Step('choosing');
  const details = await readStack(step, files, readPicture, (frame) => analyseFrame(frame).detail);
  const chosen = chooseFrames(details, mostFrames).map((index) => files[index]);
  step.done(`${mostFrames} of ${files.length} pictures, which together show most sharply; more can't be fused at once`);
  return chosen;
}

const meanOf = (values) => values.reduce((sum, value) => sum + value, 0) / values.length;

async function main() {
  const { folder, output } = readArguments();
  const { listPictures, readPicture } = await loadPackages();
  const files = await thinOut(await listPictures(folder), readPicture);
  const addon = loadAddon();

  const reading = new Step('measuring');
  let measuringMs = 0;
  const timed = (work) => {
    const started = performance.now();
    const result = work();
    measuringMs += performance.now() - started;
    return result;
  };
  const stack = await readStack(reading, files, readPicture,
    (frame) => ({ frame, analysis: timed(() => analyseFrame(frame)) }));
  const frames = stack.map(({ frame }) => frame);
  const analyses = stack.map(({ analysis }) => analysis);
  const measured = timed(() =>
    measureStack(analyses, (done) => reading.progress(`aligning and weighing, ${Math.round(100 * done)} %`)));
  reading.done(`${files.length} frames of ${frames[0].width} x ${frames[0].height} in ${seconds(measuringMs)}`);
  printFrames('frame', files.map((file) => path.basename(file)), measured);

  const result = fuseStack(addon, frames, measured);
  const sharpest = Math.max(...analyses.map(({ detail }) => meanOf(detail.data)));
  const gain = meanOf(analyseFrame(result).detail.data) / sharpest;
  row('fine detail', Number.isFinite(gain) ? `${gain.toFixed(2)} times that of the best single frame` : 'none in any frame');
  await writeStackResult(output, frames, measured, result);
}

await runExample(main);

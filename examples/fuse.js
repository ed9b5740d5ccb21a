// From a folder of pictures of one focus stack to one sharp picture.
//
//   npm run example:fuse -- FOLDER [--output FOLDER]
//
// The pictures (PNG or JPEG, one size, in natural order of their names) are measured and fused by the
// kit, off the main thread.

import path from 'node:path';
import { parseArgs } from 'node:util';

import { Step } from '../scripts/lib/output.js';
import { chooseFrames } from '../kit/focus-stack/choose-frames.js';
import { analyseFrame, fewestFrames, mostFrames } from '../kit/focus-stack/measure-stack.js';
import { loadAddon } from './lib/load-addon.js';
import { programArguments } from './lib/program-arguments.js';
import { recordingsDirectory, row, runExample, timeName, userPath } from './lib/report.js';
import { fuseFrames, printFrames, writeStackResult } from './lib/stack-result.js';

const usage = 'npm run example:fuse -- FOLDER [--output FOLDER]';
const largestSide = 16384;

function readArguments() {
  const { values, positionals } = parseArgs({ allowPositionals: true, options: programArguments.fuse.options });
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

/** Reads the pictures one after the other and checks them. */
async function* readStack(files, readPicture) {
  let first;
  for (const file of files) {
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
    yield frame;
  }
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
  const details = [];
  for await (const frame of readStack(files, readPicture)) {
    details.push(analyseFrame(frame).detail);
    step.progress(`${details.length} of ${files.length}`);
  }
  const chosen = chooseFrames(details, mostFrames).map((index) => files[index]);
  step.done(`${mostFrames} of ${files.length} pictures, which together show most sharply; more can't be fused at once`);
  return chosen;
}

async function main() {
  const { folder, output } = readArguments();
  const { listPictures, readPicture } = await loadPackages();
  const files = await thinOut(await listPictures(folder), readPicture);
  const addon = loadAddon();

  // Kept for the contact sheet.
  const frames = [];
  async function* keepFrames() {
    for await (const frame of readStack(files, readPicture)) {
      frames.push(frame);
      yield frame;
    }
  }
  const fused = await fuseFrames(addon, keepFrames(), files.length);
  printFrames('frame', files.map((file) => path.basename(file)), fused);
  const { gain } = fused;
  row('fine detail', Number.isFinite(gain) ? `${gain.toFixed(2)} times that of the best single frame` : 'none in any frame');
  await writeStackResult(output, frames, fused);
}

await runExample(main);

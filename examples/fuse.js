// From a folder of pictures of one focus stack to one sharp picture.
//
//   npm run example:fuse -- FOLDER [--output FOLDER]
//
// The pictures (PNG or JPEG, one size, in natural order of their names) are measured in script
// code, see lib/focus-stack/, and fused by the addon.

import { mkdir } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { Step } from '../scripts/lib/output.js';
import { drawOutBorder } from './lib/focus-stack/border.js';
import { chooseFrames } from './lib/focus-stack/choose-frames.js';
import { analyseFrame, fewestFrames, makeRequest, measureStack, mostFrames } from './lib/focus-stack/measure-stack.js';
import { loadAddon } from './lib/load-addon.js';

const usage = 'npm run example:fuse -- FOLDER [--output FOLDER]';
const recordingsDirectory = fileURLToPath(new URL('../recordings', import.meta.url));
const largestSide = 16384;

function readArguments() {
  const { values, positionals } = parseArgs({ allowPositionals: true, options: { output: { type: 'string' } } });
  if (positionals.length !== 1) {
    throw new Error(`Name one folder with the pictures of a focus stack: ${usage}`);
  }
  // npm starts scripts in the project's folder and tells where the user is.
  const resolve = (folder) => path.resolve(process.env.INIT_CWD ?? '.', folder);
  const folder = resolve(positionals[0]);
  // This locale writes a date as 2000-12-31 23:59:59.
  const date = new Date().toLocaleString('sv-SE').replace(/[ :]/g, '-');
  const output = values.output ? resolve(values.output) : path.join(recordingsDirectory, `${date}-${path.basename(folder)}`);
  return { folder, output };
}

/** What needs the npm packages; they may not be there yet. */
async function loadPackages() {
  try {
    return { ...(await import('./lib/pictures.js')), ...(await import('./lib/contact-sheet.js')) };
  } catch (error) {
    throw new Error(`The npm packages are not ready (${error.message.split('\n')[0]}). Run "npm start" first.`);
  }
}

const seconds = (milliseconds) => `${(milliseconds / 1000).toFixed(1)} s`;
const row = (label, text) => console.log(`  ${label.padEnd(20)}  ${text}`);

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

function printFrames(files, { frames, reference }) {
  const nameWidth = Math.max(...files.map((file) => path.basename(file).length));
  console.log(`\n  ${'frame'.padEnd(nameWidth)}   scale   shift x   shift y   match   sharpest`);
  frames.forEach(({ registered, accepted, scale, shiftX, shiftY, score, share }, i) => {
    const remark = !registered ? 'left out: does not match the others' : accepted ? '' : 'left out: nowhere the sharpest';
    const numbers = registered
      ? [scale.toFixed(4).padStart(7), shiftX.toFixed(1).padStart(9), shiftY.toFixed(1).padStart(9),
        score.toFixed(2).padStart(7), `${(100 * share).toFixed(1)} %`.padStart(10)].join(' ')
      : ' '.repeat(46);
    const line = `  ${path.basename(files[i]).padEnd(nameWidth)} ${numbers}  ${i === reference ? 'reference' : remark}`;
    console.log(line.trimEnd());
  });
  console.log('');
}

const meanOf = (values) => values.reduce((sum, value) => sum + value, 0) / values.length;

async function main() {
  const { folder, output } = readArguments();
  const { listPictures, readPicture, writePng, writeContactSheet } = await loadPackages();
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
  printFrames(files, measured);

  const fusing = new Step('fusing');
  fusing.progress('...');
  const { data, durationMs, threads, simd } = addon.edofMultibandFuse(makeRequest(frames, measured));
  fusing.done(`${seconds(durationMs)}, at most ${threads} threads, ${simd}`);
  const result = { width: frames[0].width, height: frames[0].height, rgba: data };
  drawOutBorder(result, measured.frames[0].field);
  const sharpest = Math.max(...analyses.map(({ detail }) => meanOf(detail.data)));
  const gain = meanOf(analyseFrame(result).detail.data) / sharpest;
  row('fine detail', Number.isFinite(gain) ? `${gain.toFixed(2)} times that of the best single frame` : 'none in any frame');

  await mkdir(output, { recursive: true });
  const fusedFile = path.join(output, 'fused.png');
  const sheetFile = path.join(output, 'contact-sheet.png');
  await writePng(fusedFile, result);
  await writeContactSheet(sheetFile, frames, measured, result);
  row('fused picture', fusedFile);
  row('contact sheet', `${sheetFile}  (frames, each with its weights below; the result)`);
}

try {
  await main();
} catch (error) {
  console.error(`\n${error.message}`);
  process.exitCode = 1;
}

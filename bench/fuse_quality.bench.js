// How good the fused pictures of real focus stacks are: the stacks measured as the example does it
// and fused by the addon, next to the best single frame and to Enfuse and align_image_stack (the
// Debian packages enfuse and hugin-tools) where they are installed.
//
//   node bench/fuse_quality.bench.js [FOLDER]
//
// FOLDER holds one folder a stack; without it OSTREL_FOCUS_STACKS names it, or it is looked for
// beside the project.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { drawOutBorder } from '../kit/focus-stack/border.js';
import { analyseFrame, makeRequest, measureStack } from '../kit/focus-stack/measure-stack.js';
import { lumaOf, makePlane, sampleBilinear } from '../kit/focus-stack/planes.js';
import { buildDirectory } from '../examples/lib/load-addon.js';
import { listPictures, readPicture, writePng } from '../examples/lib/pictures.js';
import { edgeTransfer, keptSharpness, meanGradient } from './lib/fusion-figures.js';

const root = fileURLToPath(new URL('..', import.meta.url));
const stacks = path.resolve(
  process.argv[2] ?? process.env.OSTREL_FOCUS_STACKS ?? path.join(root, '../shared/data/focus-stacks'));
const addonFile = process.env.OSTREL_TEST_ADDON ?? path.join(buildDirectory, 'ostrel_native.node');
// What its manual recommends for focus stacks.
const enfuseOptions = ['--exposure-weight=0', '--saturation-weight=0', '--contrast-weight=1', '--hard-mask'];

const isInstalled = (program) => spawnSync(program, ['--version'], { stdio: 'ignore' }).error === undefined;

/** Milliseconds that a program takes. */
function timeOf(program, args) {
  const started = performance.now();
  const { status, stderr } = spawnSync(program, args, { stdio: ['ignore', 'ignore', 'pipe'], encoding: 'utf8' });
  if (status !== 0) {
    throw new Error(`${program} failed: ${stderr.trim().split('\n').at(-1)}`);
  }
  return performance.now() - started;
}

/** A frame as the fusion sees it: brought to the reference, its border values drawn out. */
function bringToReference({ width, height, rgba }, { scale, rotation, shiftX, shiftY }) {
  const a = scale * Math.cos(rotation);
  const b = scale * Math.sin(rotation);
  const brought = { width, height, rgba: new Uint8Array(rgba.length).fill(255) };
  const clamp = (value, last) => Math.min(Math.max(value, 0), last);
  for (let channel = 0; channel < 3; ++channel) {
    const plane = makePlane(width, height, Float32Array.from({ length: width * height }, (_, i) => rgba[4 * i + channel]));
    for (let y = 0, i = 0; y < height; ++y) {
      const v = y - (height - 1) / 2;
      for (let x = 0; x < width; ++x, ++i) {
        const u = x - (width - 1) / 2;
        const sourceX = clamp(a * u - b * v + shiftX + (width - 1) / 2, width - 1);
        const sourceY = clamp(b * u + a * v + shiftY + (height - 1) / 2, height - 1);
        brought.rgba[4 * i + channel] = Math.round(sampleBilinear(plane, sourceX, sourceY));
      }
    }
  }
  return brought;
}

function printRow(name, luma, frames, milliseconds) {
  const figures = [
    `${(100 * keptSharpness(luma, frames)).toFixed(1)} %`.padStart(10),
    edgeTransfer(luma, frames).toFixed(3).padStart(10),
    meanGradient(luma).toFixed(2).padStart(10),
    (milliseconds === undefined ? '' : `${(milliseconds / 1000).toFixed(1)} s`).padStart(9),
  ];
  console.log(`  ${name.padEnd(34)}${figures.join('')}`.trimEnd());
}

function fuseWithAddon(addon, frames) {
  const started = performance.now();
  const measured = measureStack(frames.map(analyseFrame));
  const measuredAt = performance.now();
  const { data, durationMs } = addon.edofMultibandFuse(makeRequest(frames, measured));
  drawOutBorder({ ...frames[0], rgba: data }, measured.frames[0].field);
  return { measured, rgba: data, measuringMs: measuredAt - started, durationMs };
}

async function compareStack(addon, folder, scratch) {
  const files = await listPictures(folder);
  const frames = [];
  for (const file of files) {
    frames.push(await readPicture(file));
  }
  const { width, height } = frames[0];
  const ours = fuseWithAddon(addon, frames);
  console.log(`\n${path.basename(folder)}: ${frames.length} frames of ${width} x ${height}; measuring ` +
    `${(ours.measuringMs / frames.length / 1000).toFixed(2)} s a frame, fusing ${(ours.durationMs / 1000).toFixed(2)} s`);
  console.log(`  ${''.padEnd(34)}${'kept'.padStart(10)}${'edges'.padStart(10)}${'gradient'.padStart(10)}${'time'.padStart(9)}`);

  const brought = frames.map((frame, i) => bringToReference(frame, ours.measured.frames[i]));
  const aligned = brought.map(lumaOf);
  const singles = aligned.map((luma) => ({ luma, kept: keptSharpness(luma, aligned) }));
  const single = singles.sort((a, b) => b.kept - a.kept)[0];
  printRow('best single frame', single.luma, aligned);
  printRow('this project', lumaOf({ width, height, rgba: ours.rgba }), aligned, ours.measuringMs + ours.durationMs);

  if (!isInstalled('enfuse')) {
    console.log('  enfuse: not installed (Debian package enfuse), so not compared');
    return;
  }
  const inputs = brought.map((_, i) => path.join(scratch, `aligned${String(i).padStart(2, '0')}.png`));
  for (const [i, frame] of brought.entries()) {
    await writePng(inputs[i], frame);
  }
  const output = path.join(scratch, 'fused.png');
  const fusingMs = timeOf('enfuse', [...enfuseOptions, '-o', output, ...inputs]);
  printRow('enfuse, our alignment', lumaOf(await readPicture(output)), aligned, fusingMs);

  if (!isInstalled('align_image_stack')) {
    console.log('  align_image_stack: not installed (Debian package hugin-tools), so not compared');
    return;
  }
  const prefix = path.join(scratch, 'theirs');
  const aligningMs = timeOf('align_image_stack', ['-m', '-a', prefix, ...files]);
  const theirs = files.map((_, i) => `${prefix}${String(i).padStart(4, '0')}.tif`);
  const theirFusingMs = timeOf('enfuse', [...enfuseOptions, '-o', output, ...theirs]);
  const theirFrames = [];
  for (const file of theirs) {
    theirFrames.push(lumaOf(await readPicture(file)));
  }
  printRow('align_image_stack and enfuse', lumaOf(await readPicture(output)), theirFrames, aligningMs + theirFusingMs);
}

if (!fs.existsSync(stacks)) {
  console.log(`Skipped: there is no folder ${stacks} with focus stacks; name one in OSTREL_FOCUS_STACKS.`);
} else {
  console.log('kept: share of the sharpness of the best frame in each tile of 32 x 32 pixels; edges: edge transfer');
  console.log('Q(AB/F) from all frames; gradient: mean brightness step per pixel; time: measuring or aligning, and fusing.');
  const addon = createRequire(import.meta.url)(path.resolve(addonFile));
  const scratch = fs.mkdtempSync(path.join(os.tmpdir(), 'ostrel-fusion-quality-'));
  try {
    const folders = fs.readdirSync(stacks, { withFileTypes: true }).filter((entry) => entry.isDirectory());
    for (const { name } of folders.sort((a, b) => (a.name < b.name ? -1 : 1))) {
      await compareStack(addon, path.join(stacks, name), scratch);
    }
  } finally {
    fs.rmSync(scratch, { recursive: true });
  }
}

// The example that fuses a folder of pictures, as a user runs it.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

import sharp from 'sharp';

import { listPictures, readPicture, writePng } from '../../examples/lib/pictures.js';
import { skipUnderSanitizer, toolEnvironment } from './support/environment.js';
import { constantFrame, makeStack } from './support/synthetic-stack.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const example = fileURLToPath(new URL('../../examples/fuse.js', import.meta.url));
const directory = makeTemporaryDirectory();
const skip = skipUnderSanitizer('the example takes the release build');

async function makeFolder(name, frames, nameOf = (i) => `${i + 1}.png`) {
  const folder = path.join(directory, name);
  fs.mkdirSync(folder);
  for (const [i, frame] of frames.entries()) {
    await writePng(path.join(folder, nameOf(i)), frame);
  }
  return folder;
}

function run(...args) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [example, ...args],
    { encoding: 'utf8', env: { ...toolEnvironment, INIT_CWD: directory } });
  return { status, stdout, stderr };
}

function assertRefused(result, words) {
  assert.deepEqual({ status: result.status, stderr: result.stderr }, { status: 1, stderr: `\n${words}\n` });
}

describe('pictures', () => {
  it('are listed in natural order, and nothing else is', async () => {
    const folder = await makeFolder('order', Array(3).fill(constantFrame(2, 2, 1)), (i) => ['f10.png', 'f9.PNG', 'f1.jpeg'][i]);
    fs.writeFileSync(path.join(folder, 'notes.txt'), '');
    assert.deepEqual((await listPictures(folder)).map((file) => path.basename(file)), ['f1.jpeg', 'f9.PNG', 'f10.png']);
  });

  it('come as RGBA of 8 bits whatever the file holds', async () => {
    const grey = path.join(directory, 'grey.png');
    await sharp(Buffer.from([0, 100, 200, 255]), { raw: { width: 2, height: 2, channels: 1 } }).png().toFile(grey);
    const { width, height, rgba } = await readPicture(grey);
    assert.deepEqual([width, height, [...rgba]], [2, 2, [0, 0, 0, 255, 100, 100, 100, 255, 200, 200, 200, 255, 255, 255, 255, 255]]);
    const deep = path.join(directory, 'deep.png');
    await sharp(Buffer.from([10, 20, 30]), { raw: { width: 1, height: 1, channels: 3 } }).toColourspace('rgb16').png().toFile(deep);
    assert.deepEqual([...(await readPicture(deep)).rgba], [10, 20, 30, 255]);
  });

  it('are written as they were read', async () => {
    const file = path.join(directory, 'same.png');
    const frame = makeStack({ width: 31, height: 17, count: 1 })[0];
    await writePng(file, frame);
    assert.deepEqual(await readPicture(file), frame);
  });
});

describe('the example', () => {
  it('fuses a folder of pictures', { skip }, async () => {
    const folder = await makeFolder('stack', makeStack({ width: 160, height: 96, count: 3 }));
    const { status, stdout, stderr } = run('stack', '--output', 'out');
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' }, stdout);
    const { width, height } = await readPicture(path.join(directory, 'out', 'fused.png'));
    assert.deepEqual([width, height], [160, 96]);
    assert.match(stdout, /3 frames of 160 x 96 in \d+\.\d s\n/);
    assert.equal(stdout.match(/^ {2}[123]\.png +[\d.]+ +-?[\d.]+ +-?[\d.]+ +[\d.]+ +[\d.]+ %( {2}reference)?$/gm)?.length, 3, stdout);
    assert.equal(stdout.match(/ {2}reference$/gm)?.length, 1);
    const gain = Number(/fine detail +([\d.]+) times that of the best single frame/.exec(stdout)?.[1]);
    assert.ok(gain > 1.2, stdout);
    const sheet = await sharp(path.join(directory, 'out', 'contact-sheet.png')).metadata();
    assert.deepEqual([sheet.width, sheet.height], [4 * 488 + 8, 2 * 296 + 1166 + 16]);
    assert.ok(fs.existsSync(folder));
  });

  it('fuses the best eleven of more, and says so', { skip }, async () => {
    await makeFolder('long', makeStack({ width: 120, height: 64, count: 13 }));
    const { status, stdout } = run('long', '--output', 'long-out');
    assert.equal(status, 0, stdout);
    assert.match(stdout, / {2}choosing +11 of 13 pictures, which together show most sharply; more can't be fused at once\n/);
    assert.match(stdout, /11 frames of 120 x 64/);
  });

  it('says which frame was left out and why', { skip }, async () => {
    const frames = [...makeStack({ width: 160, height: 96, count: 3 }), makeStack({ width: 160, height: 96, count: 1, seed: 50 })[0]];
    await makeFolder('stranger', frames);
    const { stdout } = run('stranger', '--output', 'stranger-out');
    assert.match(stdout, /^ {2}4\.png +left out: does not match the others$/m);
  });

  it('refuses anything but one folder', () => {
    const words = 'Name one folder with the pictures of a focus stack: npm run example:fuse -- FOLDER [--output FOLDER]';
    assertRefused(run(), words);
    assertRefused(run('a', 'b'), words);
  });

  it('refuses a folder that is not there, or is a file', () => {
    assertRefused(run('nowhere'), `There is no folder ${path.join(directory, 'nowhere')}.`);
    fs.writeFileSync(path.join(directory, 'file'), '');
    assertRefused(run('file'), `There is no folder ${path.join(directory, 'file')}.`);
  });

  it('refuses a folder without pictures', async () => {
    const folder = await makeFolder('empty', []);
    assertRefused(run('empty'), `${folder} holds no pictures (.png, .jpg, .jpeg).`);
  });

  it('refuses fewer than three pictures', async () => {
    await makeFolder('two', makeStack({ width: 20, height: 20, count: 2 }));
    assertRefused(run('two'), 'A focus stack has at least 3 pictures; there are 2.');
    await makeFolder('one', makeStack({ width: 20, height: 20, count: 1 }));
    assertRefused(run('one'), 'A focus stack has at least 3 pictures; there is one.');
  });

  it('refuses pictures of several sizes', async () => {
    await makeFolder('sizes', [constantFrame(8, 6, 1), constantFrame(8, 6, 1), constantFrame(6, 8, 1)]);
    assertRefused(run('sizes'),
      'The pictures of a focus stack have one size, but 1.png has 8 x 6 pixels and 3.png has 6 x 8.');
  });

  it('refuses what is no picture', async () => {
    const folder = await makeFolder('broken', makeStack({ width: 20, height: 20, count: 3 }));
    fs.writeFileSync(path.join(folder, '2.png'), 'not a picture');
    const { status, stderr } = run('broken');
    assert.equal(status, 1);
    assert.match(stderr, /^\n\S+\/broken\/2\.png can't be read as a picture: [^\n]+\.\n$/);
  });
});

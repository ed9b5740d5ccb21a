// The files that the viewer makes.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { it } from 'node:test';

import { Archive } from '../../viewer/archive.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = path.join(makeTemporaryDirectory(), 'output');

it("a file of the viewer's archive has its own name and may be read by its owner and group alone", async () => {
  const archive = new Archive(directory);
  const names = [await archive.save('still', '.png', 'first'), await archive.save('still', '.png', 'second')];
  assert.notEqual(names[0], names[1]);
  assert.deepEqual(names.map((name) => fs.readFileSync(archive.find(name).file, 'utf8')), ['first', 'second']);
  assert.deepEqual(names.map((name) => fs.statSync(archive.find(name).file).mode & 0o777),
    Array(2).fill(0o640 & ~process.umask()));
});

// What npm runs before it packs the tarball: builds the release where it is missing or out of date,
// and puts it where an installed package has it.

import fs from 'node:fs';
import path from 'node:path';

import { readArguments } from './lib/arguments.js';
import { Failure, Step, runCommand } from './lib/output.js';
import { addonDirectory, root, shown } from './lib/paths.js';
import { setUp } from './setup.js';

const built = path.join(addonDirectory('release'), 'ostrel_native.node');
const packed = path.join(root, 'prebuilds', 'linux-x64', 'ostrel_native.node');

function placeBinary(step) {
  const isSame = fs.existsSync(packed) && fs.readFileSync(packed).equals(fs.readFileSync(built));
  if (!isSame) {
    fs.mkdirSync(path.dirname(packed), { recursive: true });
    // A rename, so that a process that has the old one open keeps it.
    fs.copyFileSync(built, `${packed}.new`);
    fs.renameSync(`${packed}.new`, packed);
  }
  const size = `${(fs.statSync(packed).size / 1e6).toFixed(1)} MB`;
  step.done(`${shown(packed)} (${size}), ${isSame ? 'as it was' : `copied from ${shown(built)}`}`);
}

await runCommand(async () => {
  if (readArguments({ summary: 'Builds the release and puts it where the tarball takes it from.' }) === null) {
    return;
  }
  await setUp({ targets: ['ostrel_native'] });
  if (!fs.existsSync(built)) {
    throw new Failure(`The build has left no ${shown(built)}: remove build/, then pack again.`);
  }
  placeBinary(new Step('binary to pack'));
});

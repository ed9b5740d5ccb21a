// npm run viewer: sets up what is missing, then serves the page of the viewer.

import path from 'node:path';

import { viewerArguments } from '../viewer/arguments.js';
import { readArguments } from './lib/arguments.js';
import { runKitProgram } from './lib/node-releases.js';
import { runCommand } from './lib/output.js';
import { root } from './lib/paths.js';
import { addonTargets } from './lib/targets.js';
import { setUp } from './setup.js';

const args = process.argv.slice(2);

let isAsked = false;
await runCommand(async () => {
  isAsked = readArguments(viewerArguments, args) !== null;
  if (isAsked) {
    await setUp({ kit: true, targets: addonTargets });
  }
});
if (isAsked && !process.exitCode) {
  await runKitProgram(path.join(root, 'viewer', 'run.js'), args);
}

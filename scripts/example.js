// npm run example:*: sets up what is missing, then runs the example that the first argument names.

import path from 'node:path';

import { programArguments } from '../examples/lib/program-arguments.js';
import { readArguments } from './lib/arguments.js';
import { runKitProgram } from './lib/node-releases.js';
import { runCommand } from './lib/output.js';
import { root } from './lib/paths.js';
import { addonTargets } from './lib/targets.js';
import { setUp } from './setup.js';

const [name, ...args] = process.argv.slice(2);

let isAsked = false;
await runCommand(async () => {
  isAsked = readArguments(programArguments[name], args) !== null;
  if (isAsked) {
    await setUp({ kit: true, targets: addonTargets });
  }
});
if (isAsked && !process.exitCode) {
  await runKitProgram(path.join(root, 'examples', `${name}.js`), args);
}

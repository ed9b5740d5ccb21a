// npm start: sets up what is missing, then shows the addon at work on the virtual microscope.

import { programArguments } from '../examples/lib/program-arguments.js';
import { readArguments } from './lib/arguments.js';
import { runCommand } from './lib/output.js';
import { addonTargets, directTargets } from './lib/targets.js';
import { setUp } from './setup.js';

let isAsked = false;
await runCommand(async () => {
  const given = readArguments(programArguments['first-run']);
  isAsked = given !== null;
  if (isAsked) {
    await setUp({ targets: given.values.direct ? [...addonTargets, ...directTargets] : addonTargets });
  }
});
if (isAsked && !process.exitCode) {
  await import('../examples/first-run.js');
}

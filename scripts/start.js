// npm start: sets up what is missing, then shows the addon at work on the virtual microscope.

import { runCommand } from './lib/output.js';
import { addonTargets, directTargets } from './lib/targets.js';
import { setUp } from './setup.js';

const targets = process.argv.includes('--direct') ? [...addonTargets, ...directTargets] : addonTargets;
await runCommand(() => setUp({ targets }));
if (!process.exitCode) {
  await import('../examples/first-run.js');
}

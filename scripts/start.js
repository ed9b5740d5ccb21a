// npm start: sets up what is missing, then shows the addon at work on the virtual microscope.

import { runCommand } from './lib/output.js';
import { addonTargets, setUp } from './setup.js';

await runCommand(() => setUp({ targets: addonTargets }));
if (!process.exitCode) {
  await import('../examples/first-run.js');
}

// npm run viewer: sets up what is missing, then serves the page of the viewer.

import path from 'node:path';

import { runKitProgram } from './lib/node-releases.js';
import { runCommand } from './lib/output.js';
import { root } from './lib/paths.js';
import { addonTargets } from './lib/targets.js';
import { setUp } from './setup.js';

await runCommand(() => setUp({ kit: true, targets: addonTargets }));
if (!process.exitCode) {
  await runKitProgram(path.join(root, 'viewer', 'run.js'), process.argv.slice(2));
}

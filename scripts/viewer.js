// npm run viewer: sets up what is missing, then serves the page of the viewer.

import { runCommand } from './lib/output.js';
import { addonTargets, setUp } from './setup.js';

await runCommand(() => setUp({ targets: addonTargets }));
if (!process.exitCode) {
  const { runViewer } = await import('../viewer/main.js');
  const { runExample } = await import('../examples/lib/report.js');
  await runExample(() => runViewer(process.argv.slice(2)));
}

// npm test: sets up what is missing, then runs every test against the release build.

import { runCommand } from './lib/output.js';
import { close, runTests } from './lib/test-runs.js';
import { setUp } from './setup.js';

await runCommand(async () => {
  await setUp({ groups: ['test'], tests: true });
  console.log('Testing');
  close(await runTests('release'));
});

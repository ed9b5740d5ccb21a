// npm test: sets up what is missing, then runs every test against the release build.

import { Step, runCommand } from './lib/output.js';
import { close, runBrowserTests, runOldNodeTests, runTests } from './lib/test-runs.js';
import { setUp } from './setup.js';

await runCommand(async () => {
  await setUp({ groups: ['test'], tests: true });
  console.log('Testing');
  const results = await runTests('release');
  results.push(...await runOldNodeTests('release'));
  close([...results, await runBrowserTests(new Step('browser tests'), 'release')]);
});

// npm run test:asan, test:tsan, test:sanitizers: every test again, under the sanitizers of the
// presets that are named as arguments.

import { readArguments } from './lib/arguments.js';
import { Failure, runCommand } from './lib/output.js';
import { sanitizedEnvironments, sanitizers } from './lib/sanitizers.js';
import { close, runTests } from './lib/test-runs.js';
import { setUp } from './setup.js';

const command = {
  synopsis: 'PRESET ...',
  summary: 'Runs the unit and script tests under the sanitizers of each preset.',
  rows: [['PRESET', Object.keys(sanitizers).join(' or ')]],
  allowPositionals: true,
};

await runCommand(async () => {
  const given = readArguments(command);
  if (given === null) {
    return;
  }
  const presets = given.positionals;
  if (presets.length === 0 || !presets.every((preset) => preset in sanitizers)) {
    throw new Failure(`Name the presets to test: ${Object.keys(sanitizers).join(', ')}.`);
  }
  await setUp({ presets, groups: ['test'], tests: true });
  const results = [];
  for (const preset of presets) {
    console.log(`Testing ${preset}`);
    results.push(...await runTests(preset, sanitizedEnvironments(preset)));
  }
  close(results);
});

// npm run format: rewrites the C++ sources in the project's format; with --check, only looks.

import { readArguments } from './lib/arguments.js';
import { checkFormat, formatSources } from './lib/clang-format.js';
import { Step, runCommand } from './lib/output.js';
import { providePackages } from './lib/packages.js';

const command = {
  synopsis: '[--check]',
  summary: "Rewrites the C++ sources in the project's format.",
  rows: [['--check', 'change nothing, and fail if a file differs']],
  options: { check: { type: 'boolean' } },
};

await runCommand(async () => {
  const given = readArguments(command);
  if (given === null) {
    return;
  }
  await providePackages(new Step('system packages'), ['format']);
  const step = new Step('clang-format');
  await (given.values.check ? checkFormat(step) : formatSources(step));
});

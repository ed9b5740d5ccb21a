// npm run format: rewrites the C++ sources in the project's format; with --check, only looks.

import { checkFormat, formatSources } from './lib/clang-format.js';
import { Step, runCommand } from './lib/output.js';
import { providePackages } from './lib/packages.js';

await runCommand(async () => {
  await providePackages(new Step('system packages'), ['format']);
  const step = new Step('clang-format');
  await (process.argv.includes('--check') ? checkFormat(step) : formatSources(step));
});

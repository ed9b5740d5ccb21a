// The C++ sources in the project's own format.

import { Failure } from './output.js';
import { run } from './processes.js';
import { cppFiles } from './source-files.js';

/** Formats all C++ sources in place, as one step. */
export async function formatSources(step) {
  const files = cppFiles();
  if ((await run('clang-format', ['-i', ...files])) !== 0) {
    throw new Failure('clang-format failed: see build/setup.log.');
  }
  step.done(`${files.length} files`);
}

/** Fails if a C++ source is formatted otherwise, as one step. */
export async function checkFormat(step) {
  const files = cppFiles();
  const wrong = new Set();
  const onLine = (line) => {
    const file = /^(\S.*?):\d+:\d+: error: .*\[-Wclang-format-violations\]$/.exec(line)?.[1];
    file && wrong.add(file);
  };
  if ((await run('clang-format', ['--dry-run', '--Werror', ...files], { onLine })) !== 0) {
    throw new Failure('These files are not in the project\'s format: run "npm run format".', [...wrong]);
  }
  step.done(`${files.length} files`);
}

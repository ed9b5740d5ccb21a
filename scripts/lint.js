// npm run lint: format, static analysis of the product's C++ code, syntax of the scripts.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { checkFormat } from './lib/clang-format.js';
import { Failure, Step, runCommand } from './lib/output.js';
import { binaryDirectory, root, shown } from './lib/paths.js';
import { run } from './lib/processes.js';
import { scriptFiles } from './lib/source-files.js';
import { addonTargets, setUp } from './setup.js';

const analysedFolders = ['src', 'simulator'];

/** Calls `work` for each item, as many at a time as there are processors. */
async function forEachParallel(items, work) {
  const rest = [...items];
  const worker = async () => {
    for (let item = rest.shift(); item !== undefined; item = rest.shift()) {
      await work(item);
    }
  };
  await Promise.all(os.cpus().map(worker));
}

async function checkFiles(step, files, command, advice) {
  const findings = [];
  let finished = 0;
  await forEachParallel(files, async (file) => {
    const lines = [];
    const [program, ...args] = command(file);
    // clang-tidy counts what it suppressed in system headers, in every run.
    const onLine = (line) => /^\d+ warnings? generated\.$/.test(line) || lines.push(line);
    if ((await run(program, args, { onLine })) !== 0) {
      findings.push(...lines);
    }
    step.progress(`${++finished} of ${files.length}  ${shown(file)}`);
  });
  if (findings.length > 0) {
    throw new Failure(advice, findings);
  }
  step.done(`${files.length} files`);
}

function analysedFiles(directory) {
  const database = JSON.parse(fs.readFileSync(path.join(directory, 'compile_commands.json'), 'utf8'));
  const prefixes = analysedFolders.map((folder) => path.join(root, folder) + path.sep);
  const files = database.map(({ file }) => file).filter((file) => prefixes.some((prefix) => file.startsWith(prefix)));
  return [...new Set(files)];
}

await runCommand(() => setUp({ groups: ['format', 'lint'], targets: addonTargets }));
if (!process.exitCode) {
  const directory = binaryDirectory('release');
  console.log('Checking');
  // One after the other, and each whatever the others found.
  await runCommand(() => checkFormat(new Step('clang-format')));
  await runCommand(() => checkFiles(new Step('script syntax'), scriptFiles(),
    (file) => [process.execPath, '--check', file], 'Correct the syntax of these scripts.'));
  await runCommand(() => checkFiles(new Step('clang-tidy'), analysedFiles(directory),
    (file) => ['clang-tidy', '--quiet', '-p', directory, file], 'Correct what clang-tidy found above.'));
}

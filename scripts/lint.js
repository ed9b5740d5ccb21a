// npm run lint: format, static analysis of the product's C++ code, which mutex guards what, syntax of the
// scripts.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { readArguments } from './lib/arguments.js';
import { checkFormat } from './lib/clang-format.js';
import { Failure, Step, runCommand } from './lib/output.js';
import { binaryDirectory, root, shown } from './lib/paths.js';
import { run } from './lib/processes.js';
import { scriptFiles } from './lib/source-files.js';
import { addonTargets } from './lib/targets.js';
import { setUp } from './setup.js';

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

/** The compile commands of the analysed files, by file. */
function analysedFiles(directory) {
  const database = JSON.parse(fs.readFileSync(path.join(directory, 'compile_commands.json'), 'utf8'));
  const prefixes = analysedFolders.map((folder) => path.join(root, folder) + path.sep);
  return new Map(database.filter(({ file }) => prefixes.some((prefix) => file.startsWith(prefix)))
    .map(({ file, command }) => [file, command]));
}

/** What Clang needs of a command for GCC to read the same source, without GCC's own options. */
function sourceOptions(command) {
  // The words stand as a shell takes them, so a quote in a definition has a backslash before it.
  const words = command.split(' ').map((word) => word.replace(/\\(.)/g, '$1'));
  return words.flatMap((word, index) => {
    if (word === '-isystem') {
      return [word, words[index + 1]];
    }
    return /^-(I|D|std=|m)/.test(word) ? [word] : [];
  });
}

let isAsked = false;
await runCommand(async () => {
  isAsked = readArguments({ summary: 'Checks the format, the scripts\' syntax, which mutex guards what, and clang-tidy.' }) !== null;
  if (isAsked) {
    await setUp({ groups: ['format', 'lint'], targets: addonTargets });
  }
});
if (isAsked && !process.exitCode) {
  const directory = binaryDirectory('release');
  console.log('Checking');
  // One after the other, and each whatever the others found.
  await runCommand(() => checkFormat(new Step('clang-format')));
  await runCommand(() => checkFiles(new Step('script syntax'), scriptFiles(),
    (file) => [process.execPath, '--check', file], 'Correct the syntax of these scripts.'));
  const commands = analysedFiles(directory);
  const files = [...commands.keys()];
  const threadSafety = ['-fsyntax-only', '-Wno-everything', '-Wthread-safety', '-Werror'];
  await runCommand(() => checkFiles(new Step('thread safety'), files,
    (file) => ['clang++', ...sourceOptions(commands.get(file)), ...threadSafety, file],
    'Take the mutex that guards each of these, or correct its annotation (src/addon/thread_annotations.h).'));
  await runCommand(() => checkFiles(new Step('clang-tidy'), files,
    (file) => ['clang-tidy', '--quiet', '-p', directory, file], 'Correct what clang-tidy found above.'));
}

// npm test: sets up what is missing, then runs every test against the release build; with names or
// --changed, only the tests that these select, building only what those need.

import fs from 'node:fs';
import path from 'node:path';

import { readArguments } from './lib/arguments.js';
import { Failure, Step, runCommand } from './lib/output.js';
import { root, shown } from './lib/paths.js';
import { output } from './lib/processes.js';
import { selectChanged, selectTests } from './lib/test-selection.js';
import {
  close, readTestSources, runBrowserTests, runOldNodeTests, runSelected, runTests, targetsOf,
} from './lib/test-runs.js';
import { setUp } from './setup.js';

const command = {
  synopsis: '[NAME ...] [--changed]',
  summary: 'Runs every test, or those whose file or title contains one of the names.',
  rows: [
    ['NAME', 'part of a test file\'s path or of a title, such as capture or test/unit/edof'],
    ['--changed', 'the tests that concern what differs from the last commit'],
  ],
  options: { changed: { type: 'boolean' } },
  allowPositionals: true,
};

function changedFiles() {
  const list = output('git', ['status', '--porcelain', '--untracked-files=all', '--no-renames']);
  if (list === null) {
    throw new Failure('git is needed to find what has changed: run this in a clone of the project.');
  }
  // The status before each path is two letters; `output` has trimmed the first line.
  return list.split('\n').filter(Boolean).map((line) => path.join(root, line.replace(/^\s*\S+\s+/, '')));
}

const readText = (file) => (fs.existsSync(file) && fs.statSync(file).isFile() ? fs.readFileSync(file, 'utf8') : '');

function select({ changed }, names) {
  const sources = readTestSources();
  const selection = changed ? selectChanged(sources, root, changedFiles(), readText) : selectTests(sources, root, names);
  const files = Object.values(selection).flat().map(({ file }) => file);
  if (files.length === 0) {
    throw new Failure(changed ? 'No test concerns what has changed since the last commit.'
      : `No test has ${names.join(' or ')} in its path or title.`);
  }
  console.log(`Selected\n${files.map((file) => `  ${shown(file)}`).join('\n')}`);
  return selection;
}

async function testSelected(selection) {
  await setUp({ groups: ['test'], tests: true, targets: (preset) => targetsOf(selection, preset) });
  console.log('Testing');
  close(await runSelected(selection, 'release'));
}

async function testAll() {
  await setUp({ groups: ['test'], tests: true });
  console.log('Testing');
  const results = await runTests('release');
  results.push(...await runOldNodeTests('release'));
  close([...results, await runBrowserTests(new Step('browser tests'), 'release')]);
}

await runCommand(async () => {
  const given = readArguments(command);
  if (given === null) {
    return;
  }
  const { values, positionals } = given;
  await (values.changed || positionals.length > 0 ? testSelected(select(values, positionals)) : testAll());
});

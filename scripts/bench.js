// npm run bench: builds and runs every benchmark, one after the other; with the name of a group those
// whose names begin with it.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { readArguments } from './lib/arguments.js';
import { kitNode } from './lib/node-releases.js';
import { Failure, runCommand } from './lib/output.js';
import { addonDirectory, binaryDirectory, root, shown } from './lib/paths.js';
import { setUp } from './setup.js';

const preset = 'bench';
const command = {
  synopsis: '[GROUP]',
  summary: 'Builds and runs the benchmarks, one after the other.',
  rows: [['GROUP', 'only those of one group, such as fuse, direct, kit, devices or recording']],
  allowPositionals: true,
};

function filesIn(directory, ending, group) {
  return fs.readdirSync(directory)
    .filter((name) => name.endsWith(ending) && (group === undefined || name.startsWith(`${group}_`))).sort()
    .map((name) => path.join(directory, name));
}

await runCommand(async () => {
  const given = readArguments(command);
  if (given === null) {
    return;
  }
  const [group, ...stray] = given.positionals;
  if (stray.length > 0) {
    throw new Failure(`Name one group of benchmarks, not ${given.positionals.length}.`);
  }
  const targets = group === undefined ? [] : ['ostrel_native', `${group}_benchmarks`];
  await setUp({ presets: [preset], groups: ['bench'], kit: true, targets });
  const programs = filesIn(path.join(binaryDirectory(preset), 'bench'), '_bench', group);
  const scripts = filesIn(path.join(root, 'bench'), '.bench.js', group);
  const commands = [...programs.map((file) => [file]), ...scripts.map((file) => [kitNode().node, file])];
  const env = {
    ...process.env,
    OSTREL_TEST_ADDON: path.join(addonDirectory(preset), 'ostrel_native.node'),
    OSTREL_TEST_BUILD_DIR: binaryDirectory(preset),
  };
  for (const [command, ...args] of commands) {
    console.log(`\n${shown(args[0] ?? command)}`);
    const { status } = spawnSync(command, args, { cwd: root, env, stdio: ['ignore', 'inherit', 'inherit'] });
    if (status !== 0) {
      throw new Failure(`${shown(args[0] ?? command)} failed: its words stand above.`);
    }
  }
});

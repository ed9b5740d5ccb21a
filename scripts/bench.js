// npm run bench: builds and runs every benchmark, one after the other; with the name of a group those
// whose names begin with it.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { kitNode } from './lib/node-releases.js';
import { Failure, runCommand } from './lib/output.js';
import { addonDirectory, binaryDirectory, root, shown } from './lib/paths.js';
import { setUp } from './setup.js';

const preset = 'bench';
const [group] = process.argv.slice(2);
const isWanted = (name) => group === undefined || name.startsWith(`${group}_`);

function filesIn(directory, ending) {
  return fs.readdirSync(directory).filter((name) => name.endsWith(ending) && isWanted(name)).sort()
    .map((name) => path.join(directory, name));
}

await runCommand(async () => {
  const targets = group === undefined ? [] : ['ostrel_native', `${group}_benchmarks`];
  await setUp({ presets: [preset], groups: ['bench'], kit: true, targets });
  const programs = filesIn(path.join(binaryDirectory(preset), 'bench'), '_bench');
  const scripts = filesIn(path.join(root, 'bench'), '.bench.js');
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

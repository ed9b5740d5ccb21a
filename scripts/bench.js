// npm run bench: builds and runs every benchmark, one after the other. With an argument, those whose
// names begin with it.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { Failure, runCommand } from './lib/output.js';
import { addonDirectory, binaryDirectory, root, shown } from './lib/paths.js';
import { setUp } from './setup.js';

const preset = 'bench';
const prefix = process.argv[2] ?? '';

function filesIn(directory, isWanted) {
  const names = fs.readdirSync(directory).filter((name) => name.startsWith(prefix) && isWanted(name));
  return names.sort().map((name) => path.join(directory, name));
}

await runCommand(async () => {
  await setUp({ presets: [preset], groups: ['bench'] });
  const programs = filesIn(path.join(binaryDirectory(preset), 'bench'), (name) => name.endsWith('_bench'));
  const scripts = filesIn(path.join(root, 'bench'), (name) => name.endsWith('.bench.js'));
  const commands = [...programs.map((file) => [file]), ...scripts.map((file) => [process.execPath, file])];
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

// The npm packages: installed exactly as the lock file says.

import fs from 'node:fs';
import path from 'node:path';

import { commandLine } from './output.js';
import { root } from './paths.js';
import { mustRun } from './processes.js';

/**
 * Whether an install differs from what the lock file asks for. Both arguments are the `packages`
 * of a lock file, `installed` that of the hidden one which npm leaves in node_modules. Times of
 * change would not do: a fresh clone and a branch switch touch the lock file without changing it.
 */
export function isStale(locked, installed) {
  return Object.entries(locked).some(([name, wanted]) => {
    if (name === '') {
      return false;
    }
    const found = installed[name];
    // Packages for other platforms are locked as optional and never get installed here.
    return found ? found.version !== wanted.version : !wanted.optional;
  });
}

function readPackages(file) {
  try {
    return JSON.parse(fs.readFileSync(file, 'utf8')).packages;
  } catch {
    return null;
  }
}

/** Sees to it that node_modules holds what the lock file says, as one step. */
export async function provideNpmPackages(step) {
  const installed = readPackages(path.join(root, 'node_modules', '.package-lock.json'));
  const isWhole = installed &&
    Object.keys(installed).every((name) => fs.existsSync(path.join(root, name, 'package.json')));
  if (isWhole && !isStale(readPackages(path.join(root, 'package-lock.json')), installed)) {
    step.done('here');
    return;
  }
  await step.during('installing', mustRun('npm', ['ci', '--ignore-scripts', '--prefer-offline', '--fetch-retries=1'],
    `npm ci failed: check the network and npm's registry setting, then run "${commandLine()}" again.`));
  step.done('installed');
}

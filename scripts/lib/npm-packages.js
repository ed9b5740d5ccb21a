// The npm packages: installed exactly as the lock file says.

import fs from 'node:fs';
import path from 'node:path';

import { releasesDirectory } from './node-releases.js';
import { commandLine } from './output.js';
import { root } from './paths.js';
import { mustRun, run } from './processes.js';

/**
 * Whether an install differs from what the lock file asks for. Both arguments are the `packages`
 * of a lock file, `installed` that of the hidden one which npm leaves in node_modules. With
 * `omitsDev`, packages for development may be absent. Times of change would not do: a fresh clone and
 * a branch switch touch the lock file without changing it.
 */
export function isStale(locked, installed, { omitsDev = false } = {}) {
  return Object.entries(locked).some(([name, wanted]) => {
    if (name === '') {
      return false;
    }
    const found = installed[name];
    // Packages for other platforms are locked as optional and never get installed here.
    return found ? found.version !== wanted.version : !(wanted.optional || (omitsDev && wanted.dev));
  });
}

function readPackages(file) {
  try {
    return JSON.parse(fs.readFileSync(file, 'utf8')).packages;
  } catch {
    return null;
  }
}

/** Whether a folder's node_modules holds what its lock file says. */
function isInstalled(directory, options) {
  const installed = readPackages(path.join(directory, 'node_modules', '.package-lock.json'));
  const isWhole = installed &&
    Object.keys(installed).every((name) => fs.existsSync(path.join(directory, name, 'package.json')));
  return isWhole && !isStale(readPackages(path.join(directory, 'package-lock.json')), installed, options);
}

const installArguments = ['ci', '--ignore-scripts', '--prefer-offline', '--fetch-retries=1'];

/** Sees to it that node_modules holds what the lock file says, as one step. */
export async function provideNpmPackages(step) {
  if (isInstalled(root)) {
    step.done('here');
    return;
  }
  await step.during('installing', mustRun('npm', installArguments,
    `npm ci failed: check the network and npm's registry setting, then run "${commandLine()}" again.`));
  step.done('installed');
}

/**
 * Sees to it that the Node.js releases are here, as one step: all of them, or with `kitOnly` the one that
 * runs the kit where the machine's own is too old. Without the others the packed tarball is not tried with
 * them and all else can be tested, so a failure is only printed.
 */
export async function provideNodeVersions(step, { directory = releasesDirectory, kitOnly = false } = {}) {
  if (isInstalled(directory, { omitsDev: kitOnly })) {
    step.done('here');
    return;
  }
  const omitted = kitOnly ? ['--omit=dev'] : [];
  const code = await step.during('fetching', run('npm', [...installArguments, ...omitted, '--prefix', directory]));
  step.done(code === 0 ? 'installed' : `not here${kitOnly ? '' : ', their tests are skipped'}: ` +
    `check the network and npm's registry setting, then run "${commandLine()}" again.`);
}

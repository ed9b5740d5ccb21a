// Configuring and building one CMake preset.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { Failure, commandLine } from './output.js';
import { binaryDirectory, root, setupLog, shown } from './paths.js';
import { findProgram, mustRun, run } from './processes.js';

const shownErrorLines = 60;

/** The entries of a CMakeCache.txt, by name; internal ones too. */
export function parseCache(text) {
  const entries = text.matchAll(/^([A-Za-z0-9_.-]+):[A-Z]+=(.*)$/gm);
  return Object.fromEntries([...entries].map(([, name, value]) => [name, value]));
}

/**
 * Why a build directory has to be configured: 'fresh' (it is another tree's), 'again' (a setting
 * differs), or null. `cache` is null where there is no build directory yet.
 */
export function needsConfigure(cache, settings, sourceDirectory = root) {
  if (!cache) {
    return 'again';
  }
  if (cache.CMAKE_HOME_DIRECTORY !== sourceDirectory) {
    return 'fresh';
  }
  return Object.entries(settings).some(([name, value]) => cache[name] !== value) ? 'again' : null;
}

function readCache(directory) {
  // The generator writes its file last: without it the last configure run did not end well.
  if (!fs.existsSync(path.join(directory, 'build.ninja'))) {
    return null;
  }
  return parseCache(fs.readFileSync(path.join(directory, 'CMakeCache.txt'), 'utf8'));
}

function isOlder(file, other) {
  return fs.statSync(file).mtimeMs < fs.statSync(other).mtimeMs;
}

/**
 * Configures a preset unless that has been done with the same settings, as one step. With
 * `tests` false, an earlier decision for the tests stands: taking them out again would only make
 * the next test run configure once more.
 */
export async function configure(step, preset, { tests, ffmpegIncludeDirectory }) {
  const directory = binaryDirectory(preset);
  const cache = readCache(directory);
  const settings = { OSTREL_FFMPEG_INCLUDE_DIR: ffmpegIncludeDirectory };
  settings.OSTREL_TESTS = tests ? 'ON' : (cache?.OSTREL_TESTS ?? 'OFF');
  const compilerCache = findProgram('ccache') ?? '';
  settings.CMAKE_C_COMPILER_LAUNCHER = compilerCache;
  settings.CMAKE_CXX_COMPILER_LAUNCHER = compilerCache;
  let need = needsConfigure(cache, settings);
  // Ninja knows all inputs of a configuration but the presets.
  if (!need && isOlder(path.join(directory, 'build.ninja'), path.join(root, 'CMakePresets.json'))) {
    need = 'again';
  }
  if (!need) {
    step.done(`here (${shown(directory)})`);
    return;
  }
  const definitions = Object.entries(settings).map(([name, value]) => `-D${name}=${value}`);
  const args = ['--preset', preset, ...(need === 'fresh' ? ['--fresh'] : []), ...definitions];
  await step.during('configuring', mustRun('cmake', args,
    `CMake could not configure the preset ${preset}: see above, then run "${commandLine()}" again.`));
  step.done(`done (${shown(directory)})`);
}

/** Builds targets of a configured preset (all of them if none is named), as one step. */
export async function build(step, preset, targets = []) {
  const errors = [];
  let edges = 0;
  const onLine = (line) => {
    const edge = /^\[(\d+)\/(\d+)\] (.*)$/.exec(line);
    if (edge) {
      edges = Number(edge[2]);
      step.progress(`${edge[1]} of ${edge[2]}  ${path.basename(edge[3])}`);
    } else if (errors.length > 0 || line.startsWith('FAILED:') || line.startsWith('ninja: error')) {
      errors.push(line);
    }
  };
  step.progress('...');
  const args = ['--build', binaryDirectory(preset), '--parallel', String(os.cpus().length)];
  // Without these a compiler cache refuses every file that has a precompiled header.
  const env = { NINJA_STATUS: '[%f/%t] ', CCACHE_SLOPPINESS: 'pch_defines,time_macros' };
  if (targets.length > 0) {
    args.push('--target', ...targets);
  }
  if ((await run('cmake', args, { env, onLine })) !== 0) {
    throw new Failure(
      `The build of the preset ${preset} stopped: see above, or the whole output in ${shown(setupLog)}.`,
      errors.slice(0, shownErrorLines));
  }
  step.done(edges === 0 ? 'up to date' : `done in ${step.seconds} s`);
}

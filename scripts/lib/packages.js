// The system packages that the project needs, by what needs them, and how they get here.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { Failure, commandLine } from './output.js';
import { findProgram, output, run } from './processes.js';
import { setupLog, shown } from './paths.js';

// Beside its name, each package has one thing that proves its presence when it did not come from
// the package manager: a program, a header or a shared library.
export const packageGroups = {
  build: [
    { name: 'cmake', program: 'cmake' },
    { name: 'ninja-build', program: 'ninja' },
    { name: 'g++', program: 'g++' },
    { name: 'pkg-config', program: 'pkg-config' },
    { name: 'libturbojpeg0-dev', header: 'turbojpeg.h' },
  ],
  ffmpegBuild: [
    { name: 'make', program: 'make' },
    { name: 'nasm', program: 'nasm' },
    { name: 'xz-utils', program: 'xz' },
    { name: 'patch', program: 'patch' },
    { name: 'patchelf', program: 'patchelf' },
    { name: 'libx264-dev', header: 'x264.h' },
    { name: 'libva-dev', header: 'va/va.h' },
    { name: 'libdrm-dev', header: 'libdrm/drm.h' },
    { name: 'libffmpeg-nvenc-dev', header: 'ffnvcodec/nvEncodeAPI.h' },
  ],
  run: [
    { name: 'libturbojpeg0', library: 'libturbojpeg.so.0' },
  ],
  // What the libraries that build-ffmpeg.sh makes are linked with.
  ffmpegRun: [
    { name: 'libx264-164', library: 'libx264.so.164' },
    { name: 'libva2', library: 'libva.so.2' },
    { name: 'libva-drm2', library: 'libva-drm.so.2' },
    { name: 'libdrm2', library: 'libdrm.so.2' },
  ],
  test: [
    { name: 'libgtest-dev', header: 'gtest/gtest.h' },
    { name: 'ffmpeg', program: 'ffprobe' },
    { name: 'chromium', program: 'chromium' },
  ],
  bench: [
    { name: 'libyuv-dev', header: 'libyuv.h' },
    { name: 'ffmpeg', program: 'ffmpeg' },
    { name: 'chromium', program: 'chromium' },
  ],
  format: [{ name: 'clang-format', program: 'clang-format' }],
  bareMachine: [{ name: 'mmdebstrap', program: 'mmdebstrap' }],
  lint: [{ name: 'clang-tidy', program: 'clang-tidy' }, { name: 'clang', program: 'clang++' }],
};

const headerDirectories = ['/usr/include', '/usr/include/x86_64-linux-gnu', '/usr/local/include'];

/** What this machine has: packages by name, and the means to look for the rest by hand. */
export function inspectSystem() {
  const list = output('dpkg-query', ['--show', '--showformat=${db:Status-Status} ${Package}\n']) ?? '';
  const installed = new Set(
    list.split('\n').filter((line) => line.startsWith('installed ')).map((line) => line.slice('installed '.length)));
  let libraries;
  return {
    installed,
    hasProgram: (name) => findProgram(name) !== null,
    hasHeader: (name) => headerDirectories.some((directory) => fs.existsSync(path.join(directory, name))),
    hasLibrary: (name) => {
      libraries ??= output('/sbin/ldconfig', ['-p']) ?? '';
      return libraries.includes(`\t${name} `);
    },
  };
}

/** The names of those packages of the groups that `system` lacks, each once, in the table's order. */
export function missingPackages(groups, system) {
  const isHere = ({ name, program, header, library }) =>
    system.installed.has(name) ||
    (program && system.hasProgram(program)) ||
    (header && system.hasHeader(header)) ||
    (library && system.hasLibrary(library));
  const missing = groups.flatMap((group) => packageGroups[group]).filter((entry) => !isHere(entry));
  return [...new Set(missing.map(({ name }) => name))];
}

/** The one sentence for a user whom the set-up may not help. */
export function missingSentence(missing, hasApt, again = commandLine()) {
  const plural = missing.length > 1;
  if (!hasApt) {
    return `Install what the Debian package${plural ? 's' : ''} ${missing.join(', ')} hold${plural ? '' : 's'}` +
      ` (this system has no apt to do it with), then run "${again}" again.`;
  }
  return `${plural ? 'System packages are' : 'A system package is'} missing and only root may install` +
    ` ${plural ? 'them' : 'it'}: run "apt-get install ${missing.join(' ')}" as root, then "${again}" again.`;
}

/** The words that a command must begin with to run as root; null if there is no way. */
function rootPrefix() {
  if (process.getuid() === 0) {
    return [];
  }
  const sudo = findProgram('sudo');
  const isAllowed = sudo && spawnSync(sudo, ['-n', 'true'], { stdio: 'ignore' }).status === 0;
  return isAllowed ? [sudo, '-n'] : null;
}

/** Sees to it that every package of the groups is here, as one step. */
export async function providePackages(step, groups) {
  const missing = missingPackages(groups, inspectSystem());
  if (missing.length === 0) {
    step.done('here');
    return;
  }
  const apt = findProgram('apt-get');
  const prefix = apt && rootPrefix();
  if (!prefix) {
    throw new Failure(missingSentence(missing, apt !== null));
  }
  const aptGet = (...args) => {
    const [command, ...rest] = [
      ...prefix, 'env', 'DEBIAN_FRONTEND=noninteractive', apt,
      '-o', 'DPkg::Lock::Timeout=120', '-o', 'Acquire::Retries=1', ...args];
    return run(command, rest);
  };
  const install = async () =>
    (await aptGet('install', '--yes', '--no-install-recommends', ...missing)) === 0;
  // A fresh machine has no package lists yet, and a stale list names files that are gone.
  const updateAndInstall = async () => (await aptGet('update')) === 0 && install();
  const words = `installing ${missing.length > 3 ? `${missing.length} packages` : missing.join(', ')}`;
  if (!(await step.during(words, install())) && !(await step.during(words, updateAndInstall()))) {
    throw new Failure(
      `apt-get could not install ${missing.join(', ')} (its words stand in ${shown(setupLog)}):` +
      ` check the network and the package sources, then run "${commandLine()}" again.`);
  }
  step.done(`installed ${missing.join(', ')}`);
}

// The one FFmpeg generation that recording needs: the system's own, or one built into natives/.

import fs from 'node:fs';
import path from 'node:path';
import { spawnSync } from 'node:child_process';

import { Failure, commandLine } from './output.js';
import { root } from './paths.js';
import { output, run } from './processes.js';

const generation = { libavcodec: '58', libavformat: '58', libavutil: '56' };
const buildScript = path.join(root, 'scripts', 'build-ffmpeg.sh');

/** Whether the versions that pkg-config gives, by library, are all of the needed generation. */
export function isGeneration(versions) {
  return Object.entries(generation).every(
    ([library, major]) => versions[library]?.split('.')[0] === major);
}

function systemIncludeDirectory() {
  const versions = Object.fromEntries(Object.keys(generation).map(
    (library) => [library, output('pkg-config', ['--modversion', library])]));
  if (!isGeneration(versions)) {
    return null;
  }
  const directory = output('pkg-config', ['--variable=includedir', 'libavcodec']);
  return directory && fs.existsSync(path.join(directory, 'libavcodec', 'avcodec.h')) ? directory : null;
}

/**
 * What is here already: the header directory to build with, whether it is the system's own, or
 * null where the generation has yet to be built.
 */
export function findFfmpeg() {
  const system = systemIncludeDirectory();
  if (system) {
    return { includeDirectory: system, isSystem: true };
  }
  const isBuilt = spawnSync(buildScript, ['--check'], { stdio: 'ignore' }).status === 0;
  return isBuilt ? { includeDirectory: path.join(root, 'natives', 'include'), isSystem: false } : null;
}

/** Sees to it that the generation is here, as one step, and gives the header directory. */
export async function provideFfmpeg(step) {
  const found = findFfmpeg();
  if (found) {
    step.done(found.isSystem ? "here, the system's own" : 'here (natives/x64)');
    return found.includeDirectory;
  }
  let lastLine = '';
  const code = await step.during('building, about a minute',
    run(buildScript, [], { onLine: (line) => (lastLine = line) }));
  if (code !== 0) {
    throw new Failure(`${lastLine} Then run "${commandLine()}" again.`);
  }
  step.done(`built in ${step.seconds} s (natives/x64)`);
  return findFfmpeg().includeDirectory;
}

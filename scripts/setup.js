// The set-up: brings this machine from a bare clone to a built preset. Each step looks first
// whether its result stands already, so running it again costs about a second.

import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { readArguments } from './lib/arguments.js';
import { build, configure } from './lib/build.js';
import { findFfmpeg, provideFfmpeg } from './lib/ffmpeg.js';
import { isAtLeast, kitNode, ownNode, runsKit } from './lib/node-releases.js';
import { provideNodeVersions, provideNpmPackages } from './lib/npm-packages.js';
import { Failure, Step, commandLine, runCommand } from './lib/output.js';
import { providePackages } from './lib/packages.js';
import { setupLog, shown } from './lib/paths.js';

// The oldest that the addon, sharp and the test runner's reporters work with.
const oldestNode = [18, 17];

function checkNode(step) {
  if (!isAtLeast(ownNode.version, oldestNode)) {
    throw new Failure(
      `Node.js ${ownNode.version} is too old: install ${oldestNode.join('.')} or newer,` +
      ` then run "${commandLine()}" again.`);
  }
  if (process.platform !== 'linux' || process.arch !== 'x64') {
    throw new Failure(`The addon is for x86-64 Linux; this is ${process.platform} on ${process.arch}.`);
  }
  step.done(ownNode.version);
}

/** Fetches the Node.js releases that are needed, and says which one runs what the machine's own cannot. */
async function provideNodes({ tests }) {
  if (tests || !runsKit(ownNode.version)) {
    await provideNodeVersions(new Step('Node.js releases'), { kitOnly: !tests });
  }
  const { node, version } = kitNode();
  if (node !== ownNode.node) {
    new Step('Node.js for the kit').done(`${version} (${shown(node)}), as ${ownNode.version} is too old for it`);
  }
}

/**
 * Provides everything that a preset's build needs, and builds it.
 * `groups`: package groups beyond those that every build needs. `tests`: whether the unit tests
 * and the fakes are configured too, and the Node.js releases fetched that the package is tried with;
 * they need packages that running the addon doesn't. `kit`: whether something follows that runs under `kitNode`.
 * `presets`: built one after the other. `targets`: all if empty; a function that gives them is called once the
 * preset is configured.
 */
export async function setUp({ presets = ['release'], groups = [], tests = false, kit = tests, targets = [] }) {
  fs.mkdirSync(path.dirname(setupLog), { recursive: true });
  fs.writeFileSync(setupLog, '');
  console.log('Setting up');
  checkNode(new Step('Node.js'));
  const ffmpeg = findFfmpeg();
  const ffmpegGroups = ffmpeg ? (ffmpeg.isSystem ? [] : ['ffmpegRun']) : ['ffmpegBuild', 'ffmpegRun'];
  await providePackages(new Step('system packages'), ['build', 'run', ...ffmpegGroups, ...groups]);
  await provideNpmPackages(new Step('npm packages'));
  if (kit) {
    await provideNodes({ tests });
  }
  const ffmpegIncludeDirectory = await provideFfmpeg(new Step('FFmpeg 4 libraries'));
  for (const preset of presets) {
    await configure(new Step(`configure ${preset}`), preset, { tests, ffmpegIncludeDirectory });
    await build(new Step(`build ${preset}`), preset, typeof targets === 'function' ? targets(preset) : targets);
  }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  await runCommand(async () => {
    if (readArguments({ summary: 'Installs, fetches and builds what npm start and npm test need.' })) {
      await setUp({ groups: ['test'], tests: true });
    }
  });
}

// The Node.js releases that the set-up fetches, and what runs under which: the addon, its loader and
// these scripts under the machine's own, what needs a newer one under a fetched one if need be.

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

import { Failure, commandLine } from './output.js';
import { root } from './paths.js';

export const releasesDirectory = path.join(root, 'test', 'node-versions');

// The kit needs 20.0; the timers that its tests mock have had their present form since 20.11.
const oldestForKit = [20, 11];

const numbersOf = (version) => version.split('.').map(Number);

/** Whether a version, such as 20.9.0, is at least [major, minor]. */
export function isAtLeast(version, [leastMajor, leastMinor]) {
  const [major, minor] = numbersOf(version);
  return major > leastMajor || (major === leastMajor && minor >= leastMinor);
}

/** Whether kit, viewer, examples and tests run under this version. */
export const runsKit = (version) => isAtLeast(version, oldestForKit);

/**
 * The releases to fetch, the oldest first: [{ name, version, node }]. `node` is the path of the program,
 * null where it has not been fetched.
 */
export function nodeReleases(directory = releasesDirectory) {
  const { dependencies, devDependencies } = JSON.parse(fs.readFileSync(path.join(directory, 'package.json'), 'utf8'));
  const releases = Object.entries({ ...dependencies, ...devDependencies }).map(([name, wanted]) => {
    const node = path.join(directory, 'node_modules', name, 'bin', 'node');
    return { name, version: wanted.slice(wanted.lastIndexOf('@') + 1), node: fs.existsSync(node) ? node : null };
  });
  return releases.sort((a, b) => numbersOf(a.version)[0] - numbersOf(b.version)[0]);
}

/** The Node.js of the machine. */
export const ownNode = { node: process.execPath, version: process.versions.node };

/**
 * What runs kit, viewer, examples and tests: { node, version }, the machine's own where it is new
 * enough, else the oldest fetched one that is.
 */
export function kitNode({ own = ownNode, releases = nodeReleases() } = {}) {
  const found = [own, ...releases].find(({ node, version }) => node !== null && runsKit(version));
  if (!found) {
    throw new Failure(
      `This needs Node.js ${oldestForKit.join('.')} or newer, this machine has ${own.version}, and no newer one could be` +
      ` fetched: check the network and npm's registry setting, or install one, then run "${commandLine()}" again.`);
  }
  return found;
}

/** Under which versions below `kitNode` addon and loader are tested: [{ version, node }], each once. */
export function oldNodes({ own = ownNode, releases = nodeReleases() } = {}) {
  const isOld = ({ node, version }) => node !== null && !runsKit(version);
  const old = [...releases, own].filter(isOld);
  return old.filter(({ version }, i) => old.findIndex((other) => other.version === version) === i);
}

/** Ends as a child did: with its code, or with the code that a shell gives for its signal. */
function endAs(code, signal) {
  process.exitCode = code ?? 128 + os.constants.signals[signal];
}

function runUnder(node, file, args) {
  const child = spawn(node, [file, ...args], { stdio: 'inherit' });
  // What ends this process is meant for the child. A terminal's Ctrl+C reaches it twice, as it does below npm.
  const pass = (signal) => child.kill(signal);
  const signals = ['SIGINT', 'SIGTERM', 'SIGHUP'];
  signals.forEach((signal) => process.on(signal, pass));
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code, signal) => {
      signals.forEach((name) => process.removeListener(name, pass));
      endAs(code, signal);
      resolve();
    });
  });
}

/**
 * Runs a program of the project that needs the kit: in this process where the machine's own Node.js
 * will do, else in a child that stands for this process in its output, exit code and signals.
 */
export async function runKitProgram(file, args, { node } = kitNode()) {
  if (node !== process.execPath) {
    await runUnder(node, file, args);
    return;
  }
  process.argv = [process.execPath, file, ...args];
  await import(pathToFileURL(file));
}

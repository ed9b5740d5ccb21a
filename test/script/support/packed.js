// The package as its users get it: packed, and installed in an empty folder without a network.

import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { nodeReleases } from '../../../scripts/lib/node-releases.js';

export const root = fileURLToPath(new URL('../../..', import.meta.url));

const longestMs = 180_000;
// Packing builds the release first where a file of its sources has changed.
const longestPackMs = 600_000;

/**
 * The Node.js to try: [{ title, version, node }], the fetched releases and the machine's own; `node` is null
 * where the set-up could not fetch it.
 */
export function triedNodes() {
  const own = process.env.OSTREL_TEST_OWN_NODE ?? process.execPath;
  const version = execFileSync(own, ['--version'], { encoding: 'utf8' }).trim().slice(1);
  return [
    ...nodeReleases().map((release) => ({ title: `Node.js ${release.version}`, ...release })),
    { title: "the machine's own Node.js", version, node: own },
  ];
}

// What npm tells the scripts that it runs is none of a user's settings.
const userEnvironment = () =>
  Object.fromEntries(Object.entries(process.env).filter(([name]) => !/^(npm_|NODE_|OSTREL_|INIT_CWD$)/.test(name)));

/** Runs a program as a user would; gives { stdout, stderr, code }. */
export function runAsUser(command, args, { cwd, env = {}, timeout = longestMs } = {}) {
  const child = spawn(command, args, {
    cwd, env: { ...userEnvironment(), ...env }, stdio: ['ignore', 'pipe', 'pipe'], timeout, killSignal: 'SIGKILL',
  });
  const output = { stdout: '', stderr: '' };
  for (const name of Object.keys(output)) {
    child[name].setEncoding('utf8').on('data', (text) => (output[name] += text));
  }
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code) => resolve({ ...output, code }));
  });
}

/** Runs a program that must end well and silently but for what it prints, and gives that. */
export async function outputAsUser(command, args, options) {
  const { stdout, stderr, code } = await runAsUser(command, args, options);
  if (code !== 0) {
    throw new Error(`${command} ${args.join(' ')} ended with ${code}:\n${stderr}${stdout}`);
  }
  return stdout;
}

/** Packs the package into `directory` and gives the path of the tarball. */
export async function pack(directory) {
  await outputAsUser('npm', ['pack', '--pack-destination', directory], { cwd: root, timeout: longestPackMs });
  const [tarball] = fs.readdirSync(directory).filter((name) => name.endsWith('.tgz'));
  return path.join(directory, tarball);
}

/** Installs a tarball in an empty folder, as its one package, and gives the folder of the package. */
export async function install(tarball, folder) {
  fs.mkdirSync(folder, { recursive: true });
  await outputAsUser('npm', ['install', '--offline', '--no-audit', '--no-fund', tarball], { cwd: folder });
  return path.join(folder, 'node_modules', 'ostrel-native');
}

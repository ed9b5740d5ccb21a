// The package as its users get it: packed, and installed in an empty folder without a network.

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = fileURLToPath(new URL('../../..', import.meta.url));

const versionsDirectory = path.join(root, 'test', 'node-versions');
const longestMs = 60_000;
// Packing builds the release first where a file of its sources has changed.
const longestPackMs = 600_000;

/** The Node.js releases to try: [{ name, node }]; `node` is null where the set-up could not fetch it. */
export function nodeReleases() {
  const { dependencies } = JSON.parse(fs.readFileSync(path.join(versionsDirectory, 'package.json'), 'utf8'));
  return Object.keys(dependencies).map((name) => {
    const node = path.join(versionsDirectory, 'node_modules', name, 'bin', 'node');
    return { name, node: fs.existsSync(node) ? node : null };
  });
}

// What npm tells the scripts that it runs is none of a user's settings.
const userEnvironment = () =>
  Object.fromEntries(Object.entries(process.env).filter(([name]) => !/^(npm_|NODE_|OSTREL_|INIT_CWD$)/.test(name)));

/** Runs a program as a user would; gives { stdout, stderr, code }. */
export function runAsUser(command, args, { cwd, timeout = longestMs } = {}) {
  const child = spawn(command, args, {
    cwd, env: userEnvironment(), stdio: ['ignore', 'pipe', 'pipe'], timeout, killSignal: 'SIGKILL',
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

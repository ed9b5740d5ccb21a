// A machine with nothing but Debian 12, git and its own nodejs and npm: a directory tree to change the root
// to, with this machine's package sources, npm registry and network.

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { Failure } from './output.js';
import { root } from './paths.js';
import { mustRun, output } from './processes.js';

const suite = 'bookworm';
const packages = ['ca-certificates', 'git', 'nodejs', 'npm'];
const directory = path.join(root, 'build', 'bare-machine');
const certificates = '/etc/host-certificates.pem';

/** The new root; its user's home directory holds the project. */
export const bareRoot = path.join(directory, 'root');
export const project = '/root/project';
/** Where files for programs in the new root are put, seen from there. */
export const sharedFiles = '/root/files';
export const logOf = (name) => path.join(directory, `${name.replace(':', '-')}.log`);

const makingLog = logOf('making');

/**
 * The package sources of Debian 12 in what apt prints of its index targets, a line "URI SUITE COMPONENT"
 * for each, as lines for a sources.list. Those of others are left out: they may hold another Node.js.
 */
export function sourceLines(targets) {
  const isDebian12 = ([, wanted]) => [suite, `${suite}-updates`, `${suite}-security`].includes(wanted);
  const sources = targets.split('\n').map((line) => line.split(' ')).filter(isDebian12);
  return sources.map(([uri, wanted, component]) => `deb ${uri} ${wanted} ${component}`);
}

function hostSources() {
  const targets = output('apt-get', ['indextargets', '--format', '$(REPO_URI) $(RELEASE) $(COMPONENT)',
    'Origin: Debian', 'Created-By: Packages']);
  const lines = sourceLines(targets ?? '');
  if (lines.length === 0) {
    throw new Failure(`This machine has no package lists of Debian 12 ("${suite}"): a bare one is made from its sources. ` +
      'Run "apt-get update" as root, then this again.');
  }
  return lines;
}

/** What apt has been told of proxies, as options of a configuration file. */
const aptProxies = (dump) => dump.split('\n').filter((line) => /^Acquire::https?::proxy\b/i.test(line));

const npmSettings = ['registry', 'proxy', 'https-proxy', 'noproxy', 'cafile', 'strict-ssl'];

/** npm's way to the registry, as variables; nothing of who this user is there. */
function npmVariables() {
  const config = JSON.parse(output('npm', ['config', 'list', '--json']) ?? '{}');
  const named = npmSettings.filter((name) => config[name] !== undefined && config[name] !== null && config[name] !== '');
  return Object.fromEntries(named.map((name) =>
    [`npm_config_${name.replaceAll('-', '_')}`, name === 'cafile' ? certificates : [config[name]].flat().join(',')]));
}

/** The file with the certificates that this machine trusts beyond a bare one's, or null. */
function trustedFile() {
  const { NODE_EXTRA_CA_CERTS, SSL_CERT_FILE } = process.env;
  const cafile = output('npm', ['config', 'get', 'cafile']);
  return [NODE_EXTRA_CA_CERTS, SSL_CERT_FILE, cafile].find((file) => file && fs.existsSync(file)) ?? null;
}

/** All that a program in the new root finds in its environment. */
function bareEnvironment() {
  const proxies = Object.entries(process.env).filter(([name]) => /^(https?|no)_proxy$/i.test(name));
  const trusted = fs.existsSync(path.join(bareRoot, certificates))
    ? { NODE_EXTRA_CA_CERTS: certificates, SSL_CERT_FILE: certificates } : {};
  return {
    HOME: '/root', LANG: 'C.UTF-8', PATH: '/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin',
    ...Object.fromEntries(proxies), ...trusted, ...npmVariables(),
  };
}

/** A command in the new root with a /proc and /dev of its own: they and all that runs there end with it. */
function inside(args, { cwd = project } = {}) {
  const enter = 'mount -t proc proc "$0/proc" && mount --rbind /dev "$0/dev" && mount --rbind /sys "$0/sys" && exec chroot "$0" "$@"';
  const variables = Object.entries(bareEnvironment()).map(([name, value]) => `${name}=${value}`);
  // A shell as the first process, as it collects those that lose their parent.
  const first = ['sh', '-c', '"$@"; exit $?', 'sh'];
  return ['unshare', '--mount', '--pid', '--fork', '--kill-child', 'sh', '-c', enter, bareRoot,
    'env', '--ignore-environment', `--chdir=${cwd}`, ...variables, ...first, ...args];
}

/** Makes the new root where there is none, as one step. */
export async function makeRoot(step) {
  if (fs.existsSync(bareRoot)) {
    step.done('here, kept by an earlier run');
    return;
  }
  fs.mkdirSync(directory, { recursive: true });
  const made = `${bareRoot}.new`;
  fs.rmSync(made, { recursive: true, force: true });
  const proxies = aptProxies(output('apt-config', ['dump']) ?? '').map((line) => `--aptopt=${line}`);
  await mustRun('mmdebstrap',
    ['--variant=minbase', `--include=${packages.join(',')}`, ...proxies, suite, made, ...hostSources()],
    'mmdebstrap could not make the machine.', { log: makingLog, onLine: (line) => step.progress(`${step.seconds} s  ${line}`) });
  for (const file of ['/etc/resolv.conf', '/etc/hosts']) {
    fs.copyFileSync(file, path.join(made, file));
  }
  if (trustedFile()) {
    fs.copyFileSync(trustedFile(), path.join(made, certificates));
  }
  fs.renameSync(made, bareRoot);
  step.done(`made in ${step.seconds} s`);
}

/** Puts the last commit into the new root, as one step. */
export async function cloneProject(step) {
  const clone = path.join(bareRoot, project);
  const git = (...args) => mustRun('git', args, 'git could not clone the project.', { log: makingLog });
  if (fs.existsSync(clone)) {
    await git('-C', clone, 'fetch', '--quiet', root, 'HEAD');
    await git('-C', clone, 'reset', '--quiet', '--hard', 'FETCH_HEAD');
  } else {
    await git('clone', '--quiet', '--no-hardlinks', root, clone);
  }
  const commit = output('git', ['-C', clone, 'log', '-1', '--format=%h %s']);
  const isChanged = output('git', ['status', '--porcelain', '--untracked-files=no']) !== '';
  step.done(`${commit}${isChanged ? '; what is not committed takes no part' : ''}`);
}

/** What the machine begins with: "git VERSION, node VERSION, npm VERSION". */
export function bareVersions() {
  const versionOf = (program) => {
    const [command, ...args] = inside([program, '--version'], { cwd: '/' });
    return `${program} ${/\d[\d.]*/.exec(output(command, args) ?? '')?.[0] ?? 'absent'}`;
  };
  return ['git', 'node', 'npm'].map(versionOf).join(', ');
}

/**
 * Starts a program in the new root: { child, ended }. What it prints goes to its log and line by line to
 * `onLine`; `ended` gives its exit code, or 128 after a signal. Signals go to the child's process group.
 */
export function start(name, args, { onLine }) {
  const [command, ...all] = inside(args);
  const log = fs.openSync(logOf(name), 'w');
  const child = spawn(command, all, { stdio: ['ignore', 'pipe', 'pipe'], detached: true });
  for (const stream of [child.stdout, child.stderr]) {
    let rest = '';
    stream.setEncoding('utf8').on('data', (text) => {
      fs.writeSync(log, text);
      const lines = (rest + text).split('\n');
      rest = lines.pop();
      lines.filter((line) => line.trim()).forEach(onLine);
    });
  }
  const ended = new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code) => {
      fs.closeSync(log);
      resolve(code ?? 128);
    });
  });
  return { child, ended };
}

/** Removes the new root; nothing is mounted there any more once its programs have ended. */
export function removeRoot() {
  fs.rmSync(bareRoot, { recursive: true, force: true });
  fs.rmSync(`${bareRoot}.new`, { recursive: true, force: true });
}

// The set-up's decisions, without touching the machine.

import assert from 'node:assert/strict';
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { describe, it } from 'node:test';

import { sourceLines } from '../../scripts/lib/bare-machine.js';
import { needsConfigure, parseCache } from '../../scripts/lib/build.js';
import { isGeneration } from '../../scripts/lib/ffmpeg.js';
import { kitNode, nodeReleases, oldNodes } from '../../scripts/lib/node-releases.js';
import { isStale, provideNodeVersions } from '../../scripts/lib/npm-packages.js';
import { commandLine } from '../../scripts/lib/output.js';
import { missingPackages, missingSentence } from '../../scripts/lib/packages.js';
import { findProgram } from '../../scripts/lib/processes.js';
import { skipUnderSanitizer } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const releasesUrl = new URL('../../scripts/lib/node-releases.js', import.meta.url).href;

function systemWith({ installed = [], programs = [], headers = [], libraries = [] }) {
  return {
    installed: new Set(installed),
    hasProgram: (name) => programs.includes(name),
    hasHeader: (name) => headers.includes(name),
    hasLibrary: (name) => libraries.includes(name),
  };
}

// The environment loads a sanitizer into every child: one ends the commands of a shell, the other finds its leaks.
const inShell = { skip: skipUnderSanitizer('the commands of a shell do not run under each of them') };

describe('the Node.js releases', () => {
  const folder = 'node_modules/node-x';
  const installed = { [folder]: { version: '1.0.0' } };

  /** What two runs of the step print where npm is a shell script of these lines. */
  async function printedWith(lines, { kitOnly = false, locked = installed } = {}) {
    const directory = makeTemporaryDirectory();
    fs.writeFileSync(path.join(directory, 'package-lock.json'), JSON.stringify({ packages: { '': {}, ...locked } }));
    fs.writeFileSync(path.join(directory, 'npm'), ['#!/bin/sh', `cd '${directory}'`, ...lines, ''].join('\n'), { mode: 0o755 });
    const { PATH } = process.env;
    process.env.PATH = `${directory}${path.delimiter}${PATH}`;
    const told = [];
    const step = { during: (_, work) => work, done: (text) => told.push(text) };
    try {
      await provideNodeVersions(step, { directory, kitOnly });
      await provideNodeVersions(step, { directory, kitOnly });
    } finally {
      process.env.PATH = PATH;
    }
    return told;
  }

  const fetching = [`mkdir -p ${folder}`, `echo '{}' > ${folder}/package.json`, `echo "$*" >> arguments`,
    `echo '${JSON.stringify({ packages: installed })}' > node_modules/.package-lock.json`];
  const withDev = { ...installed, 'node_modules/node-y': { version: '1.0.0', dev: true } };

  it('are fetched once', inShell, async () => {
    assert.deepEqual(await printedWith(fetching), ['installed', 'here']);
  });

  it('are fetched again for the tests where the one for the kit alone is here', inShell, async () => {
    assert.deepEqual(await printedWith(fetching, { locked: withDev }), ['installed', 'installed']);
    assert.deepEqual(await printedWith(fetching, { locked: withDev, kitOnly: true }), ['installed', 'here']);
  });

  it('are fetched without those that only the tests need where no tests follow', inShell, async () => {
    const omitting = ['case "$*" in *--omit=dev*) ;; *) exit 1;; esac', ...fetching];
    assert.deepEqual(await printedWith(omitting, { locked: withDev, kitOnly: true }), ['installed', 'here']);
    assert.match((await printedWith(omitting, { locked: withDev }))[0], /^not here/);
  });

  it('are told in one sentence where they cannot be fetched, and stop nothing', async () => {
    const sentence = "not here, their tests are skipped: check the network and npm's registry setting, " +
      `then run "${commandLine()}" again.`;
    assert.deepEqual(await printedWith(['exit 1']), [sentence, sentence]);
  });

  const releases = [['18.17.0', '/18'], ['20.20.2', '/20'], ['22.1.0', '/22']].map(([version, node]) => ({ version, node }));
  const own = (version) => ({ version, node: '/own' });

  it('run the kit only where the own Node.js of the machine is older than 20.11', () => {
    const choice = (version) => kitNode({ own: own(version), releases }).node;
    assert.deepEqual(['18.20.4', '20.10.9', '20.11.0', '22.0.0'].map(choice), ['/20', '/20', '/own', '/own']);
  });

  it('that were not fetched run nothing: an old machine is told in one sentence what to do', () => {
    const absent = releases.map((release) => ({ ...release, node: null }));
    assert.equal(kitNode({ own: own('20.11.0'), releases: absent }).node, '/own');
    assert.throws(() => kitNode({ own: own('18.20.4'), releases: absent }), {
      message: 'This needs Node.js 20.11 or newer, this machine has 18.20.4, and no newer one could be fetched: check the ' +
        `network and npm's registry setting, or install one, then run "${commandLine()}" again.`,
    });
  });

  it('below the one that runs the kit are tested too, each version once', () => {
    const tested = (version, from = releases) => oldNodes({ own: own(version), releases: from }).map(({ node }) => node);
    assert.deepEqual(tested('22.0.0'), ['/18']);
    assert.deepEqual(tested('18.20.4'), ['/18', '/own']);
    assert.deepEqual(tested('18.17.0'), ['/18']);
    assert.deepEqual(tested('22.0.0', releases.slice(1)), []);
  });

  it('are all listed with the version that they have', () => {
    const listed = nodeReleases();
    assert.deepEqual(listed.map(({ name }) => name), ['node-18', 'node-20', 'node-22', 'node-24', 'node-26']);
    assert.equal(listed[0].version, '18.17.0');
    const fetched = listed.filter(({ node }) => node !== null);
    assert.deepEqual(fetched.map(({ node }) => execFileSync(node, ['--version'], { encoding: 'utf8' })),
      fetched.map(({ version }) => `v${version}\n`));
  });
});

describe('a program that needs the kit', () => {
  const directory = makeTemporaryDirectory();
  // Another path of the same Node.js, as if it had been fetched.
  const fetched = path.join(directory, 'node');
  fs.symlinkSync(process.execPath, fetched);

  /** Starts a command that runs a program of these lines by runKitProgram, under `node`. */
  function start(node, ...lines) {
    const program = path.join(directory, 'program.mjs');
    fs.writeFileSync(program, lines.join('\n'));
    const script = `import { runKitProgram } from ${JSON.stringify(releasesUrl)};
      process.env.STARTED_BY = process.pid;
      await runKitProgram(${JSON.stringify(program)}, ['a', '--b'], { node: ${JSON.stringify(node)} });`;
    const child = spawn(process.execPath, ['--input-type=module', '--eval', script], { stdio: ['ignore', 'pipe', 'inherit'] });
    let text = '';
    child.stdout.setEncoding('utf8').on('data', (part) => (text += part));
    const ended = new Promise((resolve) => child.on('close', (code, signal) => resolve({ code, signal, text })));
    return { child, ended, program };
  }
  const show = 'console.log(process.argv.slice(2).join(" "), process.env.STARTED_BY === String(process.pid));';

  it('runs in the same process where the own Node.js will do, with its own arguments', async () => {
    const { ended } = start(process.execPath, show, 'process.exitCode = 5;');
    assert.deepEqual(await ended, { code: 5, signal: null, text: 'a --b true\n' });
  });

  it('runs in a child under a fetched Node.js, whose output and code are those of the command', async () => {
    const { ended } = start(fetched, show, 'process.exitCode = 5;');
    assert.deepEqual(await ended, { code: 5, signal: null, text: 'a --b false\n' });
  });

  const leaksElsewhere = { skip: skipUnderSanitizer('what ends by a signal frees nothing') };
  it('gets the signals that are sent to the command', leaksElsewhere, async () => {
    for (const [signal, code] of [['SIGINT', 7], ['SIGTERM', 8], ['SIGHUP', 9]]) {
      const { child, ended } = start(fetched, `process.on('${signal}', () => process.exit(${code}));`,
        'setInterval(() => {}, 60_000);', 'console.log("ready");');
      await new Promise((resolve) => child.stdout.once('data', resolve));
      child.kill(signal);
      assert.deepEqual(await ended, { code, signal: null, text: 'ready\n' });
    }
  });

  it('that a signal ends gives the code that a shell gives', async () => {
    const { ended } = start(fetched, "process.kill(process.pid, 'SIGKILL');", 'setInterval(() => {}, 60_000);');
    assert.deepEqual(await ended, { code: 137, signal: null, text: '' });
  });
});

describe('a bare machine', () => {
  it('gets the package sources of Debian 12, and none of others', () => {
    const targets = ['http://a/debian/ bookworm main', 'http://a/debian/ bookworm-updates main', 'http://b/ nodistro main',
      'http://a/debian/ bookworm-backports main', 'http://c/security/ bookworm-security contrib', 'http://d/ trixie main', ''];
    assert.deepEqual(sourceLines(targets.join('\n')), ['deb http://a/debian/ bookworm main',
      'deb http://a/debian/ bookworm-updates main', 'deb http://c/security/ bookworm-security contrib']);
  });
});

describe('missing packages', () => {
  it('are all of a group on an empty system, in the order of the table', () => {
    assert.deepEqual(missingPackages(['build'], systemWith({})),
      ['cmake', 'ninja-build', 'g++', 'pkg-config', 'libturbojpeg0-dev']);
  });

  it('leave out what the package manager has installed', () => {
    const system = systemWith({ installed: ['cmake', 'g++', 'libturbojpeg0-dev'] });
    assert.deepEqual(missingPackages(['build'], system), ['ninja-build', 'pkg-config']);
  });

  it('leave out what came to the machine another way', () => {
    const system = systemWith({
      programs: ['cmake', 'ninja', 'g++', 'pkg-config'], headers: ['turbojpeg.h'], libraries: ['libturbojpeg.so.0'],
    });
    assert.deepEqual(missingPackages(['build', 'run'], system), []);
  });

  it('name a package of two groups once', () => {
    const missing = missingPackages(['test', 'bench'], systemWith({}));
    assert.equal(missing.filter((name) => name === 'ffmpeg').length, 1);
  });
});

describe('the sentence about missing packages', () => {
  it('names them and the command to run where only root may install', () => {
    assert.equal(missingSentence(['cmake', 'nasm'], true, 'npm start'),
      'System packages are missing and only root may install them: ' +
      'run "apt-get install cmake nasm" as root, then "npm start" again.');
  });

  it('is in the singular for one package', () => {
    assert.equal(missingSentence(['nasm'], true, 'npm test'),
      'A system package is missing and only root may install it: ' +
      'run "apt-get install nasm" as root, then "npm test" again.');
  });

  it('does not speak of apt-get where there is none', () => {
    assert.equal(missingSentence(['cmake', 'nasm'], false, 'npm test'),
      'Install what the Debian packages cmake, nasm hold ' +
      '(this system has no apt to do it with), then run "npm test" again.');
  });
});

describe('an npm install', () => {
  const locked = {
    '': { name: 'project' },
    'node_modules/a': { version: '1.0.0' },
    'node_modules/b': { version: '2.0.0', optional: true },
  };

  it('stands if every package has the locked version', () => {
    assert.equal(isStale(locked, { 'node_modules/a': { version: '1.0.0' }, 'node_modules/b': { version: '2.0.0' } }), false);
  });

  it('stands without the optional packages of other platforms', () => {
    assert.equal(isStale(locked, { 'node_modules/a': { version: '1.0.0' } }), false);
  });

  it('stands without the packages for development where they are omitted', () => {
    const dev = { ...locked, 'node_modules/c': { version: '3.0.0', dev: true } };
    const installed = { 'node_modules/a': { version: '1.0.0' } };
    assert.equal(isStale(dev, installed, { omitsDev: true }), false);
    assert.equal(isStale(dev, installed), true);
    assert.equal(isStale(dev, { ...installed, 'node_modules/c': { version: '3.0.1' } }, { omitsDev: true }), true);
  });

  it('is stale if a package is absent', () => {
    assert.equal(isStale(locked, { 'node_modules/b': { version: '2.0.0' } }), true);
  });

  it('is stale if a version differs, also of an optional package', () => {
    assert.equal(isStale(locked, { 'node_modules/a': { version: '1.0.1' } }), true);
    assert.equal(isStale(locked, { 'node_modules/a': { version: '1.0.0' }, 'node_modules/b': { version: '2.1.0' } }), true);
  });
});

describe('the FFmpeg generation of a system', () => {
  it('is the needed one if all three major versions are', () => {
    assert.equal(isGeneration({ libavcodec: '58.91.100', libavformat: '58.45.100', libavutil: '56.51.100' }), true);
  });

  it('is not if one library is of another or is not there', () => {
    assert.equal(isGeneration({ libavcodec: '59.37.100', libavformat: '58.45.100', libavutil: '56.51.100' }), false);
    assert.equal(isGeneration({ libavcodec: '58.91.100', libavformat: '58.45.100', libavutil: null }), false);
    assert.equal(isGeneration({ libavcodec: '580.1', libavformat: '58.45.100', libavutil: '56.51.100' }), false);
  });
});

describe('the FFmpeg libraries that were built here', () => {
  const scripts = new URL('../../scripts/', import.meta.url);
  const patch = 'v4l2-encoder-failed-open.patch';

  it('are to be built anew if the script or a patch has changed since, or they are not all there', inShell, (context) => {
    const top = fs.mkdtempSync(path.join(os.tmpdir(), 'ostrel-ffmpeg-'));
    context.after(() => fs.rmSync(top, { recursive: true }));
    const at = (...names) => path.join(top, ...names);
    fs.mkdirSync(at('scripts', 'ffmpeg-patches'), { recursive: true });
    fs.mkdirSync(at('natives', 'x64'), { recursive: true });
    fs.mkdirSync(at('natives', 'include', 'libavutil'), { recursive: true });
    const script = at('scripts', 'build-ffmpeg.sh');
    const change = at('scripts', 'ffmpeg-patches', patch);
    fs.copyFileSync(new URL('build-ffmpeg.sh', scripts), script);
    fs.copyFileSync(new URL(`ffmpeg-patches/${patch}`, scripts), change);
    fs.writeFileSync(at('natives', 'include', 'libavutil', 'ffversion.h'), '#define FFMPEG_VERSION "4.3.7"\n');
    const libraries = ['libavutil.so.56', 'libavcodec.so.58', 'libavformat.so.58'].map((name) => at('natives', 'x64', name));
    libraries.forEach((library) => fs.writeFileSync(library, ''));
    const stands = () => spawnSync('bash', [script, '--check']).status === 0;
    const remember = () => {
      const hash = createHash('sha256').update(fs.readFileSync(script)).update(fs.readFileSync(change)).digest('hex');
      fs.writeFileSync(at('natives', 'recipe.sha256'), `${hash}\n`);
    };

    assert.equal(stands(), false, 'built before there were patches');
    remember();
    assert.equal(stands(), true);
    for (const file of [change, script]) {
      fs.appendFileSync(file, '\n');
      assert.equal(stands(), false, file);
      remember();
      assert.equal(stands(), true);
    }
    fs.rmSync(libraries[1]);
    assert.equal(stands(), false, 'a library is missing');
  });
});

describe('a build directory', () => {
  const cache = parseCache([
    '# This is the CMakeCache file.',
    '//Build the unit tests',
    'OSTREL_TESTS:BOOL=ON',
    'CMAKE_HOME_DIRECTORY:INTERNAL=/projects/a b',
    'CMAKE_BUILD_TYPE:STRING=',
    '',
  ].join('\n'));

  it('tells its settings', () => {
    assert.deepEqual(cache, { OSTREL_TESTS: 'ON', CMAKE_HOME_DIRECTORY: '/projects/a b', CMAKE_BUILD_TYPE: '' });
  });

  it('is left alone if its settings are the wanted ones', () => {
    assert.equal(needsConfigure(cache, { OSTREL_TESTS: 'ON' }, '/projects/a b'), null);
  });

  it('is configured if it is not there, or a setting differs or is new', () => {
    assert.equal(needsConfigure(null, {}, '/projects/a b'), 'again');
    assert.equal(needsConfigure(cache, { OSTREL_TESTS: 'OFF' }, '/projects/a b'), 'again');
    assert.equal(needsConfigure(cache, { OSTREL_SANITIZE: 'tsan' }, '/projects/a b'), 'again');
  });

  it('starts afresh if the project was moved or copied', () => {
    assert.equal(needsConfigure(cache, { OSTREL_TESTS: 'ON' }, '/projects/c'), 'fresh');
  });
});

describe('a program on the PATH', () => {
  it('is found in the first directory that holds it as an executable file', (context) => {
    const top = fs.mkdtempSync(path.join(os.tmpdir(), 'ostrel-path-'));
    context.after(() => fs.rmSync(top, { recursive: true }));
    const [first, second] = ['first', 'second'].map((name) => path.join(top, name));
    fs.mkdirSync(path.join(first, 'tool'), { recursive: true });
    fs.mkdirSync(second);
    fs.writeFileSync(path.join(first, 'plain'), '', { mode: 0o644 });
    fs.writeFileSync(path.join(second, 'tool'), '', { mode: 0o755 });
    const searchPath = [first, second].join(':');
    assert.equal(findProgram('tool', searchPath), path.join(second, 'tool'));
    assert.equal(findProgram('plain', searchPath), null);
    assert.equal(findProgram('absent', searchPath), null);
  });
});

describe('the command to run again', () => {
  it('is what a developer types', () => {
    assert.equal(commandLine('start'), 'npm start');
    assert.equal(commandLine('test'), 'npm test');
    assert.equal(commandLine('test:asan'), 'npm run test:asan');
  });
});

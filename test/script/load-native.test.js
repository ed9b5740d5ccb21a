// The one error of the loader: each cause in its own words, with what was looked for and what this
// machine is.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

import { makeTemporaryDirectory } from './support/temporary.js';

const { candidatePaths, describeMachine, loadNative, machineText } =
  createRequire(import.meta.url)('../../lib/load-native.cjs');

const root = fileURLToPath(new URL('../..', import.meta.url));
const machine = {
  platform: 'linux',
  arch: 'x64',
  cLibrary: { name: 'glibc', version: '2.36' },
  node: '24.1.0',
  nodeApi: 10,
  electron: null,
};
const files = ['/app/build.node', '/app/prebuilt.node'];
const machineLine = 'This machine: linux on x64, glibc 2.36, Node.js 24.1.0 (Node-API 10)';

function errorOf({ changed = {}, there = [], reason }) {
  try {
    loadNative({
      files,
      exists: (file) => there.includes(file),
      load: (file) => { throw new Error(reason ?? `${file} was loaded`); },
      machine: { ...machine, ...changed },
    });
  } catch (error) {
    return error;
  }
  return assert.fail('nothing was thrown');
}

function assertError(error, code, lines) {
  assert.equal(error.message, lines.join('\n'));
  assert.equal(error.code, code);
}

describe('the loader', () => {
  it('gives what the first file that is there exports', () => {
    const exported = {};
    const loaded = [];
    const load = (file) => {
      loaded.push(file);
      return exported;
    };
    assert.equal(loadNative({ files, exists: (file) => file === files[1], load, machine }), exported);
    assert.deepEqual(loaded, [files[1]]);
  });

  it("prefers a source tree's own build to what a pack has left there", () => {
    assert.deepEqual(candidatePaths(), [
      path.join(root, 'build/Release/ostrel_native.node'), path.join(root, 'prebuilds/linux-x64/ostrel_native.node'),
    ]);
  });

  it('tells a file that is not there', () => {
    assertError(errorOf({}), 'OSTREL_NO_BINARY', [
      'ostrel-native could not be loaded: its file is not there.',
      'Install the package anew; in its source tree, run "npm start" to build it.',
      'Looked for:',
      '  /app/build.node: not there',
      '  /app/prebuilt.node: not there',
      machineLine,
    ]);
  });

  it('tells why the system refuses a file, keeps its error, and tries no other', () => {
    const error = errorOf({ there: files, reason: '/app/build.node: file too short' });
    assertError(error, 'OSTREL_REFUSED', [
      'ostrel-native could not be loaded: the system refuses its file.',
      'The reason stands below. If the file is damaged, install the package anew.',
      'Looked for:',
      '  /app/build.node: file too short',
      '  /app/prebuilt.node: there, not tried',
      machineLine,
    ]);
    assert.equal(error.cause.message, '/app/build.node: file too short');
  });

  for (const version of ['GLIBC_2.34', 'GLIBCXX_3.4.30', 'CXXABI_1.3.13']) {
    it(`tells a system without ${version}`, () => {
      const reason = `/lib/x.so.6: version \`${version}' not found (required by /app/prebuilt.node)`;
      assertError(errorOf({ there: [files[1]], reason }), 'OSTREL_OLD_SYSTEM', [
        `ostrel-native could not be loaded: this system is too old for it (it asks for ${version}).`,
        'Use a system with glibc 2.34 and the libstdc++ of GCC 12, or newer, such as Debian 12 or Ubuntu 22.04.',
        'Looked for:',
        '  /app/build.node: not there',
        `  /app/prebuilt.node: ${reason}`,
        machineLine,
      ]);
    });
  }

  it('tells a wrong platform, whatever else is wrong, and tries nothing', () => {
    const cLibrary = { name: null, version: null };
    assertError(errorOf({ changed: { platform: 'darwin', arch: 'arm64', nodeApi: 6, cLibrary }, there: files }),
      'OSTREL_WRONG_PLATFORM', [
        'ostrel-native could not be loaded: it is made for Linux, and this is darwin.',
        'Run the application on x86-64 Linux.',
        'Looked for:',
        '  /app/build.node: there, not tried',
        '  /app/prebuilt.node: there, not tried',
        'This machine: darwin on arm64, unknown C library, Node.js 24.1.0 (Node-API 6)',
      ]);
  });

  it('tells a wrong processor', () => {
    const error = errorOf({ changed: { arch: 'arm64' }, there: [files[1]] });
    assertError(error, 'OSTREL_WRONG_PROCESSOR', [
      'ostrel-native could not be loaded: it is made for x64, and this Node.js is for arm64.',
      'Use a Node.js or Electron for x64, on an x86-64 processor.',
      'Looked for:',
      '  /app/build.node: not there',
      '  /app/prebuilt.node: there, not tried',
      'This machine: linux on arm64, glibc 2.36, Node.js 24.1.0 (Node-API 10)',
    ]);
  });

  it('tells a C library that is not glibc rather than the words in which it refuses the file', () => {
    const changed = { cLibrary: { name: 'musl', version: null } };
    const error = errorOf({ changed, there: [files[1]], reason: 'Error relocating' });
    assertError(error, 'OSTREL_WRONG_C_LIBRARY', [
      "ostrel-native could not be loaded: it is made for glibc, and this system's C library is musl.",
      'Use a system with glibc, such as Debian, Ubuntu or Fedora; Alpine is one with musl.',
      'Looked for:',
      '  /app/build.node: not there',
      '  /app/prebuilt.node: there, not tried',
      'This machine: linux on x64, musl, Node.js 24.1.0 (Node-API 10)',
    ]);
  });

  it('tells a Node.js that is too old, and the Electron that it is part of', () => {
    const changed = { node: '12.16.0', nodeApi: 5, electron: '9.0.0' };
    assertError(errorOf({ changed, there: [files[1]] }), 'OSTREL_OLD_NODE', [
      'ostrel-native could not be loaded: it needs Node-API 8, and Node.js 12.16.0 is too old for that.',
      'Use Node.js 18.17 or newer.',
      'Looked for:',
      '  /app/build.node: not there',
      '  /app/prebuilt.node: there, not tried',
      'This machine: linux on x64, glibc 2.36, Node.js 12.16.0 (Node-API 5), Electron 9.0.0',
    ]);
  });

  it("tells this machine's own words about a file that is no shared object", () => {
    const file = path.join(makeTemporaryDirectory(), 'text.node');
    fs.writeFileSync(file, 'no object');
    assert.throws(() => loadNative({ files: [file] }), (error) => {
      assert.equal(error.code, 'OSTREL_REFUSED');
      assert.equal(error.message, [
        'ostrel-native could not be loaded: the system refuses its file.',
        'The reason stands below. If the file is damaged, install the package anew.',
        'Looked for:',
        `  ${file}: file too short`,
        `This machine: ${machineText(describeMachine())}`,
      ].join('\n'));
      assert.equal(error.cause.code, 'ERR_DLOPEN_FAILED');
      return true;
    });
  });

  it('reads this machine', () => {
    const { platform, arch, cLibrary, node, nodeApi } = describeMachine();
    assert.deepEqual({ platform, arch, node }, { platform: 'linux', arch: 'x64', node: process.versions.node });
    assert.equal(cLibrary.name, 'glibc');
    assert.match(cLibrary.version, /^2\.\d+$/);
    assert.equal(nodeApi, Number(process.versions.napi));
  });
});

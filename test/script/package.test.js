// The package as its users get it: the packed tarball in an empty folder, under several Node.js releases.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { before, describe, it } from 'node:test';

import { simulatorPath, skipUnderSanitizer } from './support/environment.js';
import { install, outputAsUser, pack, root, runAsUser, triedNodes } from './support/packed.js';
import { makeTemporaryDirectory } from './support/temporary.js';
import { findings, programOf } from './support/type-check.js';

const members = 111;
const leastForKit = 20;
const frame = { width: 320, height: 240, pixelFormat: 'rgba', isInTarget: true, isOpaque: true, isPicture: true };

describe('the packed tarball', {
  skip: skipUnderSanitizer('what is packed is the release build'), concurrency: true,
}, () => {
  const directory = makeTemporaryDirectory();
  const user = path.join(directory, 'user');
  const second = path.join(directory, 'second');
  let packageFolder;
  let manifest;

  /** A copy of the installed package that a test may damage; gives the folder that has it installed. */
  function copyInstalled(name) {
    const folder = path.join(directory, name);
    fs.cpSync(user, folder, { recursive: true });
    return { folder, package: path.join(folder, 'node_modules', 'ostrel-native') };
  }
  // The doctor's command takes the first Node.js of the PATH.
  const kitPath = [path.dirname(process.execPath), process.env.PATH].join(path.delimiter);
  const binaryOf = (folder) => path.join(folder, 'prebuilds', 'linux-x64', 'ostrel_native.node');

  before(async () => {
    const tarball = await pack(directory);
    packageFolder = await install(tarball, user);
    fs.cpSync(user, second, { recursive: true });
    manifest = JSON.parse(fs.readFileSync(path.join(packageFolder, 'package.json'), 'utf8'));
    fs.cpSync(path.join(root, 'test', 'package'), user, { recursive: true });
  });

  it('installs alone, with nothing to build and nothing to run', () => {
    assert.deepEqual(fs.readdirSync(path.join(user, 'node_modules')).filter((name) => name[0] !== '.'), ['ostrel-native']);
    assert.equal(manifest.dependencies, undefined);
    const scripts = Object.keys(manifest.scripts).filter((name) => /install|^prepare/.test(name));
    assert.deepEqual(scripts, []);
    assert.equal(fs.existsSync(path.join(packageFolder, 'binding.gyp')), false);
  });

  it('says where it runs', () => {
    const { os, cpu, libc, engines } = manifest;
    assert.deepEqual({ os, cpu, libc, engines },
      { os: ['linux'], cpu: ['x64'], libc: ['glibc'], engines: { node: '>=18.17' } });
  });

  it('holds the release build, and every file that it names', () => {
    const built = fs.readFileSync(path.join(root, 'build', 'Release', 'ostrel_native.node'));
    assert.ok(fs.readFileSync(binaryOf(packageFolder)).equals(built));
    const targets = (value) => (typeof value === 'string' ? [value] : Object.values(value).flatMap(targets));
    const named = targets([manifest.main, manifest.types, manifest.exports, manifest.bin ?? []]);
    assert.deepEqual(named.filter((file) => !fs.existsSync(path.join(packageFolder, file))), []);
    const listed = manifest.files.filter((file) => !fs.existsSync(path.join(packageFolder, file)));
    assert.deepEqual(listed, []);
  });

  it("has neither sources nor tests nor FFmpeg nor debug files in it", () => {
    const expected = ['CHANGELOG.md', 'README.md', 'docs', 'index.cjs', 'index.d.cts', 'index.d.ts', 'index.js', 'kit', 'lib',
      'package.json', 'prebuilds', 'types'];
    assert.deepEqual(fs.readdirSync(packageFolder).filter((name) => !expected.includes(name)), []);
    assert.deepEqual(fs.readdirSync(path.dirname(binaryOf(packageFolder))), ['ostrel_native.node']);
  });

  for (const { title, version, node } of triedNodes()) {
    describe(`under ${title}`, {
      skip: node === null && 'fetched by "npm test" when there is a network', concurrency: true,
    }, () => {
      it('gives one live preview frame, in a module and in a worker thread', async () => {
        const text = await outputAsUser(node, ['preview.mjs', simulatorPath], { cwd: user });
        assert.deepEqual(JSON.parse(text),
          { frames: { main: frame, worker: frame }, members, backend: 'linux-v4l2', isRunning: false });
      });

      it('gives CommonJS the same object, and a second copy of the package one of its own', async () => {
        const text = await outputAsUser(node, ['commonjs.cjs', second], { cwd: user });
        assert.deepEqual(JSON.parse(text), {
          isSame: true,
          isTheBinary: true,
          importedNames: ['default'],
          isCopy: true,
          binaries: 2,
          members,
          errors: {
            first: 'Cannot start video recording without an active camera preview',
            second: 'Could not load Ostrel native library',
          },
          version: manifest.version,
        });
      });

      it('is that release', async () => {
        assert.equal(await outputAsUser(node, ['--version']), `v${version}\n`);
      });

      const doctor = [path.join('node_modules', '.bin', 'ostrel-doctor'), '--json', '--camera', simulatorPath, '--need', 'camera'];
      const findingsOf = (report) => Object.fromEntries(report.findings.map((finding) => [finding.id, finding]));

      if (Number.parseInt(version, 10) < leastForKit) {
        it('lets the doctor say that the kit needs a newer one, and look at the rest', async () => {
          const { code, stdout, stderr } = await runAsUser(node, doctor, { cwd: user });
          assert.deepEqual({ code, stderr }, { code: 1, stderr: '' });
          const report = JSON.parse(stdout);
          const found = findingsOf(report);
          assert.equal(report.ok, false);
          assert.deepEqual([found['system.node'].level, found['system.node'].text], ['failed', version]);
          assert.equal(found['addon.file'].text, fs.realpathSync(binaryOf(packageFolder)));
        });
        return;
      }

      it('gives the kit', async () => {
        const text = await outputAsUser(node, ['kit.mjs', simulatorPath], { cwd: user });
        assert.deepEqual(JSON.parse(text), { width: 320, height: 240, isRising: true });
      });

      it('runs the doctor, and with it the kit', async () => {
        const text = await outputAsUser(node, doctor, { cwd: user });
        const report = JSON.parse(text);
        assert.equal(report.ok, true, text);
        assert.equal(report.versions.node, version);
        assert.equal(findingsOf(report)['addon.file'].text, fs.realpathSync(binaryOf(packageFolder)));
      });
    });
  }

  it('type-checks in a module and in CommonJS', () => {
    const types = path.join(root, 'test', 'types');
    const files = ['module.mts', 'commonjs.cts', 'refused.mts', 'kit.mts', 'kit-refused.mts'].map((name) => {
      fs.copyFileSync(path.join(types, name), path.join(user, name));
      return path.join(user, name);
    });
    const program = programOf(files, { from: root });
    assert.deepEqual(findings(program), []);
    const declared = program.getSourceFiles().map(({ fileName }) => fileName)
      .filter((file) => /ostrel-native\/index\.d\./.test(file));
    assert.deepEqual(declared.sort(), ['index.d.cts', 'index.d.ts'].map((file) => path.join(packageFolder, file)));
  });

  it("brings the doctor's command, which finds the package's own binary and its empty FFmpeg slot", async () => {
    const command = path.join(user, 'node_modules', '.bin', 'ostrel-doctor');
    const { code, stdout, stderr } =
      await runAsUser(command, ['--json', '--camera', simulatorPath, '--need', 'camera'], { cwd: user, env: { PATH: kitPath } });
    assert.deepEqual({ code, stderr }, { code: 0, stderr: '' });
    const { ok, findings: found } = JSON.parse(stdout);
    assert.equal(ok, true);
    const folder = fs.realpathSync(packageFolder);
    assert.equal(found.find(({ text }) => text.endsWith('.node')).text, binaryOf(folder));
    assert.ok(found.some(({ text }) => text.includes(path.join(folder, 'natives', 'x64'))), stdout);
  });

  it('tells a missing binary, naming where it looked', async () => {
    const copy = copyInstalled('without-binary');
    fs.rmSync(binaryOf(copy.package));
    const { code, stderr } = await runAsUser(process.execPath, ['--eval', "require('ostrel-native')"], { cwd: copy.folder });
    assert.equal(code, 1);
    assert.match(stderr, /ostrel-native could not be loaded: its file is not there\.\nInstall the package anew; /);
    assert.ok(stderr.includes(`  ${binaryOf(fs.realpathSync(copy.package))}: not there\n`), stderr);
    assert.match(stderr, /code: 'OSTREL_NO_BINARY'/);
  });

  it('tells a binary that is cut off, rather than let the system die of it', async () => {
    const copy = copyInstalled('damaged');
    const { size } = fs.statSync(binaryOf(copy.package));
    fs.truncateSync(binaryOf(copy.package), 4096);
    const { code, stderr } = await runAsUser(process.execPath, ['--eval', "import('ostrel-native')"], { cwd: copy.folder });
    assert.equal(code, 1);
    assert.match(stderr, /ostrel-native could not be loaded: the system refuses its file\./);
    assert.match(stderr, new RegExp(`ostrel_native\\.node: the file is cut off after 4096 of ${size} bytes\n`));
    assert.match(stderr, /code: 'OSTREL_REFUSED'/);
  });

  const slot = path.join(root, 'natives', 'x64');
  it('finds FFmpeg in natives/x64 of the package', {
    skip: !fs.existsSync(path.join(slot, 'libavcodec.so.58')) && "FFmpeg of this generation is the system's own here",
  }, async () => {
    const copy = copyInstalled('with-ffmpeg');
    fs.mkdirSync(path.join(copy.package, 'natives'));
    fs.symlinkSync(slot, path.join(copy.package, 'natives', 'x64'));
    const program = "console.log(require('ostrel-native').cameraRecordingStatus().available)";
    assert.equal(await outputAsUser(process.execPath, ['--eval', program], { cwd: copy.folder }), 'true\n');
  });
});

// The doctor: its findings, its report, its command.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { findNodes } from '../../kit/doctor/device-nodes.js';
import { generationsFound } from '../../kit/doctor/ffmpeg-facts.js';
import {
  addonFinding, devicesFinding, encoderFindings, ffmpegFinding, libraryFinding, nodesFinding, systemFindings,
} from '../../kit/doctor/findings.js';
import { doctor, formatReport } from '../../kit/index.js';
import { addonPath, fakePath, simulatorPath, skipUnderSanitizer } from './support/environment.js';
import { root } from './support/packed.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const simulated = (name) => path.join(path.dirname(simulatorPath), name);
const skip = skipUnderSanitizer('the probes are processes of their own');
const essence = ({ id, level, essential }) => [id, level, essential];

describe('findings', () => {
  const library = { id: 'camera', area: 'Cameras', label: 'camera library', option: '--camera FILE', isNeeded: true, isNamed: false };
  const machine = { platform: 'linux', arch: 'x64', node: '22.1.0', kernel: '6.1', glibc: '2.36' };

  it('on the machine say what does not fit', () => {
    assert.deepEqual(systemFindings(machine).map(({ level, text }) => `${level} ${text}`),
      ['ok linux on x64', 'ok 22.1.0', 'ok glibc 2.36', 'ok 6.1']);
    const wrong = systemFindings({ platform: 'darwin', arch: 'arm64', node: '18.20.0', kernel: '23', glibc: null });
    assert.deepEqual(wrong.map(({ level, essential, remedy }) => [level, essential, remedy]), [
      ['failed', true, 'Run the application on x86-64 Linux.'], ['failed', true, 'Use Node.js 20 or newer.'],
      ['failed', true, 'Use a system with glibc, such as Debian or Ubuntu.'], ['ok', false, null]]);
  });

  it('on the native object keep its own words', () => {
    const { text, remedy, essential } = addonFinding({ failure: 'It could not be loaded.\nDo this.\nOr that.' });
    assert.deepEqual([text, remedy, essential], ['It could not be loaded.', 'Do this.\nOr that.', true]);
  });

  it('on a library tell where it was looked for, and what to do', () => {
    const tried = [{ file: 'liba.so', text: 'liba.so: cannot open' }];
    const absent = libraryFinding(library, { value: { loaded: null, words: 'w', tried } });
    assert.deepEqual(absent, { id: 'camera.library', area: 'Cameras', level: 'missing', essential: true, label: 'camera library',
      text: 'not found\nliba.so: cannot open',
      remedy: 'Install it, or name its file with --camera FILE, or its directory in OSTREL_NATIVE_DIR.' });
    const wrong = libraryFinding({ ...library, isNeeded: false }, { value: { loaded: null, words: 'w', tried: [{ file: 'liba.so', text: null }] } });
    assert.deepEqual([wrong.level, wrong.essential, wrong.text],
      ['failed', false, 'w\nliba.so: opens, but lacks what is needed of it']);
    assert.equal(libraryFinding({ ...library, isNamed: true }, { value: { loaded: null, tried } }).level, 'failed');
    assert.deepEqual(essence(libraryFinding(library, { failure: 'its process was ended by SIGSEGV' })), ['camera.library', 'failed', true]);
    assert.deepEqual(essence(libraryFinding(library, { value: { loaded: '/a.so' } })), ['camera.library', 'ok', false]);
  });

  it('on devices tell a camera that may not be used from none', () => {
    assert.equal(devicesFinding(library, { value: { loaded: null } }), null);
    assert.equal(devicesFinding(library, { value: { names: ['A', 'B'], code: 0 } }).text, 'A, B');
    assert.deepEqual(essence(devicesFinding(library, { value: { names: [] } })), ['camera.devices', 'missing', false]);
    assert.equal(devicesFinding(library, { value: { names: [], code: -3 } }).text, 'the library refuses to start (-3)');
    assert.deepEqual(essence(devicesFinding(library, { value: { names: ['A'], mayCapture: false } })), ['camera.devices', 'failed', true]);
  });

  it('on device nodes name the group to join', () => {
    const about = { id: 'camera.nodes', area: 'Cameras', label: 'camera nodes', group: 'video', absent: 'none', absentRemedy: null, isNeeded: true };
    const nodes = (...usable) => usable.map((one, i) => ({ node: `/dev/video${i}`, usable: one }));
    assert.deepEqual(essence(nodesFinding(about, [])), ['camera.nodes', 'note', false]);
    assert.deepEqual(essence(nodesFinding(about, nodes(true, true))), ['camera.nodes', 'ok', false]);
    const some = nodesFinding(about, nodes(true, false));
    assert.deepEqual([...essence(some), some.text], ['camera.nodes', 'failed', false, '/dev/video1: may not be read and written']);
    const none = nodesFinding(about, nodes(false));
    assert.deepEqual([none.essential, none.remedy],
      [true, 'Become a member of its group, and log in anew: sudo usermod -aG video $USER']);
  });

  it('look at the nodes that are there', () => {
    fs.writeFileSync(path.join(directory, 'video0'), '');
    fs.writeFileSync(path.join(directory, 'videos'), '');
    assert.deepEqual(findNodes(directory, /^video\d+$/), [{ node: path.join(directory, 'video0'), usable: true }]);
    assert.deepEqual(findNodes('/nowhere', /./), []);
  });

  it('on FFmpeg tell what was wanted, what was found, and where it belongs', () => {
    const { text, remedy, essential } = ffmpegFinding({ isNeeded: true, places: ['/slot', ''], generations: [57, 59] },
      { value: { isAvailable: false, tried: [{ file: '/slot/libavutil.so.56', text: '/slot/libavutil.so.56: cannot open' }, { file: 'x', text: null }] } });
    assert.equal(text, 'wanted: libavutil.so.56, libavcodec.so.58, libavformat.so.58\nthis system has libavcodec 57, 59\n' +
      'searched: /slot, the places where the system looks for libraries\n/slot/libavutil.so.56: cannot open');
    assert.equal(remedy, 'Put the three libraries into /slot, or name their directory in OSTREL_FFMPEG_LIBRARY_DIR. ' +
      'Another generation does not serve.');
    assert.equal(essential, true);
    const none = ffmpegFinding({ isNeeded: false, places: [''], generations: [] }, { value: { isAvailable: false, tried: [] } });
    assert.match(none.text, /\nthis system has no libavcodec\n/);
    assert.equal(none.essential, false);
  });

  it('find the generations in directories', () => {
    ['libavcodec.so.58', 'libavcodec.so.58.134.100', 'libavcodec.so.59', 'libavcodec.so', 'libavutil.so.60'].forEach((name) =>
      fs.writeFileSync(path.join(directory, name), ''));
    assert.deepEqual(generationsFound([directory, '/nowhere']), [58, 59]);
  });

  it('on encoders tell which opens and why the others do not', () => {
    const value = [
      { name: 'h264_vaapi', opens: false, words: 'No usable FFmpeg H.264 encoder was found (h264_vaapi: Creating a VAAPI device failed: no (such) device)' },
      { name: 'libx264', opens: true, words: '' },
      { name: 'h264', opens: false, words: 'No usable FFmpeg H.264 encoder was found' },
    ];
    assert.deepEqual(encoderFindings({ isNeeded: true }, { value }).map(({ id, level, text }) => [id, level, text]), [
      ['ffmpeg.encoders', 'ok', 'libx264 is used'],
      ['ffmpeg.encoder.h264_vaapi', 'note', 'does not open (hardware): Creating a VAAPI device failed: no (such) device'],
      ['ffmpeg.encoder.libx264', 'ok', 'opens'],
      ['ffmpeg.encoder.h264', 'note', 'not in this FFmpeg'],
    ]);
    const none = encoderFindings({ isNeeded: true }, { value: [value[0]] });
    assert.deepEqual([essence(none[0]), none[0].remedy],
      [['ffmpeg.encoders', 'missing', true], 'Use an FFmpeg that was built with libx264; encoding in software means x264, whose licence is the GPL.']);
    assert.deepEqual(encoderFindings({ isNeeded: true }, { failure: 'it did not answer within 1 s' }).map(essence),
      [['ffmpeg.encoders', 'failed', true]]);
  });
});

describe('the report', () => {
  it('is aligned and says what to do next', () => {
    const one = (area, level, label, text, remedy, essential) => ({ area, level, label, text, remedy, essential });
    const report = {
      ok: false, need: ['camera'], versions: { package: '1.2.3' },
      findings: [one('System', 'ok', 'kernel', '6.1', null, false), one('Cameras', 'missing', 'camera library', 'not found\nsomewhere', 'Install it.\nNow.', true),
        one('Cameras', 'note', 'nodes', 'none', null, false), one('JPEG', 'failed', 'x', 'y', null, false)],
    };
    assert.equal(formatReport(report), `ostrel-native 1.2.3: what this machine has and lacks

System
  ok       kernel          6.1

Cameras
  MISSING  camera library  not found
                           somewhere
                           > Install it.
                           > Now.
  -        nodes           none

JPEG
  FAILED   x               y

Needed: camera. One thing that is needed is not there: camera library. What to do stands behind ">" above.`);
    assert.equal(formatReport({ ...report, ok: true, need: [] }).split('\n').at(-1), 'Needed: nothing in particular. All of it is there.');
  });
});

describe('the doctor', { skip }, () => {
  const everything = {
    addonFile: addonPath,
    cameraLibrary: simulated('libcnokhwa.so'),
    ostrelLibrary: simulated('libostrel.so'),
    dinoLiteLibrary: simulated('libdinolite.so'),
  };
  const examine = async (options) => {
    const report = await doctor({ ...everything, ...options });
    return { report, of: (id) => report.findings.find((one) => one.id === id) };
  };

  it('finds what is there', async () => {
    const { report, of } = await examine({ need: ['camera', 'recording', 'ostrel', 'dino-lite'] });
    assert.equal(report.ok, true, formatReport(report));
    assert.deepEqual(Object.keys(report), ['ok', 'need', 'versions', 'findings']);
    assert.equal(of('addon.file').text, addonPath);
    assert.deepEqual([of('camera.library').text, of('camera.devices').text], [everything.cameraLibrary, 'Simulated microscope camera']);
    assert.deepEqual([of('ostrel.devices').text, of('dino-lite.devices').text], ['Simulated microscope 1', 'Simulated microscope 1']);
    assert.deepEqual([of('ffmpeg.libraries').level, of('ffmpeg.encoders').level], ['ok', 'ok']);
    assert.match(of('ffmpeg.libraries').text, /libavcodec\.so\.58/);
    assert.equal(of('ffmpeg.encoder.libx264').text, 'opens');
    assert.equal(new Set(report.findings.map(({ id }) => id)).size, report.findings.length);
    assert.ok(report.findings.every(({ level, remedy }) => level === 'ok' || level === 'note' || remedy));
    assert.equal(report.versions.node, process.versions.node);
  });

  it('tells libraries that are not there, are none, or lack something', async () => {
    const none = path.join(directory, 'none.so');
    const text = path.join(directory, 'text.so');
    fs.writeFileSync(text, 'text');
    const { report, of } = await examine({ cameraLibrary: none, ostrelLibrary: text,
      dinoLiteLibrary: fakePath('without_dl_get_amr/libdinolite.so'), turboJpegLibrary: none, need: ['camera', 'dino-lite', 'turbojpeg'] });
    assert.equal(report.ok, false);
    assert.equal(of('camera.library').text, `not found\n${none}: cannot open shared object file: No such file or directory`);
    assert.match(of('ostrel.library').text, /text\.so: (file too short|invalid ELF header)$/);
    assert.match(of('dino-lite.library').text, /^Required symbol not found: dl_get_amr\n.*: opens, but lacks what is needed of it$/);
    assert.deepEqual(report.findings.filter(({ essential }) => essential).map(({ id }) => id),
      ['camera.library', 'dino-lite.library', 'turbojpeg.library']);
  });

  it('tells files that are cut off', async () => {
    const cut = (file, name) => {
      const whole = fs.readFileSync(file);
      const copy = path.join(directory, name);
      fs.writeFileSync(copy, whole.subarray(0, 5000));
      return { copy, reason: `${copy}: file is cut off after 5000 of ${whole.length} bytes` };
    };
    const camera = cut(everything.cameraLibrary, 'cut-camera.so');
    const turboJpeg = cut(fakePath('libturbojpeg.so'), 'cut-jpeg.so');
    const { of } = await examine({ cameraLibrary: camera.copy, turboJpegLibrary: turboJpeg.copy });
    assert.equal(of('camera.library').text, `not found\n${camera.reason}`);
    assert.equal(of('turbojpeg.library').text, `not found\n${turboJpeg.reason}`);
  });

  it('tells an FFmpeg that is not there, or is cut off', async () => {
    const before = process.env.OSTREL_FFMPEG_LIBRARY_DIR;
    process.env.OSTREL_FFMPEG_LIBRARY_DIR = directory;
    try {
      const { report, of } = await examine();
      assert.deepEqual(essence(of('ffmpeg.libraries')), ['ffmpeg.libraries', 'missing', true]);
      const util = path.join(directory, 'libavutil.so.56');
      const whole = fs.readFileSync(fakePath('ffmpeg/libavutil.so.56'));
      fs.writeFileSync(util, whole.subarray(0, 5000));
      const cut = await examine();
      fs.rmSync(util);
      assert.deepEqual(essence(cut.of('ffmpeg.libraries')), ['ffmpeg.libraries', 'missing', true]);
      assert.ok(cut.of('ffmpeg.libraries').text.includes(`\n${util}: file is cut off after 5000 of ${whole.length} bytes\n`));
      assert.match(of('ffmpeg.libraries').text, new RegExp(`\nsearched: ${directory}\n`));
      assert.deepEqual([report.ok, of('ffmpeg.encoders')], [false, undefined]);
      assert.equal((await examine({ need: ['camera'] })).report.ok, true);
    } finally {
      if (before === undefined) {
        delete process.env.OSTREL_FFMPEG_LIBRARY_DIR;
      } else {
        process.env.OSTREL_FFMPEG_LIBRARY_DIR = before;
      }
    }
  });

  it('outlives a probe that does not answer, and a native object that cannot be loaded', async () => {
    const { of } = await examine({ timeoutMs: 1 });
    assert.equal(of('addon.file').text, 'it did not answer within 0.001 s');
    const { report } = await examine({ addonFile: path.join(directory, 'none.node') });
    assert.deepEqual(report.findings.at(-1).id, 'addon.file');
    assert.match(report.findings.at(-1).text, /^Cannot find module/);
    assert.equal(report.ok, false);
  });

  it('can be cancelled, and refuses what it does not understand', async () => {
    const reason = new Error('enough');
    await assert.rejects(doctor({ ...everything, signal: AbortSignal.abort(reason) }), reason);
    const abort = new AbortController();
    const promise = doctor({ ...everything, signal: abort.signal });
    setImmediate(() => abort.abort(reason));
    await assert.rejects(promise, reason);
    await assert.rejects(doctor({ need: ['sound'] }),
      new TypeError('`need` takes an array of camera, recording, ostrel, dino-lite, turbojpeg, not "sound".'));
    await assert.rejects(doctor({ cameraLibrary: 1 }), new TypeError('`cameraLibrary` takes a text that is not empty, not 1.'));
  });

  describe('as a command', { skip: addonPath !== path.join(root, 'build', 'Release', 'ostrel_native.node') && 'it takes the release build' }, () => {
    const run = (...args) => {
      const { status, stdout, stderr } = spawnSync(process.execPath, [path.join(root, 'kit', 'doctor-cli.js'), ...args], { encoding: 'utf8' });
      return { status, stdout, stderr };
    };

    it('prints for people, or for programs, and ends with 0 where all that is needed is there', () => {
      const told = run('--camera', everything.cameraLibrary, '--need', 'camera, recording');
      assert.deepEqual([told.status, told.stderr], [0, '']);
      assert.match(told.stdout, /\nNeeded: camera, recording\. All of it is there\.\n$/);
      const json = run('--json', '--ostrel', everything.ostrelLibrary, '--dino-lite', everything.dinoLiteLibrary, '--need', 'ostrel,dino-lite');
      assert.deepEqual([json.status, json.stderr], [0, '']);
      assert.deepEqual(JSON.parse(json.stdout).need, ['ostrel', 'dino-lite']);
    });

    it('ends with 1 where something is not', () => {
      const { status, stderr, stdout } = run('--camera', '/nowhere.so');
      assert.deepEqual([status, stderr], [1, '']);
      assert.match(stdout, /not there: camera library\. What to do stands behind ">" above\.\n$/);
    });

    it('ends with 2 where it is called in another way, and tells how', () => {
      for (const args of [['--nothing'], ['argument'], ['--need', 'sound'], ['--camera']]) {
        const { status, stdout, stderr } = run(...args);
        assert.deepEqual([status, stdout], [2, '']);
        assert.match(stderr, /\n\nostrel-doctor \[--json\]/);
      }
      const { status, stdout } = run('--help');
      assert.equal(status, 0);
      assert.match(stdout, /^ostrel-doctor \[--json\]/);
    });
  });
});

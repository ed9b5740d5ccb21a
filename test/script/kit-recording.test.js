// The kit's recordings: what they refuse, what they tell, and a file that is finished whichever way they end.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import { syncBuiltinESMExports } from 'node:module';
import path from 'node:path';
import { after, afterEach, before, beforeEach, describe, it } from 'node:test';

import { frames, record } from '../../kit/index.js';
import { complaintAbout } from '../../kit/recording-file.js';
import { valueFromChild } from './support/child.js';
import { loadAddon, toolEnvironment, untidyEnvironment } from './support/environment.js';
import { openFakeCamera } from './support/fake-camera.js';
import { decodingComplaints, probe, topBoxes } from './support/media.js';
import { makeTemporaryDirectory } from './support/temporary.js';
import { nextFrame, sleep, until } from './support/waiting.js';

const addon = loadAddon();
const directory = makeTemporaryDirectory();
const finishedBoxes = ['ftyp', 'moov', 'free', 'mdat'];
const progressKeys = ['elapsedMs', 'durationMs', 'framesWritten', 'framesDropped', 'bytes'];
const reason = new Error('enough');

let count = 0;
const newFile = () => path.join(directory, `${count += 1}.mp4`);

function assertFinished(file, framesWritten) {
  assert.deepEqual(topBoxes(file), finishedBoxes);
  assert.equal(decodingComplaints(file), '');
  if (framesWritten !== undefined) {
    assert.equal(Number(probe(file).stream.nb_read_frames), framesWritten);
  }
}

describe('a recording', () => {
  const camera = openFakeCamera();
  before(() => assert.equal(addon.loadCameraBackend(camera.path), true));
  beforeEach(() => {
    camera.send('reset\nframe 64 48');
    addon.cameraPreviewStart(0, 64, 48, 120);
  });
  afterEach(() => {
    assert.equal(addon.cameraRecordingStatus().recording, false, 'no recording is left');
    camera.send('release cnokhwa_grab_frame');
    addon.cameraPreviewStop();
  });
  after(() => addon.cameraPreviewStop());

  // With a rate of its own it does not wait for the one that a young preview has yet to measure.
  const start = (options = {}) => record({ native: addon, file: newFile(), progressMs: 5, frameRate: 30, ...options });
  const written = (frameCount) =>
    until(`${frameCount} frames`, () => addon.cameraRecordingStatus().framesWritten >= frameCount);

  it('takes the size of the preview, tells its progress and gives a file that plays', async () => {
    const file = newFile();
    const recording = await start({ file });
    assert.deepEqual(
      [recording.file, recording.width, recording.height, recording.frameRate, recording.bitrate, recording.progress],
      [file, 64, 48, 30, 1_000_000, { elapsedMs: 0, durationMs: 0, framesWritten: 0, framesDropped: 0, bytes: 0 }]);
    const { width, height, frameRate, bitrate, outputPath } = addon.cameraRecordingStatus();
    assert.deepEqual([width, height, frameRate, bitrate, outputPath], [64, 48, 30, 1_000_000, file]);
    await written(5);
    // One that was measured before may still come.
    let progress;
    do {
      [progress] = await once(recording, 'progress');
    } while (progress.framesWritten < 5);
    assert.deepEqual(Object.keys(progress), progressKeys);
    assert.ok(progress.elapsedMs > 0 && progress.durationMs > 0);
    const end = once(recording, 'end');
    const result = await recording.stop();
    assert.deepEqual(Object.keys(result), ['file', 'width', 'height', ...progressKeys, 'reason', 'error']);
    assert.deepEqual([result.reason, result.error, result.bytes], ['stopped', null, fs.statSync(file).size]);
    assert.deepEqual([await recording.finished, await recording.stop(), (await end)[0]], [result, result, result]);
    assertFinished(file, result.framesWritten);
  });

  describe('without a rate of its own', () => {
    it('takes the one that the preview has measured, for the encoder and for the bits', async () => {
      addon.cameraPreviewStart(0, 64, 48, 20);
      const recording = await start({ frameRate: undefined });
      const { frameRate } = addon.cameraRecordingStatus();
      const { producerFps } = addon.cameraPreviewGetLatest(0);
      await recording.stop();
      // A slow machine makes fewer than 20.
      assert.ok(producerFps > 0 && frameRate >= 1 && frameRate <= 21, `${frameRate}, ${producerFps}`);
      assert.equal(recording.frameRate, frameRate);
    });

    it('asks for the first frame again once it knows the rate', async () => {
      const asked = [];
      const answers = [0, 0, 17.4, 17.4].map((producerFps) => ({ result: 0, sequence: 1, width: 64, height: 48, producerFps }));
      const native = new Proxy(addon, { get: (target, name) => (name === 'cameraPreviewGetLatest'
        ? (...args) => (asked.push(args.length), answers.shift() ?? target[name](...args)) : target[name]) });
      const recording = await start({ native, addonFile: process.env.OSTREL_TEST_ADDON, frameRate: undefined });
      assert.equal(recording.frameRate, 17);
      assert.equal(addon.cameraRecordingStatus().frameRate, 17);
      assert.deepEqual(asked.slice(0, 4), [1, 2, 2, 1]);
      await recording.stop();
    });

    it('gives up waiting for it at an abort', async () => {
      const abort = new AbortController();
      const file = newFile();
      addon.cameraPreviewStart(0, 64, 48, 1);
      const promise = start({ file, frameRate: undefined, signal: abort.signal });
      abort.abort(reason);
      await assert.rejects(promise, reason);
      assert.equal(fs.existsSync(file), false);
    });
  });

  describe('makes a file', () => {
    const modeOf = (file) => fs.statSync(file).mode & 0o777;

    it('that its owner and group alone may read', async () => {
      const recording = await start();
      assert.equal(modeOf(recording.file), 0o640 & ~process.umask());
      await recording.stop();
      assert.equal(modeOf(recording.file), 0o640 & ~process.umask());
    });

    it('with the permissions that are asked for, less the umask', async () => {
      const recording = await start({ mode: 0o606 });
      await recording.stop();
      assert.equal(modeOf(recording.file), 0o606 & ~process.umask());
    });

    it('in the place of another one, whose permissions it keeps', async () => {
      const file = newFile();
      fs.writeFileSync(file, 'x'.repeat(100_000));
      fs.chmodSync(file, 0o604);
      const recording = await start({ file });
      await written(2);
      const { framesWritten } = await recording.stop();
      assert.equal(modeOf(file), 0o604);
      assertFinished(file, framesWritten);
    });

    it('where a relative path pointed at the start', async () => {
      const previous = process.cwd();
      const name = '12:30 specimen.mp4';
      try {
        process.chdir(directory);
        const recording = await start({ file: name });
        process.chdir('/');
        await written(2);
        const { file, framesWritten } = await recording.stop();
        assert.equal(file, path.join(fs.realpathSync(directory), name));
        assertFinished(file, framesWritten);
      } finally {
        process.chdir(previous);
      }
    });
  });

  describe('has failed although the recorder has not, because the file', () => {
    async function assertNotWhole(spoil, words) {
      const recording = await start();
      await written(3);
      spoil(recording.file);
      const { reason: ended, error } = await recording.finished.catch(assert.fail);
      assert.equal(ended, 'failed');
      assert.equal(error.message, `The recording is not whole: ${words(recording.file)}.`);
      await assert.rejects(recording.stop(), error);
    }
    const stopping = (spoil) => (file) => {
      spoil(file);
      addon.cameraRecordingStop();
    };

    it('has gone', () => assertNotWhole((file) => {
      addon.cameraRecordingStop();
      fs.rmSync(file);
    }, (file) => `${file} cannot be read any more`));

    it('is another one', () => assertNotWhole(stopping((file) => {
      fs.renameSync(file, `${file}.away`);
      fs.writeFileSync(file, 'x'.repeat(1_000_000));
    }), (file) => `another file has taken the place of ${file}`));

    it('was cut off', () => assertNotWhole((file) => {
      addon.cameraRecordingStop();
      fs.truncateSync(file, fs.statSync(file).size - 1);
    }, (file) => `${file} has no whole index`));
  });

  it('is held against the number of pictures that were written', async () => {
    const recording = await start();
    await written(3);
    const { file, framesWritten } = await recording.stop();
    assert.equal(await complaintAbout(file, { framesWritten }), null);
    assert.equal(await complaintAbout(file, { framesWritten: framesWritten + 1 }),
      `${file} holds ${framesWritten} of ${framesWritten + 1} pictures`);
    const bytes = fs.readFileSync(file);
    // Its index, a box in it, and what follows it are cut short, or say that they are longer than they are.
    const index = bytes.indexOf('moov') - 4;
    const track = bytes.indexOf('trak') - 4;
    const content = bytes.indexOf('mdat') - 4;
    for (const [length, position] of [[index, index], [content, track], [bytes.length, track], [bytes.length, content]]) {
      const changed = Buffer.from(bytes.subarray(0, length));
      if (position < length) {
        changed.writeUInt32BE(0x7fffffff, position);
      }
      fs.writeFileSync(file, changed);
      assert.equal(await complaintAbout(file, { framesWritten }), `${file} has no whole index`);
    }
  });

  it('without a frame is a whole file all the same', async () => {
    // The recording takes the size of the preview's newest frame, and waits for one.
    await nextFrame(addon);
    camera.send('default cnokhwa_grab_frame -8');
    const recording = await start();
    const { error, framesWritten, file } = await recording.stop();
    // A frame that was under way may still have come.
    assert.ok(framesWritten <= 1, `${framesWritten}`);
    assert.equal(error, null);
    assert.equal(await complaintAbout(file, { framesWritten }), null);
  });

  it('warns of colours that are tagged otherwise than they are made', async () => {
    const recording = await start();
    const [warning] = await once(recording, 'warning');
    assert.deepEqual(recording.warnings, [warning]);
    assert.equal(warning.code, 'colour-tags');
    assert.match(warning.message, /^Frames of 64 x 48 are tagged BT\.601 in the file, but their pixels are made by BT\.709, /);
    await recording.stop();
  });

  it('can be iterated until its end', async () => {
    const recording = await start();
    const seen = [];
    for await (const progress of recording) {
      seen.push(progress);
      if (seen.length === 3) {
        recording.stop();
      }
    }
    assert.ok(seen.length >= 3);
    assert.ok(seen.every(({ elapsedMs }, i) => i === 0 || elapsedMs > seen[i - 1].elapsedMs));
    for await (const progress of recording) {
      assert.fail(`${progress}`);
    }
  });

  it('tells its progress in its order where a look at the file takes long', async () => {
    const { stat } = fs.promises;
    let looks = 0;
    let isLate = false;
    fs.promises.stat = async (...args) => {
      looks += 1;
      if (looks === 1) {
        await sleep(100);
        isLate = true;
      }
      return stat(...args);
    };
    syncBuiltinESMExports();
    try {
      const recording = await start();
      const elapsed = [];
      recording.on('progress', ({ elapsedMs }) => elapsed.push(elapsedMs));
      await until('some progress', () => isLate && elapsed.length > 0);
      const told = elapsed.length;
      await until('more of it', () => elapsed.length > told);
      await recording.stop();
      assert.deepEqual(elapsed, [...elapsed].sort((a, b) => a - b));
    } finally {
      fs.promises.stat = stat;
      syncBuiltinESMExports();
    }
  });

  it('goes on when an iteration of it is left', async () => {
    const recording = await start();
    for await (const progress of recording) {
      assert.ok(progress);
      break;
    }
    assert.equal(addon.cameraRecordingStatus().recording, true);
    await recording.stop();
  });

  it('ends by itself after its seconds', async () => {
    const recording = await start({ seconds: 0.05 });
    const result = await recording.finished;
    assert.equal(result.reason, 'seconds');
    assert.ok(result.elapsedMs >= 49);
    assertFinished(result.file, result.framesWritten);
  });

  describe('refuses', () => {
    for (const [options, Kind, message] of [
      [{ file: undefined }, TypeError, '`file` takes a text that is not empty, not undefined.'],
      [{ file: '' }, TypeError, '`file` takes a text that is not empty, not "".'],
      [{ file: 'a\0b' }, TypeError, '`file` takes a path, not "a\\u0000b".'],
      [{ frameRate: 0 }, RangeError, '`frameRate` takes a whole number from 1 to 120, not 0.'],
      [{ mode: 0o1000 }, RangeError, '`mode` takes a whole number from 0 to 511, not 512.'],
      [{ frameRate: 29.97 }, RangeError, '`frameRate` takes a whole number from 1 to 120, not 29.97.'],
      [{ bitrate: 99_999 }, RangeError, '`bitrate` takes a whole number from 100000 to 100000000, not 99999.'],
      [{ seconds: -1 }, RangeError, '`seconds` takes a number above zero, not -1.'],
      [{ seconds: 1e9 }, RangeError, '`seconds` takes at most 2147483, not 1000000000.'],
      [{ progressMs: Infinity }, RangeError, '`progressMs` takes a number above zero, not Infinity.'],
      [{ signal: 'x' }, TypeError, '`signal` takes an AbortSignal, not "x".'],
    ]) {
      it(message, () => assert.rejects(start(options), new Kind(message)));
    }

    it('no options at all', () => assert.rejects(record(), new TypeError('`options` takes an object, not undefined.')));

    it('an odd size, before a file is made', async () => {
      camera.send('frame 62 47');
      addon.cameraPreviewStart(0, 64, 48, 120);
      const file = newFile();
      await assert.rejects(start({ file }), new Error('The preview is 62 x 47 pixels, and only even sizes can be recorded. ' +
        'A preview shows every nth pixel of every nth row: start it with another size, or capture another format.'));
      assert.equal(fs.existsSync(file), false);
    });

    it('a camera without a preview, or without a frame', async () => {
      await assert.rejects(start({ device: 5 }), new Error('No preview of camera 5 is running: there is nothing to record.'));
      addon.cameraPreviewStop();
      await assert.rejects(start(), new Error('No preview of camera 0 is running: there is nothing to record.'));
      camera.send('default cnokhwa_has_first_frame -256');
      addon.cameraPreviewStart(0, 64, 48, 120);
      await assert.rejects(start({ silenceMs: 30 }), new Error('The preview of camera 0 has had no frame for 0.03 s.'));
    });

    it('to end a recording that runs, the kit\'s or another', async () => {
      const first = await start();
      await assert.rejects(start(), new Error(`A recording is running already, to ${first.file}: stop it first.`));
      await first.stop();
      const file = newFile();
      assert.equal(addon.cameraRecordingStart(file, 64, 48, 30, 1_000_000), 0);
      await assert.rejects(start(), new Error(`A recording is running already, to ${file}: stop it first.`));
      assert.equal(addon.cameraRecordingStatus().recording, true);
      addon.cameraRecordingStop();
      await (await start()).stop();
    });

    it('two at once: the first to ask gets it', async () => {
      const [first, second] = await Promise.allSettled([start(), start()]);
      assert.deepEqual([first.status, second.status], ['fulfilled', 'rejected']);
      assert.equal(second.reason.message, `A recording is running already, to ${first.value.file}: stop it first.`);
      await first.value.stop();
    });

    it('a file that cannot be made, in FFmpeg\'s words; the next one can', async () => {
      await assert.rejects(start({ file: path.join(directory, 'none', 'a.mp4') }), {
        name: 'CallError', code: -3,
        message: 'cameraRecordingStart gave -3: the recording failed ("Opening the MP4 output failed: No such file or directory").',
      });
      await (await start()).stop();
    });

    it('what is no regular file, at once and before anything is opened', async () => {
      const pipe = path.join(directory, 'pipe.mp4');
      assert.equal(spawnSync('mkfifo', [pipe]).status, 0);
      for (const [file, kind] of [[pipe, 'a pipe'], [directory, 'a directory'], ['/dev/full', 'a device']]) {
        await assert.rejects(start({ file }), new Error(`A recording goes into a regular file, and ${file} is ${kind}.`));
      }
      fs.rmSync(pipe);
      await (await start()).stop();
    });

    it('to start, and leaves no file behind', async () => {
      const file = newFile();
      assert.equal(addon.cameraRecordingStart(newFile(), 64, 48, 30, 1_000_000), 0);
      await assert.rejects(start({ file }), /^Error: A recording is running already, to /);
      assert.equal(fs.existsSync(file), false);
      addon.cameraRecordingStop();
      fs.writeFileSync(file, '');
      assert.equal(addon.cameraRecordingStart(newFile(), 64, 48, 30, 1_000_000), 0);
      await assert.rejects(start({ file }), /^Error: A recording is running already, to /);
      assert.equal(fs.existsSync(file), true);
      addon.cameraRecordingStop();
    });

    it('a native object whose file is not known, or cannot be loaded', async () => {
      await assert.rejects(start({ native: { ...addon } }),
        new Error('It cannot be told which file the native object came from: name it as `addonFile`.'));
      await assert.rejects(start({ addonFile: '/nowhere.node' }), /Cannot find module '\/nowhere\.node'/);
      await (await start()).stop();
    });
  });

  describe('at an abort', () => {
    it('before the start, starts nothing', async () => {
      const file = newFile();
      await assert.rejects(start({ file, signal: AbortSignal.abort(reason) }), reason);
      assert.equal(fs.existsSync(file), false);
    });

    it('while it waits for the first frame, gives up', async () => {
      camera.send('default cnokhwa_has_first_frame -256');
      addon.cameraPreviewStart(0, 64, 48, 120);
      const abort = new AbortController();
      const promise = start({ signal: abort.signal });
      await new Promise(setImmediate);
      abort.abort(reason);
      await assert.rejects(promise, reason);
    });

    it('while the encoder opens, or just after it, finishes the file', async () => {
      const abort = new AbortController();
      const file = newFile();
      const promise = start({ file, signal: abort.signal });
      await until('the encoder', () => addon.cameraRecordingStatus().recording);
      abort.abort(reason);
      // Whoever gets the recording all the same is told by it.
      const outcome = await promise.then(async ({ finished }) => (await finished).reason, (error) => error);
      assert.ok(outcome === reason || outcome === 'aborted', `${outcome}`);
      assert.deepEqual(topBoxes(file), finishedBoxes);
    });

    it('later, finishes the file', async () => {
      const abort = new AbortController();
      const recording = await start({ signal: abort.signal });
      await written(3);
      abort.abort(reason);
      const result = await recording.finished;
      assert.deepEqual([result.reason, result.error], ['aborted', null]);
      assertFinished(result.file, result.framesWritten);
    });
  });

  describe('when the preview is lost, finishes the file', () => {
    async function lose(how, options) {
      const recording = await start(options);
      await written(3);
      how();
      const result = await recording.finished;
      assert.deepEqual([result.reason, result.error], ['preview-lost', null]);
      assertFinished(result.file, result.framesWritten);
    }

    it('because it was stopped', () => lose(() => addon.cameraPreviewStop(0)));

    it('because it fell silent', () =>
      lose(() => camera.send('default cnokhwa_grab_frame -8'), { silenceMs: 2000 }));

    it('because it came with another size', () => lose(() => {
      camera.send('frame 32 24');
      addon.cameraPreviewStart(0, 64, 48, 120);
    }));

    it('because the iteration that owns it has ended', async () => {
      addon.cameraPreviewStop();
      const iteration = frames({ native: addon, capture: {}, preview: { width: 64, height: 48, frameRate: 120 } });
      await iteration.next();
      const recording = await start();
      await written(3);
      await iteration.return();
      const result = await recording.finished;
      assert.equal(result.reason, 'preview-lost');
      assertFinished(result.file, result.framesWritten);
    });

    it('because the iteration that owns it has ended while it started', async () => {
      addon.cameraPreviewStop();
      const iteration = frames({ native: addon, capture: {}, preview: { width: 64, height: 48, frameRate: 120 } });
      await iteration.next();
      const starting = start();
      await iteration.return();
      assert.equal((await (await starting).finished).reason, 'preview-lost');
    });
  });

  it('goes on over a restart of the preview with the same size', async () => {
    const recording = await start();
    await written(3);
    addon.cameraPreviewStart(0, 64, 48, 120);
    const { framesWritten } = addon.cameraRecordingStatus();
    await written(framesWritten + 30);
    const result = await recording.stop();
    assert.equal(result.reason, 'stopped');
    assertFinished(result.file, result.framesWritten);
  });

  it('tells that other code has ended it', async () => {
    const recording = await start();
    await written(3);
    addon.cameraRecordingStop();
    assert.equal((await recording.finished).reason, 'ended-elsewhere');
  });

  it('leaves a recording alone that other code has put in its place', async () => {
    const recording = await start();
    const file = newFile();
    addon.cameraRecordingStart(file, 64, 48, 30, 1_000_000);
    assert.equal((await recording.finished).reason, 'ended-elsewhere');
    assert.deepEqual([addon.cameraRecordingStatus().recording, addon.cameraRecordingStatus().outputPath], [true, file]);
    addon.cameraRecordingStop();
  });

  it('fails with words where the disk is full, to whoever asks', async (t) => {
    const disk = fs.mkdtempSync(path.join(directory, 'disk-'));
    // Three pages: the header fits, and little more.
    const mounted = spawnSync('mount', ['-t', 'tmpfs', '-o', 'size=12k', 'tmpfs', disk], { encoding: 'utf8', env: toolEnvironment });
    if (mounted.status !== 0) {
      t.skip(`a small disk cannot be mounted here: ${(mounted.stderr ?? mounted.error.message).trim()}`);
      return;
    }
    t.after(() => spawnSync('umount', [disk], { env: toolEnvironment }));
    const recording = await start({ file: path.join(disk, 'a.mp4'), bitrate: 100_000_000, frameRate: 120 })
      .catch((error) => error);
    const error = recording instanceof Error ? recording : (await recording.finished).error;
    assert.match(error.message, /No space left on device/);
    if (recording !== error) {
      assert.equal((await recording.finished).reason, 'failed');
      await assert.rejects(recording.stop(), error);
      await assert.rejects(async () => {
        for await (const progress of recording) {
          assert.ok(progress);
        }
      }, error);
    }
  });
});

describe('a process', () => {
  const body = async ({ addon: native, kit, openFakeCamera, until: wait }, file, how) => {
    const camera = openFakeCamera();
    camera.send('frame 64 48');
    native.loadCameraBackend(camera.path);
    native.cameraPreviewStart(0, 64, 48, 120);
    const recording = await kit.record({ native, file, ...(how === 'seconds' ? { seconds: 0.2 } : {}) });
    await wait('frames', () => native.cameraRecordingStatus().framesWritten >= 3);
    if (how === 'exit') {
      setImmediate(() => process.exit(0));
    }
    if (how === 'stop') {
      return (await recording.stop()).reason;
    }
    return 'left';
  };

  for (const [how, value] of [['left', 'left'], ['exit', 'left'], ['seconds', 'left'], ['stop', 'stopped']]) {
    it(`ends by itself and in silence with its file finished: ${how}`, async () => {
      const file = newFile();
      const env = how === 'exit' ? untidyEnvironment : {};
      assert.equal(await valueFromChild(body, { args: [file, how], env }), value);
      assertFinished(file);
    });
  }

  it('is told in words that there is no FFmpeg', async () => {
    assert.equal(await valueFromChild(async ({ addon: native, kit, openFakeCamera }) => {
      const camera = openFakeCamera();
      camera.send('frame 64 48');
      native.loadCameraBackend(camera.path);
      native.cameraPreviewStart(0, 64, 48, 120);
      return kit.record({ native, file: 'never.mp4' }).catch(({ message }) => message);
    }, { env: { OSTREL_FFMPEG_LIBRARY_DIR: '/nowhere' } }),
    'No FFmpeg of the generation that recording needs was found, or it has no H.264 encoder: ' +
      'ostrel-doctor tells what was looked for.');
  });
});

// The recording calls: what they refuse, what they report, and what ends a recording.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, beforeEach, describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { loadAddon } from './support/environment.js';
import { openFakeCamera } from './support/fake-camera.js';
import { decodingComplaints, probe, topBoxes } from './support/media.js';
import { makeTemporaryDirectory } from './support/temporary.js';
import { nextFrame, sleep, until } from './support/waiting.js';

const addon = loadAddon();
const directory = makeTemporaryDirectory();
const device = 0;
const bitrate = 1_000_000;
const statusKeys = ['available', 'recording', 'outputPath', 'error', 'framesWritten', 'framesDropped', 'durationMs', 'width',
  'height', 'frameRate', 'bitrate'];
const noPreview = 'Cannot start video recording without an active camera preview';
const badConfiguration = 'Invalid video recording configuration';
const finishedBoxes = ['ftyp', 'moov', 'free', 'mdat'];

let count = 0;
const newFile = () => path.join(directory, `${count += 1}.mp4`);

/** The status, with `values` checked. */
function assertStatus(values) {
  const status = addon.cameraRecordingStatus();
  assert.deepEqual(Object.keys(status), statusKeys);
  for (const [key, value] of Object.entries(values)) {
    assert.ok(Object.is(status[key], value), `${key} is ${status[key]}, not ${value}`);
  }
  return status;
}

function assertExpectedArguments(...args) {
  assert.throws(() => addon.cameraRecordingStart(...args), (error) => error instanceof TypeError &&
    error.message === 'Expected (outputPath, width, height, frameRate, bitrate)');
}

/** Lets one frame through to the preview of a camera that is held at each grab. */
async function takeFrame(camera, sequence) {
  camera.send('release cnokhwa_grab_frame 1');
  return nextFrame(addon, { device, sequence });
}

describe('without a preview', () => {
  it('the status is empty, and tells that FFmpeg is there', () => {
    assertStatus({
      available: true, recording: false, outputPath: '', error: '', framesWritten: 0, framesDropped: 0, durationMs: 0,
      width: 0, height: 0, frameRate: 0, bitrate: 0,
    });
    assert.equal(addon.cameraRecordingAvailable(), true);
  });

  it('a start answers -5, whatever it is asked for, and does not touch the recorder', () => {
    for (const args of [['a.mp4', 64, 48, 30, bitrate], ['', 0, 0, 0, 0], ['a.mp4', null, undefined, 'x', {}]]) {
      addon.loadTurboJpeg('');
      assert.equal(addon.cameraRecordingStart(...args), -5);
      assert.equal(addon.getLastError(), noPreview);
    }
    assertStatus({ recording: false, outputPath: '', error: '', width: 0 });
  });

  it('a stop answers 0', () => {
    addon.loadTurboJpeg('');
    assert.equal(addon.cameraRecordingStop(), 0);
    assert.equal(addon.getLastError(), 'No libjpeg-turbo library path was provided');
  });

  it('missing arguments throw before the preview is asked for', () => {
    for (const args of [[], ['a.mp4'], ['a.mp4', 64, 48, 30]]) {
      assertExpectedArguments(...args);
    }
  });

  it('a path that is no string throws, and is not converted', () => {
    for (const other of [undefined, null, 1, true, 1n, Symbol('a.mp4'), ['a.mp4'], new String('a.mp4'),
      { toString: () => assert.fail('converted') }]) {
      assertExpectedArguments(other, 64, 48, 30, bitrate);
    }
  });
});

describe('with a preview', () => {
  let camera;
  before(() => {
    camera = openFakeCamera();
    assert.equal(addon.loadCameraBackend(camera.path), true);
    camera.send('frame 64 48');
    assert.equal(addon.cameraPreviewStart(device, 64, 48, 120), 0);
  });
  beforeEach(() => addon.cameraRecordingStop());
  after(() => {
    addon.cameraPreviewStop();
    addon.cameraRecordingStop();
  });

  const start = (file) => addon.cameraRecordingStart(file, 64, 48, 30, bitrate);
  const written = (frames) =>
    until(`${frames} written frames`, () => addon.cameraRecordingStatus().framesWritten >= frames);

  it('arguments are checked as without one', () => {
    assertExpectedArguments('a.mp4', 64, 48, 30);
    assertExpectedArguments(7, 64, 48, 30, bitrate);
  });

  it('a recording runs from its start to its stop, and makes a file that plays', async () => {
    const file = newFile();
    addon.loadTurboJpeg('');
    assert.equal(start(file), 0);
    assertStatus({
      available: true, recording: true, outputPath: file, error: '', width: 64, height: 48, frameRate: 30, bitrate,
    });
    await written(5);
    assert.equal(addon.cameraRecordingStop(), 0);
    assert.equal(addon.getLastError(), 'No libjpeg-turbo library path was provided');

    const { framesWritten, framesDropped, durationMs } = assertStatus({ recording: false, outputPath: file, error: '' });
    assert.ok(framesWritten >= 5 && durationMs > 0 && framesDropped >= 0);
    assert.deepEqual(topBoxes(file), finishedBoxes);
    assert.equal(decodingComplaints(file), '');
    assert.equal(Number(probe(file).stream.nb_read_frames), framesWritten);
  });

  describe('a configuration is refused with -1 and a text', () => {
    for (const [what, ...args] of [
      ['an empty path', '', 64, 48, 30, bitrate],
      ['an odd width', 'a.mp4', 63, 48, 30, bitrate],
      ['an odd height', 'a.mp4', 64, 47, 30, bitrate],
      ['no width', 'a.mp4', 0, 48, 30, bitrate],
      ['a negative height', 'a.mp4', 64, -48, 30, bitrate],
      ['a width above 8192', 'a.mp4', 8194, 48, 30, bitrate],
      ['a height above 8192', 'a.mp4', 64, 8194, 30, bitrate],
      ['a rate of 0', 'a.mp4', 64, 48, 0, bitrate],
      ['a rate of 121', 'a.mp4', 64, 48, 121, bitrate],
      ['a bit rate of 99,999', 'a.mp4', 64, 48, 30, 99_999],
      ['a bit rate of 100,000,001', 'a.mp4', 64, 48, 30, 100_000_001],
      ['a width that is no number', 'a.mp4', '64', 48, 30, bitrate],
      ['a height that is NaN', 'a.mp4', 64, NaN, 30, bitrate],
      ['numbers beyond int32', 'a.mp4', 2 ** 31, 2 ** 31, 2 ** 31, 2 ** 31],
    ]) {
      it(`with ${what}`, async () => {
        const file = newFile();
        assert.equal(start(file), 0);
        const earlier = assertStatus({ recording: true, outputPath: file });
        assert.equal(addon.cameraRecordingStart(...args), -1);
        assert.equal(addon.getLastError(), badConfiguration);
        assertStatus({
          recording: false, error: badConfiguration, outputPath: file, width: earlier.width, height: earlier.height,
          frameRate: earlier.frameRate, bitrate: earlier.bitrate,
        });
        assert.equal(fs.existsSync('a.mp4'), false);
      });
    }
  });

  it('a refused configuration has ended the running recording, and its file is finished', async () => {
    const file = newFile();
    start(file);
    await written(3);
    assert.equal(addon.cameraRecordingStart('', 64, 48, 30, bitrate), -1);
    const { framesWritten } = assertStatus({ recording: false, outputPath: file });
    assert.equal(Number(probe(file).stream.nb_read_frames), framesWritten);
    assert.equal(decodingComplaints(file), '');
  });

  it('a stop answers -3 with the text for as long as that error stands', () => {
    addon.cameraRecordingStart('', 64, 48, 30, bitrate);
    addon.loadTurboJpeg('');
    assert.equal(addon.cameraRecordingStop(), -3);
    assert.equal(addon.getLastError(), badConfiguration);
    start(newFile());
    assertStatus({ error: '' });
    assert.equal(addon.cameraRecordingStop(), 0);
  });

  it('a rate and a bit rate that are no numbers count as 30 and 4,000,000', () => {
    assert.equal(addon.cameraRecordingStart(newFile(), 64, 48, undefined, '1000000'), 0);
    assertStatus({ frameRate: 30, bitrate: 4_000_000 });
  });

  it('fractions are cut, and the limits themselves are taken', () => {
    assert.equal(addon.cameraRecordingStart(newFile(), 64.9, 48.9, 120.9, 100_000.9), 0);
    assertStatus({ width: 64, height: 48, frameRate: 120, bitrate: 100_000 });
    assert.equal(addon.cameraRecordingStart(newFile(), 64, 48, 1, 100_000_000), 0);
    assertStatus({ frameRate: 1, bitrate: 100_000_000 });
  });

  it('a second start finishes the first file and begins with zeros', async () => {
    const [first, second] = [newFile(), newFile()];
    start(first);
    await written(3);
    camera.send('default cnokhwa_grab_frame -8');
    assert.equal(start(second), 0);
    assertStatus({ outputPath: second, framesWritten: 0, framesDropped: 0, durationMs: 0 });
    camera.send('default cnokhwa_grab_frame 0');
    assert.equal(decodingComplaints(first), '');
    await written(1);
  });

  it('frames of another size are not recorded nor counted, and the empty file is a valid one', async () => {
    const file = newFile();
    assert.equal(addon.cameraRecordingStart(file, 32, 24, 30, bitrate), 0);
    const { sequence } = await nextFrame(addon, { device });
    await nextFrame(addon, { device, sequence: sequence + 2 });
    assert.equal(addon.cameraRecordingStop(), 0);
    assertStatus({ recording: false, error: '', framesWritten: 0, framesDropped: 0, durationMs: 0 });
    assert.deepEqual(topBoxes(file), finishedBoxes);
    const { complaints, packets } = probe(file);
    assert.equal(complaints, '');
    assert.deepEqual(packets, []);
  });

  for (const [what, file, text] of [
    ['a directory that is not there', path.join(directory, 'none', 'a.mp4'), 'No such file or directory'],
    ['a directory', directory, 'Is a directory'],
    ['a name that is too long', path.join(directory, 'x'.repeat(300)), 'File name too long'],
  ]) {
    it(`${what} fails with -3 and FFmpeg's words`, () => {
      const words = `Opening the MP4 output failed: ${text}`;
      assert.equal(start(file), -3);
      assert.equal(addon.getLastError(), words);
      assertStatus({ recording: false, error: words, outputPath: file, framesWritten: 0 });
      assert.equal(addon.cameraRecordingStop(), -3);
      assert.equal(start(newFile()), 0);
    });
  }

  it('a path may have spaces, quotes and any script', async () => {
    const place = path.join(directory, "mit Leerzeichen 'und' \u00b5\u3042\u{1f52c} %d");
    fs.mkdirSync(place);
    const file = path.join(place, '\u00e4 b"c:d.mp4');
    assert.equal(start(file), 0);
    await written(3);
    assert.equal(addon.cameraRecordingStop(), 0);
    assertStatus({ outputPath: file, error: '' });
    assert.deepEqual(topBoxes(file), finishedBoxes);
    assert.deepEqual(fs.readdirSync(place), [path.basename(file)]);
  });

  it('a file that stands in its place is replaced', async () => {
    const file = newFile();
    fs.writeFileSync(file, Buffer.alloc(1_000_000));
    assert.equal(start(file), 0);
    await written(3);
    assert.equal(addon.cameraRecordingStop(), 0);
    assert.ok(fs.statSync(file).size < 1_000_000);
    assert.equal(decodingComplaints(file), '');
  });

  it('stopping the preview leaves the recording open; it receives nothing until it is stopped', async () => {
    const file = newFile();
    start(file);
    await written(3);
    addon.cameraPreviewStop();
    const { framesWritten } = assertStatus({ recording: true, error: '' });
    assert.equal(addon.cameraRecordingStop(), 0);
    assert.ok(assertStatus({ recording: false, error: '' }).framesWritten >= framesWritten);
    assert.equal(decodingComplaints(file), '');
    assert.equal(start(newFile()), -5);
    addon.cameraPreviewStart(device, 64, 48, 120);
  });

  it('a recording goes on over a restart of the preview', async () => {
    const file = newFile();
    start(file);
    await written(3);
    addon.cameraPreviewStart(device, 64, 48, 120);
    await written(addon.cameraRecordingStatus().framesWritten + 10);
    assert.equal(addon.cameraRecordingStop(), 0);
    assert.equal(decodingComplaints(file), '');
  });

  it('a stop of the capture of any device ends the recording, and not the preview of another one', async () => {
    const file = newFile();
    start(file);
    await written(3);
    assert.equal(addon.cameraStopCapture(device + 1), 0);
    assertStatus({ recording: false, error: '' });
    assert.deepEqual(topBoxes(file), finishedBoxes);
    assert.equal(addon.cameraPreviewIsRunning(), true);
    assert.equal(decodingComplaints(file), '');
  });

  it('a stop of the capture finishes the file before it tells the camera library', async () => {
    const log = path.join(directory, 'calls.txt');
    const file = newFile();
    start(file);
    await written(3);
    camera.send(`delay cnokhwa_stop_capture 200\nlog_file ${log}`);
    assert.equal(addon.cameraStopCapture(device), 0);
    assert.equal(fs.readFileSync(log, 'utf8').trim().split('\n').at(-1), `cnokhwa_stop_capture(${device})`);
    assert.ok(fs.statSync(file).mtimeMs <= fs.statSync(log).mtimeMs);
    assert.equal(addon.cameraPreviewIsRunning(), false);
    camera.send('reset\nframe 64 48');
    addon.cameraPreviewStart(device, 64, 48, 120);
  });

  describe('frame by frame', () => {
    beforeEach(() => {
      addon.cameraPreviewStop();
      camera.send('reset\nframe 64 48\nblock cnokhwa_grab_frame');
      addon.cameraPreviewStart(device, 64, 48, 120);
    });
    afterEach(() => {
      camera.send('release cnokhwa_grab_frame');
      addon.cameraRecordingStop();
    });

    it('a single one is written at the stop, and lasts as the frame rate says', async () => {
      const file = newFile();
      addon.cameraRecordingStart(file, 64, 48, 25, bitrate);
      await takeFrame(camera, 0);
      assertStatus({ recording: true, framesWritten: 0 });
      assert.equal(addon.cameraRecordingStop(), 0);
      assertStatus({ framesWritten: 1, framesDropped: 0, durationMs: 0 });
      const { stream, packets } = probe(file);
      assert.equal(stream.nb_read_frames, '1');
      assert.deepEqual(packets, [{ pts: 0, duration: 0.04 }]);
      assert.deepEqual(topBoxes(file), finishedBoxes);
      assert.equal(decodingComplaints(file), '');
    });

    it('each lasts until its successor came, and the last one as long as the one before', async () => {
      const file = newFile();
      start(file);
      // Each frame came between the two times of its span, by the clock that the recorder goes by too.
      const spans = [];
      for (const pauseMs of [0, 40, 250, 80, 120]) {
        await sleep(pauseMs);
        const from = performance.now();
        await takeFrame(camera, spans.length);
        spans.push({ from, to: performance.now() });
      }
      assert.equal(addon.cameraRecordingStop(), 0);
      const { durationMs } = assertStatus({ framesWritten: 5, framesDropped: 0 });
      // Times in the file are in steps of 1/90000 s, the status's in milliseconds.
      const roundingMs = 2;
      const [first] = spans;
      const assertSince = (milliseconds, { from, to }) => assert.ok(milliseconds >= from - first.to - roundingMs &&
        milliseconds <= to - first.from + roundingMs, `${milliseconds} ms, not ${from - first.to} to ${to - first.from}`);
      const close = (seconds, milliseconds) =>
        assert.ok(Math.abs(seconds * 1000 - milliseconds) <= roundingMs, `${seconds} s, ${milliseconds} ms`);
      const { packets, duration } = probe(file);
      assert.equal(packets.length, 5);
      assert.equal(packets[0].pts, 0);
      packets.slice(1).forEach(({ pts }, index) => assertSince(pts * 1000, spans[index + 1]));
      packets.slice(1).forEach(({ pts }, index) =>
        assert.ok(Math.abs(packets[index].pts + packets[index].duration - pts) < 1e-4));
      assert.ok(Math.abs(packets[4].duration - packets[3].duration) < 1e-4);
      close(packets[4].pts, durationMs);
      close(duration, durationMs + packets[4].duration * 1000);
    });
  });
});

describe('without FFmpeg', () => {
  it('recording is not available, and a start answers -13 without touching the recorder', async () => {
    const file = path.join(directory, 'never.mp4');
    assert.deepEqual(await valueFromChild(({ addon: native }, target) => {
      native.cameraPreviewStart(0, 64, 48, 120);
      return [native.cameraRecordingAvailable(), native.cameraRecordingStart(target, 64, 48, 30, 1_000_000),
        native.getLastError(), native.cameraRecordingStart('', 0, 0, 0, 0), native.cameraRecordingStop(),
        native.cameraRecordingStatus()];
    }, { args: [file], env: { OSTREL_FFMPEG_LIBRARY_DIR: '/nowhere' } }),
    [false, -13, 'Could not start video recording', -13, 0, {
      available: false, recording: false, outputPath: '', error: '', framesWritten: 0, framesDropped: 0, durationMs: 0,
      width: 0, height: 0, frameRate: 0, bitrate: 0,
    }]);
    assert.equal(fs.existsSync(file), false);
  });
});

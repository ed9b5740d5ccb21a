// Recordings from the simulated camera to the file, with the real FFmpeg.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { skipUnderSanitizer, toolEnvironment } from './support/environment.js';
import { readFrameCode } from './support/frame-code.js';
import { decodeGrey, decodingComplaints, probe, topBoxes } from './support/media.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const small = { format: 0, width: 640, height: 480, frameRate: 30, bitrate: 2_000_000, seconds: 0.5 };
const noEncoder = 'No usable FFmpeg H.264 encoder was found';

const frameCodeUrl = new URL('support/frame-code.js', import.meta.url).href;

/**
 * Records what the simulated camera shows, for `seconds`, until `dropped` frames were dropped, and until the preview
 * has shown `shown` frames, whose numbers and times of day it gives in `stamps`; runs in a child.
 */
async function record({ addon, simulatorPath, nextFrame, sleep }, codeUrl,
  { format, width, height, frameRate, bitrate, seconds, dropped = 0, shown = 0, file }) {
  const { readFrameCode: readCode } = await import(codeUrl);
  if (!addon.loadCameraBackend(simulatorPath)) {
    throw new Error(addon.getLastError());
  }
  addon.cameraStartCapture(0, 0, 0, format);
  addon.cameraPreviewStart(0, width, height, frameRate);
  const { sequence } = await nextFrame(addon);
  // How many frames the preview has made, at least and at most, while the recorder took them.
  const produced = () => addon.cameraPreviewGetLatest(0).producedFrames;
  const offered = { least: 0, most: -produced() };
  const started = addon.cameraRecordingStart(file, width, height, frameRate, bitrate);
  const startError = addon.getLastError();
  offered.least -= produced();
  let { sequence: last } = await nextFrame(addon, { sequence });
  const stamps = [];
  const end = performance.now() + seconds * 1000;
  const isOver = ({ recording, framesDropped }) => !recording ||
    (performance.now() >= end && framesDropped >= dropped && stamps.length >= shown);
  while (!isOver(addon.cameraRecordingStatus())) {
    const frame = addon.cameraPreviewGetLatest(0, last);
    if (shown > 0 && frame.result === 0) {
      stamps.push([readCode(frame.data, frame.width, frame.height, frame.bytesPerRow, 4), frame.timestampMs]);
      last = frame.sequence;
    }
    await sleep(5);
  }
  offered.least += produced();
  const stopped = addon.cameraRecordingStop();
  offered.most += produced();
  const error = addon.getLastError();
  const status = addon.cameraRecordingStatus();
  addon.cameraStopCapture(0);
  return { started, startError, stopped, error, status, offered, stamps };
}

/** Records in a child and asserts that all went well; gives the status and the offered frames. */
async function recordWell(options, env = {}) {
  const { started, startError, stopped, error, status, offered, stamps } =
    await valueFromChild(record, { args: [frameCodeUrl, options], env });
  assert.deepEqual({ started, startError, stopped, error }, { started: 0, startError: '', stopped: 0, error: '' });
  assert.equal(status.error, '');
  assert.ok(status.framesWritten > 0);
  return { status, offered, stamps };
}

/** Asserts what holds for the file of every recording; gives what ffprobe says. */
function assertWholeFile(file, { status: { framesWritten, durationMs } }, { width, height }) {
  const { complaints, streams, stream, duration, packets } = probe(file);
  assert.equal(complaints, '');
  assert.equal(streams, 1);
  const { codec_name: codec, profile, pix_fmt: pixels, color_range: range } = stream;
  assert.deepEqual({ codec, profile, pixels, range, width: stream.width, height: stream.height },
    { codec: 'h264', profile: 'Main', pixels: 'yuv420p', range: 'tv', width, height });
  assert.equal(Number(stream.nb_read_frames), framesWritten);
  assert.equal(packets.length, framesWritten);
  assert.equal(packets[0].pts, 0);
  packets.slice(1).forEach(({ pts }, index) => assert.ok(pts > packets[index].pts));
  const lastFrame = packets.at(-1).duration;
  assert.ok(Math.abs(duration - (durationMs / 1000 + lastFrame)) <= lastFrame, `${duration} s, ${durationMs} ms, ${lastFrame} s`);
  assert.deepEqual(topBoxes(file), ['ftyp', 'moov', 'free', 'mdat']);
  assert.equal(decodingComplaints(file), '');
  return { stream, packets };
}

const colours = ({ color_space: space, color_primaries: primaries, color_transfer: transfer }) => [space, primaries, transfer];

/** The numbers that the camera painted into the frames of a file. */
function paintedNumbers(file, { width, height }) {
  const grey = decodeGrey(file);
  const size = width * height;
  assert.equal(grey.length % size, 0);
  return Array.from({ length: grey.length / size }, (_, index) => {
    const number = readFrameCode(grey.subarray(index * size, (index + 1) * size), width, height, width, 1);
    assert.notEqual(number, null, `no number in frame ${index}`);
    return number;
  });
}

/** The camera hands out each of its frames once. */
function assertRising(numbers) {
  numbers.slice(1).forEach((number, index) => assert.ok(number > numbers[index], `${numbers}`));
}

/**
 * From each frame that was seen in the preview to the next one: the seconds between the two there and in the file. The
 * two clocks are read one after the other, so a busy machine puts any one of them off.
 */
function waitsOf(numbers, packets, stamps) {
  const seen = stamps.map(([number, timestampMs]) => ({ timestampMs, packet: packets[numbers.indexOf(number)] }))
    .filter(({ packet }) => packet);
  assert.ok(seen.length >= stamps.length / 2, `${stamps.length} frames seen, ${seen.length} of them in the file`);
  return seen.slice(1).map(({ timestampMs, packet }, index) => {
    const shown = (timestampMs - seen[index].timestampMs) / 1000;
    const inFile = packet.pts - seen[index].packet.pts;
    return { shown, inFile, error: Math.abs(shown - inFile) };
  });
}

const median = (numbers) => [...numbers].sort((a, b) => a - b)[Math.trunc(numbers.length / 2)];

describe('a recording', () => {
  it('of a reduced preview is a file that plays, with the frames in their order and at their times', async () => {
    const file = path.join(directory, 'reduced.mp4');
    const options = { format: 2, width: 960, height: 540, frameRate: 30, bitrate: 4_000_000, seconds: 2, shown: 20, file };
    const result = await recordWell(options);
    const { stream, packets } = assertWholeFile(file, result, options);
    assert.deepEqual(colours(stream), ['smpte170m', 'smpte170m', 'smpte170m']);

    const numbers = paintedNumbers(file, options);
    assert.equal(numbers.length, result.status.framesWritten);
    assertRising(numbers);
    const waits = waitsOf(numbers, packets, result.stamps);
    assert.ok(median(waits.map(({ error }) => error)) < 0.02, JSON.stringify(waits));
  });

  it('of a full-size preview that the encoder cannot follow drops frames, counts them, and plays', {
    skip: skipUnderSanitizer('the preview is slower than the encoder there'),
  }, async () => {
    const file = path.join(directory, 'dropping.mp4');
    // Format 3 delivers 60 frames a second.
    const options = { format: 3, width: 1920, height: 1080, frameRate: 120, bitrate: 8_000_000, seconds: 1, dropped: 1, file };
    // On one processor, whatever the machine has.
    const processor = /Cpus_allowed_list:\s*(\d+)/.exec(fs.readFileSync('/proc/self/status', 'utf8'))[1];
    const result = await valueFromChild(record, { args: [frameCodeUrl, options], wrapper: ['taskset', '-c', processor] });
    assert.deepEqual([result.started, result.stopped, result.error], [0, 0, '']);
    const { stream } = assertWholeFile(file, result, options);
    assert.deepEqual(colours(stream), ['bt709', 'bt709', 'bt709']);
    const { status: { framesWritten, framesDropped }, offered: { least, most } } = result;
    assert.ok(framesDropped > 0);
    const counted = framesWritten + framesDropped;
    assert.ok(counted >= least && counted <= most, `${counted} of ${least} to ${most}`);
  });

  it('of a camera that stutters lasts as long at each frame as the camera took to the next', async () => {
    const file = path.join(directory, 'stutter.mp4');
    const options = { ...small, seconds: 1.5, shown: 30, file };
    const result = await recordWell(options, { OSTREL_SIMULATOR_STUTTER: '10:200' });
    const { packets } = assertWholeFile(file, result, options);
    const numbers = paintedNumbers(file, options);
    assertRising(numbers);
    // Every tenth frame is 200 ms late.
    const waits = waitsOf(numbers, packets, result.stamps);
    const stutters = waits.filter(({ shown }) => shown > 0.15);
    assert.ok(stutters.length > 0, `${numbers}`);
    assert.ok(median(stutters.map(({ error }) => error)) < 0.02, JSON.stringify(waits));
  });
});

describe('on a full disk', () => {
  const mounted = path.join(directory, 'disk');
  const mount = () => {
    fs.mkdirSync(mounted);
    return spawnSync('mount', ['-t', 'tmpfs', '-o', 'size=256k', 'tmpfs', mounted], { encoding: 'utf8', env: toolEnvironment });
  };

  it('a recording ends by itself with the reason', async (t) => {
    const { status: mountStatus, stderr, error } = mount();
    if (mountStatus !== 0) {
      t.skip(`a small disk cannot be mounted here: ${(stderr ?? error.message).trim()}`);
      return;
    }
    try {
      const options = { ...small, bitrate: 8_000_000, seconds: 10, file: path.join(mounted, 'full.mp4') };
      const { started, stopped, error: lastError, status } = await valueFromChild(record, { args: [frameCodeUrl, options] });
      assert.deepEqual([started, stopped, status.recording], [0, -3, false]);
      assert.match(lastError,
        /^(Writing an H\.264 packet|Finalizing the MP4 file|Closing the MP4 file) failed: No space left on device$/);
      assert.equal(status.error, lastError);
      assert.equal(fs.existsSync(options.file), true);
    } finally {
      spawnSync('umount', [mounted], { env: toolEnvironment });
    }
  });
});

describe('the encoder', () => {
  const refused = (text) => ({ started: -3, error: text, isThere: false });
  const taken = { started: 0, error: '', isThere: true };
  const hasGraphics = fs.existsSync('/dev/dri') || fs.existsSync('/dev/nvidia0');
  const vaapiFailure = `${noEncoder} (h264_vaapi: Creating a VAAPI device failed: `;

  it('is the one of the environment, or none; each refusal has its reason', async () => {
    const encoders = ['nonexistent', 'h264', 'AUTO', 'libx264', 'auto', ''];
    const file = path.join(directory, 'encoder.mp4');
    const results = await valueFromChild(async ({ addon }, names, target) => {
      const { existsSync, rmSync } = await import('node:fs');
      addon.cameraPreviewStart(0, 64, 48, 30);
      const start = (name, place) => {
        process.env.OSTREL_FFMPEG_ENCODER = name;
        const started = addon.cameraRecordingStart(place, 64, 48, 30, 1_000_000);
        const { error } = addon.cameraRecordingStatus();
        addon.cameraRecordingStop();
        const isThere = existsSync(place);
        rmSync(place, { force: true });
        return { started, error, isThere };
      };
      return {
        byName: names.map((name) => start(name, target)),
        vaapi: start('h264_vaapi', target),
        unwritable: start('nonexistent', '/nowhere/a.mp4'),
      };
    }, { args: [encoders, file] });
    assert.deepEqual(results.byName, [
      refused(noEncoder), refused(noEncoder), refused(noEncoder), taken, taken, taken,
    ]);
    // The encoder is looked for before the file is opened.
    assert.deepEqual(results.unwritable, refused(noEncoder));
    if (!hasGraphics) {
      assert.equal(results.vaapi.started, -3);
      assert.ok(results.vaapi.error.startsWith(vaapiFailure), results.vaapi.error);
    }
  });
});

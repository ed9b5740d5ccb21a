// Libraries of which the end is missing: the system's loader maps them, and the process would die.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();

/** Half of the fake library `name`, { file, reason }. */
function cutOff(name) {
  const whole = fs.readFileSync(fakePath(name));
  const file = path.join(directory, path.basename(name));
  const size = Math.floor(whole.length / 2);
  fs.writeFileSync(file, whole.subarray(0, size));
  return { file, reason: `${file}: file is cut off after ${size} of ${whole.length} bytes` };
}

const refusal = ({ file, reason }) => `Could not load native library '${file}': ${reason}`;

describe('a library whose file is cut off is refused, and the process lives:', { concurrency: 2 }, () => {
  it('a camera library, after which a whole one loads', async () => {
    const { file } = cutOff('libcnokhwa.so');
    const whole = fakePath('libcnokhwa.so');
    assert.deepEqual(await valueFromChild(({ addon }, cut, other) => [addon.loadCameraBackend(cut), addon.getLastError(),
      addon.loadCameraBackend(other), addon.cameraLoadPath()], { args: [file, whole] }),
    [false, 'Could not load Linux camera backend library (libcnokhwa). Set OSTREL_NATIVE_DIR or pass explicit path.',
      true, whole]);
  });

  it('TurboJPEG, with where it ends', async () => {
    const cut = cutOff('libturbojpeg.so');
    assert.deepEqual(await valueFromChild(({ addon }, file) =>
      [addon.loadTurboJpeg(file), addon.turboJpegAvailable(), addon.getLastError()], { args: [cut.file] }),
    [false, false, refusal(cut)]);
  });

  it('a Dino-Lite library, with where it ends', async () => {
    const cut = cutOff('libdinolite.so');
    assert.deepEqual(await valueFromChild(({ addon }, file) =>
      [addon.loadDinoLite(file), addon.dinoLiteLastError(), addon.getLastError()], { args: [cut.file] }),
    [{ ok: false, backend: 'none', path: '' }, refusal(cut), refusal(cut)]);
  });

  it('an Ostrel library', async () => {
    const cut = cutOff('libostrel.so');
    const words = 'Could not load Ostrel native library';
    assert.deepEqual(await valueFromChild(({ addon }, file) =>
      [addon.loadOstrel(file), addon.ostrelLastError(), addon.getLastError()], { args: [cut.file] }),
    [{ ok: false, path: '' }, words, words]);
  });

  it('libavcodec, and recording is not available', async () => {
    const { file } = cutOff('ffmpeg/libavcodec.so.58');
    for (const name of ['libavutil.so.56', 'libavformat.so.58']) {
      fs.symlinkSync(fakePath(`ffmpeg/${name}`), path.join(directory, name));
    }
    assert.equal(await valueFromChild(({ addon }) => addon.cameraRecordingAvailable(),
      { env: { OSTREL_FFMPEG_LIBRARY_DIR: path.dirname(file) } }), false);
  });
});

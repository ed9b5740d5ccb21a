// Reading the encoder's name out of an MP4 file, as the first-run example does.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';

import { findEncoderName } from '../../examples/lib/encoder-name.js';

const unnamed = 'one that leaves no name in the file (h264_nvenc and h264_v4l2m2m do not)';

function box(type, payload) {
  const header = Buffer.alloc(8);
  header.writeUInt32BE(8 + payload.length, 0);
  header.write(type, 4, 'latin1');
  return Buffer.concat([header, payload]);
}

function largeBox(type, payload) {
  const header = Buffer.alloc(16);
  header.writeUInt32BE(1, 0);
  header.write(type, 4, 'latin1');
  header.writeBigUInt64BE(BigInt(16 + payload.length), 8);
  return Buffer.concat([header, payload]);
}

describe('the encoder of an MP4 file', () => {
  let directory;
  before(() => (directory = fs.mkdtempSync(path.join(os.tmpdir(), 'ostrel-encoder-'))));
  after(() => fs.rmSync(directory, { recursive: true }));

  async function nameOf(...boxes) {
    const file = path.join(directory, 'a.mp4');
    fs.writeFileSync(file, Buffer.concat(boxes));
    return findEncoderName(file);
  }

  it('is read from the start of the picture data', async () => {
    const signed = Buffer.from('....x264 - core 164 r3095 - H.264/MPEG-4 AVC codec');
    assert.equal(await nameOf(box('ftyp', Buffer.from('isom')), box('moov', Buffer.alloc(100)), box('mdat', signed)),
      'libx264 (software)');
    assert.equal(await nameOf(largeBox('mdat', signed)), 'libx264 (software)');
    assert.equal(await nameOf(box('mdat', Buffer.from('..Lavc58.91.100 / VAAPI 1.17.0 / a driver'))),
      'h264_vaapi (hardware)');
  });

  it('is not taken from any other place', async () => {
    assert.equal(await nameOf(box('udta', Buffer.from('x264 - core')), box('mdat', Buffer.alloc(10))), unnamed);
    assert.equal(await nameOf(box('mdat', Buffer.concat([Buffer.alloc(5000), Buffer.from('x264 - core')]))), unnamed);
  });

  it('is unnamed in a file that is empty, cut off or no MP4', async () => {
    assert.equal(await nameOf(), unnamed);
    assert.equal(await nameOf(box('ftyp', Buffer.from('isom'))), unnamed);
    assert.equal(await nameOf(Buffer.alloc(64)), unnamed);
  });
});

// Which encoder made an MP4 file.

import { open } from 'node:fs/promises';

// How far into the picture data an encoder's signature is looked for; it stands before the first
// picture.
const searchedBytes = 4096;

const signatures = [
  { text: 'x264 - core', encoder: 'libx264 (software)' },
  { text: ' / VAAPI ', encoder: 'h264_vaapi (hardware)' },
];

/** The position of the first byte of picture data; null in a file without any. */
async function findPictureData(file) {
  const header = Buffer.alloc(16);
  for (let position = 0; ; ) {
    const { bytesRead } = await file.read(header, 0, header.length, position);
    if (bytesRead < 8) {
      return null;
    }
    const isLarge = header.readUInt32BE(0) === 1;
    const size = isLarge ? Number(header.readBigUInt64BE(8)) : header.readUInt32BE(0);
    if (header.toString('latin1', 4, 8) === 'mdat') {
      return position + (isLarge ? 16 : 8);
    }
    if (size < 8) {
      return null;
    }
    position += size;
  }
}

/**
 * The name of the encoder. The addon chooses it and has no function that tells, so it is read from
 * the file: some encoders sign the H.264 stream in a user data message. Hardware encoders but
 * VAAPI don't; then the answer says so instead of guessing.
 */
export async function findEncoderName(path) {
  const file = await open(path);
  try {
    const start = await findPictureData(file);
    const data = Buffer.alloc(searchedBytes);
    const { bytesRead } = start === null ? { bytesRead: 0 } : await file.read(data, 0, data.length, start);
    const text = data.toString('latin1', 0, bytesRead);
    return signatures.find((signature) => text.includes(signature.text))?.encoder ??
      'one that leaves no name in the file (h264_nvenc and h264_v4l2m2m do not)';
  } finally {
    await file.close();
  }
}

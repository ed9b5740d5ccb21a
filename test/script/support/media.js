// Looks at recorded files with the ffmpeg and ffprobe commands.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';

import { toolEnvironment } from './environment.js';

const largestOutput = 1 << 30;

function runTool(command, args) {
  const result = spawnSync(command, args, { env: toolEnvironment, maxBuffer: largestOutput });
  if (result.error) {
    throw result.error;
  }
  return result;
}

/** What ffprobe says: { stream, format, packets }; numbers of seconds as numbers. */
export function probe(file) {
  const args = ['-v', 'error', '-count_frames', '-show_streams', '-show_format', '-show_packets', '-of', 'json', file];
  const { stdout, stderr } = runTool('ffprobe', args);
  const { streams, format, packets = [] } = JSON.parse(stdout);
  return {
    complaints: stderr.toString(),
    streams: streams.length,
    stream: streams[0],
    duration: Number(format.duration),
    packets: packets.map(({ pts_time, duration_time }) => ({ pts: Number(pts_time), duration: Number(duration_time) })),
  };
}

/**
 * What ffmpeg has to complain about when it decodes the whole file: nothing, if all is well. The
 * times stay as fine as they are in the file: ffmpeg would round them to the frame rate, and then
 * complain about frames that came at one time.
 */
export function decodingComplaints(file) {
  const args = ['-nostdin', '-v', 'error', '-i', file, '-enc_time_base', '-1', '-f', 'null', '-'];
  const { status, stderr } = runTool('ffmpeg', args);
  return stderr.toString() + (status === 0 ? '' : `exit code ${status}`);
}

function decode(file, pixels) {
  const args = ['-nostdin', '-v', 'error', '-i', file, '-vsync', '0', '-f', 'rawvideo', '-pix_fmt', pixels, '-'];
  return runTool('ffmpeg', args).stdout;
}

/** The brightness planes of all pictures, one after the other. */
export const decodeGrey = (file) => decode(file, 'gray');

/** All pictures as they are in the file, one after the other, each its planes Y, U and V. */
export const decodeYuv = (file) => decode(file, 'yuv420p');

/** The types of the boxes that an MP4 file consists of, in order. */
export function topBoxes(file) {
  const data = fs.readFileSync(file);
  const boxes = [];
  for (let position = 0; position + 8 <= data.length;) {
    boxes.push(data.toString('latin1', position + 4, position + 8));
    const size = data.readUInt32BE(position);
    position += size === 1 ? Number(data.readBigUInt64BE(position + 8)) : size || data.length;
  }
  return boxes;
}

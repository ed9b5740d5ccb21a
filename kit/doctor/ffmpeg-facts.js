// What recording wants of FFmpeg, and what of it lies on this machine.

import fs from 'node:fs';
import path from 'node:path';

/** In the order of loading. */
export const wantedLibraries = ['libavutil.so.56', 'libavcodec.so.58', 'libavformat.so.58'];

/** In the order in which a recording tries them, hardware first. */
export const encoderNames = ['h264_vaapi', 'h264_qsv', 'h264_nvenc', 'h264_v4l2m2m', 'libx264', 'h264'];

const systemDirectories = ['/usr/lib/x86_64-linux-gnu', '/lib/x86_64-linux-gnu', '/usr/lib64', '/lib64', '/usr/lib', '/usr/local/lib'];

function entries(directory) {
  try {
    return fs.readdirSync(directory);
  } catch {
    return [];
  }
}

/** The directories in which the native object looks, in its order; the last is the system's own search, as ''. */
export function searchedPlaces(addonFile) {
  const named = process.env.OSTREL_FFMPEG_LIBRARY_DIR;
  if (named) {
    return [named];
  }
  return [...(addonFile ? [path.join(path.dirname(addonFile), '../../natives/x64')] : []), ''];
}

/** The generations of libavcodec in a directory of the system: [58, 59]. */
export function generationsFound(directories = systemDirectories) {
  const numbers = directories.flatMap(entries).map((name) => /^libavcodec\.so\.(\d+)/.exec(name)?.[1]).filter(Boolean);
  return [...new Set(numbers.map(Number))].sort((a, b) => a - b);
}

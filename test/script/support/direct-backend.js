// The script tests' side of the direct backend, the camera library with frame callbacks that is
// part of the test build of the addon.

import { loadAddon, testingAddonPath } from './environment.js';
import { openFake } from './fake-library.js';

/** The codes of the pixel formats. */
export const pixelFormats = { rgb: 0, bgra: 1, nv12: 2, yuy2: 3, mjpeg: 4, rgba: 5, i420: 6, uyvy: 7 };

/** The codes of the JPEG subsamplings. */
export const subsamplings = { '4:4:4': 0, '4:2:2': 1, '4:2:0': 2, grey: 3, '4:4:0': 4, '4:1:1': 5 };

/** The two kinds, and what their entries' names begin with. */
export const kinds = { directshow: 'cdshow_', avfoundation: 'avf_' };

const frameNumbers = {
  width: 'frame_width',
  height: 'frame_height',
  bytesPerRow: 'frame_bytes_per_row',
  dataSize: 'frame_data_size',
  pixelFormat: 'frame_pixel_format',
  planeCount: 'frame_plane_count',
};

/**
 * The commands that make the backend describe its frames so: numbers by the keys above, and
 * `planes`, a list of [offset, stride]; without it, plane 0 has the rows of the frame.
 */
function frameScript(prefix, { planes, ...numbers }) {
  const told = planes ?? [[0, numbers.bytesPerRow ?? 0]];
  return [
    ...Object.entries(numbers).map(([key, number]) => `default ${prefix}${frameNumbers[key]} ${number}`),
    ...told.flatMap(([offset, stride], plane) => [
      `default ${prefix}frame_plane_offset@0,${plane} ${offset}`, `default ${prefix}frame_plane_stride@0,${plane} ${stride}`]),
  ].join('\n');
}

/** Three arrays to lend, each at an offset of its own in memory that is longer at both ends. */
export const lendArrays = (size, fill = 0) => [8, 13, 64].map((offset) => new Uint8Array(size + 100).fill(fill).subarray(offset, offset + size));

/** A frame of a size and format whose rows are `pad` bytes longer than their pixels. */
export function frameOf(format, width, height, pad = 0) {
  const row = { bgra: 4, yuy2: 2, uyvy: 2, nv12: 1 }[format] * width + pad;
  const planes = format === 'nv12' ? [[0, row], [row * height, row]] : [[0, row]];
  const dataSize = format === 'nv12' ? row * height + row * (height >> 1) : row * height;
  return { width, height, bytesPerRow: row, dataSize, pixelFormat: pixelFormats[format], planeCount: planes.length, planes };
}

/** The test build of the addon and the backend in it. */
export function openDirectBackend() {
  const addon = loadAddon(testingAddonPath);
  const fake = openFake(testingAddonPath);
  return {
    addon,
    ...addon.testing,
    ...fake,
    /**
     * Forgets what was scripted and becomes a backend of `kind`: without the entries named in
     * `without` (without their prefix), with device 0 delivering frames like `frame`.
     */
    become(kind, { without = [], frame = {}, script = '' } = {}) {
      const prefix = kinds[kind];
      fake.send('reset');
      addon.testing.setGrabBytes(null);
      addon.testing.useBackend(kind, without.map((entry) => prefix + entry));
      if (prefix) {
        fake.send(`${frameScript(prefix, frame)}\n${script.replaceAll('~', prefix)}`);
      }
    },
    /** The calls since then, such as "frame_width(0)": without their prefix. */
    callList: () => fake.calls().map(({ symbol, args }) => `${symbol.replace(/^(cdshow|avf)_/, '')}(${args})`),
  };
}

/** What a backend of `kind` hands over for a frame of `frame`, as frameOf makes it. */
export function firedFrame(kind, { width, height, pixelFormat: format, planes }, data, more = {}) {
  if (kind === 'directshow') {
    return { data, ...more };
  }
  const [[, stride], [split, stride1] = [data.length]] = planes;
  const second = planes.length === 2 ? { data1: data.subarray(split), stride1 } : {};
  return { width, height, format, planeCount: planes.length, data: data.subarray(0, split), stride, ...second, ...more };
}

/**
 * Starts a direct preview of device 0, and a hammer that fires its frames: of numbers, or real JPEGs
 * of flat greys for "mjpeg". Gives { size, jpegs }.
 */
export function hammerPreview({ addon, become, encodeJpeg, startHammer }, kind, format, options = {}) {
  const { width = 64, height = 48, framesPerSecond = 0 } = options;
  const isJpeg = format === 'mjpeg';
  const jpegs = !isJpeg ? [] : Array.from({ length: 16 }, (_, index) =>
    encodeJpeg(Buffer.alloc(width * height * 3, 15 * index), width, height, subsamplings['4:2:0']));
  const size = isJpeg ? (width * height * 3) / 2 : frameOf(format, width, height).dataSize;
  const frame = isJpeg ? { width, height, pixelFormat: pixelFormats.mjpeg, planes: [[0, 0]] } : frameOf(format, width, height);
  become(kind, { frame });
  addon.loadTurboJpeg('libturbojpeg.so.0');
  if (addon.cameraPreviewStart(0, width, height, 30, lendArrays(size)) !== 0) {
    throw new Error(`no direct preview of ${format} by ${kind}`);
  }
  startHammer(firedFrame(kind, frame, new Uint8Array(size)), { framesPerSecond, contents: jpegs });
  return { size, jpegs };
}

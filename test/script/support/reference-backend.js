// The reference backends of the virtual microscope, and what their frames must hold.

import assert from 'node:assert/strict';

import { directAddonPath, loadAddon, referenceBackendPath } from './environment.js';
import { until } from './waiting.js';

const device = 0;
const sizesPerLayout = 6;

/** The layouts that each kind offers, in its order, by the format's name. */
export const offeredLayouts = {
  directshow: { NV12: 'nv12', YUY2: 'yuy2', RGB32: 'bgra', MJPG: 'mjpeg' },
  avfoundation: { '420v': 'nv12', '2vuy': 'uyvy', yuvs: 'yuy2', BGRA: 'bgra', jpeg: 'mjpeg' },
};

/** The addon with the reference backend of a kind; a process can do it once. Captures are 640 x 480. */
export function openReference(kind) {
  const addon = loadAddon(directAddonPath);
  assert.equal(addon.loadCameraBackend(referenceBackendPath(kind)), true, addon.getLastError());
  assert.equal(addon.cameraInitialize(), 0);
  assert.equal(addon.loadTurboJpeg('libturbojpeg.so.0'), true);
  return {
    addon,
    /** Starts capture in a layout, and waits for its first frame. */
    async capture(wanted) {
      const format = Object.values(offeredLayouts[kind]).indexOf(wanted) * sizesPerLayout;
      assert.equal(addon.cameraStartCapture(device, 0, 0, format, wanted === 'mjpeg'), 0);
      await until('a camera that delivers', () => addon.cameraHasFirstFrame(device) === 0);
    },
    /** Starts a direct preview into three new arrays, which it gives. */
    lend() {
      const { dataSize } = addon.cameraFrameInfo(device);
      const arrays = [0, 8, 5].map((offset) => new Uint8Array(dataSize + offset).fill(7).subarray(offset));
      assert.equal(addon.cameraPreviewStart(device, 640, 480, 30, arrays), 0);
      assert.equal(addon.cameraPreviewIsDirect(), true);
      return arrays;
    },
    /** The next frame after `sequence`, still held. */
    next: (sequence = 0) => until(`a frame after ${sequence}`, () => {
      const frame = addon.cameraPreviewGetLatest(device, sequence);
      return frame.result === 0 && frame;
    }),
    release: ({ directSlot, sequence }) =>
      assert.equal(addon.cameraPreviewReleaseDirectSlot(device, directSlot, sequence), 0),
  };
}

const weigh = ([red, green, blue], [r, g, b], black) => ((red * r + green * g + blue * b + 128) >> 8) + black;

/** Y, U and V of a colour by BT.601, which frames of less than high definition are in. */
const toYuv = (rgb) => [weigh([66, 129, 25], rgb, 16), weigh([-38, -74, 112], rgb, 128), weigh([112, -94, -18], rgb, 128)];

const bytesPerPixel = { bgra: 4, yuy2: 2, uyvy: 2, nv12: 1 };

/**
 * The planes of a frame in `layout` that shows the picture `rgb` (tight rows), without padding: what a
 * backend has to deliver, computed here anew.
 */
export function expectedPlanes(layout, rgb, width, height) {
  const colour = (x, y) => rgb.subarray((y * width + x) * 3, (y * width + x) * 3 + 3);
  const mean = (...pixels) => [0, 1, 2].map((index) =>
    Math.trunc(pixels.reduce((sum, pixel) => sum + pixel[index], 0) / pixels.length));
  const first = Buffer.alloc(bytesPerPixel[layout] * width * height);
  const chroma = Buffer.alloc(layout === 'nv12' ? (width * height) / 2 : 0);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      const place = y * width + x;
      const pixel = colour(x, y);
      if (layout === 'bgra') {
        first.set([pixel[2], pixel[1], pixel[0], 255], 4 * place);
      } else if (layout === 'nv12') {
        first[place] = toYuv(pixel)[0];
        if (x % 2 === 0 && y % 2 === 0) {
          const [, u, v] = toYuv(mean(pixel, colour(x + 1, y), colour(x, y + 1), colour(x + 1, y + 1)));
          chroma.set([u, v], (y / 2) * width + x);
        }
      } else {
        const [luma, other] = layout === 'yuy2' ? [0, 1] : [1, 0];
        first[2 * place + luma] = toYuv(pixel)[0];
        if (x % 2 === 0) {
          const [, u, v] = toYuv(mean(pixel, colour(x + 1, y)));
          first[2 * place + other] = u;
          first[2 * place + other + 2] = v;
        }
      }
    }
  }
  return layout === 'nv12' ? [first, chroma] : [first];
}

/** The pixels of each plane of a frame, without the padding of its rows. */
export function tightPlanes({ pixelFormat, width, height, planeOffsets, planeStrides, data }) {
  return planeOffsets.map((offset, plane) => {
    const [rowBytes, rows] = plane === 0 ? [bytesPerPixel[pixelFormat] * width, height] : [width, height / 2];
    return Buffer.concat(Array.from({ length: rows }, (_, y) => {
      const start = offset + y * planeStrides[plane];
      return data.subarray(start, start + rowBytes);
    }));
  });
}

/** The brightness of a frame of any layout, as tight rows of one byte a pixel; of BGRA, its green. */
export function brightness({ pixelFormat, width, height, planeOffsets: [offset], planeStrides: [stride], data }) {
  const [step, first] = { bgra: [4, 1], yuy2: [2, 0], uyvy: [2, 1], nv12: [1, 0], i420: [1, 0] }[pixelFormat];
  const out = new Uint8Array(width * height);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      out[y * width + x] = data[offset + y * stride + x * step + first];
    }
  }
  return out;
}

/** The brightness of a picture (RGB, tight rows) as JPEG has it: from 0 to 255. */
export const jpegLuma = (rgb) => Uint8Array.from({ length: rgb.length / 3 }, (_, index) =>
  Math.round(0.299 * rgb[3 * index] + 0.587 * rgb[3 * index + 1] + 0.114 * rgb[3 * index + 2]));

/** How far two pictures of as many bytes are apart, on average. */
export const meanDifference = (a, b) => a.reduce((sum, byte, index) => sum + Math.abs(byte - b[index]), 0) / a.length;

// Stills: the layout of the current frame, and single grabs.

/** A Node.js Buffer, or a plain Uint8Array where the types of Node.js are not installed. */
export type Bytes = typeof globalThis extends { Buffer: { alloc(size: number): infer B } } ? B : Uint8Array;

/** The layout of pixels. Packed formats are named by byte order; the others are planar or subsampled. */
export type PixelFormat = 'rgb' | 'bgra' | 'rgba' | 'nv12' | 'yuy2' | 'uyvy' | 'i420' | 'mjpeg';

/** The layout of the camera's current frame. */
export interface FrameInfo {
  /** Pixels; -1 if unknown. */
  width: number;
  /** Pixels; -1 if unknown. */
  height: number;
  /** Bytes from one row to the next, padding included; -1 if unknown. */
  bytesPerRow: number;
  /** Bytes of the whole frame; -1 if unknown. */
  dataSize: number;
  /** "rgb" on Linux. */
  pixelFormat: PixelFormat;
  /** Byte offset of each plane: `[0]` on Linux. */
  planeOffsets: number[];
  /** Bytes a row of each plane: `[bytesPerRow]` on Linux. */
  planeStrides: number[];
}

/** A frame of `cameraGrabFrame`, or its failure. */
export interface GrabbedFrame {
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Bytes from one row to the next: rows have no padding. */
  bytesPerRow: number;
  /** "rgb" on Linux. */
  pixelFormat: 'rgb' | 'bgra';
  /** 0 on success; -6 if the library cannot grab; any other number is the camera library's result code. */
  result: number;
  /** `height * bytesPerRow` bytes, a copy; a picture only if `result` is 0. */
  data: Bytes;
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
}

/** The result of `cameraGrabFrame` if no grab was possible. */
export interface UngrabbedFrame {
  /** Pixels; -1 if unknown. */
  width: number;
  /** Pixels; -1 if unknown. */
  height: number;
  /** Bytes; -1 if unknown. */
  bytesPerRow: number;
  pixelFormat: 'rgb' | 'bgra';
  /** -10: the frame's size is unknown or not positive; -11: the frame is larger than 2 GiB. */
  result: -10 | -11;
  data: null;
  timestampMs?: undefined;
}

interface RgbaSource {
  /** Pixels of the camera's frame; -1 if unknown. */
  sourceWidth: number;
  /** Pixels of the camera's frame; -1 if unknown. */
  sourceHeight: number;
  /** Bytes a row of the camera's frame; -1 if unknown. */
  sourceBytesPerRow: number;
}

/** A frame of `cameraGrabFrameRgba`. */
export interface RgbaFrame extends RgbaSource {
  result: 0;
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Bytes from one row to the next: 4 times the width. */
  bytesPerRow: number;
  /** Red, green, blue, 255 for each pixel; a copy. */
  data: Bytes;
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
}

/** The result of `cameraGrabFrameRgba` on failure. */
export interface NoRgbaFrame extends RgbaSource {
  /**
   * -6: no library; -10: size unknown; -11: larger than 2 GiB; any other number is the camera library's result code.
   * Never 0.
   */
  result: number;
  data: null;
  width?: undefined;
  height?: undefined;
  bytesPerRow?: undefined;
  timestampMs?: undefined;
}

/** A JPEG picture as encoded by the camera. */
export interface EncodedFrame {
  result: 0;
  /** Counts the JPEG frames of the preview. */
  sequence: number;
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  mimeType: 'image/jpeg';
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
  /** The bytes of a JPEG file. */
  data: Bytes;
}

/** No JPEG picture; always on Linux. */
export interface NoEncodedFrame {
  result: -256;
  data: null;
}

/** Single grabs. For stills during a preview, `cameraPreviewGetLatestQualityFrame` needs no extra grab. */
export interface StillFunctions {
  /**
   * The layout of the camera's current frame. Call it after `cameraHasFirstFrame` has returned `RESULT_YES`.
   *
   * @returns sizes of -1 without a library.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraFrameInfo(deviceIndex: number): FrameInfo;

  /**
   * Grabs one frame at the camera's full size. The buffer's rows have no padding; a camera library with padded
   * rows may refuse it. `cameraGrabFrameRgba` works with such a library too.
   *
   * @returns check `result` before you use `data`: after a failed grab the buffer holds no picture.
   *
   * - Blocks: as long as the camera library takes, which may wait for its next frame.
   * - Thread: any environment; a running preview continues.
   * - Error text: not touched.
   */
  cameraGrabFrame(deviceIndex: number): GrabbedFrame | UngrabbedFrame;

  /**
   * Grabs one frame, scaled down by a whole number until it fits into `maxWidth` by `maxHeight`, ready to paint. A
   * frame that fits keeps its size. Scaling keeps the top left pixel of each block.
   *
   * @param maxWidth pixels, 960 by default; 0 and below count as 1.
   * @param maxHeight pixels, 540 by default; 0 and below count as 1.
   * @returns `data` is null unless `result` is 0; the type narrows on `data`.
   *
   * - Blocks: as long as the camera library takes, which may wait for its next frame, plus milliseconds for the
   *   scaling.
   * - Thread: any environment; a running preview continues.
   * - Error text: not touched.
   */
  cameraGrabFrameRgba(deviceIndex: number, maxWidth?: number, maxHeight?: number): RgbaFrame | NoRgbaFrame;

  /**
   * The newest JPEG frame of a direct preview of an MJPEG camera, as the camera encoded it. Direct previews do not
   * exist on Linux: there the result is always `{ result: -256, data: null }`.
   *
   * - Blocks: for the copy.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraGrabEncodedFrame(deviceIndex: number): EncodedFrame | NoEncodedFrame;
}

// Only declarations marked `export` are exported.
export {};

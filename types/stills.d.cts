// Stills: what the current frame is like, and frames fetched one by one.

/** A Node.js Buffer, or a plain Uint8Array where the types of Node.js are not installed. */
export type Bytes = typeof globalThis extends { Buffer: { alloc(size: number): infer B } } ? B : Uint8Array;

/** The layout of pixels. Order of bytes for packed ones; the others have planes or share colours between pixels. */
export type PixelFormat = 'rgb' | 'bgra' | 'rgba' | 'nv12' | 'yuy2' | 'uyvy' | 'i420' | 'mjpeg';

/** What the camera's current frame is like. */
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

/** A frame of `cameraGrabFrame`, or its failed try. */
export interface GrabbedFrame {
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Bytes from one row to the next: rows are tight. */
  bytesPerRow: number;
  /** "rgb" on Linux. */
  pixelFormat: 'rgb' | 'bgra';
  /** 0 on success; -6 if the library cannot grab; any other number is the camera library's. */
  result: number;
  /** `height * bytesPerRow` bytes, the caller's own; a picture only if `result` is 0. */
  data: Bytes;
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
}

/** What `cameraGrabFrame` gives where it could not even try. */
export interface UngrabbedFrame {
  /** Pixels; -1 if unknown. */
  width: number;
  /** Pixels; -1 if unknown. */
  height: number;
  /** Bytes; -1 if unknown. */
  bytesPerRow: number;
  pixelFormat: 'rgb' | 'bgra';
  /** -10: the frame's size is unknown or not positive; -11: the frame is beyond 2 GiB. */
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
  /** Red, green, blue, 255 for each pixel; the caller's own. */
  data: Bytes;
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
}

/** What `cameraGrabFrameRgba` gives on failure. */
export interface NoRgbaFrame extends RgbaSource {
  /** -6: no library; -10: size unknown; -11: beyond 2 GiB; any other number is the camera library's. Never 0. */
  result: number;
  data: null;
  width?: undefined;
  height?: undefined;
  bytesPerRow?: undefined;
  timestampMs?: undefined;
}

/** A JPEG picture as the camera has encoded it. */
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

/** No JPEG picture: always so on Linux. */
export interface NoEncodedFrame {
  result: -256;
  data: null;
}

/** Frames fetched one by one. For stills during a preview, `cameraPreviewGetLatestQualityFrame` costs nothing extra. */
export interface StillFunctions {
  /**
   * What the camera's current frame is like. Ask when `cameraHasFirstFrame` has said yes.
   *
   * @returns sizes of -1 without a library.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraFrameInfo(deviceIndex: number): FrameInfo;

  /**
   * Grabs one frame at the camera's full size. The buffer's rows are tight; a camera library whose own rows are
   * longer may refuse it, and `cameraGrabFrameRgba` grabs from such a library too.
   *
   * @returns test `result` before `data` is used: after a failed grab it is a buffer without a picture.
   *
   * - Blocks: as long as the camera library takes, which may wait for its next frame.
   * - Thread: any environment; a preview goes on meanwhile.
   * - Error text: not touched.
   */
  cameraGrabFrame(deviceIndex: number): GrabbedFrame | UngrabbedFrame;

  /**
   * Grabs one frame, reduced by a whole number until it fits into `maxWidth` by `maxHeight`, ready to paint. A frame
   * that fits is not changed in size. Each pixel is the top left one of those that it stands for.
   *
   * @param maxWidth pixels, 960 by default; 0 and below count as 1.
   * @param maxHeight pixels, 540 by default; 0 and below count as 1.
   * @returns `data` is null unless `result` is 0; test `data`, and the type follows.
   *
   * - Blocks: as long as the camera library takes, which may wait for its next frame, and milliseconds to reduce.
   * - Thread: any environment; a preview goes on meanwhile.
   * - Error text: not touched.
   */
  cameraGrabFrameRgba(deviceIndex: number, maxWidth?: number, maxHeight?: number): RgbaFrame | NoRgbaFrame;

  /**
   * The newest JPEG frame of a direct preview of an MJPEG camera, as the camera encoded it. Direct previews do not
   * exist on Linux: there it is always `{ result: -256, data: null }`.
   *
   * - Blocks: for the copy.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraGrabEncodedFrame(deviceIndex: number): EncodedFrame | NoEncodedFrame;
}

// Only what says so is exported.
export {};

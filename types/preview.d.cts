// The live preview: a worker keeps the newest frame ready to paint; script code polls for it.

import type { Bytes, PixelFormat } from './stills.cjs';

interface PreviewCounters {
  /**
   * Worker cycles without a frame since the start, not counting the wait for the first frame. Kept until the next
   * start.
   */
  droppedFrames: number;
  /** The worker's last outcome: 0 a frame, -256 waiting for the first, -5 stopped, otherwise why there was no frame. */
  lastResult: number;
  /** The worker's frame rate, measured over one second, rounded to a tenth; 0 during the first second. */
  producerFps: number;
  /** Frames made since the start. */
  producedFrames: number;
}

interface PreviewPicture {
  result: 0;
  /** The frame's number: 1 for the first of a preview. Pass it to the next poll as `lastSequence`. */
  sequence: number;
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Bytes from one row to the next. */
  bytesPerRow: number;
  /** "rgba" on Linux. */
  pixelFormat: PixelFormat;
  /** Byte offset of each plane: `[0]` on Linux. */
  planeOffsets: number[];
  /** Bytes a row of each plane: `[bytesPerRow]` on Linux. */
  planeStrides: number[];
  /** Size of the camera's frame in pixels. */
  sourceWidth: number;
  /** Size of the camera's frame in pixels. */
  sourceHeight: number;
  /** Bytes a row of the camera's frame. */
  sourceBytesPerRow: number;
  /** Wall clock when it was made, milliseconds since the epoch. */
  timestampMs: number;
  deliveryMode: 'copy';
}

/** A preview frame. */
export interface PreviewFrame extends PreviewPicture, PreviewCounters {
  producerMode: 'polling';
  /** `height * bytesPerRow` bytes: a view of the target array if it had room, otherwise a new Buffer. */
  data: Uint8Array;
}

/** A frame of a direct preview, which does not exist on Linux. */
export interface DirectPreviewFrame extends PreviewPicture, PreviewCounters {
  producerMode: 'callback';
  /** Bytes of the frame. */
  dataLength: number;
  /** Which of the three arrays holds it, for `cameraPreviewReleaseDirectSlot`. */
  directSlot: 0 | 1 | 2;
  /** A view of that array; valid until the slot is released. */
  data: Uint8Array;
}

/** No preview frame this time. */
export interface NoPreviewFrame extends PreviewCounters {
  /**
   * -256: no newer frame, or another environment is starting, stopping or polling the preview; -1: no preview
   * of this device is running; -11: the frame does not fit its buffer.
   */
  result: -256 | -1 | -11;
  data: null;
  /** The newest frame's number; 0 if there is none. */
  sequence: number;
}

/** A full-size picture. */
export interface QualityFrame {
  result: 0;
  /** The picture's number: 1 for the first of a preview. Counted separately from the preview's frames. */
  sequence: number;
  /** Pixels: the camera's own size. */
  width: number;
  /** Pixels: the camera's own size. */
  height: number;
  /** Bytes from one row to the next: rows have no padding. */
  bytesPerRow: number;
  /** "rgb" on Linux. */
  pixelFormat: 'rgb' | 'bgra';
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
  /** `height * bytesPerRow` bytes, a copy. */
  data: Bytes;
}

/** No newer full-size picture. */
export interface NoQualityFrame {
  result: -256;
  /** The newest picture's number; 0 if there is none. */
  sequence: number;
  data: null;
}

/** The live preview. A process has one, for one camera at a time. */
export interface PreviewFunctions {
  /**
   * Starts the preview of a camera, and first ends a running one. It does not start the capture: without
   * `cameraStartCapture` the worker waits for the first frame indefinitely.
   *
   * The worker grabs frames at a fixed rate and scales each down by a whole number until it fits into `width` by
   * `height`; it never enlarges, so the real size, which each frame reports, may be smaller.
   *
   * @param width pixels, 960 by default; 0 and below count as 1.
   * @param height pixels, 540 by default; 0 and below count as 1.
   * @param frameRate frames a second, 30 by default, clamped to 1 to 120.
   * @param directBuffers three arrays of frame size request direct delivery into them. No camera library of Linux
   *   supports this: the call returns -13, and a running preview continues.
   * @returns 0; -1 for a negative device; -13 for arrays on Linux. Where direct delivery exists also -7 for an array
   *   that is not a Uint8Array, and -11 for an array that is too short or a frame that cannot be delivered directly.
   * @throws Error "Not enough memory for a preview of <width> by <height> pixels" if three frames cannot be allocated,
   *   "Could not start the preview's thread: <reason>". The earlier preview has ended then, and polls of this device
   *   return -256.
   *
   * - Blocks: until the worker of an earlier preview has ended, at most one call of the camera library; and for a start
   *   or a stop in progress in another environment.
   * - Thread: any environment; the frames are made on the preview's own worker.
   * - Error text: not touched.
   */
  cameraPreviewStart(
    deviceIndex: number, width?: number, height?: number, frameRate?: number, directBuffers?: Uint8Array[],
  ): number;

  /**
   * Ends the preview of this device; a negative or missing index ends any preview. A preview of another device
   * continues. A recording stays open but gets no more frames.
   *
   * @returns always 0.
   *
   * - Blocks: until the worker has ended, at most one call of the camera library; and for a start or a stop in progress
   *   in another environment.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewStop(deviceIndex?: number): 0;

  /**
   * Whether a preview is running, even if it still waits for its first frame.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewIsRunning(): boolean;

  /**
   * Whether the preview delivers directly into arrays of the caller. Always false on Linux.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewIsDirect(): boolean;

  /**
   * Releases an array of a direct preview, so that it can hold another frame.
   *
   * @param slot `directSlot` of the frame.
   * @param sequence `sequence` of the frame.
   * @returns 0; -7 if that array holds another frame or is already released; -1 if there is no direct preview of this
   *   device or no such slot, which is always so on Linux.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewReleaseDirectSlot(deviceIndex: number, slot: number, sequence: number): 0 | -1 | -7;

  /**
   * Releases all arrays of the direct preview of this device, or of any device if the index is negative. Without a
   * direct preview, as always on Linux, it does nothing.
   *
   * @returns always 0.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewReleaseAllDirectSlots(deviceIndex?: number): 0;

  /**
   * The newest preview frame, if there is one after `lastSequence`.
   *
   * Poll it from a timer or an animation frame, always with the same target array: then only the result object is
   * allocated. The type narrows on `result`.
   *
   * @param lastSequence `sequence` of the frame that the caller has; 0 for none.
   * @param target the frame is copied here if it fits: a Uint8Array over a plain ArrayBuffer. Any other value,
   *   a Uint8ClampedArray or shared memory among them, is ignored, and the frame comes in a new Buffer.
   * @throws Error "The buffer of slot N was detached or resized while it was lent", only with direct delivery.
   *
   * - Blocks: for the copy of one frame, well below a millisecond at 960 by 540. It never waits for the
   *   camera or another environment.
   * - Thread: any environment.
   * - Error text: not touched; `lastResult` says why there is no frame.
   */
  cameraPreviewGetLatest(
    deviceIndex: number, lastSequence?: number, target?: Uint8Array,
  ): PreviewFrame | DirectPreviewFrame | NoPreviewFrame;

  /**
   * The newest picture at the camera's full size, if there is one after `lastSequence`. While a preview runs, the
   * worker takes one with its first frame and then at most two a second. Use it for stills.
   *
   * @param lastSequence `sequence` of the picture that the caller has; 0 for none. It counts pictures, not frames.
   *
   * - Blocks: for the copy of one picture, some milliseconds; it may wait until the worker has stored the next one.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewGetLatestQualityFrame(deviceIndex: number, lastSequence?: number): QualityFrame | NoQualityFrame;
}

// Only declarations marked `export` are exported.
export {};

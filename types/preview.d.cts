// The live preview: a worker keeps the newest frame ready to paint; script code polls for it.

import type { Bytes, PixelFormat } from './stills.cjs';

interface PreviewCounters {
  /**
   * Rounds of the worker since the start that gave no frame, waiting for the first one aside. It outlives the stop of
   * the preview.
   */
  droppedFrames: number;
  /** The worker's last outcome: 0 a frame, -256 waiting for the first, -5 stopped, otherwise why there was none. */
  lastResult: number;
  /** Frames a second that the worker makes, measured over a second, to a tenth; 0 during the first. */
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
  /** Pixels of the camera's frame that it was made of. */
  sourceWidth: number;
  /** Pixels of the camera's frame that it was made of. */
  sourceHeight: number;
  /** Bytes a row of the camera's frame that it was made of. */
  sourceBytesPerRow: number;
  /** Wall clock when it was made, milliseconds since the epoch. */
  timestampMs: number;
  deliveryMode: 'copy';
}

/** A preview frame. */
export interface PreviewFrame extends PreviewPicture, PreviewCounters {
  producerMode: 'polling';
  /** `height * bytesPerRow` bytes: a view of the target array if it had room, otherwise a Buffer of its own. */
  data: Uint8Array;
}

/** A frame of a direct preview, which does not exist on Linux. */
export interface DirectPreviewFrame extends PreviewPicture, PreviewCounters {
  producerMode: 'callback';
  /** Bytes of the frame. */
  dataLength: number;
  /** Which of the three arrays holds it, for `cameraPreviewReleaseDirectSlot`. */
  directSlot: 0 | 1 | 2;
  /** A view of that array; it stays as it is until the slot is released. */
  data: Uint8Array;
}

/** No preview frame this time. */
export interface NoPreviewFrame extends PreviewCounters {
  /**
   * -256: nothing newer yet, or another environment starts, stops or polls the preview at this moment; -1: the preview
   * is not that of this device, or there is none; -11: the frame does not fit its buffer.
   */
  result: -256 | -1 | -11;
  data: null;
  /** The newest frame's number; 0 if there is none. */
  sequence: number;
}

/** A full-size picture. */
export interface QualityFrame {
  result: 0;
  /** The picture's number: 1 for the first of a preview. It counts by itself, not with the preview's frames. */
  sequence: number;
  /** Pixels: the camera's own size. */
  width: number;
  /** Pixels: the camera's own size. */
  height: number;
  /** Bytes from one row to the next: rows are tight. */
  bytesPerRow: number;
  /** "rgb" on Linux. */
  pixelFormat: 'rgb' | 'bgra';
  /** Wall clock, milliseconds since the epoch. */
  timestampMs: number;
  /** `height * bytesPerRow` bytes, the caller's own. */
  data: Bytes;
}

/** No newer full-size picture. */
export interface NoQualityFrame {
  result: -256;
  /** The newest picture's number; 0 if there is none. */
  sequence: number;
  data: null;
}

/** The live preview. There is one in the process, of one camera at a time. */
export interface PreviewFunctions {
  /**
   * Starts the preview of a camera and ends the one that runs. It does not start the capture: without
   * `cameraStartCapture` the worker waits for a first frame for ever.
   *
   * The worker grabs frames at a fixed pace and reduces each by a whole number until it fits into `width` by
   * `height`; it never enlarges, so the real size may be smaller and shows in the frames.
   *
   * @param width pixels, 960 by default; 0 and below count as 1.
   * @param height pixels, 540 by default; 0 and below count as 1.
   * @param frameRate frames a second, 30 by default, from 1 to 120; numbers beyond count as these.
   * @param directBuffers three arrays of frame size ask for direct delivery into them. No camera library of Linux can
   *   do that: the answer is -13 there, and what runs goes on.
   * @returns 0; -1 for a negative device; -13 for arrays on Linux. Where direct delivery exists also -7 for an array
   *   that is no Uint8Array, -11 for one that is too short or a frame that cannot be delivered so.
   * @throws Error "Not enough memory for a preview of <width> by <height> pixels" if there is none for three frames,
   *   "Could not start the preview's thread: <reason>". What ran before has ended then, and polls of this device answer
   *   -256.
   *
   * - Blocks: until the worker of an earlier preview has ended, at most one call of the camera library; and for a start
   *   or a stop that another environment has begun.
   * - Thread: any environment; the frames are made on the preview's own worker.
   * - Error text: not touched.
   */
  cameraPreviewStart(
    deviceIndex: number, width?: number, height?: number, frameRate?: number, directBuffers?: Uint8Array[],
  ): number;

  /**
   * Ends the preview of this device; a negative or missing index ends any. That of another device runs on. A recording
   * stays open and gets no more frames.
   *
   * @returns always 0.
   *
   * - Blocks: until the worker has ended, at most one call of the camera library; and for a start or a stop that another
   *   environment has begun.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewStop(deviceIndex?: number): 0;

  /**
   * Whether a preview runs, be it that it still waits for a first frame.
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
   * Gives an array of a direct preview back, so that it can take another frame.
   *
   * @param slot `directSlot` of the frame.
   * @param sequence `sequence` of the frame.
   * @returns 0; -7 if that array holds another frame or is back already; -1 if there is no direct preview of this
   *   device or no such slot, which is always so on Linux.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewReleaseDirectSlot(deviceIndex: number, slot: number, sequence: number): 0 | -1 | -7;

  /**
   * Gives all arrays of a direct preview back, of this device, or of any with a negative index. Without one, as
   * always on Linux, it does nothing.
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
   * Poll it from a timer or an animation frame, always with the same target array: then nothing is allocated but the
   * answer. Test `result`, and the type of the rest follows.
   *
   * @param lastSequence `sequence` of the frame that the caller has; 0 for none.
   * @param target where the frame is copied to if it has room: a Uint8Array over a plain ArrayBuffer. Any other value,
   *   a Uint8ClampedArray or shared memory among them, is ignored, and the frame comes in a new Buffer.
   * @throws Error "The buffer of slot N was detached or resized while it was lent", only with direct delivery.
   *
   * - Blocks: for the copy of one frame, well below a millisecond at 960 by 540. It waits for nothing, neither for the
   *   camera nor for another environment.
   * - Thread: any environment.
   * - Error text: not touched; `lastResult` tells why there is no frame.
   */
  cameraPreviewGetLatest(
    deviceIndex: number, lastSequence?: number, target?: Uint8Array,
  ): PreviewFrame | DirectPreviewFrame | NoPreviewFrame;

  /**
   * The newest picture at the camera's full size, if there is one after `lastSequence`. While a preview runs, the worker
   * takes one with its first frame and then at most two a second: take it as the still.
   *
   * @param lastSequence `sequence` of the picture that the caller has; 0 for none. It counts pictures, not frames.
   *
   * - Blocks: for the copy of one picture, some milliseconds; it may wait while the worker stores the next one.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraPreviewGetLatestQualityFrame(deviceIndex: number, lastSequence?: number): QualityFrame | NoQualityFrame;
}

// Only what says so is exported.
export {};

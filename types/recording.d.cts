// Recording: the preview's frames as H.264 in an MP4 file.

/** A snapshot of the recorder. */
export interface RecordingStatus {
  /** Whether recording can be attempted: FFmpeg is here, of the right generation, with an encoder. */
  available: boolean;
  /** A recording starts, runs or is being finished. */
  recording: boolean;
  /** The file of this recording, or of the last one. */
  outputPath: string;
  /** Why this recording, or the last one, failed; empty if it did not. A start with a good configuration clears it. */
  error: string;
  /** Frames handed to the encoder. */
  framesWritten: number;
  /** Frames lost because six were waiting for the encoder already. Frames of a wrong size do not count. */
  framesDropped: number;
  /** Milliseconds from the first to the last frame that was written. */
  durationMs: number;
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Frames a second, as given. */
  frameRate: number;
  /** Bits a second, as given. */
  bitrate: number;
}

/**
 * Recording. There is one recorder in the process; it takes every frame that the preview makes. One environment at a
 * time starts and stops it: a start that another one ends before its encoder is open answers -3.
 */
export interface RecordingFunctions {
  /**
   * Whether recording can be attempted. It opens no encoder, so a start may fail all the same.
   *
   * - Blocks: the first time until FFmpeg is loaded, some milliseconds; then no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraRecordingAvailable(): boolean;

  /**
   * Starts a recording of the running preview, and first ends one that runs. An existing file is replaced.
   *
   * Width and height must be those of the preview's frames, which `cameraPreviewGetLatest` tells: frames of another
   * size are passed over without a word. Frame times are the real ones; `frameRate` is what the encoder is told,
   * and x264 spreads its bits by it: give the rate at which frames come.
   *
   * @param outputPath where the MP4 file is to be.
   * @param width pixels, 2 to 8192, even.
   * @param height pixels, 2 to 8192, even.
   * @param frameRate frames a second, 1 to 120.
   * @param bitrate bits a second, 100,000 to 100,000,000. One that is no number counts as 4,000,000.
   * @returns 0: it records; -5: no preview runs; -1: one of the numbers or the path is refused; -2: no encoder had
   *   opened after 10 seconds; -3: no encoder opens, or the file cannot be written; -13: FFmpeg is not here or of
   *   another generation.
   * @throws TypeError "Expected (outputPath, width, height, frameRate, bitrate)" with fewer than five arguments or a
   *   path that is no string.
   *
   * - Blocks: until an encoder is open and the file has its header: milliseconds for one in software, at most
   *   10 seconds, and longer only if an encoder does not come back from the attempt to open it.
   * - Thread: one environment at a time; the caller waits; encoding and file work run on the recorder's own worker.
   * - Error text: set by every failure; a success leaves it as it is.
   */
  cameraRecordingStart(
    outputPath: string, width: number, height: number, frameRate: number, bitrate: number,
  ): 0 | -1 | -2 | -3 | -5 | -13;

  /**
   * Ends the recording: writes what waits, finishes the file, puts its index in front. Without a recording it tells how
   * the last one ended.
   *
   * @returns 0, or -3 if the recording failed at any time; the file so far is kept then.
   *
   * - Blocks: until the file is finished, in proportion to its length: it is rewritten once.
   * - Thread: one environment at a time; the caller waits for the recorder's worker.
   * - Error text: set by a failure; a success leaves it as it is.
   */
  cameraRecordingStop(): 0 | -3;

  /**
   * What the recorder does and has done. A recording that fails ends by itself: `recording` is false then and `error`
   * says why.
   *
   * - Blocks: the first time until FFmpeg is loaded, some milliseconds; then no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraRecordingStatus(): RecordingStatus;
}

// Recording: the preview's frames as H.264 in an MP4 file.

/** A snapshot of the recorder. */
export interface RecordingStatus {
  /** Whether recording can be attempted: FFmpeg was found in the right version, with an encoder. */
  available: boolean;
  /** A recording is starting, running or being finished. */
  recording: boolean;
  /** The file of this recording, or of the last one. */
  outputPath: string;
  /** Why this recording, or the last one, failed; empty if it did not. A start with a valid configuration clears it. */
  error: string;
  /** Frames passed to the encoder. */
  framesWritten: number;
  /** Frames dropped because the queue of six frames was full. Frames of a wrong size are not counted. */
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
 * Recording. A process has one recorder; it takes every frame of the preview. Start and stop it from one environment
 * at a time: a start that another environment ends before its encoder is open returns -3.
 */
export interface RecordingFunctions {
  /**
   * Whether recording can be attempted. It opens no encoder, so a start may still fail.
   *
   * - Blocks: the first time until FFmpeg is loaded, some milliseconds; then no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraRecordingAvailable(): boolean;

  /**
   * Starts a recording of the running preview, and first ends a running recording. An existing file is replaced.
   *
   * Width and height must be those of the preview's frames, as reported by `cameraPreviewGetLatest`: frames of another
   * size are skipped silently. Timestamps are real; `frameRate` only configures the encoder,
   * and x264 allocates its bits by it, so pass the real frame rate.
   *
   * @param outputPath the path of the MP4 file.
   * @param width pixels, 2 to 8192, even.
   * @param height pixels, 2 to 8192, even.
   * @param frameRate frames a second, 1 to 120.
   * @param bitrate bits a second, 100,000 to 100,000,000. One that is not a number counts as 4,000,000.
   * @returns 0: recording; -5: no preview is running; -1: a number or the path is invalid; -2: no encoder
   *   opened within 10 seconds; -3: no encoder opens, or the file cannot be written; -13: FFmpeg was not found or has
   *   the wrong version.
   * @throws TypeError "Expected (outputPath, width, height, frameRate, bitrate)" with fewer than five arguments or a
   *   path that is not a string.
   *
   * - Blocks: until an encoder is open and the file has its header: milliseconds for a software encoder, at most
   *   10 seconds, and longer only if opening an encoder hangs.
   * - Thread: one environment at a time; the caller waits; encoding and file output run on the recorder's worker.
   * - Error text: set by every failure; a success leaves it as it is.
   */
  cameraRecordingStart(
    outputPath: string, width: number, height: number, frameRate: number, bitrate: number,
  ): 0 | -1 | -2 | -3 | -5 | -13;

  /**
   * Ends the recording: writes the queued frames, finishes the file and moves its index to the front. Without a
   * recording it returns the result of the last one.
   *
   * @returns 0, or -3 if the recording failed at any time; the partial file is kept.
   *
   * - Blocks: until the file is finished, in proportion to its length: it is rewritten once.
   * - Thread: one environment at a time; the caller waits for the recorder's worker.
   * - Error text: set by a failure; a success leaves it as it is.
   */
  cameraRecordingStop(): 0 | -3;

  /**
   * The state of the recorder. A recording that fails ends by itself: `recording` is false then and `error`
   * says why.
   *
   * - Blocks: the first time until FFmpeg is loaded, some milliseconds; then no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraRecordingStatus(): RecordingStatus;
}

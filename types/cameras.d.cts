// Cameras: the libraries, the devices with their formats, capture, image controls.

/** The camera library in use; on Linux "none" or "linux-v4l2". */
export type CameraBackend = 'none' | 'linux-v4l2' | 'directshow' | 'avfoundation';

/** One capture format. Its position in the array is the format index for `cameraStartCapture`. */
export interface CameraFormat {
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Frames a second, an integer. */
  frameRate: number;
  /** The camera library's own name of the format, such as "MJPEG"; empty if it has none. */
  type: string;
}

/** The range of an image control. All numbers but `result` are 0 unless `result` is 0. */
export interface ImageControlRange {
  /** 0; -9: there is no such control; any other number is the camera library's result code. */
  result: number;
  min: number;
  max: number;
  /** The smallest change. */
  step: number;
  default: number;
  /** The modes that the control supports: `VIDEOPROCAMP_FLAG_AUTO`, `VIDEOPROCAMP_FLAG_MANUAL`, or both as a sum. */
  caps: number;
}

/** The setting of an image control. `value` and `flags` are 0 unless `result` is 0. */
export interface ImageControlValue {
  /** 0; -9: there is no such control; any other number is the camera library's result code. */
  result: number;
  value: number;
  /** `VIDEOPROCAMP_FLAG_AUTO` or `VIDEOPROCAMP_FLAG_MANUAL`. */
  flags: number;
}

/** The outcome of setting an image control. */
export interface ImageControlResult {
  /** 0; -9: there is no such control; any other number is the camera library's result code. */
  result: number;
}

/**
 * Cameras and their libraries. A device index counts from 0; a missing or non-numeric index counts as -1.
 * Indices are passed to the camera library unchecked. All of them call the camera library on the thread that calls.
 */
export interface CameraFunctions {
  /**
   * Loads the camera library, once per process: after a success every further call returns true and ignores
   * its path. The library stays loaded.
   *
   * @param libraryPath the only file to try. If missing or empty, the system's loader
   *   searches for "libcnokhwa.so", then "cnokhwa".
   * @returns whether a library is loaded. Two more arguments, a string and a boolean, are accepted and ignored.
   *
   * - Blocks: while the library is read from disk and initialises itself.
   * - Thread: any environment.
   * - Error text: cleared by a load that succeeds; set by one that fails.
   */
  loadCameraBackend(libraryPath?: string): boolean;

  /**
   * Loads libjpeg-turbo, once per process, for camera libraries that deliver MJPEG frames undecoded. The V4L2 camera
   * library of Linux decodes them itself, so Linux does not need it. Once loaded, further calls return true and
   * ignore their path.
   *
   * @param libraryPath the file, or a name that the system's loader finds, such as "libturbojpeg.so.0".
   * @returns whether libjpeg-turbo is loaded and complete.
   *
   * - Blocks: while the library is read from disk.
   * - Thread: any environment.
   * - Error text: set by a load that fails; a success leaves it as it is.
   */
  loadTurboJpeg(libraryPath: string): boolean;

  /**
   * Whether `loadTurboJpeg` has succeeded.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  turboJpegAvailable(): boolean;

  /**
   * The path that `loadTurboJpeg` was given when it succeeded; empty before.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  turboJpegLoadPath(): string;

  /**
   * The path or name under which the camera library was loaded; empty before.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraLoadPath(): string;

  /**
   * The kind of camera library that is loaded: "none" before a load, then "linux-v4l2".
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraBackend(): CameraBackend;

  /**
   * Starts the camera library. Call it once after the load, before any device query.
   *
   * @returns 0; -6 without a library; any other number is the camera library's result code.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraInitialize(): number;

  /**
   * Whether this program may use cameras.
   *
   * @returns `STATUS_AUTHORIZED` (0) if it may; -6 without a library; any other number is the camera library's refusal.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraHasVideoCaptureAuth(): number;

  /**
   * Requests the platform's camera permission, if it has one. The result shows in a later
   * `cameraHasVideoCaptureAuth`. Without a library it does nothing.
   *
   * - Blocks: as long as the camera library takes; it does not wait for the user's decision.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraAskVideoCaptureAuth(): void;

  /**
   * The number of cameras now.
   *
   * @returns 0 without a library; a negative number is the camera library's failure.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDevicesCount(): number;

  /**
   * The camera's unique id, which stays the same when it is plugged in again; use it to find a camera again,
   * since indices change. At most 1023 bytes.
   *
   * @returns empty without a library, or if the library has none.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceUniqueId(deviceIndex: number): string;

  /**
   * The camera's model id. At most 1023 bytes.
   *
   * @returns empty without a library, or if the library has none.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceModelId(deviceIndex: number): string;

  /**
   * The camera's display name. At most 1023 bytes.
   *
   * @returns empty without a library, or if the library has none.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceName(deviceIndex: number): string;

  /**
   * The kind of camera, if the camera library reports it. Always empty on Linux.
   *
   * - Blocks: as long as the camera library takes; not at all on Linux.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceType(deviceIndex: number): string;

  /**
   * The formats of a camera, in the camera library's own order: nothing is sorted, merged or omitted.
   *
   * @returns empty without a library, or if the camera has none or does not exist.
   *
   * - Blocks: four calls of the camera library for each format.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceFormats(deviceIndex: number): CameraFormat[];

  /**
   * Starts the capture of a camera, either in one of its formats or in the closest size.
   *
   * @param width pixels; used without a format index. 0: the camera library chooses.
   * @param height pixels; used without a format index.
   * @param formatIndex the position in `cameraDeviceFormats`; if negative, the size is used.
   * @param encoded true requests frames as the camera encodes them. Ignored on Linux.
   * @returns 0 or more on success; -6 without a library; -13 if this library cannot start with a format index; any
   *   other negative number is the camera library's result code. The frames' real size shows in `cameraFrameInfo`.
   *
   * - Blocks: as long as the camera library takes to start, possibly seconds with a slow camera.
   * - Thread: any environment; frames then arrive on threads of the camera library.
   * - Error text: not touched.
   */
  cameraStartCapture(deviceIndex: number, width?: number, height?: number, formatIndex?: number, encoded?: boolean): number;

  /**
   * Stops the capture of a camera, ends any recording, whatever the device, and ends the preview if it shows this
   * device. A negative index stops all cameras and any preview.
   *
   * @returns the camera library's result code, 0 on success; -6 without a library.
   *
   * - Blocks: until the recording has written its queue and finished its file, the preview's worker has ended and
   *   the camera library has stopped.
   * - Thread: any environment.
   * - Error text: not touched; a recording that could not be finished shows in `cameraRecordingStatus().error`.
   */
  cameraStopCapture(deviceIndex: number): number;

  /**
   * Whether a frame can be grabbed.
   *
   * @returns `RESULT_YES` (0) if so; `RESULT_NO` (-256) if not yet; -6 without a library; any other number is the
   *   camera library's failure. Both "yes" and success are 0: compare, do not test for truthiness.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraHasFirstFrame(deviceIndex: number): number;

  /**
   * Whether the camera's own button is down, as the camera library reports it. Always 0 on Linux.
   * For the button of a microscope use `ostrelIsCapturePressed` or `dinoLiteMicrotouchPressed`.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraButtonPressed(deviceIndex: number): number;

  /**
   * When the camera's own button was last pressed, as the camera library reports it. Always 0 on Linux.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraButtonTimestamp(deviceIndex: number): number;

  /**
   * Whether image controls can be read. Always false on Linux, whose camera library has no image controls.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraHasVideoProcAmp(): boolean;

  /**
   * The range of an image control.
   *
   * @param property one of the constants from `VIDEOPROCAMP_BRIGHTNESS` to `VIDEOPROCAMP_GAIN`; passed on unchecked.
   * @returns always with `result` -9 and zeros on Linux.
   * @throws TypeError "Expected (deviceIndex, property)" with fewer than two arguments; Error if one is not a number.
   *
   * - Blocks: as long as the camera library takes; not at all on Linux.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraVideoProcAmpRange(deviceIndex: number, property: number): ImageControlRange;

  /**
   * The setting of an image control.
   *
   * @param property one of the constants from `VIDEOPROCAMP_BRIGHTNESS` to `VIDEOPROCAMP_GAIN`; passed on unchecked.
   * @returns always with `result` -9 and zeros on Linux.
   * @throws TypeError "Expected (deviceIndex, property)" with fewer than two arguments; Error if one is not a number.
   *
   * - Blocks: as long as the camera library takes; not at all on Linux.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraVideoProcAmpGet(deviceIndex: number, property: number): ImageControlValue;

  /**
   * Sets an image control.
   *
   * @param property one of the constants from `VIDEOPROCAMP_BRIGHTNESS` to `VIDEOPROCAMP_GAIN`; passed on unchecked.
   * @param value in the control's own range.
   * @param flags `VIDEOPROCAMP_FLAG_AUTO` or `VIDEOPROCAMP_FLAG_MANUAL`; passed on unchecked.
   * @returns always with `result` -9 on Linux.
   * @throws TypeError "Expected (deviceIndex, property, value, flags)" with fewer than four arguments; Error if one is
   *   no number.
   *
   * - Blocks: as long as the camera library takes; not at all on Linux.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraVideoProcAmpSet(deviceIndex: number, property: number, value: number, flags: number): ImageControlResult;
}

/** The constants. `VIDEOPROCAMP_...` are image controls and their modes, the rest are results. */
export interface CameraConstants {
  /** Image control: brightness. */
  readonly VIDEOPROCAMP_BRIGHTNESS: 0;
  /** Image control: contrast. */
  readonly VIDEOPROCAMP_CONTRAST: 1;
  /** Image control: hue. */
  readonly VIDEOPROCAMP_HUE: 2;
  /** Image control: saturation. */
  readonly VIDEOPROCAMP_SATURATION: 3;
  /** Image control: sharpness. */
  readonly VIDEOPROCAMP_SHARPNESS: 4;
  /** Image control: gamma. */
  readonly VIDEOPROCAMP_GAMMA: 5;
  /** Image control: colour on or off. */
  readonly VIDEOPROCAMP_COLORENABLE: 6;
  /** Image control: white balance. */
  readonly VIDEOPROCAMP_WHITEBALANCE: 7;
  /** Image control: backlight compensation. */
  readonly VIDEOPROCAMP_BACKLIGHTCOMPENSATION: 8;
  /** Image control: gain. */
  readonly VIDEOPROCAMP_GAIN: 9;
  /** Mode of an image control: the camera sets it. */
  readonly VIDEOPROCAMP_FLAG_AUTO: 1;
  /** Mode of an image control: the caller sets it. */
  readonly VIDEOPROCAMP_FLAG_MANUAL: 2;
  /** Success of every function that returns a result number. */
  readonly RESULT_OK: 0;
  /** "Yes" of `cameraHasFirstFrame`. It is 0: compare, do not test for truthiness. */
  readonly RESULT_YES: 0;
  /** Not yet, or nothing new. */
  readonly RESULT_NO: -256;
  /** `cameraHasVideoCaptureAuth`: this program may use cameras. */
  readonly STATUS_AUTHORIZED: 0;
}

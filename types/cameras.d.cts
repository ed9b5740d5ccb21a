// Cameras: the libraries, the devices with their formats, capture, image controls.

/** The camera library in use; on Linux "none" or "linux-v4l2". */
export type CameraBackend = 'none' | 'linux-v4l2' | 'directshow' | 'avfoundation';

/** One capture format. Its place in the array is the format index for `cameraStartCapture`. */
export interface CameraFormat {
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Frames a second, a whole number. */
  frameRate: number;
  /** The camera library's own name of the format, such as "MJPEG"; empty if it has none. */
  type: string;
}

/** The range of an image control. All numbers but `result` are 0 unless `result` is 0. */
export interface ImageControlRange {
  /** 0; -9: there is no such control here; any other number is the camera library's. */
  result: number;
  min: number;
  max: number;
  /** The smallest change. */
  step: number;
  default: number;
  /** The modes that the control knows: `VIDEOPROCAMP_FLAG_AUTO`, `VIDEOPROCAMP_FLAG_MANUAL`, or both as a sum. */
  caps: number;
}

/** The setting of an image control. `value` and `flags` are 0 unless `result` is 0. */
export interface ImageControlValue {
  /** 0; -9: there is no such control here; any other number is the camera library's. */
  result: number;
  value: number;
  /** `VIDEOPROCAMP_FLAG_AUTO` or `VIDEOPROCAMP_FLAG_MANUAL`. */
  flags: number;
}

/** The outcome of setting an image control. */
export interface ImageControlResult {
  /** 0; -9: there is no such control here; any other number is the camera library's. */
  result: number;
}

/**
 * Cameras and their libraries. A device index counts from 0; a missing one, or one that is no number, is -1,
 * and indices go to the camera library unchecked. All of them call the camera library on the thread that calls.
 */
export interface CameraFunctions {
  /**
   * Loads the camera library, once in a process: after a success every further call gives true and ignores
   * its path. The library stays loaded.
   *
   * @param libraryPath the file; only that is tried. Without one, or with an empty one, the system's loader
   *   looks for "libcnokhwa.so", then "cnokhwa".
   * @returns whether a library is loaded. Two more arguments, a string and a boolean, may follow and change nothing.
   *
   * - Blocks: while the library is read from disk and initialises itself.
   * - Thread: any environment.
   * - Error text: cleared by a load that succeeds; set by one that fails.
   */
  loadCameraBackend(libraryPath?: string): boolean;

  /**
   * Loads libjpeg-turbo, once in a process, for cameras that deliver MJPEG frames as they are. The V4L2 camera
   * library of Linux decodes them itself, so nothing here needs it. Once loaded, further calls give true and
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
   * Starts the camera library. Call it once after the load, before anything that asks for devices.
   *
   * @returns 0; -6 without a library; any other number is the camera library's.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraInitialize(): number;

  /**
   * Whether this program may use cameras.
   *
   * @returns `STATUS_AUTHORIZED` (0) if it may; -6 without a library; any other number is the camera library's "no".
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraHasVideoCaptureAuth(): number;

  /**
   * Asks the platform to let this program use cameras, where it has such a question. The answer shows in a later
   * `cameraHasVideoCaptureAuth`. Without a library it does nothing.
   *
   * - Blocks: as long as the camera library takes; not until a person has answered.
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
   * What identifies this one camera, also after it was unplugged and plugged in; use it to find a camera again,
   * since indices change. At most 1023 bytes.
   *
   * @returns empty without a library, or if the library knows none.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceUniqueId(deviceIndex: number): string;

  /**
   * What identifies the make of a camera. At most 1023 bytes.
   *
   * @returns empty without a library, or if the library knows none.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceModelId(deviceIndex: number): string;

  /**
   * The camera's name for people. At most 1023 bytes.
   *
   * @returns empty without a library, or if the library knows none.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceName(deviceIndex: number): string;

  /**
   * The kind of camera, where the camera library tells one. That of Linux does not: it is always empty there.
   *
   * - Blocks: as long as the camera library takes; not at all on Linux.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceType(deviceIndex: number): string;

  /**
   * The formats of a camera, in the camera library's own order: nothing is sorted, merged or left out. Which to
   * take is the caller's choice.
   *
   * @returns empty without a library, or if the camera has none or does not exist.
   *
   * - Blocks: for four calls of the camera library for each format.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraDeviceFormats(deviceIndex: number): CameraFormat[];

  /**
   * Starts the capture of a camera, either in one of its formats or in the size that comes closest.
   *
   * @param width pixels; used without a format index. 0 leaves it to the camera library.
   * @param height pixels; used without a format index.
   * @param formatIndex the place in `cameraDeviceFormats`; below 0, the size decides.
   * @param encoded true asks for frames as the camera encodes them. On Linux it changes nothing.
   * @returns 0 or more on success; -6 without a library; -13 if this library cannot start by a format index; any
   *   other negative number is the camera library's. The frames' real size shows in `cameraFrameInfo`.
   *
   * - Blocks: as long as the camera library takes to start, which may be seconds with a slow camera.
   * - Thread: any environment; the frames then come on threads of the camera library.
   * - Error text: not touched.
   */
  cameraStartCapture(deviceIndex: number, width?: number, height?: number, formatIndex?: number, encoded?: boolean): number;

  /**
   * Stops the capture of a camera, ends any recording, whatever the device, and ends the preview if it shows this
   * device. A negative index means all cameras and any preview.
   *
   * @returns the camera library's number, 0 on success; -6 without a library.
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
   *   camera library's failure. Both "yes" and success are 0: compare, don't test for truth.
   *
   * - Blocks: as long as the camera library takes.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraHasFirstFrame(deviceIndex: number): number;

  /**
   * Whether the camera's own button is down, as the camera library tells it. That of Linux has no such call: always 0.
   * The button of a microscope is told by `ostrelIsCapturePressed` and `dinoLiteMicrotouchPressed`.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraButtonPressed(deviceIndex: number): number;

  /**
   * When the camera's own button was pressed last, as the camera library tells it. Always 0 on Linux.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  cameraButtonTimestamp(deviceIndex: number): number;

  /**
   * Whether image controls can be read. Always false on Linux, whose camera library has none.
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
   * @throws TypeError "Expected (deviceIndex, property)" with fewer than two arguments; Error if one is no number.
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
   * @throws TypeError "Expected (deviceIndex, property)" with fewer than two arguments; Error if one is no number.
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

/** The constants. Numbers 0 to 9 are image controls, 1 and 2 their modes, the rest results. */
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
  /** Success of every function that gives a result number. */
  readonly RESULT_OK: 0;
  /** "Yes" of `cameraHasFirstFrame`. It is 0: compare, don't test for truth. */
  readonly RESULT_YES: 0;
  /** Not yet, or nothing new. */
  readonly RESULT_NO: -256;
  /** `cameraHasVideoCaptureAuth`: this program may use cameras. */
  readonly STATUS_AUTHORIZED: 0;
}

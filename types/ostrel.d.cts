// Ostrel microscopes: their library, devices, polled values, focus, light and versions.

import type { MicroscopeDevice } from './vendor.cjs';

/** The outcome of `loadOstrel`. */
export interface OstrelLoadResult {
  /** Whether a library is loaded. */
  ok: boolean;
  /** The path or name under which it was loaded; empty if none is. */
  path: string;
}

/** The size of a pixel. */
export interface OstrelPixelSize {
  /** Whether the value is less than two seconds old. */
  ok: boolean;
  /** Micrometres a pixel, in pictures of `width` by `height`; -1 if unknown. */
  micronsPerPixel: number;
  /** Picture size in pixels to which the value applies; 0 if the library does not report it. */
  width: number;
  /** Picture size in pixels to which the value applies; 0 if the library does not report it. */
  height: number;
}

/** The fitted lens. */
export interface OstrelLensGroup {
  /** Whether the value is less than two seconds old. */
  ok: boolean;
  /** 0 to 65535; 0 if unknown. */
  lensDriver: number;
  /** 0 to 255; 0 if unknown. */
  lensGroup: number;
}

/** The features of the loaded library. */
export interface OstrelCapabilities {
  /** Major version times 65536 plus minor version; 65536 if the library does not report it, or none is loaded. */
  apiVersion: number;
  /** Auto-focus, position, steps. */
  focus: boolean;
  /** Reading and setting the light. */
  led: boolean;
  /** Pixel size together with the picture size to which it applies. */
  pixelSizeInfo: boolean;
  /** The fitted lens. */
  lensGroupInfo: boolean;
}

/** The versions of the selected microscope. */
export interface OstrelVersionInfo {
  productId: number;
  hardwareMajorVersion: number;
  hardwareMinorVersion: number;
  softwareMajorVersion: number;
  softwareMinorVersion: number;
  softwarePatchVersion: number;
}

/** The protocol version of the selected microscope. */
export interface OstrelProtocolVersionInfo {
  majorVersion: number;
  minorVersion: number;
  patchVersion: number;
}

/**
 * Ostrel microscopes. All calls into the library run one at a time on its owner thread, except for three functions
 * marked as such. Once loaded, the library is started by the first call that needs it, polls included: a start
 * clears both error texts, a refusal to start sets them. A waiting call returns its failure value after its time-out,
 * with "Ostrel SDK call timed out" as last error; the work continues. The time-out of a promise begins when a
 * pool thread starts the call, which may be delayed by the time-outs of calls that hang on all pool threads.
 *
 * Start, select and dispose from one environment at a time: each of these also clears the polled values and the
 * versions, including those of a microscope that another environment has just selected.
 */
export interface OstrelFunctions {
  /**
   * Loads the Ostrel library, once per process: after a success every further call returns the first path.
   *
   * @param libraryPath the only file to try. Without it the system's loader searches for "libostrel.so", then
   *   "ostrel.so".
   *
   * - Blocks: until it is loaded, at most 5 seconds.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a failure; in both `ostrelLastError` and `getLastError`.
   */
  loadOstrel(libraryPath?: string): OstrelLoadResult;

  /**
   * Starts the library. Optional: other calls start it as needed. Whether it succeeds or not, it clears the polled
   * values and the versions, even if the microscope stays selected: `ostrelVersionInfo` returns null until the next
   * selection.
   *
   * @param force true restarts it and drops the selection.
   * @returns false without a library, if it refuses, or after the time-out.
   *
   * - Blocks: until it has started, at most 20 seconds. Prefer `ostrelInitAsync`.
   * - Thread: one environment at a time; the caller waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a refusal or time-out; none without a library.
   */
  ostrelInit(force?: boolean): boolean;

  /**
   * The last error of this family: the addon's own text or, if there is none, the library's. Time-outs set only the
   * text of `getLastError`.
   *
   * - Blocks: as long as the library takes to return its text, if the addon has none.
   * - Thread: any environment, also for the call into the library.
   * - Error text: read only.
   */
  ostrelLastError(): string;

  /**
   * Starts the library, as `ostrelInit`, without blocking. The polled values and the versions are cleared when it
   * resolves.
   *
   * @param force true restarts it and drops the selection.
   * @returns resolves with false without a library, if it refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds after a pool thread starts it.
   * - Thread: one environment at a time; a pool thread waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a refusal or time-out; none without a library.
   */
  ostrelInitAsync(force?: boolean): Promise<boolean>;

  /**
   * The number of attached microscopes now.
   *
   * @returns 0 without a library or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `ostrelDevicesAsync`.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared if the call starts it.
   */
  ostrelDeviceCount(): number;

  /**
   * The attached microscopes now. If the library reports more than 65536, the list is empty and the error text says so.
   *
   * @returns resolves with an empty array without a library or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared if the call starts it.
   */
  ostrelDevicesAsync(): Promise<MicroscopeDevice[]>;

  /**
   * The unique id of a microscope.
   *
   * @returns empty without a library, for an unknown index, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `ostrelDevicesAsync`.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared if the call starts it.
   */
  ostrelDeviceUniqueId(index: number): string;

  /**
   * The display name of a microscope.
   *
   * @returns empty without a library, for an unknown index, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `ostrelDevicesAsync`.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared if the call starts it.
   */
  ostrelDeviceFriendlyName(index: number): string;

  /**
   * Selects the microscope that all other calls use. The polled values are cleared, and the first new ones are
   * available when it returns.
   *
   * @returns false without a library, for an invalid index, if the library refuses, or after the time-out;
   *   an earlier selection is then kept.
   *
   * - Blocks: at most 10 seconds. Prefer `ostrelSelectDeviceAsync`.
   * - Thread: one environment at a time; the caller waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a failure; none without a library.
   */
  ostrelSelectDevice(index: number): boolean;

  /**
   * Selects a microscope, as `ostrelSelectDevice`, without blocking. The polled values of the previous one are cleared
   * when the call returns.
   *
   * @returns resolves with false in the same cases.
   *
   * - Blocks: no; it resolves within 10 seconds after a pool thread starts it.
   * - Thread: one environment at a time; a pool thread waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a failure; none without a library.
   */
  ostrelSelectDeviceAsync(index: number): Promise<boolean>;

  /**
   * The index of the selected microscope; -1 if none is selected, or after the time-out.
   *
   * - Blocks: at most 5 seconds, behind earlier work of the owner thread; the library is not called.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out.
   */
  ostrelGetSelectedDevice(): number;

  /**
   * The microscope's status code, as defined by its library. A poll: it returns the last known value and requests a
   * refresh.
   *
   * @returns -1 if no value arrived for two seconds, even if only for lack of polls.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Ostrel owner thread.
   * - Error text: not touched, unless the call starts the library: cleared by its start, set by its refusal.
   */
  ostrelGetScopeStatus(): number;

  /**
   * Micrometres a pixel. A poll: it returns the last known value and requests a refresh.
   *
   * @returns -1 if no value arrived for two seconds.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Ostrel owner thread.
   * - Error text: not touched, unless the call starts the library: cleared by its start, set by its refusal.
   */
  ostrelGetPixelSizeMicrons(): number;

  /**
   * Micrometres a pixel, and the picture size to which it applies. A poll: it returns the last known value
   * and requests a refresh.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Ostrel owner thread.
   * - Error text: not touched, unless the call starts the library: cleared by its start, set by its refusal.
   */
  ostrelGetPixelSizeInfo(): OstrelPixelSize;

  /**
   * The fitted lens. A poll: it returns the last known value and requests a refresh.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Ostrel owner thread.
   * - Error text: not touched, unless the call starts the library: cleared by its start, set by its refusal.
   */
  ostrelGetLensGroupInfo(): OstrelLensGroup;

  /**
   * The features of the loaded library; all false without a library.
   *
   * - Blocks: as long as the library takes to return its version.
   * - Thread: any environment, also for the call into the library.
   * - Error text: not touched, unless the library throws an exception, which sets it.
   */
  ostrelCapabilities(): OstrelCapabilities;

  /**
   * The last known focus position. Every poll of another value and every focus command updates it;
   * this function itself requests nothing.
   *
   * @returns -1 if no value arrived for two seconds.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  ostrelGetFocusPosition(): number;

  /**
   * Whether the light is on: 1 on, 0 off, -1 unknown: no library, no such feature, the library refuses, or another
   * thread is starting it or shutting it down. Calls of several environments overlap in the library.
   *
   * - Blocks: as long as the library takes, without a time-out. If the library hangs, so does the caller.
   * - Thread: any environment, also for the call into the library.
   * - Error text: not touched, unless the call starts the library, as for a poll, or throws an exception, which sets
   *   it.
   */
  ostrelGetLedState(): -1 | 0 | 1;

  /**
   * Starts an auto-focus. Resolves when auto-focus has started; poll the position to detect its end.
   *
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it, 150 ms after the library returned.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelTriggerAutoFocusAsync(): Promise<boolean>;

  /**
   * Moves the focus. `ostrelGetFocusPosition` has the new position when the promise resolves.
   *
   * @param position 0 to 255; any other value resolves with false, without an error text.
   * @returns also resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it, 150 ms after the library returned.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelSetFocusPositionAsync(position: number): Promise<boolean>;

  /**
   * Moves the focus nearer by one step of the library.
   *
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it, 150 ms after the library returned.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelFocusNearAsync(): Promise<boolean>;

  /**
   * Moves the focus farther by one step of the library.
   *
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it, 150 ms after the library returned.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelFocusFarAsync(): Promise<boolean>;

  /**
   * Turns the light on or off.
   *
   * @param on any value, converted to boolean; missing means off.
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelSetLedStateAsync(on?: unknown): Promise<boolean>;

  /**
   * Whether the capture button was pressed since the last call: each press is reported once, to one environment, and
   * two presses between two calls are reported as one. A poll: it returns what is known and requests a refresh, so poll
   * it a few times a second.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Ostrel owner thread.
   * - Error text: not touched, unless the call starts the library: cleared by its start, set by its refusal.
   */
  ostrelIsCapturePressed(): boolean;

  /**
   * The versions of the selected microscope, read when it was selected; null if unavailable, or if none is selected.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  ostrelVersionInfo(): OstrelVersionInfo | null;

  /**
   * The protocol version of the selected microscope, read when it was selected; null if unavailable, or if none is
   * selected.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  ostrelProtocolVersionInfo(): OstrelProtocolVersionInfo | null;

  /**
   * Shuts the library down and drops the selection. It stays loaded, and the next call that needs it starts it again.
   *
   * @returns false only after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `ostrelDisposeAsync`.
   * - Thread: one environment at a time; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out.
   */
  ostrelDispose(): boolean;

  /**
   * Shuts the library down, as `ostrelDispose`, without blocking. Await it before the process ends, so that the
   * microscope is released properly.
   *
   * @returns resolves with false only after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it.
   * - Thread: one environment at a time; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out.
   */
  ostrelDisposeAsync(): Promise<boolean>;
}

// Ostrel microscopes: their library, devices, polled values, focus, light and versions.

import type { MicroscopeDevice } from './vendor.cjs';

/** The outcome of `loadOstrel`. */
export interface OstrelLoadResult {
  /** Whether a library is loaded. */
  ok: boolean;
  /** The path or name under which it was loaded; empty if none is. */
  path: string;
}

/** How large a pixel is. */
export interface OstrelPixelSize {
  /** Whether the microscope told it less than two seconds ago. */
  ok: boolean;
  /** Micrometres a pixel, in pictures of `width` by `height`; -1 if unknown. */
  micronsPerPixel: number;
  /** Pixels of the pictures that it holds for; 0 if the library does not say. */
  width: number;
  /** Pixels of the pictures that it holds for; 0 if the library does not say. */
  height: number;
}

/** The fitted lens. */
export interface OstrelLensGroup {
  /** Whether the microscope told it less than two seconds ago. */
  ok: boolean;
  /** 0 to 65535; 0 if unknown. */
  lensDriver: number;
  /** 0 to 255; 0 if unknown. */
  lensGroup: number;
}

/** What the loaded library offers. */
export interface OstrelCapabilities {
  /** Major version times 65536 plus minor version; 65536 if the library does not say, or none is loaded. */
  apiVersion: number;
  /** Auto-focus, position, steps. */
  focus: boolean;
  /** Reading and setting the light. */
  led: boolean;
  /** Pixel size together with the picture size that it holds for. */
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

/** The version of the protocol that the selected microscope speaks. */
export interface OstrelProtocolVersionInfo {
  majorVersion: number;
  minorVersion: number;
  patchVersion: number;
}

/**
 * Ostrel microscopes. All calls into the library run one after the other on its owner thread, three functions aside
 * that say so. Once loaded, the library starts itself with the first call that needs it, polls included: a start
 * clears both error texts, a refusal to start sets them. A call that waits gives its failure value after its time-out,
 * with "Ostrel SDK call timed out" as last error; the work goes on behind it. The time-out of a promise begins when a
 * pool thread takes the call up: behind calls that hang on all pool threads that is later by their time-outs.
 *
 * One environment at a time starts, selects and disposes: each of these also forgets the polled values and the
 * versions, and so could forget those of a microscope that another environment has selected meanwhile.
 */
export interface OstrelFunctions {
  /**
   * Loads the Ostrel library, once in a process: after a success every further call gives the first path.
   *
   * @param libraryPath the file; only that is tried. Without one the system's loader looks for "libostrel.so", then
   *   "ostrel.so".
   *
   * - Blocks: until it is loaded, at most 5 seconds.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a failure; both that of `ostrelLastError` and that of `getLastError`.
   */
  loadOstrel(libraryPath?: string): OstrelLoadResult;

  /**
   * Starts the library. Not needed: what needs it does it. Whatever comes of it, the polled values and the versions
   * start anew, also those of a microscope that stays selected: `ostrelVersionInfo` gives null until the next selection.
   *
   * @param force true starts it anew and drops the selection.
   * @returns false without a library, if it refuses, or after the time-out.
   *
   * - Blocks: until it has started, at most 20 seconds. Prefer `ostrelInitAsync`.
   * - Thread: one environment at a time; the caller waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a refusal or time-out; none without a library.
   */
  ostrelInit(force?: boolean): boolean;

  /**
   * The last error of this family: the addon's own text or, if there is none, the library's. Texts about time-outs
   * stand in `getLastError` alone.
   *
   * - Blocks: as long as the library takes for its own text, if the addon has none.
   * - Thread: any environment, also for the call into the library.
   * - Error text: read only.
   */
  ostrelLastError(): string;

  /**
   * Starts the library, as `ostrelInit`, without waiting. The polled values and the versions start anew when it
   * resolves.
   *
   * @param force true starts it anew and drops the selection.
   * @returns resolves with false without a library, if it refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds from when a pool thread takes it up.
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
   * - Error text: set by a time-out or a library that does not start; cleared where the call starts it.
   */
  ostrelDeviceCount(): number;

  /**
   * The attached microscopes now. A library that counts more than 65536 has none, and the error text says so.
   *
   * @returns resolves with an empty array without a library or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared where the call starts it.
   */
  ostrelDevicesAsync(): Promise<MicroscopeDevice[]>;

  /**
   * What identifies a microscope.
   *
   * @returns empty without a library, for an index that it does not know, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `ostrelDevicesAsync`.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared where the call starts it.
   */
  ostrelDeviceUniqueId(index: number): string;

  /**
   * A microscope's name for people.
   *
   * @returns empty without a library, for an index that it does not know, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `ostrelDevicesAsync`.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out or a library that does not start; cleared where the call starts it.
   */
  ostrelDeviceFriendlyName(index: number): string;

  /**
   * Selects the microscope that all other calls mean. The polled values start anew, and the first ones are there when
   * it returns.
   *
   * @returns false without a library, for an index that is not there, if the library refuses, or after the time-out;
   *   an earlier selection then stands.
   *
   * - Blocks: at most 10 seconds. Prefer `ostrelSelectDeviceAsync`.
   * - Thread: one environment at a time; the caller waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a failure; none without a library.
   */
  ostrelSelectDevice(index: number): boolean;

  /**
   * Selects a microscope, as `ostrelSelectDevice`, without waiting. The polled values of the former one are gone when
   * the call returns.
   *
   * @returns resolves with false in the same cases.
   *
   * - Blocks: no; it resolves within 10 seconds from when a pool thread takes it up.
   * - Thread: one environment at a time; a pool thread waits for the Ostrel owner thread.
   * - Error text: cleared by a success, set by a failure; none without a library.
   */
  ostrelSelectDeviceAsync(index: number): Promise<boolean>;

  /**
   * The index of the selected microscope; -1 if none is, or after the time-out.
   *
   * - Blocks: at most 5 seconds behind what the owner thread does; the library is not called.
   * - Thread: any environment; the caller waits for the Ostrel owner thread.
   * - Error text: set by a time-out.
   */
  ostrelGetSelectedDevice(): number;

  /**
   * The microscope's status, a code of its library. A poll: it gives what the library told last and asks for news.
   *
   * @returns -1 if nothing was told for two seconds, be it that nobody asked.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Ostrel owner thread.
   * - Error text: not touched, unless the library has to be started: cleared by its start, set by its refusal.
   */
  ostrelGetScopeStatus(): number;

  /**
   * Micrometres a pixel. A poll: it gives what the library told last and asks for news.
   *
   * @returns -1 if nothing was told for two seconds.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Ostrel owner thread.
   * - Error text: not touched, unless the library has to be started: cleared by its start, set by its refusal.
   */
  ostrelGetPixelSizeMicrons(): number;

  /**
   * Micrometres a pixel, and the size of the pictures that this holds for. A poll: it gives what the library told last
   * and asks for news.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Ostrel owner thread.
   * - Error text: not touched, unless the library has to be started: cleared by its start, set by its refusal.
   */
  ostrelGetPixelSizeInfo(): OstrelPixelSize;

  /**
   * The fitted lens. A poll: it gives what the library told last and asks for news.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Ostrel owner thread.
   * - Error text: not touched, unless the library has to be started: cleared by its start, set by its refusal.
   */
  ostrelGetLensGroupInfo(): OstrelLensGroup;

  /**
   * What the loaded library offers; without one everything is false.
   *
   * - Blocks: as long as the library takes to tell its version.
   * - Thread: any environment, also for the call into the library.
   * - Error text: not touched, unless the library throws an exception, which sets it.
   */
  ostrelCapabilities(): OstrelCapabilities;

  /**
   * The focus position, as the library tells it. It comes with every poll of another value and with every focus command;
   * this function alone asks for nothing.
   *
   * @returns -1 if nothing was told for two seconds.
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
   * - Blocks: as long as the library takes, without a time-out. A library that hangs hangs the caller.
   * - Thread: any environment, also for the call into the library.
   * - Error text: not touched, unless the library has to be started, as for a poll, or throws an exception, which sets it.
   */
  ostrelGetLedState(): -1 | 0 | 1;

  /**
   * Starts an auto-focus. It resolves when it has begun; watch the position for its end.
   *
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up, 150 ms after the library's answer.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelTriggerAutoFocusAsync(): Promise<boolean>;

  /**
   * Moves the focus. `ostrelGetFocusPosition` serves where it is when the promise resolves.
   *
   * @param position 0 to 255; any other resolves with false, without a text.
   * @returns resolves with false also without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up, 150 ms after the library's answer.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelSetFocusPositionAsync(position: number): Promise<boolean>;

  /**
   * Moves the focus by one step of the library, nearer.
   *
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up, 150 ms after the library's answer.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelFocusNearAsync(): Promise<boolean>;

  /**
   * Moves the focus by one step of the library, farther.
   *
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up, 150 ms after the library's answer.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelFocusFarAsync(): Promise<boolean>;

  /**
   * Turns the light on or off.
   *
   * @param on any value, taken as a truth value; missing means off.
   * @returns resolves with false without a library or this feature, if the library refuses or after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out; a refusal shows as the library's text in `ostrelLastError`.
   */
  ostrelSetLedStateAsync(on?: unknown): Promise<boolean>;

  /**
   * Whether the capture button was pressed since the last call: each press is reported once, to one environment, and
   * two presses between two calls are one. A poll: it gives what was seen and asks for news, so poll it a few times a
   * second.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Ostrel owner thread.
   * - Error text: not touched, unless the library has to be started: cleared by its start, set by its refusal.
   */
  ostrelIsCapturePressed(): boolean;

  /**
   * The versions of the selected microscope, read when it was selected; null if it did not tell, or none is selected.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: not touched.
   */
  ostrelVersionInfo(): OstrelVersionInfo | null;

  /**
   * The protocol version of the selected microscope, read when it was selected; null if it did not tell, or none is
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
   * Shuts the library down, as `ostrelDispose`, without waiting. Await it before the process ends, so that the
   * microscope is released in order.
   *
   * @returns resolves with false only after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up.
   * - Thread: one environment at a time; a pool thread waits for the Ostrel owner thread.
   * - Error text: set by a time-out.
   */
  ostrelDisposeAsync(): Promise<boolean>;
}

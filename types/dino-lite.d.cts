// Dino-Lite microscopes: their library, devices, magnification and field of view, light and button.

import type { MicroscopeDevice } from './vendor.cjs';

/** The kind of Dino-Lite library that is loaded. A loaded library is "mac-libdinolite" on Linux too. */
export type DinoLiteBackend = 'none' | 'mac-libdinolite' | 'windows-dnx';

/** The outcome of `loadDinoLite`. */
export interface DinoLiteLoadResult {
  /** Whether a library is loaded. */
  ok: boolean;
  backend: DinoLiteBackend;
  /** The path or name under which it was loaded; empty if none is. */
  path: string;
}

/** The result of `dinoLiteSelectBackendForProductId`; after a time-out all members are empty or false. */
export interface DinoLiteBackendSelection {
  /** Whether a library is loaded. */
  ok: boolean;
  /** The same as `ok`. */
  supportsAmr: boolean;
  /** Always false. */
  dnxLoadAttempted: boolean;
  backend: DinoLiteBackend | '';
  /** The path or name of the loaded library. */
  path: string;
  /** "libdinolite is not loaded", or empty. */
  reason: string;
}

/** The state of the Dino-Lite family, for diagnostics. */
export interface DinoLiteDebugState {
  loaded: boolean;
  /** Empty before the first call of this family. */
  backend: DinoLiteBackend | '';
  /** The path or name of the loaded library. */
  path: string;
  /** -1 if none is selected. */
  selectedDeviceIndex: number;
  /** The light mode that the library accepted last; 0 if none. */
  ledState: number;
  /** 2: two separate groups of LEDs; 1: one common switch; 0: none of the known modes. */
  controllableLedsCount: number;
  initialized: boolean;
  /** Whether the selected microscope measures its magnification. */
  supportsAmr: boolean;
  /** Whether the selected microscope has a MicroTouch button. */
  supportsMicrotouch: boolean;
  /** Whether the light of the selected microscope can be changed. */
  supportsLedControl: boolean;
  /** Whether the magnification was read since the selection. */
  amrRead: boolean;
  /** The last reading, valid or not; -1 if there was none. */
  amrRaw: number;
  /** Whether that reading was accepted: it is neither below 10 nor above 1000. */
  amrAccepted: boolean;
  /** The library's own count of changes. */
  amrUpdates: number;
  /** The light modes of the selected microscope, in its own order. */
  ledModes: number[];
  /** The last accepted magnification; null if none was. */
  cachedAmr: number | null;
  /** Its age in milliseconds; null if there is none. */
  cachedAmrAgeMs: number | null;
  /** The text of `getLastError`; only while no library is loaded. */
  error?: string;
}

/**
 * Dino-Lite microscopes. All calls into the library run one at a time on its owner thread. A waiting call returns
 * its failure value after its time-out, with "Dino-Lite SDK call timed out" as last error; the work continues.
 * The time-out of a promise begins when a pool thread starts the call, which may be delayed by the time-outs of calls
 * that hang on all pool threads.
 */
export interface DinoLiteFunctions {
  /**
   * Loads the Dino-Lite library, once per process: after a success every further call returns the first path.
   *
   * @param libraryPath the only file to try. Without it the system's loader searches for "libdinolite.so", then
   *   "libdinolite.dylib".
   *
   * - Blocks: until it is loaded, at most 20 seconds.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure; in both `dinoLiteLastError` and `getLastError`.
   */
  loadDinoLite(libraryPath?: string): DinoLiteLoadResult;

  /**
   * Starts the library and enumerates the microscopes. Microscopes that are plugged in later are found by
   * `dinoLiteInit(true)`.
   *
   * @param force true restarts it and drops the selection.
   * @returns false without a library, if it lacks the functions, or after the time-out.
   *
   * - Blocks: until it has started, at most 20 seconds. Prefer `dinoLiteInitAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a start, set by a failure; none without a library.
   */
  dinoLiteInit(force?: boolean): boolean;

  /**
   * The last error of this family; a success clears it. Time-outs set only the text of `getLastError`.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: read only.
   */
  dinoLiteLastError(): string;

  /**
   * Returns the library for a product. The result is the same for every product: the loaded library.
   *
   * @param productId ignored.
   * @param text ignored.
   *
   * - Blocks: at most 20 seconds, behind earlier work of the owner thread.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteSelectBackendForProductId(productId?: number, text?: string): DinoLiteBackendSelection;

  /**
   * Starts the library, as `dinoLiteInit`, without blocking.
   *
   * @param force true restarts it and drops the selection.
   * @returns resolves with false without a library, if it lacks the functions or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a start, set by a failure; none without a library.
   */
  dinoLiteInitAsync(force?: boolean): Promise<boolean>;

  /**
   * The number of microscopes at the last start of the library.
   *
   * @returns 0 without a library, before its start, or after the time-out.
   *
   * - Blocks: at most 5 seconds, behind earlier work of the owner thread; the library is not called.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDeviceCount(): number;

  /**
   * The microscopes at the last start of the library. If the library reports more than 65536, the list
   * is empty and the error text says so.
   *
   * @returns resolves with an empty array without a library, before its start or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out, and by a list that is too long.
   */
  dinoLiteDevicesAsync(): Promise<MicroscopeDevice[]>;

  /**
   * The unique id of a microscope. At most 1023 bytes.
   *
   * @returns empty without a library, for a negative index, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteDevicesAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDeviceId(index: number): string;

  /**
   * The display name of a microscope. At most 1023 bytes.
   *
   * @returns empty without a library, for a negative index, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteDevicesAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDeviceName(index: number): string;

  /**
   * Selects the microscope that all other calls use, reads its features and turns its light on. Starts the library
   * if necessary, after a pause of 300 ms.
   *
   * @returns false without a library, for a negative index, if the library refuses, or after the time-out.
   *
   * - Blocks: at most 10 seconds. Prefer `dinoLiteSelectDeviceAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteSelectDevice(index: number): boolean;

  /**
   * Selects a microscope, as `dinoLiteSelectDevice`, without blocking.
   *
   * @returns resolves with false in the same cases.
   *
   * - Blocks: no; it resolves within 10 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteSelectDeviceAsync(index: number): Promise<boolean>;

  /**
   * The index of the selected microscope; -1 if none is selected, or after the time-out. After a failed selection it is
   * still the previous one, but its features are cleared.
   *
   * - Blocks: at most 5 seconds, behind earlier work of the owner thread; the library is not called.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteGetSelectedDevice(): number;

  /**
   * Whether the selected microscope measures its magnification.
   *
   * @returns false also without a library or after the time-out.
   *
   * - Blocks: at most 5 seconds, behind earlier work of the owner thread; the library is not called.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteSupportsAmr(): boolean;

  /**
   * The magnification of the selected microscope, 10 to 1000. A poll: it returns the last known value and requests a
   * refresh. The library may return NaN, which is passed on.
   *
   * @param deviceIndex the selected one; another index than in the last call, from whatever environment, resets the
   *   polled values.
   * @returns null if no value arrived for two seconds, or the microscope does not measure it.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Dino-Lite owner thread.
   * - Error text: not touched.
   */
  dinoLiteGetAmr(deviceIndex: number): number | null;

  /**
   * The width of the field of view at a magnification: the library's value divided by 1000, millimetres for a library
   * that uses micrometres. A poll: it returns the last known value for this magnification and requests a refresh.
   *
   * @param deviceIndex ignored.
   * @param amr the magnification. One that differs by more than 0.001 from that of the previous poll resets the value.
   *   Readings of `dinoLiteGetAmr` are noisy, so keep one: with a new one for each poll there is never a value.
   * @param selector the library's selector of the field, 0 by default; negative values count as 0.
   * @returns null if no value arrived for two seconds, or the library has no value.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Dino-Lite owner thread.
   * - Error text: not touched.
   */
  dinoLiteGetFovx(deviceIndex: number, amr: number, selector?: number): number | null;

  /**
   * Sets whether `dinoLiteMicrotouchPressed` queries the microscope's button. The setting is kept when another
   * microscope is selected, but not after a dispose.
   *
   * @param enabled true by default.
   * @returns true if the selected microscope has the button, also for `enabled` false; false otherwise, without a
   *   library, or after the time-out.
   *
   * - Blocks: at most 5 seconds, behind earlier work of the owner thread. Prefer `dinoLiteEnableMicrotouchAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteEnableMicrotouch(enabled?: boolean): boolean;

  /**
   * The same as `dinoLiteEnableMicrotouch`, without blocking.
   *
   * @param enabled true by default.
   * @returns resolves with false in the same cases.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteEnableMicrotouchAsync(enabled?: boolean): Promise<boolean>;

  /**
   * Whether the MicroTouch button was pressed since the last call: each press is reported once, to one environment, and
   * two presses between two calls are reported as one. A poll: it returns what is known and requests a refresh, so poll
   * it a few times a second.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is queried on the Dino-Lite owner thread.
   * - Error text: not touched.
   */
  dinoLiteMicrotouchPressed(): boolean;

  /**
   * Switches the light to the selected microscope's next mode, and after the last one to the first.
   *
   * @returns the new mode, as defined by the library; -1 without a selection or light modes, if the library refuses, or
   *   after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteToggleLedAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteToggleLed(): number;

  /**
   * Switches the light, as `dinoLiteToggleLed`, without blocking.
   *
   * @returns resolves with -1 in the same cases.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteToggleLedAsync(): Promise<number>;

  /**
   * The state of this family after the last task that may have changed it.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: read only.
   */
  dinoLiteDebugState(): DinoLiteDebugState;

  /**
   * Drops the selection and marks the library as not started. It stays loaded; start it again with `dinoLiteInit`.
   *
   * @returns false only after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteDisposeAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDispose(): boolean;

  /**
   * The same as `dinoLiteDispose`, without blocking. Await it before the process ends, so that the microscope is
   * released properly.
   *
   * @returns resolves with false only after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds after a pool thread starts it.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDisposeAsync(): Promise<boolean>;
}

// Dino-Lite microscopes: their library, devices, magnification and field of view, light and button.

import type { MicroscopeDevice } from './vendor.cjs';

/** The kind of Dino-Lite library that is loaded. A library that is loaded is "mac-libdinolite" on Linux too. */
export type DinoLiteBackend = 'none' | 'mac-libdinolite' | 'windows-dnx';

/** The outcome of `loadDinoLite`. */
export interface DinoLiteLoadResult {
  /** Whether a library is loaded. */
  ok: boolean;
  backend: DinoLiteBackend;
  /** The path or name under which it was loaded; empty if none is. */
  path: string;
}

/** The answer of `dinoLiteSelectBackendForProductId`; after a time-out all members are empty or false. */
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

/** The state of the Dino-Lite family, for a support page. */
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
  /** 2: two groups of LEDs by themselves; 1: one common switch; 0: none of the known modes. */
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
  /** What was read last, believable or not; -1 if nothing was. */
  amrRaw: number;
  /** Whether that was taken: it is not below 10 nor above 1000. */
  amrAccepted: boolean;
  /** The library's own count of changes. */
  amrUpdates: number;
  /** The light modes of the selected microscope, in its own order. */
  ledModes: number[];
  /** The last magnification that was taken; null if none was. */
  cachedAmr: number | null;
  /** Its age in milliseconds; null if there is none. */
  cachedAmrAgeMs: number | null;
  /** The text of `getLastError`; only while no library is loaded. */
  error?: string;
}

/**
 * Dino-Lite microscopes. All calls into the library run one after the other on its owner thread. A call that waits gives
 * its failure value after its time-out, with "Dino-Lite SDK call timed out" as last error; the work goes on behind it.
 * The time-out of a promise begins when a pool thread takes the call up: behind calls that hang on all pool threads that
 * is later by their time-outs.
 */
export interface DinoLiteFunctions {
  /**
   * Loads the Dino-Lite library, once in a process: after a success every further call gives the first path.
   *
   * @param libraryPath the file; only that is tried. Without one the system's loader looks for "libdinolite.so", then
   *   "libdinolite.dylib".
   *
   * - Blocks: until it is loaded, at most 20 seconds.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure; both that of `dinoLiteLastError` and that of `getLastError`.
   */
  loadDinoLite(libraryPath?: string): DinoLiteLoadResult;

  /**
   * Starts the library and counts the microscopes. Microscopes that are plugged in later are seen after
   * `dinoLiteInit(true)`.
   *
   * @param force true starts it anew and drops the selection.
   * @returns false without a library, if it lacks the functions, or after the time-out.
   *
   * - Blocks: until it has started, at most 20 seconds. Prefer `dinoLiteInitAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a start, set by a failure; none without a library.
   */
  dinoLiteInit(force?: boolean): boolean;

  /**
   * The last error of this family; a success clears it. Texts about time-outs stand in `getLastError` alone.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: read only.
   */
  dinoLiteLastError(): string;

  /**
   * Tells which library serves a product. The answer is the same for every product: the one library that is loaded.
   *
   * @param productId taken and not used.
   * @param text taken and not used.
   *
   * - Blocks: at most 20 seconds behind what the owner thread does.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteSelectBackendForProductId(productId?: number, text?: string): DinoLiteBackendSelection;

  /**
   * Starts the library, as `dinoLiteInit`, without waiting.
   *
   * @param force true starts it anew and drops the selection.
   * @returns resolves with false without a library, if it lacks the functions or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a start, set by a failure; none without a library.
   */
  dinoLiteInitAsync(force?: boolean): Promise<boolean>;

  /**
   * The number of microscopes that were there when the library was started last.
   *
   * @returns 0 without a library, before its start, or after the time-out.
   *
   * - Blocks: at most 5 seconds behind what the owner thread does; the library is not called.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDeviceCount(): number;

  /**
   * The microscopes that were there when the library was started last. A library that counts more than 65536 has none,
   * and the error text says so.
   *
   * @returns resolves with an empty array without a library, before its start or after the time-out.
   *
   * - Blocks: no; it resolves within 20 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out, and by a list that is too long.
   */
  dinoLiteDevicesAsync(): Promise<MicroscopeDevice[]>;

  /**
   * What identifies a microscope. At most 1023 bytes.
   *
   * @returns empty without a library, for a negative index, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteDevicesAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDeviceId(index: number): string;

  /**
   * A microscope's name for people. At most 1023 bytes.
   *
   * @returns empty without a library, for a negative index, or after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteDevicesAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDeviceName(index: number): string;

  /**
   * Selects the microscope that all other calls mean, learns what it can do and turns its light on. It starts the library
   * if that is still to be done, after a pause of 300 ms.
   *
   * @returns false without a library, for a negative index, if the library refuses, or after the time-out.
   *
   * - Blocks: at most 10 seconds. Prefer `dinoLiteSelectDeviceAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteSelectDevice(index: number): boolean;

  /**
   * Selects a microscope, as `dinoLiteSelectDevice`, without waiting.
   *
   * @returns resolves with false in the same cases.
   *
   * - Blocks: no; it resolves within 10 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteSelectDeviceAsync(index: number): Promise<boolean>;

  /**
   * The index of the selected microscope; -1 if none is, or after the time-out. After a selection that failed it is still
   * the former one, without what that could do.
   *
   * - Blocks: at most 5 seconds behind what the owner thread does; the library is not called.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteGetSelectedDevice(): number;

  /**
   * Whether the selected microscope measures its magnification.
   *
   * @returns false also without a library or after the time-out.
   *
   * - Blocks: at most 5 seconds behind what the owner thread does; the library is not called.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteSupportsAmr(): boolean;

  /**
   * The magnification of the selected microscope, 10 to 1000. A poll: it gives what the library told last and asks for
   * news. A library may tell a value that is no number, and then it is NaN.
   *
   * @param deviceIndex the selected one; another index than in the last call, from whatever environment, starts the
   *   polled values anew.
   * @returns null if nothing was told for two seconds, or the microscope does not measure it.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Dino-Lite owner thread.
   * - Error text: not touched.
   */
  dinoLiteGetAmr(deviceIndex: number): number | null;

  /**
   * The width of the field of view at a magnification: the library's value divided by 1000, millimetres for a library that
   * counts in micrometres. A poll: it gives what the library told last for this magnification and asks for news.
   *
   * @param deviceIndex makes no difference.
   * @param amr the magnification. One that differs by more than 0.001 from that of the last poll starts anew, so hold
   *   one while the readings of `dinoLiteGetAmr` wander: with a new one at each poll there is never a value.
   * @param selector the library's choice of field, 0 by default; negative ones count as 0.
   * @returns null if nothing was told for two seconds, or the library does not know it.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Dino-Lite owner thread.
   * - Error text: not touched.
   */
  dinoLiteGetFovx(deviceIndex: number, amr: number, selector?: number): number | null;

  /**
   * Says whether `dinoLiteMicrotouchPressed` is to ask the microscope for its button. The wish outlives a change of
   * microscope, not a dispose.
   *
   * @param enabled true by default.
   * @returns true if the selected microscope has the button, also for `enabled` false; false otherwise, without a
   *   library, or after the time-out.
   *
   * - Blocks: at most 5 seconds behind what the owner thread does. Prefer `dinoLiteEnableMicrotouchAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteEnableMicrotouch(enabled?: boolean): boolean;

  /**
   * The same as `dinoLiteEnableMicrotouch`, without waiting.
   *
   * @param enabled true by default.
   * @returns resolves with false in the same cases.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteEnableMicrotouchAsync(enabled?: boolean): Promise<boolean>;

  /**
   * Whether the MicroTouch button was pressed since the last call: each press is reported once, to one environment, and
   * two presses between two calls are one. A poll: it gives what was seen and asks for news, so poll it a few times a
   * second.
   *
   * - Blocks: no.
   * - Thread: any environment; the library is asked on the Dino-Lite owner thread.
   * - Error text: not touched.
   */
  dinoLiteMicrotouchPressed(): boolean;

  /**
   * Steps the light to the next mode that the selected microscope offers, and round again.
   *
   * @returns the new mode, a code of the library; -1 without a selection or light modes, if the library refuses, or after
   *   the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteToggleLedAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteToggleLed(): number;

  /**
   * Steps the light, as `dinoLiteToggleLed`, without waiting.
   *
   * @returns resolves with -1 in the same cases.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: cleared by a success, set by a failure.
   */
  dinoLiteToggleLedAsync(): Promise<number>;

  /**
   * The state of this family as of the last piece of work that may have changed it.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: read only.
   */
  dinoLiteDebugState(): DinoLiteDebugState;

  /**
   * Drops the selection and forgets the start. The library stays loaded; start it again with `dinoLiteInit`.
   *
   * @returns false only after the time-out.
   *
   * - Blocks: at most 5 seconds. Prefer `dinoLiteDisposeAsync`.
   * - Thread: any environment; the caller waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDispose(): boolean;

  /**
   * The same as `dinoLiteDispose`, without waiting. Await it before the process ends, so that the microscope is released
   * in order.
   *
   * @returns resolves with false only after the time-out.
   *
   * - Blocks: no; it resolves within 5 seconds from when a pool thread takes it up.
   * - Thread: any environment; a pool thread waits for the Dino-Lite owner thread.
   * - Error text: set by a time-out.
   */
  dinoLiteDisposeAsync(): Promise<boolean>;
}

// Comfort for script code beside the native object: what every application writes over it, once and tested.
//
// Every function takes the native object as `native` or uses the package's main export. Nothing here
// changes the native object, and one process may use both side by side; docs/kit.md tells what to
// leave to the kit meanwhile. All times are in milliseconds, all sizes in pixels, unless a name says
// otherwise. Wrong options throw a TypeError or RangeError that says what is wrong.

import type { EventEmitter } from 'node:events';

import type { OstrelNative } from '../index.js';

/** The package's main export. */
export type Native = OstrelNative;

export interface NativeOption {
  /** The native object; the package's main export if left out. */
  native?: Native;
}

export interface WorkerOption {
  /**
   * The file of the native object, for a worker thread to load it anew (it then sees the same cameras
   * and the same recorder). Found by itself for the main export and for all that `require` loaded.
   */
  addonFile?: string;
}

// ---------------------------------------------------------------- frames

/** What to start capturing; see `cameraStartCapture`. A format index takes precedence over a size. */
export interface CaptureChoice {
  format?: number;
  width?: number;
  height?: number;
}

/** What preview to start; see `cameraPreviewStart`. 960 by 540 at 30 frames a second if left out. */
export interface PreviewChoice {
  width?: number;
  height?: number;
  frameRate?: number;
}

export interface FramesOptions extends NativeOption {
  /**
   * The camera. A function is asked before each look, and a negative answer means "none for now": so an
   * iteration follows a camera that is found again elsewhere, with `device: () => watch.device`.
   */
  device?: number | (() => number);
  /** Start capture, and stop it at the end. Without it, capture is somebody else's. */
  capture?: CaptureChoice;
  /** Start a preview, and stop it at the end. Without it, the frames of the running preview are given. */
  preview?: PreviewChoice;
  /** How many target arrays are used in turn: 2 to 64, 3 if left out. */
  ring?: number;
  /** Ends the iteration: what is waiting, or the next that asks, gets the signal's reason. */
  signal?: AbortSignal | undefined;
}

export interface PreviewFrame {
  /** Counts the frames of a preview from 1; anew with each start of a preview. */
  sequence: number;
  /** Frames that the preview made between the last one given and this one. */
  missed: number;
  width: number;
  height: number;
  bytesPerRow: number;
  pixelFormat: string;
  sourceWidth: number;
  sourceHeight: number;
  /** Wall-clock time at which the preview made it. */
  timestampMs: number;
  /** Cycles of the preview that gave no frame, since its start. */
  droppedFrames: number;
  producedFrames: number;
  /** Frames a second of the preview, as measured over the last second; 0 during the first. */
  producerFps: number;
  /**
   * The pixels, valid until `ring - 1` more frames were given: the array is then used for another one.
   * Copy what is to be kept. An array that was transferred to another thread is replaced.
   */
  data: Uint8Array;
}

/**
 * The frames of a preview as they are made, each at most once and always the newest. Two iterations of one
 * preview each get every frame. Ends when the preview of a numbered `device` is stopped by somebody
 * else; a camera that merely stops delivering is waited for (see `watchCamera`).
 * What it started is stopped whichever way it ends: break, throw, abort, end.
 * Throws an Error where a start fails, where no preview runs and none is to be started, and where a
 * preview is to be started while another runs.
 */
export function frames(options?: FramesOptions): AsyncIterableIterator<PreviewFrame> & {
  return(): Promise<IteratorResult<PreviewFrame>>;
};

// ---------------------------------------------------------------- camera watch

export interface WatchCameraOptions extends NativeOption {
  /** The camera by its index at the start, 0 if left out; or by its unique id, wherever it is. */
  device?: number;
  uniqueId?: string;
  /** What to capture when the camera is found again. */
  capture?: CaptureChoice;
  /** What preview to start when the camera is found again. */
  preview?: PreviewChoice;
  /** Also start both at the beginning, and stop them at the end. */
  start?: boolean;
  /** How long after a start the first frame may take: 5000. */
  graceMs?: number;
  /** How long a camera may be silent before it counts as stalled: 800. */
  stallMs?: number;
  /** Between two looks at the preview: 100. */
  pollMs?: number;
  /** Between two searches for a lost camera: 1000. */
  searchMs?: number;
  signal?: AbortSignal | undefined;
}

export interface CameraWatchEvents {
  /** No new frame for `silentMs`; the camera is still listed. Once, until it recovers. */
  stalled: [{ device: number; silentMs: number; lastResult: number }];
  /** Three frames within `stallMs`, after having been stalled or found. */
  recovered: [{ device: number; silentMs: number }];
  /** The camera is not listed any more ('missing'), or answers with errors ('failing', its code in `lastResult`). */
  lost: [{ uniqueId: string; reason: 'missing' | 'failing'; lastResult: number }];
  /** The camera is back; capture and preview run on it again. */
  found: [{ device: number; uniqueId: string }];
  /** The camera is listed again, but could not be started; it is tried again after `searchMs`. */
  retry: [{ device: number; error: Error }];
  /** The watch has ended. */
  close: [];
}

export class CameraWatch extends EventEmitter<CameraWatchEvents> {
  private constructor();
  readonly uniqueId: string;
  /** Where the camera is now; -1 while it is lost. */
  readonly device: number;
  readonly state: 'starting' | 'live' | 'stalled' | 'lost' | 'closed';
  /** Ends the watch, and what it was asked to start; safe to call again. */
  close(): Promise<void>;
}

/**
 * Watches the preview of a camera and tells what becomes of it. It finds the camera again by its unique
 * id and, with `capture` or `preview`, starts it there; a recording of the kit is finished before.
 * Keeps the process alive until it is closed.
 * Throws where the camera is not there, has no unique id, or cannot be started with `start`.
 */
export function watchCamera(options?: WatchCameraOptions): CameraWatch;

// ---------------------------------------------------------------- recording

export interface RecordOptions extends NativeOption, WorkerOption {
  /** The camera whose preview runs: 0. */
  device?: number;
  /** The MP4 file; an existing one is replaced. Regular files only: no pipe, no device. */
  file: string;
  /** Permissions of a file that is made, less the umask: 0o640, so its owner and group alone may read it. */
  mode?: number;
  /**
   * Nominal frames a second, 1 to 120: those that the preview has measured of itself, for which a recording waits
   * while the preview is younger than a second; 30 if it measures none. The file has the real times of the frames
   * whatever it is, but the encoder spreads its bits by it.
   */
  frameRate?: number;
  /** Bits a second, 100,000 to 100,000,000: a tenth of a bit for each pixel of each frame, at least 1,000,000. */
  bitrate?: number;
  /** Stop by itself after this many seconds. */
  seconds?: number;
  /** Between two progress events: 250. */
  progressMs?: number;
  /** How long the preview may be silent before the file is finished: 5000. Also the wait for its first frame. */
  silenceMs?: number;
  /** Finishes the file; during the start it also makes `record` throw the signal's reason. */
  signal?: AbortSignal | undefined;
}

export interface RecordingProgress {
  /** Since the start of the recording. */
  elapsedMs: number;
  /** Of the pictures that are in the file by now. */
  durationMs: number;
  framesWritten: number;
  /** Refused because the encoder was behind. */
  framesDropped: number;
  /** The size of the file by now. */
  bytes: number;
}

export interface RecordingWarning {
  code: 'colour-tags';
  /** What is the matter and what to do, in words. */
  message: string;
}

/** Why a recording ended. 'ended-elsewhere': other code stopped the recorder or the capture. */
export type RecordingEnd = 'stopped' | 'aborted' | 'seconds' | 'preview-lost' | 'process-end' | 'ended-elsewhere' | 'failed';

export interface RecordingResult extends RecordingProgress {
  file: string;
  width: number;
  height: number;
  reason: RecordingEnd;
  /**
   * Why it failed; null if it did not, and then the file has been looked at: its index is there and lists as many
   * pictures as `framesWritten`. After an error of the disk there is no index, and the file does not play.
   */
  error: Error | null;
}

export interface RecordingEvents {
  progress: [RecordingProgress];
  warning: [RecordingWarning];
  end: [RecordingResult];
}

export class Recording extends EventEmitter<RecordingEvents> {
  private constructor();
  /** Absolute. */
  readonly file: string;
  readonly width: number;
  readonly height: number;
  readonly frameRate: number;
  readonly bitrate: number;
  /** What was noticed at the start; also told as events, one turn of the event loop after `record` resolved. */
  readonly warnings: readonly RecordingWarning[];
  /** The newest progress. */
  readonly progress: RecordingProgress;
  /** The outcome, once the file is finished; never rejected. */
  readonly finished: Promise<RecordingResult>;
  /** Finishes the file. Rejected if the recording failed; safe to call again. */
  stop(): Promise<RecordingResult>;
  /** Progress until the end; throws if the recording failed. Leaving the loop does not stop the recording. */
  [Symbol.asyncIterator](): AsyncIterableIterator<RecordingProgress>;
}

/**
 * Records the running preview, whose real size it reads, into an MP4 file. Opening the encoder and
 * finishing the file block a worker thread, not the caller's. The file is finished whichever way the
 * recording ends: stop, abort, error, a preview that is lost, the end of the process.
 * A recording keeps the process alive with `seconds` and while somebody waits for it: listens to 'progress' or
 * 'end', iterates it, or has asked for `finished`. One that was left alone is finished at the process's end.
 * Meanwhile leave `cameraRecordingStart`, `cameraRecordingStop` and `cameraStopCapture` to the kit.
 * Rejected with words if the size is odd, if a recording runs, if no preview runs or the recorder refuses.
 */
export function record(options: RecordOptions): Promise<Recording>;

/** How the colours of a size are tagged in the file and how its pixels are made, of an RGB preview. */
export function colourTags(width: number, height: number): { tags: 'bt601' | 'bt709'; pixels: 'bt709'; differ: boolean };

// ---------------------------------------------------------------- focus stacks

/** 4 bytes a pixel, rows packed. */
export interface StackFrame {
  width: number;
  height: number;
  rgba: Uint8Array;
}

export interface FuseProgress {
  stage: 'measuring' | 'choosing' | 'aligning' | 'fusing';
  /** Of this stage, 0 to 1. The native call behind 'fusing' tells nothing in between. */
  stageDone: number;
  /** Of all, 0 to 1, never less than before. */
  done: number;
}

export interface FuseStackOptions extends NativeOption, WorkerOption {
  /** At least 3 frames of one size, at most 16384 a side. Of more than 11, those that together show most are fused. */
  frames: Iterable<StackFrame> | AsyncIterable<StackFrame>;
  /**
   * Hand the frames' memory over instead of copying it: their arrays are empty at once, and `sources`
   * of the result holds them again. Arrays over a part of a buffer, or shared memory, are copied all the same.
   */
  transfer?: boolean;
  /** Cancels: the promise is rejected with the signal's reason once nothing runs any more. A native fusion is waited for. */
  signal?: AbortSignal | undefined;
  onProgress?: (progress: FuseProgress) => void;
}

export interface StackFrameReport {
  /** Which of the given frames this is. */
  index: number;
  /** Could be aligned with the others. */
  registered: boolean;
  /** Gives pixels to the result. */
  accepted: boolean;
  scale: number;
  /** In radians. */
  rotation: number;
  shiftX: number;
  shiftY: number;
  /** The match with its neighbour in focus, up to 1. */
  score: number;
  /** Of the picture, in which it is the sharpest: 0 to 1. */
  share: number;
  sourcePixelsPerOutputPixel: number;
  field: {
    mapWidth: number;
    mapHeight: number;
    x: Float32Array;
    y: Float32Array;
    confidence: Float32Array;
    accepted: boolean;
  };
  weights: Float32Array;
}

export interface FusedStack extends StackFrame {
  /** Which of `frames` all others were aligned with. */
  reference: number;
  /** The fused frames with what was measured of them. */
  frames: StackFrameReport[];
  /** Fine detail, in multiples of that of the best single frame; NaN if none has any. */
  gain: number;
  measuringMs: number;
  fusingMs: number;
  threads: number;
  simd: string;
  /** The given frames, with `transfer`. */
  sources?: StackFrame[];
}

/**
 * Fuses a focus stack into one picture that is sharp everywhere, on a worker thread of its own: measures
 * which frame is sharp where and how the frames lie to one another, and runs `edofMultibandFuse`.
 * Rejected with words if the frames do not make a stack.
 */
export function fuseStack(options: FuseStackOptions): Promise<FusedStack>;

// ---------------------------------------------------------------- microscopes

export interface Microscope {
  index: number;
  uniqueId: string;
  name: string;
}

export interface CommandOptions {
  /** A command that still waits is withdrawn; one that runs is no more waited for, though its turn lasts until the library answers. */
  signal?: AbortSignal | undefined;
}

/**
 * The waiting calls of a microscope family, one at a time, in order. There is one such queue for each
 * family in a thread of script code, whoever asks and by whichever native object, so a library that
 * hangs takes one thread of the runtime's pool and no more.
 * Where a command waits and the same kind comes again right behind it, both get the newer one's outcome.
 * All are rejected with words if the library refuses or times out.
 */
export interface OstrelCommands {
  init(force?: boolean, options?: CommandOptions): Promise<void>;
  devices(options?: CommandOptions): Promise<Microscope[]>;
  select(index: number, options?: CommandOptions): Promise<void>;
  setFocus(position: number, options?: CommandOptions): Promise<void>;
  focusNear(options?: CommandOptions): Promise<void>;
  focusFar(options?: CommandOptions): Promise<void>;
  autoFocus(options?: CommandOptions): Promise<void>;
  setLed(on: boolean, options?: CommandOptions): Promise<void>;
  dispose(options?: CommandOptions): Promise<void>;
}

export interface DinoLiteCommands {
  init(force?: boolean, options?: CommandOptions): Promise<void>;
  devices(options?: CommandOptions): Promise<Microscope[]>;
  select(index: number, options?: CommandOptions): Promise<void>;
  enableMicrotouch(enabled?: boolean, options?: CommandOptions): Promise<void>;
  /** The new mode. */
  toggleLed(options?: CommandOptions): Promise<number>;
  dispose(options?: CommandOptions): Promise<void>;
}

export function ostrelCommands(options?: NativeOption): OstrelCommands;
export function dinoLiteCommands(options?: NativeOption): DinoLiteCommands;

export interface WatchMicroscopeOptions extends NativeOption {
  /** Select this microscope, by its unique id or index in the list, now and when it comes back. Without it, the selection is somebody else's. */
  device?: number | string;
  /** Between two looks at the polled values: 50. */
  pollMs?: number;
  /** How long the button must be up to count as released: 200. */
  releaseMs?: number;
  /** Between two looks at the list of microscopes: 2000. */
  searchMs?: number;
  signal?: AbortSignal | undefined;
}

interface MicroscopeEvents {
  /** The capture button was pressed; once for each press, held or not. */
  button: [{ at: number }];
  /** The microscope is there, and selected if that was asked for. */
  connected: [Microscope];
  disconnected: [Microscope];
  /** What the watch tried by itself and could not do; it goes on. */
  trouble: [Error];
  close: [];
}

export interface OstrelEvents extends MicroscopeEvents {
  /** The library's status code; null where it is not known. */
  status: [{ status: number | null; previous: number | null }];
  focus: [{ position: number | null; previous: number | null }];
  lens: [{ driver: number; group: number } | null];
  pixelSize: [{ micronsPerPixel: number; width: number; height: number } | null];
}

export interface OstrelState {
  connected: boolean;
  device: Microscope | null;
  status: number | null;
  focus: number | null;
  lens: { driver: number; group: number } | null;
  pixelSize: { micronsPerPixel: number; width: number; height: number } | null;
}

export class OstrelWatch extends EventEmitter<OstrelEvents> {
  private constructor();
  readonly state: Readonly<OstrelState>;
  readonly commands: OstrelCommands;
  /** Ends the watch; the microscope stays as it is. */
  close(): void;
}

/**
 * Turns the polled values of an Ostrel microscope into events. The library has to be loaded.
 * Several watches share one poll, so each gets each press. Keeps the process alive until it is closed.
 */
export function watchOstrel(options?: WatchMicroscopeOptions): OstrelWatch;

export interface WatchDinoLiteOptions extends WatchMicroscopeOptions {
  /** Listen to the MicroTouch button of the microscope that is selected: true, where `device` is given. */
  microtouch?: boolean;
}

export interface DinoLiteEvents extends MicroscopeEvents {
  /**
   * null where it is not known (any more). A reading is held until another one is off by more than 0.5 %, so one
   * that wanders is told once.
   */
  magnification: [{ magnification: number | null; previous: number | null }];
  fieldOfView: [{ fieldOfView: number | null; magnification: number | null }];
  led: [{ mode: number; previous: number }];
}

export interface DinoLiteState {
  connected: boolean;
  device: Microscope | null;
  /** The reading that is held, see the event. */
  magnification: number | null;
  /** At that magnification. */
  fieldOfView: number | null;
  ledMode: number;
}

export class DinoLiteWatch extends EventEmitter<DinoLiteEvents> {
  private constructor();
  readonly state: Readonly<DinoLiteState>;
  readonly commands: DinoLiteCommands;
  close(): void;
}

/**
 * The same for a Dino-Lite. Its library tells what is attached only when it is started anew, so a
 * microscope counts as disconnected when its magnification and field of view, known before, are not
 * told any more; one that never told either cannot be noticed.
 */
export function watchDinoLite(options?: WatchDinoLiteOptions): DinoLiteWatch;

// ---------------------------------------------------------------- doctor

export type DoctorNeed = 'camera' | 'recording' | 'ostrel' | 'dino-lite' | 'turbojpeg';

export interface DoctorOptions {
  /** Where the closed libraries are; the names alone, for the system's own search, if left out. OSTREL_NATIVE_DIR names their directory. */
  cameraLibrary?: string;
  ostrelLibrary?: string;
  dinoLiteLibrary?: string;
  turboJpegLibrary?: string;
  /** What has to work: ['camera', 'recording']. */
  need?: DoctorNeed[];
  addonFile?: string;
  /** Each probe runs in a process of its own, which is ended after this time: 30000. */
  timeoutMs?: number;
  signal?: AbortSignal | undefined;
}

export interface DoctorFinding {
  /** Stable, for programs: such as 'ffmpeg.libraries'. */
  id: string;
  /** The heading it stands under. */
  area: string;
  /** 'ok': there; 'note': worth knowing; 'missing': not there; 'failed': there, but does not work. */
  level: 'ok' | 'note' | 'missing' | 'failed';
  /** Whether what is needed cannot be done because of it. */
  essential: boolean;
  /** A label of a few words, and what was found. */
  label: string;
  text: string;
  /** What to do; null where there is nothing to do. */
  remedy: string | null;
}

export interface DoctorReport {
  /** All that is needed is there. */
  ok: boolean;
  need: DoctorNeed[];
  versions: Record<string, string | null>;
  findings: DoctorFinding[];
}

/** Looks at what this machine has and lacks, in processes of its own: nothing is loaded into the caller's. */
export function doctor(options?: DoctorOptions): Promise<DoctorReport>;

/** The report for people: aligned lines, and what to do next. */
export function formatReport(report: DoctorReport): string;

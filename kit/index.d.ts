// High-level helpers over the addon: the tested code that every application would otherwise write itself.
//
// Every function takes the native object as `native` or uses the package's main export. Nothing here
// changes the native object, and one process may use both side by side; docs/kit.md says which
// functions to leave to the kit meanwhile. All times are in milliseconds, all sizes in pixels, unless a name says
// otherwise. Invalid options throw a TypeError or RangeError that says what is wrong.

import type { EventEmitter } from 'node:events';

import type { OstrelNative } from '../index.js';

/** The package's main export. */
export type Native = OstrelNative;

export interface NativeOption {
  /** The native object; default: the package's main export. */
  native?: Native;
}

export interface WorkerOption {
  /**
   * The addon's file, which a worker thread loads again (it then sees the same cameras
   * and the same recorder). Found automatically for the main export and for addons loaded with `require`.
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

/** What preview to start; see `cameraPreviewStart`. Default: 960 by 540 at 30 frames a second. */
export interface PreviewChoice {
  width?: number;
  height?: number;
  frameRate?: number;
}

export interface FramesOptions extends NativeOption {
  /**
   * The camera. A function is called before each poll and returns a negative number for "none now". With
   * `device: () => watch.device` an iteration follows a camera whose index changes.
   */
  device?: number | (() => number);
  /** Start capture, and stop it at the end. Without it, the caller manages the capture. */
  capture?: CaptureChoice;
  /** Start a preview, and stop it at the end. Without it, the running preview is used. */
  preview?: PreviewChoice;
  /** Number of target arrays used in rotation: 2 to 64, default 3. */
  ring?: number;
  /** Ends the iteration: the pending or next `next()` rejects with the signal's reason. */
  signal?: AbortSignal | undefined;
}

export interface PreviewFrame {
  /** The frame's number, counted from 1 since the start of the preview. */
  sequence: number;
  /** Frames that the preview made between the previously yielded frame and this one. */
  missed: number;
  width: number;
  height: number;
  bytesPerRow: number;
  pixelFormat: string;
  sourceWidth: number;
  sourceHeight: number;
  /** Wall-clock time at which the preview made it. */
  timestampMs: number;
  /** Preview cycles without a frame, since its start. */
  droppedFrames: number;
  producedFrames: number;
  /** The preview's frame rate, measured over the last second; 0 during the first second. */
  producerFps: number;
  /**
   * The pixels, valid until `ring - 1` more frames were yielded; the array is then reused.
   * Copy what you want to keep. An array that was transferred to another thread is replaced.
   */
  data: Uint8Array;
}

/**
 * Yields the frames of a preview as they are made, each at most once and always the newest. Two iterations of one
 * preview each get every frame. Ends when other code stops the preview of a numbered `device`;
 * if the camera only stops delivering, it keeps waiting (see `watchCamera`).
 * However it ends (break, throw, abort, end), it stops what it started.
 * Throws an Error if a start fails, if no preview is running and none is to be started, or if a
 * preview is to be started while another one is running.
 */
export function frames(options?: FramesOptions): AsyncIterableIterator<PreviewFrame> & {
  return(): Promise<IteratorResult<PreviewFrame>>;
};

// ---------------------------------------------------------------- camera watch

export interface WatchCameraOptions extends NativeOption {
  /** The camera by its index at the start, default 0; or by its unique id. */
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
  /** How long a camera may deliver no frame before it counts as stalled: 800. */
  stallMs?: number;
  /** Interval between polls of the preview: 100. */
  pollMs?: number;
  /** Interval between searches for a lost camera: 1000. */
  searchMs?: number;
  signal?: AbortSignal | undefined;
}

export interface CameraWatchEvents {
  /** No new frame for `silentMs`; the camera is still listed. Emitted once until it recovers. */
  stalled: [{ device: number; silentMs: number; lastResult: number }];
  /** Three frames within `stallMs`, after 'stalled' or 'found'. */
  recovered: [{ device: number; silentMs: number }];
  /** The camera is no longer listed ('missing'), or returns errors ('failing', with the code in `lastResult`). */
  lost: [{ uniqueId: string; reason: 'missing' | 'failing'; lastResult: number }];
  /** The camera is back; its capture and preview are running again. */
  found: [{ device: number; uniqueId: string }];
  /** The camera is listed again, but could not be started; the watch retries after `searchMs`. */
  retry: [{ device: number; error: Error }];
  /** The watch has ended. */
  close: [];
}

export class CameraWatch extends EventEmitter<CameraWatchEvents> {
  private constructor();
  readonly uniqueId: string;
  /** The camera's current index; -1 while it is lost. */
  readonly device: number;
  readonly state: 'starting' | 'live' | 'stalled' | 'lost' | 'closed';
  /** Ends the watch and stops what it started; safe to call again. */
  close(): Promise<void>;
}

/**
 * Watches the preview of a camera and emits events. It finds a lost camera again by its unique
 * id and, with `capture` or `preview`, restarts it, after finishing a recording of the kit.
 * Keeps the process alive until it is closed.
 * Throws if the camera does not exist, has no unique id, or cannot be started with `start`.
 */
export function watchCamera(options?: WatchCameraOptions): CameraWatch;

// ---------------------------------------------------------------- recording

export interface RecordOptions extends NativeOption, WorkerOption {
  /** The camera whose preview is recorded: 0. */
  device?: number;
  /** The MP4 file; an existing one is replaced. Regular files only: no pipe, no device. */
  file: string;
  /** Permissions of a new file, less the umask: 0o640, readable by owner and group only. */
  mode?: number;
  /**
   * Nominal frames a second, 1 to 120. Default: the rate measured by the preview, for which the recording waits
   * if the preview is younger than a second; 30 if none is measured. Timestamps in the file are real
   * in any case, but the encoder allocates its bits by this rate.
   */
  frameRate?: number;
  /** Bits a second, 100,000 to 100,000,000: default: a tenth of a bit for each pixel of each frame, at least 1,000,000. */
  bitrate?: number;
  /** Stop automatically after this many seconds. */
  seconds?: number;
  /** Interval between progress events: 250. */
  progressMs?: number;
  /** How long the preview may deliver no frame before the file is finished: 5000. Also the wait for its first frame. */
  silenceMs?: number;
  /** Finishes the file; during the start it also makes `record` throw the signal's reason. */
  signal?: AbortSignal | undefined;
}

export interface RecordingProgress {
  /** Since the start of the recording. */
  elapsedMs: number;
  /** Duration of the frames in the file so far. */
  durationMs: number;
  framesWritten: number;
  /** Dropped because the encoder was too slow. */
  framesDropped: number;
  /** The file's current size. */
  bytes: number;
}

export interface RecordingWarning {
  code: 'colour-tags';
  /** Description of the problem and what to do. */
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
   * Why it failed; null if it did not. The file was then checked: it has an index that lists
   * `framesWritten` frames. After a disk error there is no index, and the file does not play.
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
  /** Warnings from the start; also emitted as events, one turn of the event loop after `record` resolved. */
  readonly warnings: readonly RecordingWarning[];
  /** The newest progress. */
  readonly progress: RecordingProgress;
  /** The result, once the file is finished; never rejects. */
  readonly finished: Promise<RecordingResult>;
  /** Finishes the file. Rejects if the recording failed; safe to call again. */
  stop(): Promise<RecordingResult>;
  /** Progress until the end; throws if the recording failed. Leaving the loop does not stop the recording. */
  [Symbol.asyncIterator](): AsyncIterableIterator<RecordingProgress>;
}

/**
 * Records the running preview, whose real size it reads, into an MP4 file. Opening the encoder and
 * finishing the file block a worker thread, not the caller's. The file is finished however the
 * recording ends: stop, abort, error, a lost preview, the end of the process.
 * A recording keeps the process alive with `seconds` and while someone waits for it: a listener for 'progress' or
 * 'end', an iteration, or a read of `finished`. Otherwise it is finished at the end of the process.
 * Meanwhile leave `cameraRecordingStart`, `cameraRecordingStop` and `cameraStopCapture` to the kit.
 * Rejects with an error if the size is odd, a recording is running, no preview is running, or the recorder refuses.
 */
export function record(options: RecordOptions): Promise<Recording>;

/** The colour tags in the file and the matrix used for its pixels, for a recording of an RGB preview of this size. */
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
  /** Of this stage, 0 to 1. The native call behind 'fusing' reports no progress. */
  stageDone: number;
  /** Overall, 0 to 1, never decreasing. */
  done: number;
}

export interface FuseStackOptions extends NativeOption, WorkerOption {
  /** At least 3 frames of one size, at most 16384 a side. Of more than 11, those that together show the most detail are fused. */
  frames: Iterable<StackFrame> | AsyncIterable<StackFrame>;
  /**
   * Transfer the frames' memory instead of copying it: their arrays are detached at once, and `sources`
   * of the result returns them. Arrays over a part of a buffer, or over shared memory, are still copied.
   */
  transfer?: boolean;
  /** Cancels: the promise rejects with the signal's reason when all work has ended. A running native fusion completes first. */
  signal?: AbortSignal | undefined;
  onProgress?: (progress: FuseProgress) => void;
}

export interface StackFrameReport {
  /** Index in the given frames. */
  index: number;
  /** Whether it could be aligned with the others. */
  registered: boolean;
  /** Whether it contributes pixels to the result. */
  accepted: boolean;
  scale: number;
  /** In radians. */
  rotation: number;
  shiftX: number;
  shiftY: number;
  /** The match with its neighbour in focus, up to 1. */
  score: number;
  /** Share of the picture in which it is the sharpest: 0 to 1. */
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
  /** Index in `frames` of the one that all others were aligned with. */
  reference: number;
  /** The fused frames with their measurements. */
  frames: StackFrameReport[];
  /** Fine detail relative to the best single frame; NaN if no frame has any. */
  gain: number;
  measuringMs: number;
  fusingMs: number;
  threads: number;
  simd: string;
  /** The given frames, with `transfer`. */
  sources?: StackFrame[];
}

/**
 * Fuses a focus stack into one picture that is sharp everywhere, on a worker thread: measures
 * where each frame is sharp, aligns the frames, and runs `edofMultibandFuse`.
 * Rejects with an error if the frames do not form a stack.
 */
export function fuseStack(options: FuseStackOptions): Promise<FusedStack>;

// ---------------------------------------------------------------- microscopes

export interface Microscope {
  index: number;
  uniqueId: string;
  name: string;
}

export interface CommandOptions {
  /** Cancels a queued command. For a running one it only ends the wait: the next starts when the library has answered. */
  signal?: AbortSignal | undefined;
}

/**
 * The waiting calls of a microscope family, one at a time, in order. There is one queue for each
 * family in a thread of script code, for all callers and native objects, so a library that
 * hangs occupies only one thread of the runtime's pool.
 * If a queued command is directly followed by one of the same kind, both get the newer one's result.
 * All reject with an error if the library refuses or times out.
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
  /** Select this microscope, by its unique id or index in the list, now and when it comes back. Without it, the caller selects. */
  device?: number | string;
  /** Interval between polls: 50. */
  pollMs?: number;
  /** How long the button must be up to count as released: 200. */
  releaseMs?: number;
  /** Interval between queries of the device list: 2000. */
  searchMs?: number;
  signal?: AbortSignal | undefined;
}

interface MicroscopeEvents {
  /** The capture button was pressed; once for each press, however long. */
  button: [{ at: number }];
  /** The microscope is connected, and selected if requested. */
  connected: [Microscope];
  disconnected: [Microscope];
  /** An action of the watch failed; the watch continues. */
  trouble: [Error];
  close: [];
}

export interface OstrelEvents extends MicroscopeEvents {
  /** The library's status code; null if unknown. */
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
  /** Ends the watch; the microscope keeps its state. */
  close(): void;
}

/**
 * Turns the polled values of an Ostrel microscope into events. The library must be loaded.
 * Several watches share one poll, so each reports every press. Keeps the process alive until it is closed.
 */
export function watchOstrel(options?: WatchMicroscopeOptions): OstrelWatch;

export interface WatchDinoLiteOptions extends WatchMicroscopeOptions {
  /** Enable the MicroTouch button of the selected microscope; default true if `device` is given. */
  microtouch?: boolean;
}

export interface DinoLiteEvents extends MicroscopeEvents {
  /**
   * null if unknown. A reading is kept until a new one differs by more than 0.5 %, so noise
   * causes no events.
   */
  magnification: [{ magnification: number | null; previous: number | null }];
  fieldOfView: [{ fieldOfView: number | null; magnification: number | null }];
  led: [{ mode: number; previous: number }];
}

export interface DinoLiteState {
  connected: boolean;
  device: Microscope | null;
  /** The current reading, see the event. */
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
 * The same for a Dino-Lite. Its library detects connected devices only at its start, so a
 * microscope counts as disconnected when its magnification and field of view were known and become
 * unknown. The loss of one that never reported either is not detected.
 */
export function watchDinoLite(options?: WatchDinoLiteOptions): DinoLiteWatch;

// ---------------------------------------------------------------- doctor

export type DoctorNeed = 'camera' | 'recording' | 'ostrel' | 'dino-lite' | 'turbojpeg';

export interface DoctorOptions {
  /** Paths of the closed libraries; default: their names, searched by the system. OSTREL_NATIVE_DIR names their directory. */
  cameraLibrary?: string;
  ostrelLibrary?: string;
  dinoLiteLibrary?: string;
  turboJpegLibrary?: string;
  /** What must work: ['camera', 'recording']. */
  need?: DoctorNeed[];
  addonFile?: string;
  /** Each probe runs in its own process, which is killed after this time: 30000. */
  timeoutMs?: number;
  signal?: AbortSignal | undefined;
}

export interface DoctorFinding {
  /** Stable id for programs, such as 'ffmpeg.libraries'. */
  id: string;
  /** The heading of its group. */
  area: string;
  /** 'ok': works; 'note': information; 'missing': not found; 'failed': found, but does not work. */
  level: 'ok' | 'note' | 'missing' | 'failed';
  /** Whether it prevents something that is needed. */
  essential: boolean;
  /** A short label, and what was found. */
  label: string;
  text: string;
  /** What to do; null if nothing. */
  remedy: string | null;
}

export interface DoctorReport {
  /** Whether everything needed works. */
  ok: boolean;
  need: DoctorNeed[];
  versions: Record<string, string | null>;
  findings: DoctorFinding[];
}

/** Checks what this machine has and lacks, in separate processes: nothing is loaded into the caller's. */
export function doctor(options?: DoctorOptions): Promise<DoctorReport>;

/** The report as readable text: aligned lines, and what to do next. */
export function formatReport(report: DoctorReport): string;

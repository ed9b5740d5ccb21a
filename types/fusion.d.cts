// Fusion: one sharp picture out of a focus stack that script code has measured.

/** One picture of the stack. */
export interface FusionFrame {
  /** Red, green, blue, alpha for each pixel, rows tight: `width * height * 4` bytes. A Uint8ClampedArray is refused. */
  rgba: Uint8Array;
  /** How many of its own pixels one pixel of the result is wide; above 0, 1 for a frame of the same scale. */
  sourcePixelsPerOutputPixel: number;
}

/** How one frame lies to the reference, on a coarse grid over the result. */
export interface FusionField {
  /** Cells, 1 to 16384; each frame may have a grid of its own. */
  mapWidth: number;
  /** Cells, 1 to 16384. */
  mapHeight: number;
  /**
   * Where the spot of each cell lies in this frame, counted in cells from the left: `mapWidth * mapHeight` values, row
   * by row. A frame that was not moved has 0, 1, 2 ... in each row.
   */
  x: Float32Array;
  /** The same, counted from the top. */
  y: Float32Array;
  /** How far each cell's alignment can be trusted, 0 to 1; below 0.02 it gives no pixels. */
  confidence: Float32Array;
  /** Whether the frame gives pixels, the reference too. Any value, taken as a truth value; missing means no. */
  accepted?: unknown;
}

/** A focus stack with its measurements. */
export interface FusionRequest {
  /** Pixels of the result and of every frame, 1 to 16384. */
  width: number;
  /** Pixels of the result and of every frame, 1 to 16384. */
  height: number;
  /** The frame to which the others were aligned; it fills what no other can show. */
  referenceIndex: number;
  /** 3 to 11 frames. */
  frames: readonly FusionFrame[];
  /** One for each frame. */
  fields: readonly FusionField[];
  /** One for each frame: how much it counts in each cell of its own grid, `mapWidth * mapHeight` values, any scale. */
  weights: readonly Float32Array[];
  /** Threads at work at a time, from 1 to 8; without a number half of the processors. The result is the same for all. */
  maxThreads?: number;
}

/** The sharp picture. */
export interface FusionResult {
  /** Red, green, blue, 255 for each pixel, rows tight: `width * height * 4` bytes of its own memory. */
  data: Uint8Array;
  backend: 'native-cpp';
  /** Which form of the arithmetic the processor got. Both give the same bytes. */
  simd: 'avx2' | 'sse2';
  /** The limit of threads that was in force, 1 to 8. */
  threads: number;
  /** Milliseconds of the fusion itself. */
  durationMs: number;
}

/** Fusion of focus stacks. */
export interface FusionFunctions {
  /**
   * Fuses a focus stack into one picture that is sharp wherever one of its frames is. The same input gives the same
   * bytes on every processor. The arrays are read where they lie and never written.
   *
   * @throws Error with a text that begins with "Native EDOF" or "edofMultibandFuse" for whatever is wrong with the
   *   request; nothing has been fused then.
   *
   * - Blocks: for the whole fusion, from some ten milliseconds to seconds. Call it from a worker thread.
   * - Thread: any environment, with up to seven helper threads for its own duration.
   * - Error text: not touched, failures are thrown.
   */
  edofMultibandFuse(request: FusionRequest): FusionResult;
}

// Fusion: one sharp picture out of a focus stack that script code has measured.

/** One picture of the stack. */
export interface FusionFrame {
  /**
   * Red, green, blue, alpha for each pixel, rows without padding: `width * height * 4` bytes. A Uint8ClampedArray is
   * refused.
   */
  rgba: Uint8Array;
  /** Width of one result pixel in pixels of this frame; above 0, and 1 for a frame of the same scale. */
  sourcePixelsPerOutputPixel: number;
}

/** Alignment of one frame to the reference, on a coarse grid over the result. */
export interface FusionField {
  /** Cells, 1 to 16384; each frame may have its own grid. */
  mapWidth: number;
  /** Cells, 1 to 16384. */
  mapHeight: number;
  /**
   * Position of each cell in this frame, in cells from the left: `mapWidth * mapHeight` values, row
   * by row. A frame without displacement has 0, 1, 2 ... in each row.
   */
  x: Float32Array;
  /** The same, in cells from the top. */
  y: Float32Array;
  /** Reliability of each cell's alignment, 0 to 1; below 0.02 the cell contributes no pixels. */
  confidence: Float32Array;
  /** Whether the frame, or the reference, contributes pixels. Any value, converted to boolean; missing means false. */
  accepted?: unknown;
}

/** A focus stack with its measurements. */
export interface FusionRequest {
  /** Pixels of the result and of every frame, 1 to 16384. */
  width: number;
  /** Pixels of the result and of every frame, 1 to 16384. */
  height: number;
  /** The frame to which the others were aligned; it fills areas that no other frame covers. */
  referenceIndex: number;
  /** 3 to 11 frames. */
  frames: readonly FusionFrame[];
  /** One for each frame. */
  fields: readonly FusionField[];
  /** One for each frame: its weight in each cell of its own grid, `mapWidth * mapHeight` values, any scale. */
  weights: readonly Float32Array[];
  /** Number of threads, 1 to 8; default: half of the processors. It does not affect the result. */
  maxThreads?: number;
}

/** The sharp picture. */
export interface FusionResult {
  /** Red, green, blue, 255 for each pixel, rows without padding: `width * height * 4` bytes in a new buffer. */
  data: Uint8Array;
  backend: 'native-cpp';
  /** The instruction set in use. Both give the same bytes. */
  simd: 'avx2' | 'sse2';
  /** The thread limit in effect, 1 to 8. */
  threads: number;
  /** Milliseconds of the fusion itself. */
  durationMs: number;
}

/** Fusion of focus stacks. */
export interface FusionFunctions {
  /**
   * Fuses a focus stack into one picture that is sharp wherever one of its frames is. The same input gives the same
   * bytes on every processor. The arrays are read in place and never written.
   *
   * @throws Error with a text that begins with "Native EDOF" or "edofMultibandFuse" if the request is invalid;
   *   thrown before anything is fused.
   *
   * - Blocks: for the whole fusion, from tens of milliseconds to seconds. Call it from a worker thread.
   * - Thread: any environment, with up to seven helper threads during the call.
   * - Error text: not touched, failures are thrown.
   */
  edofMultibandFuse(request: FusionRequest): FusionResult;
}

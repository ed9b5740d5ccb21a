// What a well-formed answer of each function is, whatever the other environments do meanwhile.

const boolean = (value) => typeof value === 'boolean';
const text = (value) => typeof value === 'string';
const number = (value) => typeof value === 'number' && !Number.isNaN(value);
const integer = (value) => Number.isInteger(value);
const count = (value) => Number.isInteger(value) && value >= 0;
const nothing = (value) => value === undefined;
const oneOf = (...values) => (value) => values.includes(value);
const either = (...shapes) => (value) => shapes.some((shape) => isLike(value, shape));
const orNull = (shape) => either(oneOf(null), shape);
const bytes = (value) => value instanceof Uint8Array;

/** Whether `value` has a shape: a test, [shape of each element], or { key: shape } with these keys alone. */
function isLike(value, shape) {
  if (typeof shape === 'function') {
    return shape(value);
  }
  if (Array.isArray(shape)) {
    return Array.isArray(value) && value.every((element) => isLike(element, shape[0]));
  }
  return value !== null && typeof value === 'object' &&
    Object.keys(value).sort().join() === Object.keys(shape).sort().join() &&
    Object.entries(shape).every(([key, inner]) => isLike(value[key], inner));
}

const counters = { droppedFrames: count, lastResult: integer, producerFps: number, producedFrames: count };
const previewPicture = {
  result: oneOf(0), sequence: count, width: count, height: count, bytesPerRow: count, pixelFormat: text,
  planeOffsets: [count], planeStrides: [count], sourceWidth: count, sourceHeight: count, sourceBytesPerRow: count,
  timestampMs: number, deliveryMode: oneOf('copy'), data: bytes, ...counters,
};
const copiedFrame = { ...previewPicture, producerMode: oneOf('polling') };
const directFrame = { ...previewPicture, producerMode: oneOf('callback'), dataLength: count, directSlot: oneOf(0, 1, 2) };
const noFrame = { result: oneOf(-256, -1, -11), data: oneOf(null), sequence: count };
const picture = { width: count, height: count, bytesPerRow: count, pixelFormat: oneOf('rgb', 'bgra'), data: bytes, timestampMs: number };
const source = { sourceWidth: integer, sourceHeight: integer, sourceBytesPerRow: integer };
const control = { result: integer };
const device = { index: count, uniqueId: text, name: text };

const shapes = {
  getLastError: text,
  lockFile: count,
  unlockFile: nothing,

  loadCameraBackend: boolean,
  loadTurboJpeg: boolean,
  turboJpegAvailable: boolean,
  turboJpegLoadPath: text,
  cameraLoadPath: text,
  cameraBackend: oneOf('none', 'linux-v4l2', 'directshow', 'avfoundation'),
  cameraInitialize: integer,
  cameraHasVideoCaptureAuth: integer,
  cameraAskVideoCaptureAuth: nothing,
  cameraDevicesCount: integer,
  cameraDeviceUniqueId: text,
  cameraDeviceModelId: text,
  cameraDeviceName: text,
  cameraDeviceType: text,
  cameraDeviceFormats: [{ width: integer, height: integer, frameRate: integer, type: text }],
  cameraStartCapture: integer,
  cameraStopCapture: integer,
  cameraHasFirstFrame: integer,
  cameraFrameInfo: {
    width: integer, height: integer, bytesPerRow: integer, dataSize: integer, pixelFormat: text,
    planeOffsets: [integer], planeStrides: [integer],
  },
  cameraButtonPressed: integer,
  cameraButtonTimestamp: number,
  cameraGrabFrame: either({ ...picture, result: integer },
    { width: integer, height: integer, bytesPerRow: integer, pixelFormat: text, result: oneOf(-10, -11), data: oneOf(null) }),
  cameraGrabFrameRgba: either(
    { ...source, result: oneOf(0), width: count, height: count, bytesPerRow: count, data: bytes, timestampMs: number },
    { ...source, result: (value) => integer(value) && value !== 0, data: oneOf(null) }),
  cameraHasVideoProcAmp: boolean,
  cameraVideoProcAmpRange: { ...control, min: integer, max: integer, step: integer, default: integer, caps: integer },
  cameraVideoProcAmpGet: { ...control, value: integer, flags: integer },
  cameraVideoProcAmpSet: control,

  cameraPreviewStart: integer,
  cameraPreviewStop: oneOf(0),
  cameraPreviewIsRunning: boolean,
  cameraPreviewIsDirect: boolean,
  cameraPreviewReleaseDirectSlot: oneOf(0, -1, -7),
  cameraPreviewReleaseAllDirectSlots: oneOf(0),
  cameraPreviewGetLatest: either(copiedFrame, directFrame, { ...noFrame, ...counters }, { ...noFrame, droppedFrames: count }),
  cameraPreviewGetLatestQualityFrame: either({ ...picture, result: oneOf(0), sequence: count },
    { result: oneOf(-256), sequence: count, data: oneOf(null) }),
  cameraGrabEncodedFrame: either({ result: oneOf(-256), data: oneOf(null) }, {
    result: oneOf(0), sequence: count, width: count, height: count, mimeType: oneOf('image/jpeg'), timestampMs: number, data: bytes,
  }),

  cameraRecordingAvailable: boolean,
  cameraRecordingStart: oneOf(0, -1, -2, -3, -5, -13),
  cameraRecordingStop: oneOf(0, -3),
  cameraRecordingStatus: {
    available: boolean, recording: boolean, outputPath: text, error: text, framesWritten: count, framesDropped: count,
    durationMs: count, width: count, height: count, frameRate: count, bitrate: count,
  },

  edofMultibandFuse: { data: bytes, backend: oneOf('native-cpp'), simd: oneOf('avx2', 'sse2'), threads: count, durationMs: number },

  loadDinoLite: { ok: boolean, backend: oneOf('none', 'mac-libdinolite'), path: text },
  dinoLiteInit: boolean,
  dinoLiteLastError: text,
  dinoLiteSelectBackendForProductId: {
    ok: boolean, supportsAmr: boolean, dnxLoadAttempted: oneOf(false), backend: text, path: text, reason: text,
  },
  dinoLiteInitAsync: boolean,
  dinoLiteDeviceCount: integer,
  dinoLiteDevicesAsync: [device],
  dinoLiteDeviceId: text,
  dinoLiteDeviceName: text,
  dinoLiteSelectDevice: boolean,
  dinoLiteSelectDeviceAsync: boolean,
  dinoLiteGetSelectedDevice: integer,
  dinoLiteSupportsAmr: boolean,
  dinoLiteGetAmr: orNull((value) => value >= 10 && value <= 1000),
  dinoLiteGetFovx: orNull((value) => value > 0),
  dinoLiteEnableMicrotouch: boolean,
  dinoLiteEnableMicrotouchAsync: boolean,
  dinoLiteMicrotouchPressed: boolean,
  dinoLiteToggleLed: integer,
  dinoLiteToggleLedAsync: integer,
  dinoLiteDebugState: (value) => boolean(value.loaded) && [17, 18].includes(Object.keys(value).length) &&
    isLike(value.ledModes, [integer]) && (value.loaded ? value.error === undefined && value.path !== '' : text(value.error)),
  dinoLiteDispose: boolean,
  dinoLiteDisposeAsync: boolean,

  loadOstrel: { ok: boolean, path: text },
  ostrelInit: boolean,
  ostrelLastError: text,
  ostrelInitAsync: boolean,
  ostrelDeviceCount: integer,
  ostrelDevicesAsync: [device],
  ostrelDeviceUniqueId: text,
  ostrelDeviceFriendlyName: text,
  ostrelSelectDevice: boolean,
  ostrelSelectDeviceAsync: boolean,
  ostrelGetSelectedDevice: integer,
  ostrelGetScopeStatus: integer,
  ostrelGetPixelSizeMicrons: number,
  ostrelGetPixelSizeInfo: (value) => isLike(value, { ok: boolean, micronsPerPixel: number, width: count, height: count }) &&
    value.micronsPerPixel > 0 === value.ok,
  ostrelGetLensGroupInfo: { ok: boolean, lensDriver: count, lensGroup: count },
  ostrelCapabilities: { apiVersion: count, focus: boolean, led: boolean, pixelSizeInfo: boolean, lensGroupInfo: boolean },
  ostrelGetFocusPosition: (value) => integer(value) && value >= -1 && value <= 65535,
  ostrelGetLedState: oneOf(-1, 0, 1),
  ostrelTriggerAutoFocusAsync: boolean,
  ostrelSetFocusPositionAsync: boolean,
  ostrelFocusNearAsync: boolean,
  ostrelFocusFarAsync: boolean,
  ostrelSetLedStateAsync: boolean,
  ostrelIsCapturePressed: boolean,
  ostrelVersionInfo: orNull({
    productId: count, hardwareMajorVersion: count, hardwareMinorVersion: count, softwareMajorVersion: count,
    softwareMinorVersion: count, softwarePatchVersion: count,
  }),
  ostrelProtocolVersionInfo: orNull({ majorVersion: count, minorVersion: count, patchVersion: count }),
  ostrelDispose: boolean,
  ostrelDisposeAsync: boolean,
};

/** Whether an answer is well formed for its function; that of a promise, once it is resolved. */
export const isWellFormed = (name, answer) => isLike(answer, shapes[name]);

// What a call may throw with arguments that are all right.
const refusals = { lockFile: /^LOCK_FILE_EXISTS$/ };

export const mayThrow = (name, error) => error instanceof Error && (refusals[name]?.test(error.message) ?? false);

const sampledBytes = 4096;

// A sample of the alpha bytes that begins elsewhere for each frame; a small frame is looked at whole.
function isOpaque(data, start) {
  const pixels = data.length / 4;
  const step = Math.max(1, Math.floor((4 * pixels) / sampledBytes));
  for (let pixel = start % step; pixel < pixels; pixel += step) {
    if (data[4 * pixel + 3] !== 255) {
      return false;
    }
  }
  return true;
}

function isRepeated(data, unit) {
  const all = Buffer.from(data.buffer, data.byteOffset, data.length);
  return all.subarray(unit).equals(all.subarray(0, all.length - unit));
}

/** What is wrong with a copied preview frame, or undefined. `isUniform`: all its pixels are the same. */
export function flawOfFrame({ width, height, bytesPerRow, data, sequence }, isUniform) {
  if (width < 1 || height < 1 || bytesPerRow !== 4 * width || data.length !== height * bytesPerRow) {
    return `a frame of ${width} by ${height}, ${bytesPerRow} bytes a row, in ${data.length} bytes`;
  }
  if (!isOpaque(data, sequence)) {
    return 'a frame with a pixel that is not opaque';
  }
  return isUniform && !isRepeated(data, 4) ? 'a frame of two pictures' : undefined;
}

/** The same of a frame in a lent array: four-byte words that are all the same, or a decoded flat grey. */
export function flawOfDirectFrame({ data, dataLength, width, height, pixelFormat }) {
  if (data.length !== dataLength) {
    return `${data.length} bytes instead of ${dataLength}`;
  }
  const isWhole = pixelFormat === 'i420'
    ? isRepeated(data.subarray(0, width * height), 1) && isRepeated(data.subarray(width * height), 1)
    : isRepeated(data, 4);
  return isWhole ? undefined : 'a direct frame of two pictures';
}

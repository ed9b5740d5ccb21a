// The probes of the doctor, each run in a process of its own: node probe.js NAME JOB. The result goes to
// the descriptor 3 as one line.

import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';

import { encoderNames } from './ffmpeg-facts.js';

const require = createRequire(import.meta.url);
const resultFd = 3;
const trialSize = [1280, 720, 30, 4_000_000];

const loadNative = ({ addonFile }) => require(addonFile ?? '../../index.cjs');

/**
 * Why a file or name cannot be opened as a library; null where it opens. The native object is asked, which
 * looks whether the file is whole: the system's loader dies of one that is cut off. Of TurboJPEG's functions
 * another library has none, and is closed again.
 */
function openingText(native, file) {
  const prefix = `Could not load native library '${file}': `;
  const words = native.loadTurboJpeg(file) ? '' : native.getLastError();
  return words.startsWith(prefix) ? words.slice(prefix.length) : null;
}

const loaders = {
  camera: (native, file) => ({ ok: native.loadCameraBackend(file), path: native.cameraLoadPath() }),
  ostrel: (native, file) => native.loadOstrel(file),
  dinoLite: (native, file) => native.loadDinoLite(file),
  turboJpeg: (native, file) => ({ ok: native.loadTurboJpeg(file), path: native.turboJpegLoadPath() }),
};

const listers = {
  camera(native) {
    const code = native.cameraInitialize();
    const count = native.cameraDevicesCount();
    const names = Array.from({ length: Math.max(count, 0) }, (_, index) => native.cameraDeviceName(index));
    return { code, mayCapture: native.cameraHasVideoCaptureAuth() === native.STATUS_AUTHORIZED, names: names.filter(Boolean) };
  },
  async ostrel(native) {
    return { names: (await native.ostrelDevicesAsync()).map(({ name }) => name), words: native.ostrelLastError() };
  },
  async dinoLite(native) {
    await native.dinoLiteInitAsync();
    return { names: (await native.dinoLiteDevicesAsync()).map(({ name }) => name), words: native.dinoLiteLastError() };
  },
  turboJpeg: () => ({}),
};

const probes = {
  addon(job) {
    const native = loadNative(job);
    const files = Object.values(require.cache).filter((module) => module?.exports === native).map(({ filename }) => filename);
    return { file: files.find((file) => file.endsWith('.node')) ?? files[0] };
  },

  /** Loads a closed library as the application would, and looks at what it lists. */
  async library(job) {
    const native = loadNative(job);
    for (const file of job.files) {
      const { ok, path: loaded } = loaders[job.kind](native, file);
      if (ok) {
        return { loaded, files: job.files, ...(await listers[job.kind](native)) };
      }
    }
    const words = native.getLastError();
    return {
      loaded: null,
      words,
      files: job.files,
      tried: job.files.map((file) => ({ file, text: openingText(native, file) })),
    };
  },

  ffmpeg(job) {
    const native = loadNative(job);
    const isAvailable = native.cameraRecordingAvailable();
    const maps = fs.readFileSync('/proc/self/maps', 'utf8');
    return {
      isAvailable,
      loaded: [...new Set(maps.match(/\/\S*\/lib(?:avutil|avcodec|avformat)\.so\S*/g))],
      tried: isAvailable ? [] : job.files.map((file) => ({ file, text: openingText(native, file) })),
    };
  },

  /** Opens each encoder for a file of its own. A preview has to run; it needs no camera for that. */
  encoders(job) {
    const native = loadNative(job);
    const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'ostrel-doctor-'));
    native.cameraPreviewStart(0, 16, 16, 1);
    try {
      return encoderNames.map((name) => {
        process.env.OSTREL_FFMPEG_ENCODER = name;
        const code = native.cameraRecordingStart(path.join(directory, `${name}.mp4`), ...trialSize);
        const words = code === 0 ? '' : native.getLastError();
        native.cameraRecordingStop();
        return { name, opens: code === 0, words };
      });
    } finally {
      native.cameraPreviewStop(0);
      fs.rmSync(directory, { recursive: true, force: true });
    }
  },
};

async function main() {
  const [name, job] = process.argv.slice(2);
  const answer = await Promise.resolve().then(() => probes[name](JSON.parse(job)))
    .then((value) => ({ value }), (error) => ({ failure: error.message }));
  fs.writeSync(resultFd, `${JSON.stringify(answer)}\n`);
  // A library's own threads must not keep the answer back.
  process.exit(0);
}

await main();

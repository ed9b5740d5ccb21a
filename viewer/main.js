// The viewer: a camera, a microscope and a page to see them on.
//
//   npm run viewer -- [--port N] [--output FOLDER] [--camera FILE] [--ostrel FILE] [--dino-lite FILE]
//                     [--linger SECONDS]
//
// Camera and microscope are the virtual ones of this project unless one of the libraries is named.

import { mkdtemp, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { parseArgs } from 'node:util';

import { loadAddon } from '../examples/lib/load-addon.js';
import { recordingsDirectory, row, userPath } from '../examples/lib/report.js';
import { simulatedLibrary } from '../examples/lib/virtual-microscope.js';
import { addonFileOf } from '../kit/native.js';
import { NativeWorker } from '../kit/native-worker.js';
import { Archive } from './archive.js';
import { viewerArguments } from './arguments.js';
import { Board } from './board.js';
import { CameraDesk } from './camera.js';
import { commandRunner } from './commands.js';
import { ViewerServer } from './http-server.js';
import { MicroscopeDesk } from './microscope.js';
import { Misbehaviour } from './misbehaviour.js';
import { Pages } from './pages.js';
import { RecordingDesk } from './recording.js';
import { StackDesk } from './stack.js';
import { StillsDesk } from './stills.js';

const longestLingerSeconds = 86_400;

export function readArguments(args) {
  const { values } = parseArgs({ args, options: viewerArguments.options });
  const port = Number(values.port);
  if (!Number.isInteger(port) || port < 0 || port > 65535) {
    throw new Error('--port takes a number from 0 to 65535.');
  }
  const seconds = Number(values.linger);
  if (!(seconds >= 0 && seconds <= longestLingerSeconds)) {
    throw new Error(`--linger takes a number of seconds from 0 to ${longestLingerSeconds}.`);
  }
  const named = ['camera', 'ostrel', 'dino-lite'].some((name) => values[name] !== undefined);
  const library = (option, name) => (values[option] ? userPath(values[option]) : named ? null : simulatedLibrary(name));
  return {
    port,
    lingerMs: seconds * 1000,
    output: values.output ? userPath(values.output) : recordingsDirectory,
    isVirtual: !named,
    camera: library('camera', 'libcnokhwa.so') ?? 'libcnokhwa.so',
    ostrel: library('ostrel', 'libostrel.so'),
    dinoLite: library('dino-lite', 'libdinolite.so'),
  };
}

/** Sets the virtual microscope up: its knobs are read when its library is first called. */
async function prepareVirtual() {
  const directory = await mkdtemp(path.join(os.tmpdir(), 'ostrel-viewer-'));
  process.env.OSTREL_SIMULATOR_CONTROL ??= path.join(directory, 'control');
  process.env.OSTREL_SIMULATOR_NUMBERS ??= '0';
  process.env.OSTREL_SIMULATOR_STAGE ??= 'moving';
  return { directory, controlPath: process.env.OSTREL_SIMULATOR_CONTROL };
}

/** A running viewer. */
export class Viewer {
  static async start(choice) {
    const viewer = new Viewer();
    viewer.choice = choice;
    viewer.suited = Promise.resolve();
    const native = loadAddon(process.env.OSTREL_TEST_ADDON);
    const board = new Board();
    const archive = new Archive(choice.output);
    // What blocks runs beside the thread that serves pages: the camera's calls, and those of a microscope.
    const [background, asking] = Array.from({ length: 2 }, () => new NativeWorker(addonFileOf(native)));
    const camera = new CameraDesk({ native, background, board });
    const microscope = new MicroscopeDesk({ native, background: asking, board });
    const recording = new RecordingDesk({ native, board, archive, camera });
    const stills = new StillsDesk({ native, board, archive, camera, microscope });
    const misbehaviour = new Misbehaviour({ board, camera });
    const stack = new StackDesk({ native, board, archive, camera, microscope, misbehaviour });
    Object.assign(viewer, { background, asking, board, camera, microscope, recording, stills, stack, misbehaviour });
    const runCommand = commandRunner({ camera, microscope, recording, stills, stack, misbehaviour, board });
    viewer.pages = new Pages({ board, runCommand, onFirst: () => viewer.wake(), onEmpty: () => viewer.linger() });
    viewer.server = await ViewerServer.start({ port: choice.port, findFile: (name) => archive.find(name), feed: camera.feed,
      acceptSocket: (...request) => viewer.pages.accept(...request) });
    try {
      await viewer.open();
    } catch (error) {
      await viewer.close();
      throw error;
    }
    return viewer;
  }

  async open() {
    const virtual = this.choice.isVirtual ? await prepareVirtual() : { directory: null, controlPath: null };
    this.temporary = virtual.directory;
    await this.camera.open(this.choice.camera);
    if (virtual.controlPath) {
      await this.misbehaviour.open(virtual.controlPath);
    }
    await this.microscope.open({ ...this.choice, onButton: () => this.takeStill() });
  }

  takeStill() {
    this.stills.take().catch((error) => this.board.log('refused', error.message));
  }

  /** A page has come where there was none. */
  wake() {
    clearTimeout(this.lingering);
    this.suitPages();
  }

  /** The last page has gone: one that is only reloaded comes back in time. */
  linger() {
    this.lingering = setTimeout(() => this.suitPages(), this.choice.lingerMs);
  }

  /** The camera runs as long as somebody looks; without anybody, what is recorded is finished. */
  suitPages() {
    this.suited = this.suited.then(async () => {
      if (this.pages.count === 0) {
        this.stack.cancel();
        await this.recording.stop();
        await this.camera.stop();
      } else if (this.camera.device < 0) {
        await this.camera.choose();
      }
    }).catch((error) => this.board.log('refused', error.message));
  }

  /** Ends all, finishing what runs. */
  async close() {
    clearTimeout(this.lingering);
    this.stack.cancel();
    await this.misbehaviour.close();
    this.pages.close();
    await this.server.close();
    await this.suited;
    await this.recording.stop();
    await this.camera.close();
    await this.microscope.close();
    await Promise.all([this.background.close(), this.asking.close()]);
    this.board.close();
    if (this.temporary) {
      await rm(this.temporary, { recursive: true });
    }
  }
}

/** Runs the viewer of a command line until it is interrupted. */
export async function runViewer(args) {
  const viewer = await Viewer.start(readArguments(args));
  console.log('\nViewer');
  row('open', viewer.server.url);
  row('files', viewer.choice.output);
  row('end', 'Ctrl+C');
  let isEnding = false;
  const end = async () => {
    // One Ctrl+C comes twice: from the terminal, and once more from npm.
    if (isEnding) {
      return;
    }
    isEnding = true;
    console.log(viewer.recording.phase === 'recording' ? '\nFinishing the recording' : '');
    await viewer.close();
    process.exit();
  };
  ['SIGINT', 'SIGTERM'].forEach((signal) => process.on(signal, end));
}

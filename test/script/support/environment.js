// Where the build under test lies, and what kind of build it is.

import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../../..', import.meta.url));
const buildDirectory = process.env.OSTREL_TEST_BUILD_DIR ?? path.join(root, 'build', 'release');

/** The addon under test. */
export const addonPath =
  path.resolve(process.env.OSTREL_TEST_ADDON ?? path.join(root, 'build', 'Release', 'ostrel_native.node'));

/** The test build of the addon, whose exports also hold `testing`; see direct_backend_exports.cpp. */
export const testingAddonPath = path.resolve(buildDirectory, 'testing', 'Release', 'ostrel_native_testing.node');

/** The build of the addon that also loads the reference backends; see simulator/reference_loader.h. */
export const directAddonPath = path.resolve(buildDirectory, 'direct', 'Release', 'ostrel_native_direct.node');

/** The simulated camera of the same build. */
export const simulatorPath = path.join(path.dirname(addonPath), 'simulator', 'libcnokhwa.so');

/** The reference backend of a kind, `directshow` or `avfoundation`, of the same build. */
export const referenceBackendPath = (kind) =>
  path.join(path.dirname(simulatorPath), `libreference_${{ directshow: 'dshow', avfoundation: 'avf' }[kind]}.so`);

/** A file that the build put among the fakes, such as `without_cnokhwa_grab_frame/libcnokhwa.so`. */
export const fakePath = (name) => path.resolve(buildDirectory, 'fakes', name);

/** A reference that the build made loadable, such as `fuse_reference.node`. */
export const referencePath = (name) => path.resolve(buildDirectory, 'reference', name);

/** The names in a list of symbols in `src`, in its order: [{ name, kind }]. */
export function readSymbols(file) {
  const text = fs.readFileSync(path.join(root, 'src', file), 'utf8');
  return [...text.matchAll(/^(REQUIRED|OPTIONAL|SYMBOL)\((\w+)/gm)].map(([, kind, name]) => ({ kind, name }));
}

const isSanitized = /lib[at]san/.test(process.env.LD_PRELOAD ?? '');

/** Why a test cannot run under the sanitizer in use, for its `skip`; false without a sanitizer. */
export const skipUnderSanitizer = (reason) => isSanitized && `not under a sanitizer: ${reason}`;

/** What a process gets that ends before Node.js has freed what is its own, leaks or not. */
export const untidyEnvironment = { ASAN_OPTIONS: `${process.env.ASAN_OPTIONS ?? ''}:detect_leaks=0` };

/** For programs that aren't instrumented: a sanitizer's run-time library has nothing to do there. */
export const toolEnvironment = { ...process.env, LD_PRELOAD: '' };

export const loadAddon = (file = addonPath) => createRequire(import.meta.url)(file);

// The place of FFmpeg behind the addon's own directory is right for the release build alone.
// Children inherit the variable.
const built = path.join(root, 'natives', 'x64');
const bundled = path.join(path.dirname(addonPath), '..', '..', 'natives', 'x64');
if (!fs.existsSync(bundled) && fs.existsSync(built)) {
  process.env.OSTREL_FFMPEG_LIBRARY_DIR ??= built;
}

// FFmpeg leaks what it has set up for h264_v4l2m2m where there is no such device.
if (isSanitized) {
  process.env.OSTREL_FFMPEG_ENCODER ??= 'libx264';
}

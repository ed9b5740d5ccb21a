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

/** The simulated camera of the same build. */
export const simulatorPath = path.join(path.dirname(addonPath), 'simulator', 'libcnokhwa.so');

/** A file that the build put among the fakes, such as `without_cnokhwa_grab_frame/libcnokhwa.so`. */
export const fakePath = (name) => path.resolve(buildDirectory, 'fakes', name);

/** The names in a list of symbols in `src`, in its order: [{ name, kind }]. */
export function readSymbols(file) {
  const text = fs.readFileSync(path.join(root, 'src', file), 'utf8');
  return [...text.matchAll(/^(REQUIRED|OPTIONAL|SYMBOL)\((\w+)/gm)].map(([, kind, name]) => ({ kind, name }));
}

/** Why a test cannot run under the sanitizer in use, for its `skip`; false without a sanitizer. */
export const skipUnderSanitizer = (reason) =>
  /lib[at]san/.test(process.env.LD_PRELOAD ?? '') && `not under a sanitizer: ${reason}`;

export const loadAddon = () => createRequire(import.meta.url)(addonPath);

// The place of FFmpeg behind the addon's own directory is right for the release build alone.
// Children inherit the variable.
const built = path.join(root, 'natives', 'x64');
const bundled = path.join(path.dirname(addonPath), '..', '..', 'natives', 'x64');
if (!fs.existsSync(bundled) && fs.existsSync(built)) {
  process.env.OSTREL_FFMPEG_LIBRARY_DIR ??= built;
}

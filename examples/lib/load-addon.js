// Finds and loads the addon.

import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const buildDirectory = fileURLToPath(new URL('../../build/Release', import.meta.url));

/** The build of the addon that also loads libraries with a frame callback; for demonstrations alone. */
export const directAddon =
  fileURLToPath(new URL('../../build/release/direct/Release/ostrel_native_direct.node', import.meta.url));

/** The addon's exports. One process loads it once; a second call gives the same object. */
export function loadAddon(file = path.join(buildDirectory, 'ostrel_native.node')) {
  try {
    return createRequire(import.meta.url)(file);
  } catch (error) {
    throw new Error(`The addon could not be loaded from ${file} (${error.message}). Run "npm start" to build it.`);
  }
}

// The native object that a function of the kit works on, and the file that it came from.

import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);

/** The native object of `options`, or the package's main export. */
export function nativeOf({ native } = {}) {
  const object = native ?? require('../index.cjs');
  if (typeof object?.getLastError !== 'function') {
    throw new TypeError('`native` takes the native object: the main export of the package.');
  }
  return object;
}

/** The file from which a worker thread can load `native` anew. */
export function addonFileOf(native, addonFile) {
  if (addonFile !== undefined) {
    if (typeof addonFile !== 'string' || addonFile === '') {
      throw new TypeError('`addonFile` takes the path of the native object\'s file.');
    }
    return addonFile;
  }
  const loaded = Object.values(require.cache).filter((module) => module?.exports === native).map(({ filename }) => filename);
  const file = loaded.find((name) => name.endsWith('.node')) ?? loaded[0];
  if (file === undefined) {
    throw new Error('It cannot be told which file the native object came from: name it as `addonFile`.');
  }
  return file;
}

// Where things lie in the project.

import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
export const setupLog = path.join(root, 'build', 'setup.log');

/** A path for people: relative to the project. */
export const shown = (file) => path.relative(root, file) || '.';

/** Where a preset builds. */
export const binaryDirectory = (preset) => path.join(root, 'build', preset);

/** The directory that a preset's addon, and the virtual microscope beside it, land in. */
export function addonDirectory(preset) {
  return preset === 'release'
    ? path.join(root, 'build', 'Release')
    : path.join(binaryDirectory(preset), 'addon', 'Release');
}

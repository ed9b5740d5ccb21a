// The project's own files, as git knows them.

import fs from 'node:fs';
import path from 'node:path';

import { Failure } from './output.js';
import { root } from './paths.js';
import { output } from './processes.js';

/** Full paths of the files that match the patterns: tracked ones and new ones, not ignored ones. */
export function sourceFiles(patterns) {
  const list = output('git', ['ls-files', '-z', '--cached', '--others', '--exclude-standard', '--', ...patterns]);
  if (list === null) {
    throw new Failure('git is needed to find the source files: run this in a clone of the project.');
  }
  return list.split('\0').filter(Boolean).map((name) => path.join(root, name)).filter((file) => fs.existsSync(file));
}

export const cppFiles = () => sourceFiles(['*.cpp', '*.h', '*.c']);
export const scriptFiles = () => sourceFiles(['*.js']);

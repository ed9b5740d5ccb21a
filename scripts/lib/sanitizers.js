// How the tests run under a sanitizer.

import fs from 'node:fs';
import path from 'node:path';

import { root } from './paths.js';
import { output } from './processes.js';

/** The presets with a sanitizer, by the name that the preset has. */
export const sanitizers = {
  'asan-ubsan': {
    runtime: 'libasan.so',
    suppressions: { LSAN_OPTIONS: 'lsan.supp' },
    options: {
      ASAN_OPTIONS: ['detect_leaks=1', 'detect_stack_use_after_return=1', 'strict_string_checks=1'],
      LSAN_OPTIONS: ['print_suppressions=0'],
      UBSAN_OPTIONS: ['print_stacktrace=1'],
    },
  },
  tsan: {
    runtime: 'libtsan.so',
    suppressions: { TSAN_OPTIONS: 'tsan.supp' },
    // Node.js and FFmpeg aren't instrumented; what they do behind the addon's back is theirs.
    options: { TSAN_OPTIONS: ['ignore_noninstrumented_modules=1', 'second_deadlock_stack=1'] },
  },
};

/** The variables that a sanitizer's run-time library reads. */
export function sanitizerOptions(preset, directory = path.join(root, 'test', 'sanitizers')) {
  const { options, suppressions } = sanitizers[preset];
  return Object.fromEntries(Object.entries(options).map(([variable, values]) => {
    const file = suppressions[variable] && path.join(directory, suppressions[variable]);
    // A path with a space would end the option without the quotes.
    const extra = file && fs.existsSync(file) ? [`suppressions="${file}"`] : [];
    return [variable, [...values, ...extra].join(':')];
  }));
}

/**
 * The variables for the unit tests, which are linked with the sanitizer, and for the script
 * tests, where Node.js has to load it before the addon comes.
 */
export function sanitizedEnvironments(preset) {
  const options = sanitizerOptions(preset);
  const runtime = output('g++', [`-print-file-name=${sanitizers[preset].runtime}`]);
  return { unit: options, script: { ...options, LD_PRELOAD: runtime } };
}

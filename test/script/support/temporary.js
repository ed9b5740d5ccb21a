// Temporary directories, gone when the test process ends.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

export function makeTemporaryDirectory() {
  const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'ostrel-script-test-'));
  process.on('exit', () => fs.rmSync(directory, { recursive: true, force: true }));
  return directory;
}

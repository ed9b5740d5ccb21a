// What the tasks of the owner threads may hold on to. A task can outlive its caller, so it captures
// values that it names, and nothing by reference or wholesale.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

const source = fileURLToPath(new URL('../../src', import.meta.url));
const files = ['devices', 'addon'].flatMap((folder) => fs.readdirSync(path.join(source, folder))
  .filter((name) => /\.(cpp|h)$/.test(name)).map((name) => path.join(folder, name)));
const read = (file) => fs.readFileSync(path.join(source, file), 'utf8');
const usesTasks = (text) => /Invoke(Void)?\(|Enqueue\(|PostCoalesced\(|Run\w+Async\(/.test(text);

describe('the captures of tasks', () => {
  const users = files.filter((file) => usesTasks(read(file)));

  it('are looked at in every file that starts tasks', () => {
    assert.deepEqual(users.filter((file) => file.startsWith('devices')).sort(), ['dino_lite', 'ostrel'].flatMap((family) =>
      ['devices', 'module', 'operations', 'telemetry'].map((subject) => `devices/${family}_${subject}.cpp`)));
  });

  for (const file of users) {
    it(`are values by name in ${file}`, () => {
      assert.deepEqual(read(file).match(/\[\s*(&|=|this|\*this)[^\]]*\]\s*[({]/g) ?? [], []);
    });
  }
});

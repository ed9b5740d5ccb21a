// Lock files: one holder at a time, also across processes, and nothing left open by a failure.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, describe, it } from 'node:test';

import { runInChild, valueFromChild } from './support/child.js';
import { fakePath, loadAddon, skipUnderSanitizer } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const addon = loadAddon();
const directory = makeTemporaryDirectory();
let files = 0;
const freshPath = () => path.join(directory, `${files++}.lock`);
const openDescriptors = () => fs.readdirSync('/proc/self/fd').length;

/** Asserts that `lockFile(...args)` throws a plain Error with exactly this text. */
function assertRefused(args, message) {
  const descriptors = openDescriptors();
  assert.throws(() => addon.lockFile(...args), (error) => {
    assert.equal(Object.getPrototypeOf(error), Error.prototype);
    assert.equal(error.message, message);
    assert.equal(error.code, undefined);
    return true;
  });
  assert.equal(openDescriptors(), descriptors);
}

describe('lockFile', () => {
  it('gives a descriptor, and refuses the same path until the file is removed', () => {
    const file = freshPath();
    const descriptor = addon.lockFile(file);
    assert.ok(Number.isInteger(descriptor) && descriptor > 2);
    assert.equal(fs.fstatSync(descriptor).ino, fs.statSync(file).ino);
    assertRefused([file], 'LOCK_FILE_EXISTS');
    assert.equal(addon.unlockFile(descriptor), undefined);
    assertRefused([file], 'LOCK_FILE_EXISTS');
    fs.rmSync(file);
    addon.unlockFile(addon.lockFile(file));
  });

  it('wants a path that is a string', () => {
    for (const args of [[], [''], [undefined], [null], [7], [true], [{}], [[freshPath()]], [new String(freshPath())]]) {
      assertRefused(args, 'lockFile requires a path argument');
    }
  });

  it('tells the number of any other failure', () => {
    assertRefused(['/nowhere/app.lock'], 'Failed to open lock file: /nowhere/app.lock (errno 2)');
    assertRefused([`${directory}/\u00b5/x`], `Failed to open lock file: ${directory}/\u00b5/x (errno 2)`);
    assertRefused(['/proc/app.lock'], 'Failed to open lock file: /proc/app.lock (errno 2)');
    assertRefused(['/dev/null/x'], 'Failed to open lock file: /dev/null/x (errno 20)');
    assertRefused([directory], 'LOCK_FILE_EXISTS');
  });

  it('is refused by a folder that is read-only', { skip: process.getuid() === 0 && 'root may write anywhere' }, () => {
    const folder = fs.mkdtempSync(path.join(directory, 'read-only-'));
    fs.chmodSync(folder, 0o555);
    after(() => fs.chmodSync(folder, 0o755));
    assertRefused([path.join(folder, 'x')], `Failed to open lock file: ${path.join(folder, 'x')} (errno 13)`);
  });

  it('is refused by a folder that is read-only for an ordinary user',
    { skip: process.getuid() !== 0 && 'only root can become another user' }, async () => {
      const folder = fs.mkdtempSync(path.join(directory, 'read-only-'));
      fs.chmodSync(directory, 0o755);
      fs.chmodSync(folder, 0o555);
      const file = path.join(folder, 'x');
      assert.equal(await valueFromChild(({ addon: native }, target) => {
        process.setuid(65534);
        try {
          return native.lockFile(target);
        } catch (error) {
          return error.message;
        }
      }, { args: [file] }), `Failed to open lock file: ${file} (errno 13)`);
      assert.equal(fs.existsSync(file), false);
    });

  it('leaves the last error alone', () => {
    addon.loadTurboJpeg('');
    const text = addon.getLastError();
    addon.unlockFile(addon.lockFile(freshPath()));
    assertRefused([''], 'lockFile requires a path argument');
    assertRefused(['/nowhere/x'], 'Failed to open lock file: /nowhere/x (errno 2)');
    assert.equal(addon.getLastError(), text);
  });
});

describe('a lock', { concurrency: 2 }, () => {
  const tryLock = ({ addon: native }, file) => {
    try {
      return native.lockFile(file) > 2;
    } catch (error) {
      return error.message;
    }
  };

  it('of another process is respected, also once it has unlocked, until the file is gone', async () => {
    const file = freshPath();
    const descriptor = addon.lockFile(file);
    assert.equal(await valueFromChild(tryLock, { args: [file] }), 'LOCK_FILE_EXISTS');
    addon.unlockFile(descriptor);
    assert.equal(await valueFromChild(tryLock, { args: [file] }), 'LOCK_FILE_EXISTS');
    fs.rmSync(file);
    assert.equal(await valueFromChild(tryLock, { args: [file] }), true);
  });

  it('of a process that was killed leaves its file, which counts until it is gone', async () => {
    const file = freshPath();
    const { value, signal } = await runInChild(tryLock, { args: [file], kill: true });
    assert.deepEqual([value, signal], [true, 'SIGKILL']);
    assertRefused([file], 'LOCK_FILE_EXISTS');
    fs.rmSync(file);
    addon.unlockFile(addon.lockFile(file));
  });

  it('is had by one of many processes', async () => {
    const file = freshPath();
    const answers = await Promise.all(Array.from({ length: 6 }, () => valueFromChild(tryLock, { args: [file] })));
    assert.deepEqual(answers.sort(), [...Array(5).fill('LOCK_FILE_EXISTS'), true].sort());
  });

  it('whose descriptor passes on to a program is held by it, unless it was unlocked', async () => {
    const file = freshPath();
    // flock(1) tells whether the lock is free, by its exit code.
    assert.deepEqual(await valueFromChild(async ({ addon: native }, target) => {
      const { spawn, spawnSync } = await import('node:child_process');
      const { closeSync } = await import('node:fs');
      const { once } = await import('node:events');
      const isFree = () => spawnSync('flock', ['--nonblock', '--exclusive', target, 'true']).status === 0;
      const descriptor = native.lockFile(target);
      const heir = spawn('sleep', ['1000'], { stdio: ['ignore', 'ignore', 'ignore', descriptor] });
      const held = isFree();
      closeSync(descriptor);
      const inherited = isFree();
      heir.kill();
      await once(heir, 'exit');
      return [held, inherited, isFree()];
    }, { args: [file] }), [false, false, true]);
  });
});

describe('unlockFile', { concurrency: 2 }, () => {
  /** Which of the child's descriptors, opened on purpose as 30 to 33, are open after a call. */
  const closedBy = (...args) => valueFromChild(async ({ addon: native }, given) => {
    const { openSync, fstatSync } = await import('node:fs');
    while (openSync('/dev/null') < 33);
    const isOpen = (descriptor) => {
      try {
        return fstatSync(descriptor).size >= 0;
      } catch {
        return false;
      }
    };
    const result = native.unlockFile(...given);
    return [result, [0, 30, 31, 32, 33].filter((descriptor) => !isOpen(descriptor))];
  }, { args: [args] });

  for (const [what, args, closed] of [
    ['a fraction, cut towards zero', [31.7], [31]],
    ['the low 32 bits of a large number', [2 ** 32 + 32], [32]],
    ['nothing for a negative number', [-1], []],
    ['nothing for a negative number whose low bits name a descriptor', [30 - 2 ** 32], []],
    ['nothing for a number that no descriptor has', [1e30], []],
    ['nothing for a negative number with a fraction', [-1.5], []],
    ['standard input without an argument', [], [0]],
    ['standard input for no number', ['31'], [0]],
    ['standard input for null', [null], [0]],
    ['standard input for NaN', [NaN], [0]],
    ['standard input for infinity', [Infinity], [0]],
    ['standard input for a negative fraction', [-0.5], [0]],
  ]) {
    it(`closes ${what}`, async () => {
      assert.deepEqual(await closedBy(...args), [undefined, closed]);
    });
  }
});

describe('a lock that fails once its file stands', () => {
  for (const [number, message] of [
    [11, 'LOCK_FILE_EXISTS'],
    [37, (file) => `Failed to flock lock file: ${file} (errno 37)`],
    [4, (file) => `Failed to flock lock file: ${file} (errno 4)`],
  ]) {
    it(`with errno ${number} closes the descriptor and keeps the file`,
      { skip: skipUnderSanitizer('its library comes first') }, async () => {
        const file = freshPath();
        const env = { LD_PRELOAD: fakePath('libfailing_flock.so'), FAILING_FLOCK_ERRNO: String(number) };
        const answer = await valueFromChild(async ({ addon: native }, target) => {
          const { readdirSync, existsSync } = await import('node:fs');
          const open = () => readdirSync('/proc/self/fd').length;
          const before = open();
          try {
            return native.lockFile(target);
          } catch (error) {
            return [error.message, open() - before, existsSync(target)];
          }
        }, { args: [file], env });
        assert.deepEqual(answer, [typeof message === 'string' ? message : message(file), 0, true]);
      });
  }
});

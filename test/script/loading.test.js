// Loading the camera library and libjpeg-turbo. A load is for good, so each case that ends in one
// runs in a process of its own.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { valueFromChild } from './support/child.js';
import { fakePath, readSymbols } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const fake = fakePath('libcnokhwa.so');
const refusal = 'Could not load Linux camera backend library (libcnokhwa). ' +
  'Set OSTREL_NATIVE_DIR or pass explicit path.';
const cameraSymbols = readSymbols('camera/backend/cnokhwa_symbols.h');
const required = cameraSymbols.filter(({ kind }) => kind === 'REQUIRED').map(({ name }) => name);
const optional = cameraSymbols.filter(({ kind }) => kind === 'OPTIONAL').map(({ name }) => name);
const without = (symbol) => fakePath(`without_${symbol}/libcnokhwa.so`);

/** A directory in which the loader finds `files`, { name: target }. */
function searchPlace(files) {
  const directory = makeTemporaryDirectory();
  for (const [name, target] of Object.entries(files)) {
    fs.symlinkSync(target, path.join(directory, name));
  }
  return { LD_LIBRARY_PATH: directory };
}

/** What a child sees after loadCameraBackend(...loadArgs). */
const cameraLoad = (loadArgs, env) => valueFromChild(({ addon }, args) => {
  addon.loadTurboJpeg('');
  return {
    loaded: addon.loadCameraBackend(...args),
    backend: addon.cameraBackend(),
    path: addon.cameraLoadPath(),
    error: addon.getLastError(),
  };
}, { args: [loadArgs], env });
const success = (loadPath) => ({ loaded: true, backend: 'linux-v4l2', path: loadPath, error: '' });
const failure = { loaded: false, backend: 'none', path: '', error: refusal };

describe('before a load', () => {
  it('nothing is there, and asking for it is no error', async () => {
    assert.deepEqual(await valueFromChild(({ addon }) => [
      addon.cameraBackend(), addon.cameraLoadPath(), addon.turboJpegAvailable(),
      addon.turboJpegLoadPath(), addon.cameraInitialize(), addon.cameraHasVideoCaptureAuth(),
      addon.cameraAskVideoCaptureAuth(), addon.getLastError(),
    ]), ['none', '', false, '', -6, -6, undefined, '']);
  });
});

describe('loadCameraBackend', { concurrency: 2 }, () => {
  it('loads the library at a path, and clears the last error', async () => {
    assert.deepEqual(await cameraLoad([fake]), success(fake));
  });

  it('accepts two more arguments that change nothing', async () => {
    assert.deepEqual(await cameraLoad([fake, '/elsewhere/libcnokhwa.so', false]), success(fake));
  });

  it('does not try the usual names after a path that fails', async () => {
    const env = searchPlace({ 'libcnokhwa.so': fake, cnokhwa: fake });
    assert.deepEqual(await cameraLoad(['/nowhere/libcnokhwa.so'], env), failure);
  });

  for (const [what, args] of [['no path', []], ['an empty path', ['']], ['a path that is no string', [7]]]) {
    it(`lets the dynamic loader search "libcnokhwa.so" for ${what}`, async () => {
      const env = searchPlace({ 'libcnokhwa.so': fake, cnokhwa: '/nowhere' });
      assert.deepEqual(await cameraLoad(args, env), success('libcnokhwa.so'));
    });
  }

  it('tries "cnokhwa" where there is no "libcnokhwa.so"', async () => {
    assert.deepEqual(await cameraLoad([], searchPlace({ cnokhwa: fake })), success('cnokhwa'));
  });

  it('tries "cnokhwa" where "libcnokhwa.so" lacks a symbol', async () => {
    const env = searchPlace({ 'libcnokhwa.so': without('cnokhwa_grab_frame'), cnokhwa: fake });
    assert.deepEqual(await cameraLoad([], env), success('cnokhwa'));
  });

  it('fails where the dynamic loader finds neither name', async () => {
    assert.deepEqual(await cameraLoad([], searchPlace({})), failure);
  });

  it('refuses what is no library', async () => {
    const files = [process.argv[1], '/', '\0' + fake, 'x'.repeat(100_000), '\ud800'];
    assert.deepEqual(await valueFromChild(({ addon }, paths) =>
      paths.map((file) => [addon.loadCameraBackend(file), addon.getLastError(), addon.cameraLoadPath()]),
    { args: [files] }), files.map(() => [false, refusal, '']));
  });

  it('refuses and closes a library that lacks any required symbol, and loads another one then', async () => {
    assert.equal(required.length, 19);
    const results = await valueFromChild(async ({ addon, fakePath: pathOf }, symbols) => {
      const { readFileSync, realpathSync } = await import('node:fs');
      const isMapped = (file) => readFileSync('/proc/self/maps', 'utf8').includes(realpathSync(file));
      const refused = symbols.map((symbol) => {
        const file = pathOf(`without_${symbol}/libcnokhwa.so`);
        return [symbol, addon.loadCameraBackend(file), addon.getLastError(), addon.cameraBackend(),
          addon.cameraLoadPath(), addon.cameraInitialize(), addon.cameraDevicesCount(), isMapped(file)];
      });
      const good = pathOf('libcnokhwa.so');
      return { refused, loaded: addon.loadCameraBackend(good), isMapped: isMapped(good), error: addon.getLastError() };
    }, { args: [required] });
    assert.deepEqual(results, {
      refused: required.map((symbol) => [symbol, false, refusal, 'none', '', -6, 0, false]),
      loaded: true,
      isMapped: true,
      error: '',
    });
  });

  it('loads a library that lacks the start by format alone, which then answers -13', async () => {
    assert.deepEqual(optional, ['cnokhwa_start_capture_with_format']);
    const file = without(optional[0]);
    assert.deepEqual(await valueFromChild(({ addon, openFakeCamera }, library) => {
      const camera = openFakeCamera(library);
      camera.send('default cnokhwa_start_capture 4');
      return [addon.loadCameraBackend(library), addon.getLastError(), addon.cameraStartCapture(0, 0, 0, 3),
        addon.cameraStartCapture(1, 640, 480), addon.cameraStartCapture(1, 640, 480, -1, true),
        camera.calls().map(({ symbol, args }) => `${symbol}(${args})`)];
    }, { args: [file] }),
    [true, '', -13, 4, 4, ['cnokhwa_start_capture(1,640,480)', 'cnokhwa_start_capture(1,640,480)']]);
  });

  it('answers true to a second load, whatever its path, and changes nothing', async () => {
    assert.deepEqual(await valueFromChild(({ addon }, library) => {
      addon.loadCameraBackend(library);
      addon.loadTurboJpeg('');
      return [addon.loadCameraBackend('/nowhere'), addon.loadCameraBackend(), addon.cameraLoadPath(), addon.getLastError()];
    }, { args: [fake] }), [true, true, fake, 'No libjpeg-turbo library path was provided']);
  });

  it('passes the answers of the library on', async () => {
    assert.deepEqual(await valueFromChild(({ addon, openFakeCamera }, library) => {
      const camera = openFakeCamera(library);
      camera.send('answer cnokhwa_initialize 0 -77\nanswer cnokhwa_has_videocapture_auth 0 3');
      addon.loadCameraBackend(library);
      return [addon.cameraInitialize(), addon.cameraInitialize(), addon.cameraHasVideoCaptureAuth(),
        addon.cameraHasVideoCaptureAuth(), addon.cameraAskVideoCaptureAuth(), camera.calls().map(({ symbol }) => symbol)];
    }, { args: [fake] }), [0, -77, 0, 3, undefined, [
      'cnokhwa_initialize', 'cnokhwa_initialize', 'cnokhwa_has_videocapture_auth',
      'cnokhwa_has_videocapture_auth', 'cnokhwa_ask_videocapture_auth']]);
  });
});

describe('loadTurboJpeg', { concurrency: 2 }, () => {
  const symbols = readSymbols('camera/frames/turbojpeg_symbols.h').map(({ name }) => name);
  const noPath = 'No libjpeg-turbo library path was provided';
  it('loads the real library by the name that the dynamic loader resolves', async () => {
    assert.deepEqual(await valueFromChild(({ addon }) => [addon.loadTurboJpeg('libturbojpeg.so.0'),
      addon.turboJpegAvailable(), addon.turboJpegLoadPath(), addon.getLastError()]),
    [true, true, 'libturbojpeg.so.0', '']);
  });

  it('refuses an empty path, and what is no string', async () => {
    assert.deepEqual(await valueFromChild(({ addon }) =>
      [[], [''], [null], [0], [['libturbojpeg.so.0']]].map((args) => [addon.loadTurboJpeg(...args),
        addon.turboJpegAvailable(), addon.turboJpegLoadPath(), addon.getLastError()])),
    Array(5).fill([false, false, '', noPath]));
  });

  it('tells what the dynamic loader says of a file that is not there', async () => {
    assert.deepEqual(await valueFromChild(({ addon }) => [addon.loadTurboJpeg('/nowhere/libturbojpeg.so'),
      addon.getLastError(), addon.turboJpegAvailable()]),
    [false, "Could not load native library '/nowhere/libturbojpeg.so': /nowhere/libturbojpeg.so: " +
      'cannot open shared object file: No such file or directory', false]);
  });

  it('refuses and closes a library that lacks any symbol, and loads another one then', async () => {
    assert.equal(symbols.length, 8);
    const results = await valueFromChild(async ({ addon, fakePath: pathOf }, names) => {
      const { readFileSync, realpathSync } = await import('node:fs');
      const refused = names.map((symbol) => {
        const file = pathOf(`without_${symbol}/libturbojpeg.so`);
        return [addon.loadTurboJpeg(file), addon.getLastError(), addon.turboJpegAvailable(), addon.turboJpegLoadPath(),
          readFileSync('/proc/self/maps', 'utf8').includes(realpathSync(file))];
      });
      return [...refused, addon.loadTurboJpeg(pathOf('libturbojpeg.so')), addon.turboJpegAvailable()];
    }, { args: [symbols] });
    assert.deepEqual(results,
      [...symbols.map((symbol) => [false, `Required symbol not found: ${symbol}`, false, '', false]), true, true]);
  });

  it('keeps the last error on success, and ignores the path of a second load', async () => {
    const file = fakePath('libturbojpeg.so');
    assert.deepEqual(await valueFromChild(({ addon }, library) => [
      addon.loadTurboJpeg(''), addon.loadTurboJpeg(library), addon.getLastError(),
      addon.loadTurboJpeg(''), addon.loadTurboJpeg('/nowhere'), addon.turboJpegLoadPath(), addon.getLastError(),
    ], { args: [file] }), [false, true, noPath, true, true, file, noPath]);
  });
});

describe('getLastError', () => {
  it('gives the same text again, whatever its arguments', async () => {
    assert.deepEqual(await valueFromChild(({ addon }) => {
      addon.loadTurboJpeg('/nowhere/\u00b5-\u{1f52c}.so');
      return [addon.getLastError(), addon.getLastError('x'), addon.getLastError(null, 1)];
    }), Array(3).fill("Could not load native library '/nowhere/\u00b5-\u{1f52c}.so': " +
      '/nowhere/\u00b5-\u{1f52c}.so: cannot open shared object file: No such file or directory'));
  });

  it('is shared by all: a later failure replaces an earlier one', async () => {
    assert.deepEqual(await valueFromChild(({ addon }) => {
      addon.loadCameraBackend('/nowhere');
      const first = addon.getLastError();
      addon.cameraRecordingStart('a.mp4', 64, 64, 30, 1_000_000);
      return [first, addon.getLastError()];
    }), [refusal, 'Cannot start video recording without an active camera preview']);
  });
});

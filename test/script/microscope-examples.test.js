// The examples that drive the virtual microscope, as a user runs them.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

import sharp from 'sharp';

import { skipUnderSanitizer, toolEnvironment } from './support/environment.js';
import { pixelMicrons } from './support/png-chunks.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const skip = skipUnderSanitizer('the examples take the release build');

function runWith(variables, name, ...args) {
  const example = fileURLToPath(new URL(`../../examples/${name}.js`, import.meta.url));
  const { status, stdout, stderr } = spawnSync(process.execPath, [example, ...args],
    { encoding: 'utf8', env: { ...toolEnvironment, INIT_CWD: directory, ...variables } });
  return { status, stdout, stderr };
}

const run = (name, ...args) => runWith({}, name, ...args);

/** That an example came to its end, and printed these lines in this order. */
function assertShown({ status, stdout, stderr }, expected) {
  assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
  const lines = stdout.split('\n');
  let next = 0;
  for (const line of expected) {
    next = lines.indexOf(line, next) + 1;
    assert.ok(next > 0, `${line}\nis missing, or out of order, in\n${stdout}`);
  }
}

function assertRefused(result, words) {
  assert.deepEqual({ status: result.status, stderr: result.stderr }, { status: 1, stderr: `\n${words}\n` });
}

describe('example:ostrel', { skip }, () => {
  it('shows the microscope at work and ends by itself', () => {
    const shown = run('ostrel');
    assertShown(shown, [
      '  interface version     1.2',
      '  offers                focus, led, pixelSizeInfo, lensGroupInfo',
      '  microscope 0          Simulated microscope 1 (simulated-microscope-1)',
      '  selected              0',
      '  product               4711',
      '  hardware              2.1',
      '  software              3.4.5',
      '  protocol              1.6.2',
      '  lens                  driver 769, group 2',
      '  pixel size            0.700 um, in pictures of 1920 x 1080',
      '  focus to 60           at 60',
      '  focus to 200          at 200',
      '  one step near         at 196',
      '  one step far          at 200',
      '  focus to 256          refused: positions go from 0 to 255',
      '  LED off               the microscope says 0',
      '  LED on                the microscope says 1',
      '  button                2 presses seen',
    ]);
    assert.match(shown.stdout, /^ {2}live {18}status 1 {3}focus 128 {3}pixel 0\.700 um {3}lens group 2 /m);
    assert.match(shown.stdout, /^ {2}auto-focus {12}at 86, after /m);
  });

  it('says why it cannot', () => {
    assertRefused(run('ostrel', '--library', '/nowhere.so'),
      'loadOstrel(/nowhere.so) failed: Could not load Ostrel native library');
    assertRefused(run('ostrel', '--device', '3'),
      'ostrelSelectDeviceAsync(3) failed: Ostrel SDK device selection received an unavailable device index');
  });
});

describe('example:dino-lite', { skip }, () => {
  it('shows the microscope at work and ends by itself', () => {
    const shown = runWith({ OSTREL_SIMULATOR_DEVICES: '2', OSTREL_SIMULATOR_READING_NOISE: '0' }, 'dino-lite', '--device', '1');
    assertShown(shown, [
      '  back-end              mac-libdinolite',
      '  microscope 0          Simulated microscope 1 (simulated-microscope-1)',
      '  microscope 1          Simulated microscope 2 (simulated-microscope-2)',
      '  selected              1',
      '  magnification         measured by the microscope',
      '  MicroTouch button     yes',
      '  LED modes             17 (all LEDs), 16 (group 1), 1 (group 2), 34 (flexible), 0 (off)',
      '  LED groups            2',
      '  LEDs now              17 (all LEDs)',
      '  ring at 200           magnification 200.0   field of view 0.336',
      '  ring at 35            magnification 35.0   field of view 1.920',
      '  ring at 50            magnification 50.0   field of view 1.344',
      '  LEDs                  16 (group 1)',
      '  LEDs                  1 (group 2)',
      '  LEDs                  34 (flexible)',
      '  LEDs                  0 (off)',
      '  LEDs                  17 (all LEDs)',
      '  button                2 presses seen',
      '  loaded                true',
      '  selectedDeviceIndex   1',
      '  ledState              17',
      '  supportsLedControl    true',
      '  amrRaw                50',
      '  amrUpdates            3',
      '  ledModes              17, 16, 1, 34, 0',
      '  cachedAmr             50',
    ]);
    assert.match(shown.stdout, /^ {2}live {18}magnification 50\.0 {3}field of view 1\.344 {3}button presses 0$/m);
  });

  it('shows the field of view also where the readings of the magnification wander', () => {
    const { status, stdout, stderr } = run('dino-lite');
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    const ring = [...stdout.matchAll(/^ {2}ring at (\d+) +magnification ([\d.]+) {3}field of view ([\d.]+)$/gm)]
      .map(([, ...numbers]) => numbers.map(Number));
    assert.deepEqual(ring.map(([wanted]) => wanted), [200, 35, 50]);
    for (const [wanted, magnification, fieldOfView] of ring) {
      assert.ok(Math.abs(magnification / wanted - 1) < 0.003, `${magnification} at ${wanted}`);
      assert.ok(Math.abs((fieldOfView * wanted) / 67.2 - 1) < 0.005, `${fieldOfView} at ${wanted}`);
    }
  });

  it('shows a microscope that can do less', () => {
    const shown = runWith({ OSTREL_SIMULATOR_DINO_FEATURES: 'none' }, 'dino-lite');
    assertShown(shown, [
      '  magnification         to be read off its ring',
      '  MicroTouch button     no',
      '  LED modes             none',
      '  LED groups            0',
      '  LEDs now              as they are',
      '  supportsAmr           false',
      '  supportsMicrotouch    false',
      '  supportsLedControl    false',
      '  amrRead               false',
      '  cachedAmr             null',
    ]);
  });

  it('says why it cannot', () => {
    assertRefused(run('dino-lite', '--library', '/nowhere.so'), 'loadDinoLite(/nowhere.so) failed: ' +
      'Could not load native library \'/nowhere.so\': /nowhere.so: cannot open shared object file: No such file or directory');
    assertRefused(run('dino-lite', '--device', '3'), 'dinoLiteSelectDeviceAsync(3) failed: There is no such microscope');
  });
});

describe('example:stack', { skip }, () => {
  it('takes a stack, fuses it and writes the picture', async () => {
    const output = path.join(directory, 'stack');
    const { status, stdout, stderr } = run('stack', '--width', '640', '--steps', '5', '--output', output);
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    for (const position of [48, 88, 128, 168, 208]) {
      assert.match(stdout, new RegExp(`^ +${position} +[01]\\.\\d{4} `, 'm'));
    }
    const { width, height } = await sharp(path.join(output, 'fused.png')).metadata();
    assert.deepEqual({ width, height }, { width: 640, height: 480 });
    assert.ok((await sharp(path.join(output, 'contact-sheet.png')).metadata()).width > 640);
    for (const name of ['fused.png', 'contact-sheet.png']) {
      assert.equal(pixelMicrons(fs.readFileSync(path.join(output, name))), null, 'how large a pixel is was not measured');
    }
  });

  it('says why it cannot', () => {
    assertRefused(run('stack', '--from', '256'), '--from and --to take focus positions from 0 to 255.');
    assertRefused(run('stack', '--steps', '12'), '--steps takes a number from 3 to 11.');
    assertRefused(run('stack', '--width', '7'),
      'Camera 0 has no format 7 pixels wide, but 640, 1280, 1920, 1920, 2592, 3840.');
  });
});

describe('the first run', { skip }, () => {
  /** The lines of a run as { label: text }; the files that it made are removed. */
  function firstRun(...args) {
    const { status, stdout, stderr } = run('first-run', '--seconds', '1', ...args);
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    const rows = Object.fromEntries([...stdout.matchAll(/^ {2}(\S.{0,19}?) {2,}(\S.*)$/gm)].map(([, label, text]) => [label, text]));
    for (const label of ['video', 'still']) {
      const [, file] = /^(.*?) {2}\(/.exec(rows[label]);
      assert.ok(fs.statSync(file).size > 10_000, file);
      fs.rmSync(file);
    }
    return rows;
  }

  it('shows, records and saves what the camera library of Linux copies', () => {
    const rows = firstRun();
    assert.match(rows.preview, /^[\d.]+ frames a second shown$/);
    assert.match(rows['linux-v4l2'], /libcnokhwa\.so$/);
    assert.match(rows['frames written'], /^[1-9]\d*, over [\d.]+ seconds, \d+ dropped by the recorder$/);
    assert.match(rows.still, / 1920 x 1080$/);
  });

  for (const [kind, name] of [['directshow', 'dshow'], ['avfoundation', 'avf']]) {
    it(`shows, records and saves without a copy what a library of the kind of ${kind} delivers`, () => {
      const library = fileURLToPath(new URL(`../../build/Release/simulator/libreference_${name}.so`, import.meta.url));
      const rows = firstRun('--direct', ...(kind === 'directshow' ? [] : ['--library', library]));
      assert.equal(rows[kind], library);
      assert.match(rows['frames delivered'], /^[1-9]\d* by the camera library into 3 lent arrays, \d+ dropped$/);
      const [, shown, uncopied] = /^([1-9]\d*), (\d+) of them without a copy: their data is a lent array itself$/.exec(rows['frames shown']);
      assert.equal(uncopied, shown);
      assert.match(rows['bytes not copied'], /^[1-9]\d* MB$/);
      assert.match(rows['one poll'], /^\d+ microseconds for a frame of 3\.1 MB, the median$/);
      assert.match(rows['frames written'], /^[1-9]\d*, over /);
      assert.match(rows.still, / 1920 x 1080$/);
    });
  }
});

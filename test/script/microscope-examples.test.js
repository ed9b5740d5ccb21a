// The examples that drive the virtual microscope, as a user runs them.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

import sharp from 'sharp';

import { skipUnderSanitizer, toolEnvironment } from './support/environment.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const directory = makeTemporaryDirectory();
const skip = skipUnderSanitizer('the examples take the release build');

function run(name, ...args) {
  const example = fileURLToPath(new URL(`../../examples/${name}.js`, import.meta.url));
  const { status, stdout, stderr } = spawnSync(process.execPath, [example, ...args],
    { encoding: 'utf8', env: { ...toolEnvironment, INIT_CWD: directory } });
  return { status, stdout, stderr };
}

function assertRefused(result, words) {
  assert.deepEqual({ status: result.status, stderr: result.stderr }, { status: 1, stderr: `\n${words}\n` });
}

describe('example:ostrel', { skip }, () => {
  it('shows the microscope at work and ends by itself', () => {
    const { status, stdout, stderr } = run('ostrel');
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    for (const line of [
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
    ]) {
      assert.ok(stdout.split('\n').includes(line), `${line}\nis missing from\n${stdout}`);
    }
    assert.match(stdout, /^ {2}live {18}status 1 {3}focus 128 {3}pixel 0\.700 um {3}lens group 2 /m);
    assert.match(stdout, /^ {2}auto-focus {12}at 86, after /m);
  });

  it('says why it cannot', () => {
    assertRefused(run('ostrel', '--library', '/nowhere.so'),
      'loadOstrel(/nowhere.so) failed: Could not load Ostrel native library');
    assertRefused(run('ostrel', '--device', '3'),
      'ostrelSelectDeviceAsync(3) failed: Ostrel SDK device selection received an unavailable device index');
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
  });

  it('says why it cannot', () => {
    assertRefused(run('stack', '--from', '256'), '--from and --to take focus positions from 0 to 255.');
    assertRefused(run('stack', '--steps', '12'), '--steps takes a number from 3 to 11.');
    assertRefused(run('stack', '--width', '7'),
      'Camera 0 has no format 7 pixels wide, but 640, 1280, 1920, 1920, 2592, 3840.');
  });
});

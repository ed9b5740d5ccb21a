// The list of cameras and of their formats, and the permission to use them, as a DirectShow or an
// AVFoundation camera library gives them.

import assert from 'node:assert/strict';
import { after, describe, it } from 'node:test';

import { kinds, openDirectBackend } from './support/direct-backend.js';

const { addon, become, callList, send } = openDirectBackend();
after(() => become('none'));

const texts = { cameraDeviceUniqueId: 'device_unique_id', cameraDeviceModelId: 'device_model_id', cameraDeviceName: 'device_name' };

for (const kind of Object.keys(kinds)) {
  describe(kind, () => {
    it('is the backend by its name, and has no path', () => {
      become(kind);
      assert.deepEqual([addon.cameraBackend(), addon.cameraLoadPath()], [kind, '']);
    });

    it('gives the number of its cameras as it is, each time anew, and 0 without the entry', () => {
      become(kind, { script: 'answer ~devices_count 2 0 -5 2147483647' });
      assert.deepEqual([1, 2, 3, 4].map(() => addon.cameraDevicesCount()), [2, 0, -5, 2147483647]);
      become(kind, { without: ['devices_count'] });
      assert.equal(addon.cameraDevicesCount(), 0);
    });

    for (const [call, entry] of Object.entries(texts)) {
      it(`gives the text of ${call} for any index, cut at 1023 bytes, and none without the entry`, () => {
        become(kind, {
          script: `text ~${entry}@0 first \u00b5\u{1f52c}\nunterminated ~${entry}@1 120\ntext ~${entry}@-1 ${'y'.repeat(2000)}`,
        });
        assert.deepEqual([addon[call](0), addon[call](1), addon[call](), addon[call](7)],
          ['first \u00b5\u{1f52c}', 'x'.repeat(1023), 'y'.repeat(1023), '']);
        assert.deepEqual(callList(), [0, 1, -1, 7].map((device) => `${entry}(${device},ptr,1024)`));
        become(kind, { without: [entry] });
        assert.equal(addon[call](0), '');
        assert.deepEqual(callList(), []);
      });
    }

    it('has no formats without the entry that counts them, or where it counts none or too many', () => {
      for (const count of [0, -1, -2147483648, 2 ** 20 + 1, 2147483647]) {
        become(kind, { script: `default ~formats_count ${count}` });
        assert.deepEqual(addon.cameraDeviceFormats(3), []);
        assert.deepEqual(callList(), ['formats_count(3)']);
      }
      become(kind, { without: ['formats_count'] });
      assert.deepEqual(addon.cameraDeviceFormats(3), []);
      assert.deepEqual(callList(), []);
    });
  });
}

describe('a type of the camera', () => {
  it('is known to AVFoundation alone', () => {
    become('avfoundation', { script: `text ~device_type@2 external\nunterminated ~device_type@3 122` });
    assert.deepEqual([addon.cameraDeviceType(2), addon.cameraDeviceType(3)], ['external', 'z'.repeat(1023)]);
    assert.deepEqual(callList(), ['device_type(2,ptr,1024)', 'device_type(3,ptr,1024)']);
    become('avfoundation', { without: ['device_type'] });
    assert.equal(addon.cameraDeviceType(2), '');
    become('directshow');
    assert.equal(addon.cameraDeviceType(2), '');
    assert.deepEqual(callList(), []);
  });
});

describe('formats of DirectShow', () => {
  const formatEntries = ['width', 'height', 'frame_rate', 'type'].map((name) => `format_${name}`);
  const script = [
    'default ~formats_count 2', 'default ~format_width 640', 'default ~format_width@1,1 -1',
    'default ~format_height 480', 'default ~format_frame_rate@1,0 2147483647', 'text ~format_type@1,0 MJPG',
    'unterminated ~format_type@1,1 65',
  ].join('\n');

  it('are asked for one by one, in the order of their keys, and passed on as they are', () => {
    become('directshow', { script });
    const formats = addon.cameraDeviceFormats(1);
    formats.forEach((format) => assert.deepEqual(Object.keys(format), ['width', 'height', 'frameRate', 'type']));
    assert.deepEqual(formats, [
      { width: 640, height: 480, frameRate: 2147483647, type: 'MJPG' },
      { width: -1, height: 480, frameRate: 0, type: 'A'.repeat(255) },
    ]);
    const asked = (index) => [`format_width(1,${index})`, `format_height(1,${index})`, `format_frame_rate(1,${index})`,
      `format_type(1,${index},ptr,256)`];
    assert.deepEqual(callList(), ['formats_count(1)', ...asked(0), ...asked(1)]);
  });

  for (const [position, entry] of formatEntries.entries()) {
    it(`lack what ${entry} would tell`, () => {
      become('directshow', { script, without: [entry] });
      const whole = { width: 640, height: 480, frameRate: 2147483647, type: 'MJPG' };
      const [key] = Object.keys(whole).slice(position);
      assert.deepEqual(addon.cameraDeviceFormats(1)[0], { ...whole, [key]: entry === 'format_type' ? '' : 0 });
      assert.ok(callList().every((call) => !call.startsWith(`${entry}(`)));
    });
  }

  it('are empty records without any entry but the count', () => {
    become('directshow', { script, without: formatEntries });
    assert.deepEqual(addon.cameraDeviceFormats(1), Array(2).fill({ width: 0, height: 0, frameRate: 0, type: '' }));
  });
});

describe('formats of AVFoundation', () => {
  const format = (width, height, frameRate, type) => ({ width, height, frameRate, type });

  it('are read from a descriptor that is asked for once for each key', () => {
    become('avfoundation', { script: 'default ~formats_count 2\ntext ~format_descriptor@4,0 640x480; yuy2; 29.97 fps' });
    const formats = addon.cameraDeviceFormats(4);
    formats.forEach((each) => assert.deepEqual(Object.keys(each), ['width', 'height', 'frameRate', 'type']));
    assert.deepEqual(formats, [format(640, 480, 29, 'yuy2'), format(0, 0, 30, '')]);
    const asked = (index) => Array(4).fill(`format_descriptor(4,${index},ptr,512)`);
    assert.deepEqual(callList(), ['formats_count(4)', ...asked(0), ...asked(1)]);
  });

  for (const [descriptor, expected] of [
    ['1920x1080', format(1920, 1080, 30, '1920x1080')],
    ['1920 X 1080 pixels; 420v; 60', format(1920, 1080, 60, '420v')],
    ['640x480; yuy2; 30 frames', format(640, 480, 30, 'yuy2')],
    ['640x480; yuy2; 15 frames', format(640, 480, 30, 'yuy2')],
    ['640x480; yuy2; 15Hz; 60', format(640, 480, 15, 'yuy2')],
    ['0x480; yuy2', format(0, 0, 30, 'yuy2')],
    ['1280x720 30fps', format(1280, 720, 1280, '1280x720 30fps')],
    ['640x480;;25', format(640, 480, 25, '640x480;;25')],
    [' 99999999999x480 ', format(0, 0, 30, ' 99999999999x480 ')],
  ]) {
    it(`are ${JSON.stringify(Object.values(expected))} where it says "${descriptor}"`, () => {
      become('avfoundation', { script: 'default ~formats_count 1' });
      send(`text avf_format_descriptor ${descriptor}`);
      assert.deepEqual(addon.cameraDeviceFormats(0), [expected]);
    });
  }

  it('have a descriptor of at most 511 bytes', () => {
    become('avfoundation', { script: 'default ~formats_count 1\nunterminated ~format_descriptor 113' });
    assert.deepEqual(addon.cameraDeviceFormats(0), [format(0, 0, 30, 'q'.repeat(511))]);
  });

  it('are default records without descriptors', () => {
    become('avfoundation', { script: 'default ~formats_count 2', without: ['format_descriptor'] });
    assert.deepEqual(addon.cameraDeviceFormats(0), Array(2).fill(format(0, 0, 30, '')));
  });
});

describe('initialization and permission', () => {
  it('of DirectShow: its own code, and permission is given', () => {
    become('directshow', { script: 'answer ~initialize 0 -7 3' });
    assert.deepEqual([1, 2, 3].map(() => addon.cameraInitialize()), [0, -7, 3]);
    assert.equal(addon.cameraHasVideoCaptureAuth(), 0);
    assert.equal(addon.cameraAskVideoCaptureAuth(), undefined);
    assert.deepEqual(callList(), Array(3).fill('initialize()'));
    become('directshow', { without: ['initialize'] });
    assert.equal(addon.cameraInitialize(), -6);
  });

  it('of AVFoundation: 0 or -6, and what it says of permission', () => {
    become('avfoundation', { script: 'answer ~initialize 1 0\nanswer ~has_auth 0 2 -1' });
    assert.deepEqual([1, 2].map(() => addon.cameraInitialize()), [0, -6]);
    assert.deepEqual([1, 2, 3].map(() => addon.cameraHasVideoCaptureAuth()), [0, 2, -1]);
    assert.equal(addon.cameraAskVideoCaptureAuth(), undefined);
    assert.deepEqual(callList(), ['initialize()', 'initialize()', 'has_auth()', 'has_auth()', 'has_auth()', 'ask_auth()']);
    become('avfoundation', { without: ['initialize', 'has_auth', 'ask_auth'] });
    assert.deepEqual([addon.cameraInitialize(), addon.cameraHasVideoCaptureAuth(), addon.cameraAskVideoCaptureAuth()],
      [-6, -6, undefined]);
    assert.deepEqual(callList(), []);
  });
});

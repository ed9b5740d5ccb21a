// The list of cameras and their formats, as the camera library gives it.

import assert from 'node:assert/strict';
import { before, beforeEach, describe, it } from 'node:test';

import { loadAddon } from './support/environment.js';
import { openFakeCamera } from './support/fake-camera.js';

const addon = loadAddon();
const texts = [
  ['cameraDeviceUniqueId', 'cnokhwa_device_unique_id'],
  ['cameraDeviceModelId', 'cnokhwa_device_model_id'],
  ['cameraDeviceName', 'cnokhwa_device_name'],
];

describe('without a camera library', () => {
  it('there are no cameras, no texts and no formats, and asking is no error', () => {
    assert.equal(addon.cameraDevicesCount(), 0);
    for (const name of [...texts.map(([call]) => call), 'cameraDeviceType']) {
      assert.equal(addon[name](0), '', name);
    }
    assert.deepEqual(addon.cameraDeviceFormats(0), []);
    assert.equal(addon.getLastError(), '');
  });
});

describe('with a camera library', () => {
  let camera;
  before(() => {
    camera = openFakeCamera();
    assert.equal(addon.loadCameraBackend(camera.path), true);
  });
  beforeEach(() => camera.send('reset'));
  const callList = () => camera.calls().map(({ symbol, args }) => `${symbol}(${args})`);

  it('the number of cameras is what the library says, each time anew', () => {
    camera.send('answer cnokhwa_devices_count 2 0 -5 2147483647');
    assert.deepEqual([1, 2, 3, 4].map(() => addon.cameraDevicesCount()), [2, 0, -5, 2147483647]);
  });

  for (const [call, symbol] of texts) {
    it(`${call} gives the library's text and ignores its result`, () => {
      camera.send(`text ${symbol}@0 first\ntext ${symbol}@1 zweite \u00b5\u{1f52c}\ndefault ${symbol} -1`);
      assert.deepEqual([addon[call](0), addon[call](1), addon[call](2)], ['first', 'zweite \u00b5\u{1f52c}', '']);
      assert.deepEqual(callList(), [`${symbol}(0,ptr,1024)`, `${symbol}(1,ptr,1024)`, `${symbol}(2,ptr,1024)`]);
    });

    it(`${call} is cut at 1023 bytes, with or without an end`, () => {
      camera.send(`unterminated ${symbol}@0 120\ntext ${symbol}@1 ${'y'.repeat(1023)}\ntext ${symbol}@2 ${'z'.repeat(2000)}`);
      assert.equal(addon[call](0), 'x'.repeat(1023));
      assert.equal(addon[call](1), 'y'.repeat(1023));
      assert.equal(addon[call](2), 'z'.repeat(1023));
    });
  }

  it('a character that is cut in two becomes a replacement character', () => {
    camera.send(`text cnokhwa_device_name ${'x'.repeat(1022)}\u00b5`);
    assert.equal(addon.cameraDeviceName(0), `${'x'.repeat(1022)}\ufffd`);
  });

  it('bytes that are no UTF-8 become replacement characters', () => {
    camera.send('text cnokhwa_device_name a\\xffb\\xc3');
    assert.equal(addon.cameraDeviceName(0), 'a\ufffdb\ufffd');
  });

  it('there is no type of a camera, and the library is not asked', () => {
    assert.equal(addon.cameraDeviceType(0), '');
    assert.deepEqual(callList(), []);
  });

  it('an index goes to the library as the int32 of the number, negative or not', () => {
    const numbers = [[0, 0], [3.9, 3], [-3.9, -3], [-1, -1], [NaN, 0], [Infinity, 0], [-Infinity, 0], [-0.5, 0],
      [2 ** 31 - 1, 2147483647], [2 ** 31, -2147483648], [2 ** 32 + 5, 5], [1e30, 0]];
    numbers.forEach(([number]) => addon.cameraDeviceName(number));
    assert.deepEqual(camera.calls().map(({ args }) => Number(args.split(',')[0])), numbers.map(([, index]) => index));
  });

  it('an index of another type counts as missing: -1', () => {
    const others = ['0', null, undefined, true, 1n, Symbol('1'), {}, [1], new Number(3),
      { valueOf: () => assert.fail('converted') }];
    others.forEach((other) => addon.cameraDeviceName(other));
    addon.cameraDeviceName();
    assert.deepEqual(camera.calls().map(({ args }) => args), Array(others.length + 1).fill('-1,ptr,1024'));
  });

  describe('cameraDeviceFormats', () => {
    it('gives the formats in the order of the library, twins included', () => {
      const formats = [
        { width: 640, height: 480, frameRate: 30, type: 'YUYV' },
        { width: 3840, height: 2160, frameRate: 15, type: 'MJPG' },
        { width: 640, height: 480, frameRate: 30, type: 'YUYV' },
      ];
      camera.send('default cnokhwa_device_formats_count@1 3');
      formats.forEach(({ width, height, frameRate, type }, index) => camera.send(`
        default cnokhwa_device_format_width@1,${index} ${width}
        default cnokhwa_device_format_height@1,${index} ${height}
        default cnokhwa_device_format_frame_rate@1,${index} ${frameRate}
        text cnokhwa_device_format_type@1,${index} ${type}`));
      const found = addon.cameraDeviceFormats(1);
      assert.ok(Array.isArray(found));
      assert.deepEqual(found, formats);
      found.forEach((format) => assert.deepEqual(Object.keys(format), ['width', 'height', 'frameRate', 'type']));
      assert.deepEqual(addon.cameraDeviceFormats(0), []);
    });

    it('asks for the values of a format in the order of its keys', () => {
      camera.send('default cnokhwa_device_formats_count 2');
      addon.cameraDeviceFormats(7);
      assert.deepEqual(callList(), ['cnokhwa_device_formats_count(7)', ...[0, 1].flatMap((index) => [
        `cnokhwa_device_format_width(7,${index})`, `cnokhwa_device_format_height(7,${index})`,
        `cnokhwa_device_format_frame_rate(7,${index})`, `cnokhwa_device_format_type(7,${index},ptr,256)`])]);
    });

    it('passes numbers on that no format has', () => {
      camera.send(`default cnokhwa_device_formats_count 1
        default cnokhwa_device_format_width -1
        default cnokhwa_device_format_height 2147483647
        default cnokhwa_device_format_frame_rate -2147483648`);
      assert.deepEqual(addon.cameraDeviceFormats(0),
        [{ width: -1, height: 2147483647, frameRate: -2147483648, type: '' }]);
    });

    it('cuts a type at 255 bytes, with or without an end', () => {
      camera.send(`default cnokhwa_device_formats_count 2
        unterminated cnokhwa_device_format_type@0,0 121
        text cnokhwa_device_format_type@0,1 ${'z'.repeat(300)}`);
      assert.deepEqual(addon.cameraDeviceFormats(0).map(({ type }) => type), ['y'.repeat(255), 'z'.repeat(255)]);
    });

    it('is empty for a count of zero and for a negative one', () => {
      camera.send('answer cnokhwa_device_formats_count 0 -1 -2147483648');
      assert.deepEqual([1, 2, 3].map(() => addon.cameraDeviceFormats(0)), [[], [], []]);
      assert.equal(camera.calls().length, 3);
    });

    it('is empty for a count that no camera has, instead of filling the memory', () => {
      camera.send('default cnokhwa_device_formats_count 2147483647');
      assert.deepEqual(addon.cameraDeviceFormats(0), []);
    });

    it('lists a thousand of them', () => {
      camera.send('log_limit 0\ndefault cnokhwa_device_formats_count 1000');
      assert.equal(addon.cameraDeviceFormats(0).length, 1000);
    });
  });

  it('the library is called on the script thread, and no error is left behind', () => {
    addon.loadTurboJpeg('');
    addon.cameraDevicesCount();
    addon.cameraDeviceName(-1);
    addon.cameraDeviceFormats(99);
    assert.deepEqual([...new Set(camera.calls().map(({ thread }) => thread))], [process.pid]);
    assert.equal(addon.getLastError(), 'No libjpeg-turbo library path was provided');
  });
});

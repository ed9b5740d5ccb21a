// Starting and stopping capture, the shape of the current frame, the button and the image controls
// on a DirectShow or an AVFoundation camera library, with and without each of its optional entries.

import assert from 'node:assert/strict';
import { after, describe, it } from 'node:test';

import { kinds, openDirectBackend, pixelFormats } from './support/direct-backend.js';

const { addon, become, callList, send } = openDirectBackend();
after(() => become('none'));

const [dshow, avf] = Object.keys(kinds);
const startEntries = ['start_capture', 'start_capture_with_format', 'start_capture_encoded'];

describe('cameraStartCapture', () => {
  // Kind, missing entries, arguments after the device, what is called, what is answered where the
  // entries answer 5, 6 and 7.
  for (const [kind, without, args, calls, answer] of [
    [dshow, [], [640, 480], ['start_capture(3,640,480)'], 5],
    [dshow, [], [640, 480, -1, false], ['start_capture(3,640,480)'], 5],
    [dshow, [], [640.9, -5, -7, 'true'], ['start_capture(3,640,-5)'], 5],
    [dshow, [], [640, 480, 0], ['start_capture_with_format(3,0)'], 6],
    [dshow, [], [640, 480, 2, 1], ['start_capture_with_format(3,2)'], 6],
    [dshow, ['start_capture_with_format'], [640, 480, 2], ['start_capture(3,640,480)'], 5],
    [dshow, ['start_capture'], [640, 480, 2], ['start_capture_with_format(3,2)'], 6],
    [dshow, ['start_capture'], [640, 480], [], -6],
    [dshow, ['start_capture', 'start_capture_with_format'], [640, 480, 2], [], -6],
    [dshow, [], [640, 480, 2, true], ['start_capture_encoded(3,2,1)'], 7],
    [dshow, [], [640, 480, -1, true], [], -13],
    [dshow, ['start_capture_encoded'], [640, 480, 2, true], [], -13],
    [dshow, ['start_capture', 'start_capture_with_format'], [0, 0, 0, true], ['start_capture_encoded(3,0,1)'], 7],
    [avf, [], [640, 480], ['start_capture(3,640,480)'], 5],
    [avf, [], [640, 480, 0], ['start_capture_with_format(3,0,0)'], 6],
    [avf, [], [640, 480, 2, 'yes'], ['start_capture_with_format(3,2,0)'], 6],
    [avf, ['start_capture_with_format'], [640, 480, 2], ['start_capture(3,640,480)'], 5],
    [avf, ['start_capture'], [640, 480, 2], ['start_capture_with_format(3,2,0)'], 6],
    [avf, ['start_capture'], [640, 480], [], -6],
    [avf, ['start_capture', 'start_capture_with_format'], [640, 480, 2], [], -6],
    [avf, [], [640, 480, 2, true], ['start_capture_with_format(3,2,1)'], 6],
    [avf, [], [640, 480, -1, true], [], -13],
    [avf, ['start_capture_with_format'], [640, 480, 2, true], [], -13],
  ]) {
    const lacking = without.length > 0 ? ` without ${without.join(' and ')}` : '';
    it(`of ${kind}${lacking}, with (${args.join(', ')}), gives ${answer}`, () => {
      become(kind, { without });
      startEntries.slice(0, kind === dshow ? 3 : 2)
        .forEach((entry, index) => send(`default ${kinds[kind]}${entry} ${5 + index}`));
      assert.equal(addon.cameraStartCapture(3, ...args), answer);
      assert.deepEqual(callList(), calls);
      addon.cameraStopCapture(3);
    });
  }

  for (const kind of [dshow, avf]) {
    it(`of ${kind} passes a failure on`, () => {
      become(kind, { script: 'answer ~start_capture -1 -99\nanswer ~start_capture_with_format -13' });
      assert.deepEqual([addon.cameraStartCapture(0, 1, 1), addon.cameraStartCapture(0, 1, 1), addon.cameraStartCapture(0, 1, 1, 0)],
        [-1, -99, -13]);
    });
  }
});

for (const kind of [dshow, avf]) {
  describe(`the size that capture was started with, of ${kind},`, () => {
    const sizes = (...devices) => devices.map((device) => {
      const { width, height } = addon.cameraFrameInfo(device);
      return [width, height];
    });

    for (const without of [[], ['frame_width', 'frame_height']]) {
      const how = without.length > 0 ? 'lacks the entries' : 'answers no positive number';
      it(`stands in where the library ${how}`, () => {
        become(kind, { without, script: without.length > 0 ? '' : 'default ~frame_width -1' });
        addon.cameraStartCapture(5, 320, 240);
        addon.cameraStartCapture(0, -3, 7);
        assert.deepEqual(sizes(5, 0, 4, 6, -1), [[320, 240], [-1, 7], [-1, -1], [-1, -1], [-1, -1]]);
        addon.cameraStopCapture(-1);
        assert.deepEqual(sizes(5), [[320, 240]]);
        addon.cameraStopCapture(5);
        addon.cameraStopCapture(0);
        assert.deepEqual(sizes(5, 0), [[-1, -1], [-1, -1]]);
      });
    }

    it('gives way to each positive number of the library', () => {
      become(kind, { frame: { width: 64, height: 0 } });
      addon.cameraStartCapture(0, 320, 240);
      assert.deepEqual(sizes(0), [[64, 240]]);
      addon.cameraStopCapture(0);
    });

    it('is not kept of a start that failed', () => {
      become(kind, { script: 'answer ~start_capture 0 -1' });
      addon.cameraStartCapture(0, 320, 240);
      addon.cameraStartCapture(0, 640, 480);
      assert.deepEqual(sizes(0), [[320, 240]]);
      addon.cameraStopCapture(0);
    });
  });

  describe(`cameraStopCapture of ${kind}`, () => {
    it('passes the index on and the answer back', () => {
      become(kind, { script: 'answer ~stop_capture 0 -3 12' });
      assert.deepEqual([0, -1, 2147483647].map((device) => addon.cameraStopCapture(device)), [0, -3, 12]);
      assert.deepEqual(callList(), ['stop_capture(0)', 'stop_capture(-1)', 'stop_capture(2147483647)']);
    });

    it('gives -6 without the entry, and ends the preview all the same', () => {
      become(kind, { without: ['stop_capture'] });
      addon.cameraPreviewStart(2, 8, 6, 120);
      assert.equal(addon.cameraStopCapture(1), -6);
      assert.equal(addon.cameraPreviewIsRunning(), true);
      assert.equal(addon.cameraStopCapture(2), -6);
      assert.equal(addon.cameraPreviewIsRunning(), false);
    });
  });

  it(`cameraHasFirstFrame of ${kind} gives -6 without the entry`, () => {
    become(kind, { without: ['has_first_frame'] });
    assert.equal(addon.cameraHasFirstFrame(0), -6);
  });
}

describe('cameraHasFirstFrame', () => {
  it('of DirectShow tells yes from a count, no from 0, and passes errors on', () => {
    become(dshow, { script: 'answer ~has_first_frame 1 2147483647 0 -1 -256' });
    assert.deepEqual(Array.from({ length: 5 }, () => addon.cameraHasFirstFrame(4)), [0, 0, -256, -1, -256]);
    assert.deepEqual(callList(), Array(5).fill('has_first_frame(4)'));
  });

  it('of AVFoundation knows only yes and no', () => {
    become(avf, { script: 'answer ~has_first_frame 1 0' });
    assert.deepEqual([addon.cameraHasFirstFrame(4), addon.cameraHasFirstFrame(4)], [0, -256]);
  });
});

describe('cameraFrameInfo', () => {
  const keys = ['width', 'height', 'bytesPerRow', 'dataSize', 'pixelFormat', 'planeOffsets', 'planeStrides'];
  const names = { bgra: 'bgra', nv12: 'nv12', yuy2: 'yuy2', mjpeg: 'mjpeg', uyvy: 'uyvy' };
  const codes = [...Object.entries(pixelFormats), ['unknown', 8], ['negative', -1]];
  const whole = { width: 64, height: 48, bytesPerRow: 300, dataSize: 20000, planeCount: 2, planes: [[0, 300], [14400, 70]] };
  const frameEntries = ['width', 'height', 'bytes_per_row', 'data_size', 'pixel_format', 'plane_count', 'plane_offset',
    'plane_stride'].map((name) => `frame_${name}`);

  /** What it answers, as a list in the order of its keys. */
  const describeFrame = (kind, format, { without = [], ...frame } = {}) => {
    become(kind, { without, frame: { ...whole, ...frame, pixelFormat: format } });
    const info = addon.cameraFrameInfo(0);
    assert.deepEqual(Object.keys(info), keys);
    return Object.values(info);
  };

  for (const kind of [dshow, avf]) {
    for (const [format, code] of codes) {
      const name = names[format] ?? 'rgb';
      // The shortest row that DirectShow may mean.
      const shortest = { nv12: 64, yuy2: 128, uyvy: 128, mjpeg: 0 }[format] ?? 256;

      it(`of ${kind} describes a frame of format ${code} as ${name}`, () => {
        assert.deepEqual(describeFrame(kind, code), [64, 48, 300, 20000, name, [0, 14400], [300, 70]]);
      });

      it(`of ${kind} corrects a row of format ${code} that is too short`, () => {
        const row = (bytesPerRow) => describeFrame(kind, code, { bytesPerRow })[2];
        const [rows, expected] = kind === dshow
          ? [[shortest, shortest - 1, 0, -5], Array(4).fill(shortest)]
          : [[1, 0, -5], format === 'mjpeg' ? [1, 0, 0] : [1, -1, -1]];
        assert.deepEqual(rows.map(row), expected);
      });
    }

    it(`of ${kind} has as many planes as the library says, at most two`, () => {
      for (const [count, planes] of [[-1, 0], [0, 0], [1, 1], [2, 2], [3, 2], [2147483647, 2], [-2147483648, 0]]) {
        const [, , , , , offsets, strides] = describeFrame(kind, 2, { planeCount: count });
        assert.deepEqual([offsets, strides], [[0, 14400].slice(0, planes), [300, 70].slice(0, planes)]);
      }
    });

    it(`of ${kind} does without each optional entry`, () => {
      const lacking = (entry) => describeFrame(kind, 2, { without: [entry] });
      assert.deepEqual(lacking('frame_width'), [-1, 48, 300, 20000, 'nv12', [0, 14400], [300, 70]]);
      assert.deepEqual(lacking('frame_height'), [64, -1, 300, 20000, 'nv12', [0, 14400], [300, 70]]);
      const row = kind === dshow ? 64 : 192;
      assert.deepEqual(lacking('frame_bytes_per_row'), [64, 48, row, 20000, 'nv12', [0, 14400], [300, 70]]);
      assert.deepEqual(lacking('frame_data_size'), [64, 48, 300, 14400, 'nv12', [0, 14400], [300, 70]]);
      assert.deepEqual(lacking('frame_pixel_format'),
        [64, 48, 300, 20000, kind === dshow ? 'bgra' : 'rgb', [0, 14400], [300, 70]]);
      assert.deepEqual(lacking('frame_plane_count'), [64, 48, 300, 20000, 'nv12', [0], [300]]);
      const withoutOffsets = lacking('frame_plane_offset');
      assert.deepEqual(withoutOffsets, [64, 48, 300, 20000, 'nv12', [0, -1], [300, 70]]);
      assert.ok(Object.is(withoutOffsets[5][0], 0));
      assert.deepEqual(lacking('frame_plane_stride'), [64, 48, 300, 20000, 'nv12', [0, 14400], [300, 0]]);
    });

    it(`of ${kind} knows nothing without any of them`, () => {
      assert.deepEqual(describeFrame(kind, 2, { without: frameEntries }),
        [-1, -1, -1, -1, kind === dshow ? 'bgra' : 'rgb', [0], [-1]]);
      assert.deepEqual(callList(), []);
    });

    it(`of ${kind} has a size of data that no int32 can hold as unknown`, () => {
      const without = ['frame_data_size'];
      assert.equal(describeFrame(kind, 1, { without, width: 1, bytesPerRow: 65536, height: 32768 })[3], -1);
      assert.equal(describeFrame(kind, 1, { without, width: 1, bytesPerRow: 65536, height: 32767 })[3], 65536 * 32767);
    });
  }

  it('takes what DirectShow says of the data only if it is positive, and AVFoundation at its word', () => {
    for (const dataSize of [0, -7]) {
      assert.equal(describeFrame(dshow, 1, { dataSize })[3], 300 * 48);
      assert.equal(describeFrame(avf, 1, { dataSize })[3], -1);
    }
  });

  it('knows the row of DirectShow from the size that capture was started with', () => {
    become(dshow, { without: ['frame_width', 'frame_height', 'frame_bytes_per_row', 'frame_data_size', 'frame_pixel_format'] });
    addon.cameraStartCapture(0, 32, 24);
    const { width, height, bytesPerRow, dataSize } = addon.cameraFrameInfo(0);
    assert.deepEqual([width, height, bytesPerRow, dataSize], [32, 24, 128, 128 * 24]);
    addon.cameraStopCapture(0);
  });
});

describe('the button', () => {
  it('of DirectShow is what the library says', () => {
    become(dshow, { script: 'answer ~button_pressed 1 0 -4\ndefault ~button_timestamp@2 2147483647' });
    assert.deepEqual([1, 2, 3].map(() => addon.cameraButtonPressed(2)), [1, 0, -4]);
    assert.deepEqual([addon.cameraButtonTimestamp(2), addon.cameraButtonTimestamp()], [2147483647, 0]);
    assert.deepEqual(callList(), [...Array(3).fill('button_pressed(2)'), 'button_timestamp(2)', 'button_timestamp(-1)']);
  });

  it('is never pressed without its entries, nor on AVFoundation', () => {
    become(dshow, { without: ['button_pressed', 'button_timestamp'] });
    assert.deepEqual([addon.cameraButtonPressed(0), addon.cameraButtonTimestamp(0)], [0, 0]);
    become(avf);
    assert.deepEqual([addon.cameraButtonPressed(0), addon.cameraButtonTimestamp(0)], [0, 0]);
    assert.deepEqual(callList(), []);
  });
});

describe('the image controls', () => {
  const entries = ['proc_amp_range', 'proc_amp_get', 'proc_amp_set'];
  const range = { result: 0, min: -64, max: 64, step: 2, default: 10, caps: 3 };
  const outputs = (entry, record) => Object.entries(record)
    .map(([key, value]) => `default ~${entry}${key === 'result' ? '' : `.${key}`} ${value}`).join('\n');

  it('of DirectShow can be read where there are a range and a value, whether or not they can be set', () => {
    for (let missing = 0; missing < 8; missing += 1) {
      become(dshow, { without: entries.filter((_, index) => missing & (1 << index)) });
      assert.equal(addon.cameraHasVideoProcAmp(), (missing & 3) === 0);
    }
    assert.deepEqual(callList(), []);
  });

  it('of DirectShow have the range that the library writes, also with a failure', () => {
    for (const result of [0, -9, 77]) {
      become(dshow, { script: outputs('proc_amp_range', { ...range, result }) });
      const answer = addon.cameraVideoProcAmpRange(1, addon.VIDEOPROCAMP_GAIN);
      assert.deepEqual(Object.keys(answer), Object.keys(range));
      assert.deepEqual(answer, { ...range, result });
      assert.deepEqual(callList(), ['proc_amp_range(1,9,ptr,ptr,ptr,ptr,ptr)']);
    }
  });

  it('of DirectShow have the value that the library writes, also with a failure', () => {
    for (const result of [0, -3]) {
      become(dshow, { script: outputs('proc_amp_get', { result, value: -17, flags: 1 }) });
      const answer = addon.cameraVideoProcAmpGet(-1, 2147483647);
      assert.deepEqual(Object.keys(answer), ['result', 'value', 'flags']);
      assert.deepEqual(answer, { result, value: -17, flags: 1 });
      assert.deepEqual(callList(), ['proc_amp_get(-1,2147483647,ptr,ptr)']);
    }
  });

  it('of DirectShow are set to any numbers', () => {
    become(dshow, { script: 'answer ~proc_amp_set 0 -5' });
    assert.deepEqual(addon.cameraVideoProcAmpSet(0, 3, -17, addon.VIDEOPROCAMP_FLAG_MANUAL), { result: 0 });
    assert.deepEqual(addon.cameraVideoProcAmpSet(1, -1, 2 ** 31, NaN), { result: -5 });
    assert.deepEqual(callList(), ['proc_amp_set(0,3,-17,2)', 'proc_amp_set(1,-1,-2147483648,0)']);
  });

  it('answer -9 and zeros without their entries, and on AVFoundation', () => {
    for (const [kind, without] of [[dshow, entries], [avf, []]]) {
      become(kind, { without });
      assert.equal(addon.cameraHasVideoProcAmp(), false);
      assert.deepEqual(addon.cameraVideoProcAmpRange(0, 0), { result: -9, min: 0, max: 0, step: 0, default: 0, caps: 0 });
      assert.deepEqual(addon.cameraVideoProcAmpGet(0, 0), { result: -9, value: 0, flags: 0 });
      assert.deepEqual(addon.cameraVideoProcAmpSet(0, 0, 0, 0), { result: -9 });
      assert.deepEqual(callList(), []);
    }
  });

  it('of DirectShow throw for what is missing or no number, and the library is not asked', () => {
    become(dshow);
    for (const call of ['cameraVideoProcAmpRange', 'cameraVideoProcAmpGet']) {
      assert.throws(() => addon[call](0), { name: 'TypeError', message: 'Expected (deviceIndex, property)' });
      assert.throws(() => addon[call](0, '0'), { message: 'A number was expected' });
    }
    assert.throws(() => addon.cameraVideoProcAmpSet(0, 0, 0),
      { name: 'TypeError', message: 'Expected (deviceIndex, property, value, flags)' });
    assert.deepEqual(callList(), []);
  });
});

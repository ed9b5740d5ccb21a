// The full-resolution pictures that the worker of a direct preview grabs beside its frames.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { firedFrame, frameOf, kinds } from './support/direct-backend.js';
import { device, useDirectPreview } from './support/direct-preview.js';
import { rampFrame } from './support/fake-camera.js';
import { sleep, until } from './support/waiting.js';

const { addon, begin, callList, counters, fire, send, setGrabBytes } = useDirectPreview();
const [dshow, avf] = Object.keys(kinds);

describe('the quality picture of a direct preview', () => {
  const keys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'pixelFormat', 'timestampMs', 'data'];
  const picture = (sequence) => until('a picture', () => {
    const answer = addon.cameraPreviewGetLatestQualityFrame(device, sequence);
    return answer.result === 0 && answer;
  });
  const frame = frameOf('bgra', 8, 6);
  const bytes = rampFrame(5, frame.dataSize);
  const rgb = Buffer.from([...bytes].filter((_, index) => index % 4 !== 3))
    .map((_, index, all) => all[index - (index % 3) + 2 - (index % 3)]);

  // Before any of the frames.
  const earliest = Date.now();
  const assertPicture = async (values, expected) => {
    const answer = await picture(0);
    assert.deepEqual(Object.keys(answer), keys);
    const { data, timestampMs, sequence, ...rest } = answer;
    assert.deepEqual(rest, { result: 0, width: 8, height: 6, ...values });
    assert.ok(timestampMs >= earliest && timestampMs <= Date.now());
    assert.ok(Buffer.isBuffer(data) && data.equals(expected));
    // It is renewed twice a second, also while nobody looks.
    assert.ok(sequence >= 1);
    assert.ok((await picture(sequence)).sequence > sequence);
  };

  it('of DirectShow is RGB', async () => {
    begin(dshow, frame);
    setGrabBytes(bytes);
    fire({ data: bytes });
    await assertPicture({ bytesPerRow: 24, pixelFormat: 'rgb' }, rgb);
  });

  it('of AVFoundation is BGRA where that can be grabbed', async () => {
    begin(avf, frame, { script: 'default ~grab_bgra 1' });
    setGrabBytes(bytes);
    fire(firedFrame(avf, frame, bytes));
    await assertPicture({ bytesPerRow: 32, pixelFormat: 'bgra' }, bytes);
  });

  it('of AVFoundation is RGB where that alone can be grabbed', async () => {
    begin(avf, { ...frame, bytesPerRow: 24 }, { without: ['grab_bgra'], script: 'default ~grab_rgb 1' });
    setGrabBytes(rgb);
    fire(firedFrame(avf, frame, bytes));
    await assertPicture({ bytesPerRow: 24, pixelFormat: 'rgb' }, rgb);
  });

  for (const [kind, grab, script] of [[dshow, 'grab_frame', 'default ~grab_frame -8'], [avf, 'grab_bgra', '']]) {
    it(`of ${kind} that cannot be grabbed is none, and counts for nothing`, async () => {
      begin(kind, frame, { script });
      fire(firedFrame(kind, frame, bytes));
      await until('a grab', () => callList().some((call) => call.startsWith(grab)));
      await sleep(20);
      assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device, 0), { result: -256, sequence: 0, data: null });
      assert.deepEqual(counters(), { droppedFrames: 0, lastResult: 0, producedFrames: 1 });
    });
  }

  it('is not asked for before the first frame', async () => {
    begin(dshow, frame);
    await sleep(50);
    assert.deepEqual(callList().filter((call) => call.startsWith('grab')), []);
  });

  it('is stopped even while the backend grabs, once that returns', () => {
    begin(dshow, frame);
    send('block cdshow_grab_frame until cdshow_stop_capture');
    fire({ data: bytes });
    send('wait_entered cdshow_grab_frame 1');
    assert.equal(addon.cameraStopCapture(device), 0);
    assert.deepEqual([addon.cameraPreviewIsRunning(), addon.cameraPreviewIsDirect()], [false, false]);
    assert.deepEqual(addon.cameraPreviewGetLatestQualityFrame(device, 0), { result: -256, sequence: 0, data: null });
  });
});

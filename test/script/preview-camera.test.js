// The full-size picture of a preview, and a camera that fails under it.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { rampFrame } from './support/fake-camera.js';
import { assertEmpty, device, emptyQuality, usePreview } from './support/preview.js';
import { nextFrame, until } from './support/waiting.js';

const qualityKeys = ['result', 'sequence', 'width', 'height', 'bytesPerRow', 'pixelFormat', 'timestampMs', 'data'];

describe('the quality picture', () => {
  const { addon, camera, startByHand, takeByHand } = usePreview();

  it('comes with the first frame, at the full size of the camera, its rows tight', async () => {
    camera.send('frame 50 30 200\ncontent ramp');
    startByHand(10, 10);
    const earliest = Date.now();
    await takeByHand();
    const picture = addon.cameraPreviewGetLatestQualityFrame(device);
    assert.deepEqual(Object.keys(picture), qualityKeys);
    const { data, timestampMs, ...rest } = picture;
    assert.deepEqual(rest, { result: 0, sequence: 1, width: 50, height: 30, bytesPerRow: 150, pixelFormat: 'rgb' });
    assert.ok(timestampMs >= earliest && timestampMs <= Date.now());
    assert.ok(Buffer.isBuffer(data));
    const source = rampFrame(1, 200 * 30);
    assert.deepEqual(data, Buffer.concat(Array.from({ length: 30 }, (_, y) => source.subarray(y * 200, y * 200 + 150))));
  });

  it('is given once, with the keys of an answer without a picture then', async () => {
    startByHand();
    await takeByHand();
    const empty = addon.cameraPreviewGetLatestQualityFrame(device, 1);
    assert.deepEqual(Object.keys(empty), ['result', 'sequence', 'data']);
    assert.deepEqual(empty, emptyQuality(1));
  });

  it('is renewed at most twice a second, while the rate of the preview is measured', async () => {
    const begin = performance.now();
    addon.cameraPreviewStart(device, 64, 48, 120);
    const pictures = [];
    await until('three pictures', () => {
      const picture = addon.cameraPreviewGetLatestQualityFrame(device, pictures.length);
      return picture.result === 0 && pictures.push(picture) === 3;
    });
    assert.deepEqual(pictures.map(({ sequence }) => sequence), [1, 2, 3]);
    const passed = performance.now() - begin;
    assert.ok(passed >= 1000, `three pictures in ${passed} ms`);
    const { producerFps } = await until('a measured rate', () => {
      const answer = addon.cameraPreviewGetLatest(device);
      return answer.producerFps > 0 && answer;
    });
    assert.ok(producerFps <= 121, `${producerFps}`);
    assert.equal(producerFps, Math.round(producerFps * 10) / 10);
  });
});

describe('failures of the camera', () => {
  const { addon, camera, startByHand, takeByHand } = usePreview();

  it('a failed grab counts as dropped and keeps the size, whatever its code', async () => {
    camera.send('answer cnokhwa_grab_frame -8 -256 5 0');
    startByHand();
    camera.send('release cnokhwa_grab_frame 3');
    camera.send('wait_entered cnokhwa_grab_frame 4');
    assertEmpty(addon.cameraPreviewGetLatest(device), { result: -256, sequence: 0, droppedFrames: 3, lastResult: 5 });
    const frame = await takeByHand();
    assert.deepEqual([frame.sequence, frame.droppedFrames, frame.lastResult], [1, 3, 0]);
    assert.equal(camera.entered('cnokhwa_frame_width'), 1);
  });

  for (const code of [-7, -10, -11]) {
    it(`a grab that answers ${code} makes the preview ask for the size again`, async () => {
      camera.send(`answer cnokhwa_grab_frame ${code}`);
      startByHand();
      camera.send('wait_entered cnokhwa_grab_frame 1');
      camera.send('frame 8 6\nrelease cnokhwa_grab_frame 1');
      camera.send('wait_entered cnokhwa_grab_frame 2');
      assertEmpty(addon.cameraPreviewGetLatest(device), { droppedFrames: 1, lastResult: code });
      const { width, height } = await takeByHand();
      assert.deepEqual([width, height], [8, 6]);
      assert.equal(camera.entered('cnokhwa_frame_width'), 2);
    });
  }

  for (const [frame, code] of [
    ['0 9', -10], ['-16 9', -10], ['16 0', -10], ['16 -2147483648', -10], ['16 9 47', -10], ['16 9 0', -10],
    ['16 9 -48', -10], ['2147483647 2147483647 2147483647', -10], ['16 2147483647 48', -11], ['16 46341 46341', -11],
  ]) {
    it(`a frame of ${frame} (width, height, bytes a row) is dropped with ${code}`, async () => {
      camera.send(`frame ${frame}`);
      addon.cameraPreviewStart(device, 64, 48, 120);
      await until('a dropped frame', () => addon.cameraPreviewGetLatest(device).lastResult !== -256);
      const answer = addon.cameraPreviewGetLatest(device);
      assertEmpty(answer, { result: -256, sequence: 0, lastResult: code, producedFrames: 0 });
      assert.ok(answer.droppedFrames > 0);
      assert.equal(camera.entered('cnokhwa_grab_frame'), 0);
      camera.send('frame 16 9');
      assert.equal((await nextFrame(addon, { device })).lastResult, 0);
    });
  }

  it('a frame that grows or shrinks behind its size is shown in the old one', async () => {
    camera.send('frame 32 18\nframe_after 1 4000 3000\nframe_after 1 2 2');
    startByHand();
    for (let sequence = 0; sequence < 4; sequence += 1) {
      const { width, height } = await takeByHand({ sequence });
      assert.deepEqual([width, height], [32, 18]);
    }
  });
});

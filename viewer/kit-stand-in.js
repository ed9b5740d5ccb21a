// What the viewer uses of the kit, until that is there.

import { EventEmitter } from 'node:events';
import { stat } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { Background } from './background.js';

export async function* frames({ native, device, signal }) {
  let last = 0;
  const ring = [0, 1, 2].map(() => new Uint8Array(1920 * 1080 * 4));
  for (let i = 0; !signal.aborted;) {
    const frame = native.cameraPreviewGetLatest(device, last, ring[i % 3]);
    if (frame.result === 0) {
      last = frame.sequence;
      ++i;
      yield frame;
    } else if (frame.result === -1) {
      return;
    }
    await sleep(4);
  }
}

class Watch extends EventEmitter {
  close() {
    clearInterval(this.timer);
    clearInterval(this.timer2);
  }
}

export function watchCamera({ native, device }) {
  const watch = new Watch();
  watch.device = device;
  watch.uniqueId = native.cameraDeviceUniqueId(device);
  watch.state = 'starting';
  let last = 0;
  let since = performance.now();
  watch.timer = setInterval(() => {
    const { sequence, lastResult } = native.cameraPreviewGetLatest(device, Number.MAX_SAFE_INTEGER);
    const now = performance.now();
    if (sequence > last) {
      last = sequence;
      since = now;
      if (watch.state !== 'live') {
        watch.state = 'live';
        watch.emit('recovered', { device, silentMs: 0 });
      }
      return;
    }
    const isThere = native.cameraDeviceUniqueId(device) === watch.uniqueId;
    if (!isThere && watch.state !== 'lost') {
      watch.state = 'lost';
      watch.emit('lost', { uniqueId: watch.uniqueId, reason: 'missing', lastResult });
    } else if (isThere && watch.state === 'lost') {
      watch.state = 'starting';
      since = now;
      watch.emit('found', { device, uniqueId: watch.uniqueId });
    } else if (now - since > (watch.state === 'starting' ? 5000 : 800) && ['live', 'starting'].includes(watch.state)) {
      watch.state = 'stalled';
      watch.emit('stalled', { device, silentMs: now - since, lastResult });
    }
  }, 100);
  return watch;
}

export async function record({ native, device, file, bitrate }) {
  const frame = native.cameraPreviewGetLatest(device, 0);
  const worker = new Background(process.env.OSTREL_TEST_ADDON);
  const { value, words } = await worker.run('cameraRecordingStart', file, frame.width, frame.height, 30, bitrate ?? 4e6);
  if (value < 0) {
    throw new Error(words);
  }
  const recording = new Watch();
  const started = performance.now();
  const look = async () => {
    const { framesWritten, framesDropped, durationMs } = native.cameraRecordingStatus();
    const { size } = await stat(file).catch(() => ({ size: 0 }));
    recording.progress = { elapsedMs: performance.now() - started, durationMs, framesWritten, framesDropped, bytes: size };
    recording.emit('progress', recording.progress);
  };
  recording.timer = setInterval(look, 250);
  let finish;
  recording.finished = new Promise((resolve) => (finish = resolve));
  recording.warnings = [];
  recording.stop = async () => {
    clearInterval(recording.timer);
    await worker.run('cameraRecordingStop');
    await look();
    await worker.close();
    finish({ ...recording.progress, file, width: frame.width, height: frame.height, reason: 'stopped', error: null });
    return recording.finished;
  };
  return recording;
}

const expect = (native) => async (promise) => {
  if (!(await promise)) {
    throw new Error(native.getLastError() || native.ostrelLastError() || 'The microscope refused');
  }
};

export function ostrelCommands({ native }) {
  const must = expect(native);
  return {
    devices: () => native.ostrelDevicesAsync(),
    select: (index) => must(native.ostrelSelectDeviceAsync(index)),
    setFocus: (position) => must(native.ostrelSetFocusPositionAsync(position)),
    focusNear: () => must(native.ostrelFocusNearAsync()),
    focusFar: () => must(native.ostrelFocusFarAsync()),
    autoFocus: () => must(native.ostrelTriggerAutoFocusAsync()),
    setLed: (on) => must(native.ostrelSetLedStateAsync(on)),
    dispose: () => must(native.ostrelDisposeAsync()),
  };
}

export function watchOstrel({ native }) {
  const watch = new Watch();
  watch.commands = ostrelCommands({ native });
  watch.state = { connected: false, device: null, status: null, focus: null, lens: null, pixelSize: null };
  (async () => {
    const [device] = await watch.commands.devices();
    await watch.commands.select(device.index);
    Object.assign(watch.state, { connected: true, device });
    watch.emit('connected', device);
  })();
  watch.timer = setInterval(() => {
    const { ok, ...pixelSize } = native.ostrelGetPixelSizeInfo();
    const known = (value) => (value < 0 ? null : value);
    Object.assign(watch.state, { status: known(native.ostrelGetScopeStatus()), focus: known(native.ostrelGetFocusPosition()),
      pixelSize: ok ? pixelSize : null });
    if (native.ostrelIsCapturePressed()) {
      watch.emit('button', { at: Date.now() });
    }
  }, 50);
  return watch;
}

export function watchDinoLite({ native }) {
  const watch = new Watch();
  watch.state = { connected: false, device: null, magnification: null, fieldOfView: null };
  (async () => {
    await native.dinoLiteInitAsync();
    const [device] = await native.dinoLiteDevicesAsync();
    await native.dinoLiteSelectDeviceAsync(device.index);
    Object.assign(watch.state, { connected: true, device });
  })();
  watch.timer = setInterval(() => {
    const magnification = watch.state.connected ? native.dinoLiteGetAmr(0) : null;
    Object.assign(watch.state, { magnification,
      fieldOfView: magnification === null ? null : native.dinoLiteGetFovx(0, magnification) });
  }, 50);
  return watch;
}

export async function fuseStack({ native, frames: pictures, onProgress }) {
  const { analyseFrame, makeRequest, measureStack } = await import('../examples/lib/focus-stack/measure-stack.js');
  const measured = measureStack(pictures.map(analyseFrame), (stageDone) => onProgress({ stage: 'aligning', stageDone, done: stageDone * 0.7 }));
  const { data } = native.edofMultibandFuse(makeRequest(pictures, measured));
  return { ...pictures[0], rgba: data, reference: measured.reference, gain: 1.5, measuringMs: 1, fusingMs: 1,
    frames: measured.frames.map((frame, index) => ({ ...frame, index })) };
}

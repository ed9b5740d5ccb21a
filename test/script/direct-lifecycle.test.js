// Direct previews where something ends under them: the process, a worker thread, the lent memory.
// A backend that calls back without a pause is at work meanwhile.

import assert from 'node:assert/strict';
import path from 'node:path';
import { describe, it } from 'node:test';

import { runInChild, valueFromChild } from './support/child.js';
import { kinds } from './support/direct-backend.js';
import { testingAddonPath, untidyEnvironment } from './support/environment.js';
import { decodingComplaints, probe, topBoxes } from './support/media.js';
import { makeTemporaryDirectory } from './support/temporary.js';

const env = { OSTREL_TEST_ADDON: testingAddonPath };
const silent = { stdout: '', stderr: '', code: 0, signal: null };
const directory = makeTemporaryDirectory();
const [dshow, avf] = Object.keys(kinds);

/**
 * Leaves a direct preview running while its backend fires, a recording too if there is a `file`,
 * and ends the process by `how`. Runs in a child.
 */
async function leaveRunning({ addon, openDirectBackend, hammerPreview, until }, { kind, format, file, how }) {
  const backend = openDirectBackend();
  hammerPreview(backend, kind, format, { framesPerSecond: 200 });
  if (file && addon.cameraRecordingStart(file, 64, 48, 120, 1_000_000) !== 0) {
    throw new Error(addon.getLastError());
  }
  await until('frames', () => {
    addon.cameraPreviewReleaseAllDirectSlots(0);
    return file ? addon.cameraRecordingStatus().framesWritten > 3 : addon.cameraPreviewGetLatest(0, 1e9).producedFrames > 3;
  });
  if (how === 'exit') {
    process.exit(3);
  } else if (how === 'throw') {
    setImmediate(() => {
      throw new Error('thrown on purpose');
    });
  }
}

describe('the process ends', { concurrency: 2 }, () => {
  for (const kind of [dshow, avf]) {
    for (const format of ['bgra', 'mjpeg']) {
      it(`cleanly with a running direct preview of ${format} by ${kind}`, async () => {
        const { value, ...end } = await runInChild(leaveRunning, { args: [{ kind, format }], env });
        assert.deepEqual(end, silent);
      });

      it(`by process.exit() with its code while ${format} of ${kind} is recorded, and the file is finished`, async () => {
        const file = path.join(directory, `${kind}-${format}.mp4`);
        const { value, ...end } = await runInChild(leaveRunning,
          { args: [{ kind, format, file, how: 'exit' }], env: { ...env, ...untidyEnvironment } });
        assert.deepEqual(end, { ...silent, code: 3 });
        assert.deepEqual(topBoxes(file), ['ftyp', 'moov', 'free', 'mdat']);
        assert.equal(decodingComplaints(file), '');
        assert.ok(probe(file).packets.length > 3);
      });
    }

    it(`by an uncaught exception with its report, with a direct preview of ${kind}`, async () => {
      const { code, signal, stdout, stderr } = await runInChild(leaveRunning,
        { args: [{ kind, format: 'nv12', how: 'throw' }], env: { ...env, ...untidyEnvironment } });
      assert.deepEqual([code, signal, stdout], [1, null, '']);
      assert.match(stderr, /Error: thrown on purpose/);
      assert.equal(stderr.trim().split('\n').at(-1), `Node.js ${process.version}`);
    });
  }
});

describe('a worker thread', { concurrency: 2 }, () => {
  /**
   * Starts a worker that lends arrays to a direct preview while the backend fires, then runs
   * `body(tools, ...args)` beside it. All in a child.
   */
  const besideALender = (body, args = []) => valueFromChild(async (context, text, rest) => {
    const { Worker } = await import('node:worker_threads');
    const { once } = await import('node:events');
    const { addon, openDirectBackend, frameOf, addonPath } = context;
    const { become, testing } = { ...openDirectBackend(), testing: addon.testing };
    const frame = frameOf('bgra', 64, 48);
    become('directshow', { frame });
    const worker = new Worker(`
      const { parentPort, workerData: { addonPath, size } } = require('node:worker_threads');
      const addon = require(addonPath);
      const arrays = [1, 2, 3].map(() => new Uint8Array(size));
      const calls = {
        start: () => addon.cameraPreviewStart(0, 64, 48, 30, arrays),
        stop: () => addon.cameraPreviewStop(),
        take: () => {
          const { result, directSlot, data } = addon.cameraPreviewGetLatest(0);
          return [result, result === 0 && data.buffer === arrays[directSlot].buffer];
        },
        spin: () => {
          parentPort.postMessage('spins');
          for (;;) {
            addon.cameraPreviewGetLatest(0);
            addon.cameraPreviewReleaseAllDirectSlots(0);
          }
        },
        end: () => process.exit(0),
      };
      parentPort.on('message', (name) => parentPort.postMessage(calls[name]()));
    `, { eval: true, execArgv: [], workerData: { addonPath, size: frame.dataSize } });
    const ask = async (name) => {
      worker.postMessage(name);
      return (await once(worker, 'message'))[0];
    };
    const end = async () => {
      worker.postMessage('end');
      return (await once(worker, 'exit'))[0];
    };
    testing.startHammer({ data: new Uint8Array(frame.dataSize) }, { framesPerSecond: 500 });
    const state = () => [addon.cameraPreviewIsRunning(), addon.cameraPreviewIsDirect()];
    const lend = () => context.lendArrays(frame.dataSize);
    const value = await new Function(`return (${text})`)()({ ...context, addon, frame, worker, ask, end, state, lend }, ...rest);
    testing.stopHammer();
    return value;
  }, { args: [body.toString(), args], env });

  it('that lends the arrays may end: the preview ends with it', async () => {
    assert.deepEqual(await besideALender(async ({ ask, end, state, addon, lend, until }) => {
      const started = await ask('start');
      const running = state();
      const code = await end();
      const ended = state();
      gc();
      const again = addon.cameraPreviewStart(0, 64, 48, 30, lend());
      await until('a frame', () => addon.cameraPreviewGetLatest(0).result === 0);
      addon.cameraPreviewStop();
      return [started, running, code, ended, again];
    }), [0, [true, true], 0, [false, false], 0]);
  });

  it('that lends the arrays may be terminated while it polls', async () => {
    assert.deepEqual(await besideALender(async ({ ask, worker, state, sleep }) => {
      const started = await ask('start');
      await ask('spin');
      await sleep(20);
      return [started, await worker.terminate(), state()];
    }), [0, 1, [false, false]]);
  });

  it('that has ended leaves the preview of another one alone', async () => {
    assert.deepEqual(await besideALender(async ({ ask, end, state, addon, lend, until }) => {
      await ask('start');
      const other = addon.cameraPreviewStart(0, 64, 48, 30, lend());
      const code = await end();
      const { sequence } = await until('a frame', () => {
        const answer = addon.cameraPreviewGetLatest(0);
        return answer.result === 0 && answer;
      });
      const ended = state();
      addon.cameraPreviewStop();
      return [other, code, sequence > 0, ended];
    }), [0, 0, true, [true, true]]);
  });

  for (const [call, args] of [
    ['cameraPreviewGetLatest', [0]],
    ['cameraPreviewGetLatest', [0, 0, new Uint8Array(64 * 48 * 4)]],
    ['cameraPreviewGetLatestQualityFrame', [0, 0]],
    ['cameraPreviewReleaseDirectSlot', [0, 0, 1]],
    ['cameraPreviewReleaseAllDirectSlots', [0]],
    ['cameraGrabEncodedFrame', [0]],
  ]) {
    it(`lends arrays while another one calls ${call} with ${args.length} arguments`, async () => {
      assert.equal(await besideALender(async ({ ask, end, addon, sleep, until }, name, callArguments) => {
        await ask('start');
        for (let round = 0; round < 20; round += 1) {
          for (let count = 0; count < 50; count += 1) {
            addon[name](...callArguments);
          }
          await sleep(1);
          gc();
        }
        // The lender still gets its frames.
        addon.cameraPreviewReleaseAllDirectSlots(0);
        const deadline = performance.now() + 60_000;
        let taken;
        do {
          taken = await ask('take');
        } while (taken[0] !== 0 && performance.now() < deadline);
        await end();
        await until('the end', () => !addon.cameraPreviewIsRunning());
        return taken.join();
      }, [call, args]), '0,true');
    });
  }

  for (const [what, stop] of [
    ['stops the preview', (addon) => addon.cameraPreviewStop()],
    ['stops the capture', (addon) => addon.cameraStopCapture(0)],
    ['starts a polling preview', (addon) => addon.cameraPreviewStart(0, 64, 48, 120)],
    ['starts a direct preview', (addon, lend) => addon.cameraPreviewStart(0, 64, 48, 30, lend())],
  ]) {
    it(`may be in the middle of its frames when another one ${what}, again and again`, async () => {
      assert.deepEqual(await besideALender(async ({ ask, end, addon, lend }, text) => {
        const stopIt = new Function(`return (${text})`)();
        const answers = new Set();
        for (let round = 0; round < 10; round += 1) {
          answers.add(await ask('start'));
          await ask('take');
          stopIt(addon, lend);
          gc();
          answers.add((await ask('take'))[1]);
        }
        addon.cameraPreviewStop();
        const code = await end();
        return [[...answers], code];
      }, [stop.toString()]), [[0, false], 0]);
    });
  }
});

describe('a lent array', () => {
  const onTheWay = (body) => valueFromChild(async (context, text) => {
    const { addon, openDirectBackend, frameOf, lendArrays } = context;
    const backend = openDirectBackend();
    const frame = frameOf('bgra', 8, 6);
    backend.become('directshow', { frame });
    const arrays = lendArrays(frame.dataSize);
    addon.cameraPreviewStart(0, 8, 6, 30, arrays);
    const shoot = (byte) => backend.fire({ data: new Uint8Array(frame.dataSize).fill(byte) });
    const take = () => {
      try {
        const { result, directSlot, data } = addon.cameraPreviewGetLatest(0);
        return [result, directSlot, data?.[0]];
      } catch (error) {
        return error.message;
      }
    };
    const value = await new Function(`return (${text})`)()({ addon, arrays, frame, shoot, take });
    addon.cameraPreviewStop();
    return value;
  }, { args: [body.toString()], env });

  it('whose memory moved away gives no frame but an error, and its slot is free for the next', async () => {
    assert.deepEqual(await onTheWay(({ arrays, shoot, take }) => {
      const moved = structuredClone(arrays[0].buffer, { transfer: [arrays[0].buffer] });
      shoot(1);
      const refused = take();
      shoot(2);
      const next = take();
      return [refused, next, moved.byteLength > 0];
    }), ['The buffer of slot 0 was detached or resized while it was lent', [0, 1, 2], true]);
  });

  it('that was lent thrice is one piece of memory, which every frame overwrites', async () => {
    assert.deepEqual(await onTheWay(({ addon, arrays, shoot, take }) => {
      addon.cameraPreviewStart(0, 8, 6, 30, [arrays[0], arrays[0], arrays[0]]);
      const seen = [];
      for (const byte of [1, 2, 3]) {
        shoot(byte);
        seen.push(take());
      }
      return [seen, arrays[0][0], take()];
    }), [[[0, 0, 1], [0, 1, 2], [0, 2, 3]], 3, [-256, undefined, undefined]]);
  });

  it('may be written by script code while it is lent', async () => {
    assert.deepEqual(await onTheWay(({ arrays, shoot, take }) => {
      shoot(5);
      arrays.forEach((array) => array.fill(9));
      return [take(), arrays[0][0]];
    }), [[0, 0, 9], 9]);
  });
});

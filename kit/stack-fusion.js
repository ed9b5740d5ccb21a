// Fusing a focus stack off the main thread, with progress and cancellation.

import { addonFileOf, nativeOf } from './native.js';
import { startWorker } from './native-worker.js';
import { functionOption, objectOption, signalOption } from './options.js';
import { checkFrame, detachable } from './stack-frames.js';

// What each stage takes of the whole, roughly.
const stages = {
  measuring: { from: 0, share: 0.4 },
  choosing: { from: 0.4, share: 0 },
  aligning: { from: 0.4, share: 0.35 },
  fusing: { from: 0.75, share: 0.25 },
};

function readOptions(options) {
  objectOption(options);
  const { frames, transfer } = options;
  if (typeof frames?.[Symbol.asyncIterator] !== 'function' && typeof frames?.[Symbol.iterator] !== 'function') {
    throw new TypeError('`frames` takes the frames of the stack, in an array or another iterable.');
  }
  const native = nativeOf(options);
  return {
    frames,
    expected: Array.isArray(frames) ? frames.length : null,
    transfer: transfer === true,
    addonFile: addonFileOf(native, options.addonFile),
    signal: signalOption(options),
    onProgress: functionOption(options, 'onProgress', () => {}),
  };
}

/** Sends frame after frame; stops where the signal says so. */
async function sendFrames(worker, { frames, transfer, signal }) {
  let first;
  let index = 0;
  for await (const frame of frames) {
    signal?.throwIfAborted();
    const bytes = checkFrame(frame, index, first);
    first ??= { width: frame.width, height: frame.height };
    const rgba = await detachable(bytes, { transfer, signal });
    signal?.throwIfAborted();
    worker.postMessage({ frame: { ...first, rgba } }, [rgba.buffer]);
    ++index;
  }
  worker.postMessage({ isLast: true });
}

/** What the worker has to say until its result; rejected with what it throws, and with the reason of `over`. */
function resultOf(worker, onProgress, over) {
  let furthest = 0;
  const tell = ({ stage, stageDone }) => {
    furthest = Math.max(furthest, stages[stage].from + stages[stage].share * stageDone);
    onProgress({ stage, stageDone, done: furthest });
  };
  return new Promise((resolve, reject) => {
    over.addEventListener('abort', () => reject(over.reason), { once: true });
    worker.on('error', reject);
    worker.on('exit', () => reject(new Error('The thread that fuses the stack has ended.')));
    worker.on('message', (message) => {
      if (message.error) {
        reject(message.error);
      } else if (message.result) {
        resolve(message.result);
      } else if (!over.aborted) {
        try {
          tell(message);
        } catch (error) {
          reject(error);
        }
      }
    });
  });
}

/** See index.d.ts. */
export async function fuseStack(options) {
  const choice = readOptions(options);
  choice.signal?.throwIfAborted();
  const { addonFile, expected, transfer } = choice;
  const worker = startWorker('stack-worker.js', { workerData: { addonFile, expected, givesBack: transfer } });
  const over = new AbortController();
  choice.signal?.addEventListener('abort', () => over.abort(choice.signal.reason), { once: true, signal: over.signal });
  const result = resultOf(worker, choice.onProgress, over.signal);
  const sending = sendFrames(worker, { ...choice, signal: over.signal });
  try {
    // Whichever fails first; the worker may find fault before all frames are sent.
    return (await Promise.all([result, sending]))[0];
  } finally {
    over.abort();
    await worker.terminate();
  }
}

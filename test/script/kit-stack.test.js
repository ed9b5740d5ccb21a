// The kit's fusion of focus stacks: the same picture as on the main thread, with progress, and nothing left of it.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { drawOutBorder } from '../../kit/focus-stack/border.js';
import { analyseFrame, makeRequest, measureStack } from '../../kit/focus-stack/measure-stack.js';
import { fuseStack } from '../../kit/index.js';
import { valueFromChild } from './support/child.js';
import { loadAddon } from './support/environment.js';
import { constantFrame, makeStack } from './support/synthetic-stack.js';

const addon = loadAddon();
const size = { width: 160, height: 96 };
const reason = new Error('enough');
const fuse = (frames, options = {}) => fuseStack({ native: addon, frames, ...options });
const copyOf = (frames) => frames.map(({ rgba, ...rest }) => ({ ...rest, rgba: rgba.slice() }));

describe('a stack', () => {
  const stack = makeStack({ ...size, count: 4 });

  it('is fused as it would be on the main thread, and its frames are left alone', async () => {
    const given = copyOf(stack);
    const result = await fuse(given);
    const measured = measureStack(stack.map(analyseFrame));
    const expected = { ...size, rgba: addon.edofMultibandFuse(makeRequest(stack, measured)).data };
    drawOutBorder(expected, measured.frames[0].field);
    assert.deepEqual(Buffer.from(result.rgba), Buffer.from(expected.rgba));
    assert.deepEqual(given, stack);
    assert.deepEqual(Object.keys(result), ['width', 'height', 'rgba', 'reference', 'frames', 'gain', 'measuringMs', 'fusingMs',
      'threads', 'simd']);
    assert.deepEqual([result.width, result.height, result.reference], [160, 96, measured.reference]);
    assert.ok(result.gain > 1.2, `${result.gain}`);
    assert.ok(result.measuringMs > 0 && result.fusingMs > 0);
    assert.deepEqual(result.frames, measured.frames.map((frame, index) => ({ index, accepted: frame.field.accepted, ...frame })));
  });

  it('tells its progress, which never goes back', async () => {
    const seen = [];
    await fuse(stack, { onProgress: (progress) => seen.push(progress) });
    assert.deepEqual([...new Set(seen.map(({ stage }) => stage))], ['measuring', 'aligning', 'fusing']);
    assert.ok(seen.every(({ done }, i) => done >= (seen[i - 1]?.done ?? 0)));
    assert.deepEqual(seen.filter(({ stage }) => stage === 'measuring').map(({ stageDone }) => stageDone), [0.25, 0.5, 0.75, 1]);
    assert.deepEqual(seen.at(-1), { stage: 'fusing', stageDone: 1, done: 1 });
  });

  it('may be given frame by frame, as it is made', async () => {
    async function* make() {
      for (const frame of stack) {
        await new Promise(setImmediate);
        yield frame;
      }
    }
    assert.deepEqual(Buffer.from((await fuse(make())).rgba), Buffer.from((await fuse(stack)).rgba));
  });

  it('may hand over its memory, and gets it back', async () => {
    const given = copyOf(stack);
    const shared = new Uint8Array(new SharedArrayBuffer(given[1].rgba.length));
    shared.set(given[1].rgba);
    given[1].rgba = shared;
    given[2].rgba = new Uint8ClampedArray([...given[2].rgba, 0]).subarray(0, -1);
    const promise = fuse(given, { transfer: true });
    const { rgba, sources } = await promise;
    assert.deepEqual(given.map((frame) => frame.rgba.length > 0), [false, true, true, false]);
    assert.deepEqual(sources, stack);
    assert.deepEqual(Buffer.from(rgba), Buffer.from((await fuse(stack)).rgba));
  });

  it('is thinned out where it is longer than can be fused', async () => {
    const seen = new Set();
    const long = makeStack({ width: 120, height: 64, count: 13 });
    const { frames } = await fuse(long, { onProgress: ({ stage }) => seen.add(stage) });
    assert.equal(frames.length, 11);
    assert.ok(frames.every(({ index }, i) => i === 0 || index > frames[i - 1].index));
    assert.deepEqual([...seen], ['measuring', 'choosing', 'aligning', 'fusing']);
  });

  it('may be fused beside another one', async () => {
    const other = makeStack({ ...size, count: 3, seed: 9 });
    const [one, two] = await Promise.all([fuse(stack), fuse(other)]);
    assert.deepEqual([one.frames.length, two.frames.length], [4, 3]);
  });

  it('says of frames without any detail that there is no gain', async () => {
    const { gain } = await fuse(Array(3).fill(constantFrame(32, 32, 100)));
    assert.ok(Number.isNaN(gain));
  });

  describe('is refused', () => {
    const frame = constantFrame(8, 6, 1);
    for (const [what, frames, Kind, message] of [
      ['nothing', undefined, TypeError, '`frames` takes the frames of the stack, in an array or another iterable.'],
      ['a number', 3, TypeError, '`frames` takes the frames of the stack, in an array or another iterable.'],
      ['none', [], Error, 'A focus stack has at least 3 frames; there are 0.'],
      ['one', [frame], Error, 'A focus stack has at least 3 frames; there is one.'],
      ['two', [frame, frame], Error, 'A focus stack has at least 3 frames; there are 2.'],
      ['several sizes', [frame, frame, constantFrame(6, 8, 1)], RangeError,
        'The frames of a stack have one size, but frame 0 is 8 x 6 and frame 2 is 6 x 8.'],
      ['no frame', [frame, null], RangeError, 'Frame 1 is undefined x undefined: a side has 1 to 16384 pixels.'],
      ['a side of 0', [{ ...frame, width: 0 }], RangeError, 'Frame 0 is 0 x 6: a side has 1 to 16384 pixels.'],
      ['a side too long', [{ ...frame, height: 16385 }], RangeError, 'Frame 0 is 8 x 16385: a side has 1 to 16384 pixels.'],
      ['no pixels', [{ width: 8, height: 6 }], TypeError, 'Frame 0 has no `rgba`, an array of bytes.'],
      ['too few pixels', [{ ...frame, rgba: new Uint8Array(4) }], RangeError, 'Frame 0 has 4 bytes, not 192 for 8 x 6 pixels.'],
    ]) {
      it(what, () => assert.rejects(fuse(frames), new Kind(message)));
    }

    it('with options that are none', async () => {
      await assert.rejects(fuseStack(), new TypeError('`options` takes an object, not undefined.'));
      await assert.rejects(fuse(stack, { onProgress: 1 }), new TypeError('`onProgress` takes a function, not 1.'));
      await assert.rejects(fuse(stack, { addonFile: '/nowhere.node' }), /Cannot find module '\/nowhere\.node'/);
    });

    it('in the words of its own source, or of who is told of its progress', async () => {
      function* breaking() {
        yield frame;
        throw reason;
      }
      await assert.rejects(fuse(breaking()), reason);
      await assert.rejects(fuse(stack, { onProgress: () => { throw reason; } }), reason);
    });
  });

  it('is not begun where it is cancelled before', async () => {
    await assert.rejects(fuse(stack, { signal: AbortSignal.abort(reason) }), reason);
  });

  for (const stage of ['measuring', 'aligning', 'fusing']) {
    it(`is cancelled while ${stage}`, async () => {
      const abort = new AbortController();
      const later = [];
      await assert.rejects(fuse(stack, {
        signal: abort.signal,
        onProgress: (progress) => {
          later.push(progress.stage);
          if (progress.stage === stage) {
            abort.abort(reason);
          }
        },
      }), reason);
      assert.equal(later.at(-1), stage);
    });
  }

  it('is cancelled while its source makes it wait', async () => {
    const abort = new AbortController();
    let isLeft = false;
    async function* stuck() {
      try {
        yield stack[0];
        await new Promise((resolve) => setImmediate(resolve));
        abort.abort(reason);
        yield stack[1];
      } finally {
        isLeft = true;
      }
    }
    await assert.rejects(fuse(stuck(), { signal: abort.signal }), reason);
    await new Promise(setImmediate);
    assert.equal(isLeft, true);
  });
});

describe('a process', () => {
  it('ends by itself after a fusion, a cancelled one and a failed one', async () => {
    assert.deepEqual(await valueFromChild(async ({ addon: native, kit }, frames) => {
      const { width } = await kit.fuseStack({ native, frames });
      const abort = new AbortController();
      const cancelled = kit.fuseStack({ native, frames, signal: abort.signal, onProgress: () => abort.abort(new Error('enough')) });
      const failed = kit.fuseStack({ native, frames: frames.slice(2) });
      return [width, ...(await Promise.allSettled([cancelled, failed])).map(({ reason: error }) => error.message)];
    }, { args: [makeStack({ ...size, count: 3 })] }), [160, 'enough', 'A focus stack has at least 3 frames; there is one.']);
  });
});

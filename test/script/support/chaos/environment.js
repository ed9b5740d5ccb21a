// One environment of a chaos run: it calls random functions until it is told to stop, and looks at
// every answer.

import fs from 'node:fs';
import { setImmediate as turn } from 'node:timers/promises';
import { isMainThread, parentPort, workerData } from 'node:worker_threads';

import { loadAddon } from '../environment.js';
import { makeRandom } from '../odd-values.js';
import { flawOfDirectFrame, flawOfFrame, isWellFormed, mayThrow } from './answers.js';
import { calls, lockFile, names, pickName } from './arguments.js';
import { openBoard } from './board.js';

const mostPending = 2;
// Long enough between two turns of the event loop that calls crowd.
const callsPerTurn = 20;
const largestFrame = 320 * 240 * 4;

/** The first calls of each environment: all of them together call everything. */
function openingOf({ seed, environments, index }) {
  const random = makeRandom(seed);
  const shuffled = [...names];
  for (let i = shuffled.length - 1; i > 0; i -= 1) {
    const j = random(i + 1);
    [shuffled[i], shuffled[j]] = [shuffled[j], shuffled[i]];
  }
  return shuffled.filter((_, i) => i % environments === index);
}

// What arguments are drawn from; see arguments.js.
function makeDraw(random, run) {
  const pick = (list) => list[random(list.length)];
  const targets = [undefined, new Uint8Array(largestFrame), new Uint8Array(largestFrame + 64).subarray(3), new Uint8Array(8)];
  return {
    ...run,
    random,
    pick,
    device: () => pick([0, 0, 0, 0, 0, 0, 1, -1]),
    target: () => pick(targets),
    sequence: 0,
    held: [],
    locks: [],
  };
}

/**
 * Runs environment `index` of a run: `run` is what makeRun of process.js gives, `life` tells those
 * apart that follow one another under the same index. Gives what was wrong, at most one thing.
 */
export async function runEnvironment({ run, index, life }) {
  const board = openBoard(run.memory);
  const addon = loadAddon(run.addon);
  const random = makeRandom(run.seed + 7919 * (index + 1) + 104729 * life);
  const draw = makeDraw(random, run);
  const opening = life === 0 ? openingOf({ ...run, index }) : [];
  const pending = [];
  const problems = [];
  let begun = 0;

  const complain = (name, args, what) => {
    const shown = JSON.stringify(args, (_, value) => (ArrayBuffer.isView(value) ? `[${value.length}]` : value));
    problems.push(`environment ${index}.${life}, call ${begun}: ${name}(${shown}): ${what}`);
  };

  const lookAtLatest = (answer, releases) => {
    if (answer.result !== 0) {
      return undefined;
    }
    draw.sequence = answer.sequence;
    if (answer.producerMode === 'polling') {
      board.countFrame(false);
      return flawOfFrame(answer, run.isUniform);
    }
    draw.held.push(answer);
    const flaw = flawOfDirectFrame(answer);
    // An array that another environment has given back may be written meanwhile.
    if (releases === undefined || board.releases() !== releases) {
      return undefined;
    }
    board.countFrame(true);
    return flaw;
  };

  const lookAtLocks = {
    lockFile([file], descriptor) {
      const lock = [0, 1, 2].find((one) => lockFile(run.directory, one) === file);
      draw.locks.push({ lock, descriptor, file });
      return board.hold(lock, index) ? undefined : 'another environment holds this lock';
    },
    unlockFile() {
      const held = draw.locks.pop();
      if (held) {
        board.giveBack(held.lock);
        fs.rmSync(held.file);
      }
    },
  };

  const isRelease = (name) => name.startsWith('cameraPreviewRelease');

  async function callOnce() {
    const name = opening.pop() ?? pickName(random);
    const args = calls[name][1](draw);
    begun += 1;
    const releases = board.releases();
    board.enter(index, name);
    if (isRelease(name)) {
      board.beginRelease();
    }
    let answer;
    try {
      answer = addon[name](...args);
    } catch (error) {
      if (!mayThrow(name, error)) {
        complain(name, args, `threw ${error}`);
      }
      return;
    } finally {
      if (isRelease(name)) {
        board.endRelease();
      }
      board.leave(index);
    }
    if (answer instanceof Promise) {
      pending.push(answer.then((value) => isWellFormed(name, value) || complain(name, args, `resolved with ${JSON.stringify(value)}`),
        (error) => complain(name, args, `was rejected with ${error}`)));
    } else if (!isWellFormed(name, answer)) {
      complain(name, args, `gave ${JSON.stringify(answer, (_, value) => (ArrayBuffer.isView(value) ? `[${value.length}]` : value))}`);
    } else {
      const flaw = name === 'cameraPreviewGetLatest' ? lookAtLatest(answer, releases) : lookAtLocks[name]?.(args, answer);
      if (flaw) {
        complain(name, args, flaw);
      }
    }
    if (pending.length >= mostPending) {
      await Promise.all(pending.splice(0));
    }
  }

  while ((!board.isStopped() || opening.length > 0) && problems.length === 0) {
    for (let i = 0; i < callsPerTurn && problems.length === 0; i += 1) {
      await callOnce();
    }
    await turn();
  }
  await Promise.all(pending);
  draw.locks.forEach(({ lock, descriptor, file }) => {
    addon.unlockFile(descriptor);
    fs.rmSync(file);
    board.giveBack(lock);
  });
  return problems;
}

if (!isMainThread && workerData?.chaos) {
  parentPort.postMessage(await runEnvironment(workerData.chaos));
}

// What all threads of a chaos run share: which call each environment is in, how often each function
// was called, who holds which lock file.

import { lockCount, names } from './arguments.js';

const perEnvironment = 2;
const slots = { stop: 0, frames: 1, directFrames: 2, releasesBegun: 3, releasesDone: 4 };
const fixed = Object.keys(slots).length;

/** The shared memory of a run with so many environments; each thread makes its board from it. */
export const makeBoardMemory = (environments) =>
  new SharedArrayBuffer(4 * (fixed + names.length + lockCount + perEnvironment * environments));

export function openBoard(memory) {
  const cells = new Int32Array(memory);
  const counts = fixed;
  const holders = counts + names.length;
  const states = holders + lockCount;
  const environments = (cells.length - states) / perEnvironment;
  const read = (cell) => Atomics.load(cells, cell);
  return {
    stop: () => Atomics.store(cells, slots.stop, 1),
    isStopped: () => read(slots.stop) === 1,

    enter(environment, name) {
      Atomics.add(cells, counts + names.indexOf(name), 1);
      Atomics.add(cells, states + perEnvironment * environment, 1);
      Atomics.store(cells, states + perEnvironment * environment + 1, 1 + names.indexOf(name));
    },
    leave: (environment) => Atomics.store(cells, states + perEnvironment * environment + 1, 0),
    /** Of each environment: how many calls it has begun, and the name of the one that it is in, if any. */
    positions: () => Array.from({ length: environments }, (_, environment) => ({
      begun: read(states + perEnvironment * environment),
      name: names[read(states + perEnvironment * environment + 1) - 1],
    })),
    /** How often each function was called, by name. */
    counts: () => Object.fromEntries(names.map((name, index) => [name, read(counts + index)])),

    /** Whether no other environment holds the lock file: true makes this one its holder. */
    hold: (lock, environment) => Atomics.compareExchange(cells, holders + lock, 0, 1 + environment) === 0,
    giveBack: (lock) => Atomics.store(cells, holders + lock, 0),
    heldBy: (environment) => Array.from({ length: lockCount }, (_, lock) => lock)
      .filter((lock) => read(holders + lock) === 1 + environment),

    countFrame: (isDirect) => Atomics.add(cells, isDirect ? slots.directFrames : slots.frames, 1),
    frames: () => ({ copied: read(slots.frames), direct: read(slots.directFrames) }),

    beginRelease: () => Atomics.add(cells, slots.releasesBegun, 1),
    endRelease: () => Atomics.add(cells, slots.releasesDone, 1),
    /** A number that changes with every release of lent arrays; undefined during one. */
    releases() {
      const done = read(slots.releasesDone);
      return read(slots.releasesBegun) === done ? done : undefined;
    },
  };
}

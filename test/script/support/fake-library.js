// The script tests' side of a fake library.

import { createRequire } from 'node:module';

import { fakePath } from './environment.js';

/** A float as the fakes take it. */
export const floatBits = (value) => new Int32Array(Float32Array.of(value).buffer)[0];

/** A double as the fakes take and log it. */
export const doubleBits = (value) => new BigInt64Array(Float64Array.of(value).buffer)[0];

function parseCall(line) {
  const fields = Object.fromEntries(line.split(' ').map((field) => field.split(/=(.*)/s).slice(0, 2)));
  return { symbol: fields.symbol, args: fields.args, thread: Number(fields.thread) };
}

/**
 * The fake at `path`, which the addon is to load too. `send(commands)` runs the commands of
 * fake_control.h.
 */
export function openFake(path) {
  const { send } = createRequire(import.meta.url)(fakePath('fake_control.node')).open(path);
  return {
    path,
    send,
    /** The logged calls of one symbol or of all, oldest first: { symbol, args, thread }. */
    calls: (key = '') => send(`log ${key}`).split('\n').slice(1).map(parseCall),
    /** How many calls have entered so far. */
    entered: (key) => Number(/entered=(\d+)/.exec(send(`stats ${key}`))[1]),
  };
}

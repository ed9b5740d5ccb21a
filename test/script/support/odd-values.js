// Values of every type that script code may pass, and a seeded choice among them.

/** Numbers at the edges of the conversions. */
export const oddNumbers = [
  0, -0, 1, -1, 0.5, -0.5, 3, 64, NaN, Infinity, -Infinity, 2 ** 31 - 1, 2 ** 31, -(2 ** 31), -(2 ** 31) - 1, 2 ** 32 + 5,
  2 ** 53, 2 ** 63, 2 ** 64, 1e308, -1e308, 5e-324,
];

/**
 * One of each kind of value. `touched` is called by those that script code of ours could notice
 * being read: nothing may convert or look into an argument.
 */
export function makeOddValues(touched) {
  const trap = () => {
    touched();
    throw new Error('touched');
  };
  const nosy = new Proxy({}, { get: () => trap });
  const detached = new Uint8Array(64);
  structuredClone(detached.buffer, { transfer: [detached.buffer] });
  const resizable = new ArrayBuffer(64, { maxByteLength: 128 });
  const typed = [Int8Array, Uint8Array, Uint8ClampedArray, Int16Array, Uint16Array, Int32Array, Uint32Array, Float32Array,
    Float64Array, BigInt64Array, BigUint64Array].map((Type) => new Type(64));
  return [
    undefined, null, true, false, ...oddNumbers, 0n, -1n, 2n ** 64n, '', '0', '1e3', '\0', 'a\0b', '\ud800', '\udfff\ud800',
    '\u00b5\u{1f52c}', 'x'.repeat(1 << 20), Symbol('odd'), Symbol.iterator, () => trap(), class {}, async () => {}, [], [1, 2, 3],
    Array(1000), [new Uint8Array(8), new Uint8Array(8), new Uint8Array(8)], ...typed, detached, detached.buffer,
    new ArrayBuffer(64), resizable, new Uint8Array(resizable), new SharedArrayBuffer(64),
    new Uint8Array(new SharedArrayBuffer(64)), new DataView(new ArrayBuffer(64)), Buffer.alloc(64), Buffer.alloc(0),
    new Uint8Array(1 << 20).subarray(5), {}, Object.create(null), { length: 3 }, { valueOf: trap, toString: trap },
    { [Symbol.toPrimitive]: trap }, { get length() { return trap(); }, get 0() { return trap(); } }, new Proxy({}, nosy),
    new Proxy([], nosy), new Proxy(new Uint8Array(64), nosy), new Proxy(() => {}, nosy), new Number(3), new String('0'),
    new Boolean(true), new Date(0), new Date(NaN), /x/, new Map(), new Set(), new WeakMap(), new Error('odd'),
    Promise.resolve(), globalThis, JSON, Math, new Intl.NumberFormat(), Object.freeze([1]),
  ];
}

/** A seeded sequence of whole numbers below `limit`. */
export function makeRandom(seed) {
  let state = seed >>> 0;
  return (limit) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor((state / 2 ** 32) * limit);
  };
}

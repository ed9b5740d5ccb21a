// Reading options: the value, its default, or words that say what is wrong.

export function objectOption(options, name = 'options') {
  if (options === null || typeof options !== 'object') {
    throw new TypeError(`\`${name}\` takes an object, not ${describe(options)}.`);
  }
  return options;
}

export function wholeOption(options, name, { fallback, least, most }) {
  const value = options[name] ?? fallback;
  if (!Number.isInteger(value) || value < least || value > most) {
    const Kind = typeof value === 'number' ? RangeError : TypeError;
    throw new Kind(`\`${name}\` takes a whole number from ${least} to ${most}, not ${describe(value)}.`);
  }
  return value;
}

/** A time in milliseconds, or another number above zero. */
export function positiveOption(options, name, fallback) {
  const value = options[name] ?? fallback;
  if (value !== undefined && !(typeof value === 'number' && value > 0 && value < 2 ** 31)) {
    const Kind = typeof value === 'number' ? RangeError : TypeError;
    throw new Kind(`\`${name}\` takes a number above zero, not ${describe(value)}.`);
  }
  return value;
}

export function textOption(options, name) {
  const value = options[name];
  if (typeof value !== 'string' || value === '') {
    throw new TypeError(`\`${name}\` takes a text that is not empty, not ${describe(value)}.`);
  }
  return value;
}

export function signalOption({ signal }) {
  if (signal !== undefined && !(signal instanceof AbortSignal)) {
    throw new TypeError(`\`signal\` takes an AbortSignal, not ${describe(signal)}.`);
  }
  return signal;
}

export function functionOption(options, name, fallback) {
  const value = options[name] ?? fallback;
  if (typeof value !== 'function') {
    throw new TypeError(`\`${name}\` takes a function, not ${describe(value)}.`);
  }
  return value;
}

const largestIndex = 2 ** 31 - 1;

export const deviceOption = (options) => wholeOption(options, 'device', { fallback: 0, least: 0, most: largestIndex });

/** A value as an error names it. */
export function describe(value) {
  if (typeof value === 'string') {
    return JSON.stringify(value);
  }
  return value !== null && typeof value === 'object' ? 'an object' : typeof value === 'function' ? 'a function' : String(value);
}

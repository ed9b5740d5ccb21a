// The arguments of the developer's commands: every command answers --help, and refuses what it does
// not know before it does anything.

import { parseArgs } from 'node:util';

import { Failure, commandLine } from './output.js';

/** How to type this command with arguments: npm passes on only what follows "--". */
function usageLine(synopsis, lifecycle = process.env.npm_lifecycle_event) {
  const command = commandLine(lifecycle);
  if (!synopsis) {
    return command;
  }
  return lifecycle ? `${command} -- ${synopsis}` : `${command} ${synopsis}`;
}

/** What --help prints. `rows`: [argument, meaning] pairs. */
export function helpText({ synopsis = '', summary, rows = [] }, lifecycle) {
  const all = [...rows, ['--help', 'print this']];
  const width = Math.max(...all.map(([argument]) => argument.length));
  return [
    usageLine(synopsis, lifecycle), '', `  ${summary}`, '',
    ...all.map(([argument, meaning]) => `  ${argument.padEnd(width)}  ${meaning}`),
  ].join('\n');
}

/**
 * Parses `args` by `options` (those of `util.parseArgs`). Returns { values, positionals }, or null if
 * --help was asked for and printed. Throws a `Failure` for an unknown option or a stray argument.
 */
export function readArguments({ options = {}, allowPositionals = false, ...help }, args = process.argv.slice(2)) {
  let parsed;
  try {
    parsed = parseArgs({ args, options: { ...options, help: { type: 'boolean' } }, allowPositionals });
  } catch (error) {
    // The first sentence names the argument; what follows is advice for programmers.
    const [reason] = error.message.split(/\. /);
    throw new Failure(`${reason.replace(/\.$/, '')}. Run "${usageLine('--help')}" for what there is.`);
  }
  if (parsed.values.help) {
    console.log(helpText(help));
    return null;
  }
  return parsed;
}

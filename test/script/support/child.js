// Runs a function in a Node.js process of its own, for what a process can do once only: load a
// library, start with an environment, end.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import v8 from 'node:v8';

const mainUrl = new URL('child-main.js', import.meta.url).href;
// Far above what any of them takes: it ends a child that hangs.
const longestMs = 600_000;

/**
 * Runs `body(context, ...args)` in a new process. The function goes there as text, so it sees
 * nothing of its surroundings but `context` (see child-main.js) and `args`, which are copied.
 * `env` is added to the environment, `cwd` the directory, `wrapper` a command to run Node.js by.
 * With `kill` the process is killed as soon as `body` has returned, for one that could not end; `timeout`
 * says after how many milliseconds it is killed in any case.
 * Gives { value, stdout, stderr, code, signal }; `value` is a copy of what `body` returned.
 */
export function runInChild(body, { args = [], env = {}, cwd, wrapper = [], kill = false, timeout = longestMs } = {}) {
  const script = `import { run } from ${JSON.stringify(mainUrl)};\nawait run(${body});\n`;
  const command = [...wrapper, process.execPath, '--expose-gc', '--input-type=module', '--eval', script];
  const child = spawn(command[0], command.slice(1), {
    cwd,
    env: { ...process.env, NODE_TEST_CONTEXT: '', ...env },
    stdio: ['ignore', 'pipe', 'pipe', 'pipe', 'pipe'],
    timeout,
    killSignal: 'SIGKILL',
  });
  child.stdio[3].on('error', () => {});  // a child that died early: its end tells
  child.stdio[3].end(v8.serialize(args));
  const read = (stream) => {
    const chunks = [];
    stream.on('data', (chunk) => chunks.push(chunk));
    return () => Buffer.concat(chunks);
  };
  const [stdout, stderr, result] = [child.stdout, child.stderr, child.stdio[4]].map(read);
  if (kill) {
    child.stdio[4].on('end', () => child.kill('SIGKILL'));
  }
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code, signal) => {
      const value = result().length > 0 ? v8.deserialize(result()) : undefined;
      resolve({ value, stdout: stdout().toString(), stderr: stderr().toString(), code, signal });
    });
  });
}

/** Runs `body` as runInChild does, asserts that it ended well and in silence, gives its value. */
export async function valueFromChild(body, options) {
  const { value, ...end } = await runInChild(body, options);
  assert.deepEqual(end, { stdout: '', stderr: '', code: 0, signal: null });
  return value;
}

/** The same for a process with a thread that hangs for ever, which would not end by itself. */
export async function valueFromHungChild(body, options) {
  const { value, ...end } = await runInChild(body, { ...options, kill: true });
  assert.deepEqual(end, { stdout: '', stderr: '', code: null, signal: 'SIGKILL' });
  return value;
}

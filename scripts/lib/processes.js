// Running other programs.

import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { Failure } from './output.js';
import { root, setupLog, shown } from './paths.js';

/** The full path of a program on the PATH, or null. */
export function findProgram(name, searchPath = process.env.PATH ?? '') {
  for (const directory of searchPath.split(path.delimiter)) {
    const file = path.join(directory || '.', name);
    try {
      fs.accessSync(file, fs.constants.X_OK);
      if (fs.statSync(file).isFile()) {
        return file;
      }
    } catch {
      continue;
    }
  }
  return null;
}

/** What a short program prints, trimmed; null if it isn't there or fails. */
export function output(command, args) {
  const result = spawnSync(command, args, { cwd: root, encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] });
  return result.status === 0 ? result.stdout.trim() : null;
}

/**
 * Runs a program to its end and gives its exit code, or 128 if a signal ended it. Everything it
 * prints is appended to `log`, and each line goes to `onLine`.
 */
export function run(command, args, { env = {}, log = setupLog, onLine = () => {} } = {}) {
  fs.mkdirSync(path.dirname(log), { recursive: true });
  const file = fs.openSync(log, 'a');
  fs.writeSync(file, `\n$ ${command} ${args.join(' ')}\n`);
  return new Promise((resolve, reject) => {
    const child = spawn(command, args, {
      cwd: root,
      env: { ...process.env, ...env },
      stdio: ['ignore', 'pipe', 'pipe'],
    });
    for (const stream of [child.stdout, child.stderr]) {
      let rest = '';
      stream.setEncoding('utf8');
      stream.on('data', (text) => {
        fs.writeSync(file, text);
        const lines = (rest + text).split('\n');
        rest = lines.pop();
        lines.forEach(onLine);
      });
      stream.on('end', () => rest && onLine(rest));
    }
    child.on('error', (error) => reject(new Failure(`${command} could not be run: ${error.message}.`)));
    child.on('close', (code) => {
      fs.closeSync(file);
      resolve(code ?? 128);
    });
  });
}

/** Runs a program and fails with its last lines and `message` if it fails. */
export async function mustRun(command, args, message, options = {}) {
  const last = [];
  const onLine = (line) => {
    last.push(line);
    last.splice(0, last.length - 15);
    options.onLine?.(line);
  };
  if ((await run(command, args, { ...options, onLine })) !== 0) {
    throw new Failure(`${message} The whole output stands in ${shown(options.log ?? setupLog)}.`, last);
  }
}

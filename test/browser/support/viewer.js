// A viewer in a process of its own, as `npm run viewer` runs it behind its set-up.

import { spawn } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { addonPath } from '../../script/support/environment.js';

export const root = fileURLToPath(new URL('../../..', import.meta.url));
const program = path.join(root, 'viewer', 'run.js');

/** The virtual microscope as most tests want it: standing still, without noise, with numbers on the frames. */
const usualEnvironment = {
  OSTREL_SIMULATOR_STAGE: '0:0',
  OSTREL_SIMULATOR_NOISE: '0',
  OSTREL_SIMULATOR_NUMBERS: '1',
};

/**
 * Starts a viewer on any free port. Gives { url, output, directory, stdout(), stop(), ended }: `stop` interrupts
 * it as Ctrl+C does, `ended` gives { code, signal, stderr }.
 */
export async function startViewer({ args = [], env = {} } = {}) {
  const directory = await mkdtemp(path.join(os.tmpdir(), 'ostrel-viewer-test-'));
  const output = path.join(directory, 'output');
  const child = spawn(process.execPath, [program, '--port', '0', '--output', output, ...args], {
    env: { ...process.env, ...usualEnvironment, OSTREL_TEST_ADDON: addonPath, ...env },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const texts = { stdout: '', stderr: '' };
  const ended = new Promise((resolve) => child.once('close', (code, signal) => resolve({ code, signal, ...texts })));
  const url = await new Promise((resolve) => {
    for (const name of ['stdout', 'stderr']) {
      child[name].setEncoding('utf8').on('data', (text) => {
        texts[name] += text;
        const found = /http:\/\/\S+/.exec(texts.stdout);
        if (found && /Ctrl\+C/.test(texts.stdout)) {
          resolve(found[0]);
        }
      });
    }
    ended.then(() => resolve(null));
  });
  return {
    url, output, directory, ended, child,
    async stop() {
      child.kill('SIGINT');
      const end = await ended;
      await rm(directory, { recursive: true });
      return end;
    },
  };
}

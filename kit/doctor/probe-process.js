// Runs one probe in a process of its own: a library that crashes, hangs or stays loaded does no harm there.

import { spawn } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const probeFile = fileURLToPath(new URL('probe.js', import.meta.url));
const resultFd = 3;

/** What ended a probe that gave nothing, in words. */
function describeEnd({ code, signal, timedOut, timeoutMs }) {
  if (timedOut) {
    return `it did not answer within ${timeoutMs / 1000} s`;
  }
  return signal ? `its process was ended by ${signal}` : `its process ended with code ${code}`;
}

/**
 * Runs the probe `name` of probe.js with `job`. Gives { value }, or { failure } with what ended it in words.
 * Rejected with the signal's reason.
 */
export function runProbe(name, job, { timeoutMs, signal }) {
  return new Promise((resolve, reject) => {
    // Electron's program is a Node.js too if it is told so.
    const env = { ...process.env, ELECTRON_RUN_AS_NODE: '1' };
    const child = spawn(process.execPath, [probeFile, name, JSON.stringify(job)],
      { env, stdio: ['ignore', 'ignore', 'ignore', 'pipe'] });
    let timedOut = false;
    const end = () => child.kill('SIGKILL');
    const timer = setTimeout(() => {
      timedOut = true;
      end();
    }, timeoutMs);
    signal?.addEventListener('abort', end, { once: true });
    let text = '';
    child.stdio[resultFd].setEncoding('utf8').on('data', (piece) => {
      text += piece;
      // All is told; a library that hangs would keep its process from ending.
      if (text.endsWith('\n')) {
        end();
      }
    });
    child.on('error', (error) => resolve({ failure: `its process could not be started (${error.message})` }));
    child.on('close', (code, endedBy) => {
      clearTimeout(timer);
      signal?.removeEventListener('abort', end);
      if (signal?.aborted) {
        reject(signal.reason);
      } else if (text.endsWith('\n')) {
        resolve(JSON.parse(text));
      } else {
        resolve({ failure: describeEnd({ code, signal: endedBy, timedOut, timeoutMs }) });
      }
    });
  });
}

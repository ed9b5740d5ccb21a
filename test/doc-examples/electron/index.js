// The few names of Electron that the examples of the pages use, over Node.js.

import { fork } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const parentPort = fileURLToPath(new URL('parent-port.js', import.meta.url));

export const app = { whenReady: async () => {} };

export const utilityProcess = {
  /** A process with Node.js in it, which talks through `process.parentPort`. */
  fork(modulePath, args = [], { serviceName } = {}) {
    const child = fork(modulePath, args, {
      execArgv: ['--import', parentPort], serialization: 'advanced', env: { ...process.env, SERVICE_NAME: serviceName },
    });
    return Object.assign(child, { postMessage: (message) => child.send(message) });
  },
};

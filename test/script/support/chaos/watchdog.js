// The thread that looks after a chaos run: an environment that stays in one call for too long ends
// the process, after a line on what every environment is in.

import fs from 'node:fs';
import { workerData } from 'node:worker_threads';

import { openBoard } from './board.js';

const lookEveryMs = 500;

const { memory, longestCallMs } = workerData;
const board = openBoard(memory);
const since = [];

setInterval(() => {
  const now = performance.now();
  const positions = board.positions();
  const hung = positions.filter(({ begun, name }, environment) => {
    if (name === undefined || since[environment]?.begun !== begun) {
      since[environment] = { begun, now };
    }
    return now - since[environment].now > longestCallMs;
  });
  if (hung.length > 0) {
    const lines = positions.map(({ begun, name }, environment) =>
      `environment ${environment}: call ${begun}, ${name ?? 'none'}, for ${Math.round(now - since[environment].now)} ms`);
    fs.writeSync(2, `a call hangs\n${lines.join('\n')}\n`);
    process.kill(process.pid, 'SIGKILL');
  }
}, lookEveryMs);

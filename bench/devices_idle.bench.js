// The processor time of a process that has loaded the addon and does nothing, against one that has
// not loaded it. OSTREL_BENCH_IDLE_SECONDS sets how long both are watched; a minute if not set.

import { spawn } from 'node:child_process';
import { once } from 'node:events';

const seconds = Number(process.env.OSTREL_BENCH_IDLE_SECONDS ?? 60);
const watched = `
  if (process.argv[1]) {
    require(process.argv[1]);
  }
  // What starting costs is not what idling costs.
  setTimeout(() => {
    const before = process.cpuUsage();
    const begin = process.hrtime.bigint();
    setTimeout(() => {
      const { user, system } = process.cpuUsage(before);
      const elapsed = Number(process.hrtime.bigint() - begin) / 1000;
      console.log(JSON.stringify((100 * (user + system)) / elapsed));
    }, ${seconds * 1000});
  }, 1000);
`;

/** Percent of one core. */
async function idleCost(args) {
  const child = spawn(process.execPath, ['--eval', watched, '--', ...args], { stdio: ['ignore', 'pipe', 'inherit'] });
  let text = '';
  child.stdout.on('data', (chunk) => (text += chunk));
  await once(child, 'close');
  return JSON.parse(text);
}

const [addon, nothing] = await Promise.all([idleCost([process.env.OSTREL_TEST_ADDON]), idleCost([])]);
console.log(`An idle process over ${seconds} s, percent of one core`);
console.log(`with the addon     ${addon.toFixed(3)}`);
console.log(`without the addon  ${nothing.toFixed(3)}`);
console.log(`the addon          ${(addon - nothing).toFixed(3)}`);

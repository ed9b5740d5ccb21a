// npm run test:exits [-- --times N --jobs N --seed N]: ends processes while the addon works, many times, and
// prints how many ended cleanly.

import os from 'node:os';
import { parseArgs } from 'node:util';

import { Failure, Step, runCommand } from './lib/output.js';
import { setUp } from './setup.js';

function readArguments() {
  const { values } = parseArgs({
    options: { times: { type: 'string', default: '200' }, jobs: { type: 'string', default: String(Math.max(2, os.cpus().length)) },
      seed: { type: 'string', default: '1' } },
  });
  const numbers = Object.fromEntries(Object.entries(values).map(([name, text]) => [name, Number(text)]));
  const wrong = Object.keys(numbers).find((name) => !Number.isInteger(numbers[name]) || numbers[name] < 1);
  if (wrong) {
    throw new Failure(`--${wrong} takes a whole number above zero.`);
  }
  return numbers;
}

await runCommand(async () => {
  const choice = readArguments();
  await setUp({ groups: ['test'], tests: true });
  const { exitActivities, runExits } = await import('../test/script/support/exits.js');
  const step = new Step('process.exit');
  const total = choice.times * exitActivities.length;
  const results = await runExits({ ...choice, onEnd: (count) => step.progress(`${count} of ${total}`) });
  const faults = results.flatMap((result) => result.faults);
  step.print(faults.map(({ job, fault }) => `${JSON.stringify(job)}: ${fault}`));
  step.done(`${total - faults.length} of ${total} clean  (${step.seconds} s)`);
  results.forEach(({ activity, runs, faults: found }) => console.log(`    ${activity.padEnd(12)}${runs - found.length} of ${runs}`));
  process.exitCode = faults.length > 0 ? 1 : 0;
});

// npm run test:exits: ends processes while the addon works, many times.

import os from 'node:os';

import { readArguments } from './lib/arguments.js';
import { Failure, Step, runCommand } from './lib/output.js';
import { setUp } from './setup.js';

const command = {
  synopsis: '[--times N] [--jobs N] [--seed N]',
  summary: 'Ends processes while the addon works, many times, and prints how many ended cleanly.',
  rows: [
    ['--times N', 'processes of each kind of work (200)'],
    ['--jobs N', 'processes at a time (one for each processor, at least 2)'],
    ['--seed N', 'of the moments at which they end (1)'],
  ],
  options: {
    times: { type: 'string', default: '200' },
    jobs: { type: 'string', default: String(Math.max(2, os.cpus().length)) },
    seed: { type: 'string', default: '1' },
  },
};

function readNumbers({ values }) {
  const numbers = Object.fromEntries(Object.entries(values).map(([name, text]) => [name, Number(text)]));
  const wrong = Object.keys(numbers).find((name) => !Number.isInteger(numbers[name]) || numbers[name] < 1);
  if (wrong) {
    throw new Failure(`--${wrong} takes a positive integer.`);
  }
  return numbers;
}

await runCommand(async () => {
  const given = readArguments(command);
  if (given === null) {
    return;
  }
  const choice = readNumbers(given);
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

// npm run test:bare: repeats what a newcomer does on a machine with nothing but Debian 12, git and its own
// nodejs and npm: npm start, npm test, the viewer and every example.

import fs from 'node:fs';
import path from 'node:path';
import { parseArgs } from 'node:util';

import {
  bareRoot, bareVersions, cloneProject, logOf, makeRoot, removeRoot, sharedFiles, start,
} from './lib/bare-machine.js';
import { provideNpmPackages } from './lib/npm-packages.js';
import { Failure, Step, runCommand } from './lib/output.js';
import { providePackages } from './lib/packages.js';
import { root, shown } from './lib/paths.js';

const { scripts } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
const names = ['start', 'test', 'viewer', ...Object.keys(scripts).filter((name) => name.startsWith('example:'))];

const usage = `npm run test:bare -- [--only NAME,...] [--keep]

Makes a root directory of Debian 12 with git, nodejs and npm in build/bare-machine, from the package sources
and the npm registry that this machine is configured for, clones the last commit into it and runs there, in
this order: ${names.join(', ')}.

  --only NAME,...  only these of them; the first sets up what it needs
  --keep           leaves the root directory there, and the next run goes on in it
  --help           prints this

Needs root. Takes about 25 minutes and 8 GB. Ends with 0 if every command has succeeded.`;

function parseOptions() {
  const flag = { type: 'boolean', default: false };
  try {
    return parseArgs({ options: { only: { type: 'string' }, keep: flag, help: flag } }).values;
  } catch (error) {
    throw new Failure(`${error.message}\n\n${usage}`);
  }
}

function readArguments() {
  const values = parseOptions();
  const only = values.only?.split(',') ?? names;
  const unknown = only.filter((name) => !names.includes(name));
  if (unknown.length > 0) {
    throw new Failure(`There is no ${unknown.join(', ')} to run. These can be named: ${names.join(', ')}.`);
  }
  return { ...values, chosen: names.filter((name) => only.includes(name)) };
}

const interrupted = 130;

const shownTime = (seconds) => (seconds < 60 ? `${seconds} s` : `${Math.floor(seconds / 60)} min ${seconds % 60} s`);

/** Asks the viewer for its page as a browser would, with the cookie that the first answer sets. */
async function askForPage(url) {
  const first = await fetch(url, { redirect: 'manual' });
  const cookie = first.headers.get('set-cookie')?.split(';')[0] ?? '';
  const answer = await fetch(new URL(first.headers.get('location') ?? '/', url), { headers: { cookie } });
  const page = await answer.text();
  return { isShown: answer.status === 200 && page.includes('<canvas'), text: `its page: ${answer.status}, ${page.length} bytes` };
}

/** Looks at the viewer's page, then presses Ctrl+C. */
async function visitViewer(url, child) {
  try {
    return await askForPage(url);
  } catch (error) {
    return { isShown: false, text: `its page cannot be had: ${error.message}` };
  } finally {
    process.kill(-child.pid, 'SIGINT');
  }
}

/** Pictures of a focus stack, for the example that fuses a folder of them. */
async function writeStack() {
  const { writePng } = await import('../examples/lib/pictures.js');
  const { makeStack } = await import('../test/script/support/synthetic-stack.js');
  const folder = path.join(bareRoot, sharedFiles, 'stack');
  fs.mkdirSync(folder, { recursive: true });
  for (const [i, frame] of makeStack({ width: 640, height: 480, count: 4 }).entries()) {
    await writePng(path.join(folder, `${i + 1}.png`), frame);
  }
  return path.join(sharedFiles, 'stack');
}

async function argumentsOf(name) {
  if (name === 'example:fuse') {
    return ['--', await writeStack()];
  }
  return name === 'viewer' ? ['--', '--port', '0'] : [];
}

/** Runs one of the project's commands in the new root, as one step; gives { name, isGood, seconds, text }. */
async function runInside(name, track) {
  const step = new Step(name);
  const args = ['npm', 'run', name, ...await argumentsOf(name)];
  let lastLine = '';
  let visit = null;
  const onLine = (line) => {
    lastLine = line.trim();
    step.progress(`${shownTime(step.seconds)}  ${lastLine}`);
    const url = name === 'viewer' && !visit && /http:\/\/\S+/.exec(line)?.[0];
    if (url) {
      visit = visitViewer(url, running.child);
    }
  };
  const running = start(name, args, { onLine });
  track(running.child);
  const code = await running.ended;
  track(null);
  const visited = name === 'viewer' ? await visit ?? { isShown: false, text: 'it named no page' } : { isShown: true, text: lastLine };
  // npm ends as one that was interrupted, however well its script has ended.
  const isEnded = code === (name === 'viewer' ? interrupted : 0);
  const result = { name, isGood: isEnded && visited.isShown, seconds: step.seconds, text: visited.text };
  step.done(`${result.isGood ? 'succeeded' : `failed with ${code}, see ${shown(logOf(name))}`}  ${result.text}  (${shownTime(result.seconds)})`);
  return result;
}

function report(results) {
  console.log('\nOn the bare machine');
  for (const { name, isGood, seconds, text } of results) {
    console.log(`  ${name.padEnd(20)}  ${isGood ? 'succeeded' : 'failed   '}  ${shownTime(seconds).padStart(12)}  ${text}`);
  }
  const good = results.filter(({ isGood }) => isGood).length;
  console.log(`\n${good} succeeded, ${results.length - good} failed`);
  process.exitCode = good === results.length ? 0 : 1;
}

/** Ends what runs in the new root, and removes it, if this command is interrupted. */
function cleanUpAfterSignals(keep) {
  let child = null;
  for (const [signal, code] of [['SIGINT', 130], ['SIGTERM', 143], ['SIGHUP', 129]]) {
    process.on(signal, () => {
      if (child) {
        process.kill(-child.pid, 'SIGKILL');
      }
      if (!keep) {
        removeRoot();
      }
      process.exit(code);
    });
  }
  return (running) => (child = running);
}

await runCommand(async () => {
  const { chosen, keep, help } = readArguments();
  if (help) {
    console.log(usage);
    return;
  }
  if (process.getuid() !== 0) {
    throw new Failure('A new root directory can only be made and entered by root: run this as root.');
  }
  const track = cleanUpAfterSignals(keep);
  console.log('Making a bare machine');
  try {
    await providePackages(new Step('system packages'), ['bareMachine']);
    await provideNpmPackages(new Step('npm packages'));
    await makeRoot(new Step('root directory'));
    await cloneProject(new Step('clone'));
    new Step('begins with').done(bareVersions());
    console.log('Running');
    const results = [];
    for (const name of chosen) {
      results.push(await runInside(name, track));
    }
    report(results);
  } finally {
    if (!keep) {
      removeRoot();
    }
  }
});

// Running the tests of one build, and counting them.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { isAtLeast, kitNode, oldNodes, ownNode } from './node-releases.js';
import { Step } from './output.js';
import { addonDirectory, binaryDirectory, root, shown } from './paths.js';
import { run } from './processes.js';
import { addonTargets } from './targets.js';
import { ctestPattern, namePattern } from './test-selection.js';

// A thread that waits for another one should get its turn also on a machine with one core.
const jobs = Math.max(2, os.cpus().length);

// Left to itself, Node keeps a core free, which on two cores means one file after the other; and many
// files mostly wait, for a pace or for time-outs. Versions before 20.10 have no such option.
const inOrder = (version, files) => (isAtLeast(version, [20, 10]) ? [`--test-concurrency=${files}`] : []);

// The files of script tests that run under the oldest Node.js too: addon, loader and these scripts, by every kind of
// argument, buffer, promise, thread and end of a process. Others need a newer one for the kit or for their own means,
// or would mostly wait.
const oldNodeTests = ['arguments', 'capture', 'controls', 'dino-lite', 'direct-arguments', 'direct-lifecycle', 'direct-start',
  'discovery', 'edof', 'edof-refusals', 'exports', 'kinds-grabs', 'lifecycle', 'load-native', 'loading', 'lock-file', 'ostrel',
  'preview', 'promises', 'recording', 'setup'];

const waitsLong = /-hung\.test\.js$/;

/** The counts of a JUnit file as CTest writes it. */
export function countJUnit(xml) {
  const suite = /<testsuite\b[^>]*>/.exec(xml)?.[0] ?? '';
  const read = (name) => Number(new RegExp(`\\b${name}="(\\d+)"`).exec(suite)?.[1] ?? 0);
  const skipped = read('skipped') + read('disabled');
  const failed = read('failures');
  return { passed: read('tests') - failed - skipped, failed, skipped };
}

/** The counts at the end of what Node's test runner prints as TAP. */
export function countTap(text) {
  const read = (name) => Number(new RegExp(`^# ${name} (\\d+)$`, 'm').exec(text)?.[1] ?? 0);
  return {
    passed: read('pass'),
    failed: read('fail') + read('cancelled'),
    skipped: read('skipped') + read('todo'),
  };
}

/** Why tests were skipped, a line for each test, from a JUnit file with GoogleTest's words in it. */
export function skipReasonsInJUnit(xml) {
  return [...xml.matchAll(/<testcase name="([^"]*)"(?:(?!<\/testcase>)[^])*?: Skipped\n(.*)/g)]
    .map(([, name, reason]) => `skipped: ${name}: ${reason}`);
}

/** The same from what Node's test runner prints as TAP. */
export function skipReasonsInTap(text) {
  return [...text.matchAll(/^ *ok \d+ - (.*) # SKIP (.*)$/gm)].map(([, name, reason]) => `skipped: ${name}: ${reason}`);
}

/** A run that ended badly has failed even if nothing in it says so, a crash for example. */
export function withExitCode(counts, exitCode) {
  return exitCode !== 0 && counts.failed === 0 ? { ...counts, failed: 1 } : counts;
}

/** The closing line of a test command. */
export function summary(results) {
  const sum = (key) => results.reduce((total, result) => total + result[key], 0);
  return `${sum('passed')} passed, ${sum('failed')} failed`;
}

function finish(step, counts, skipReasons) {
  if (skipReasons.length > 0) {
    step.print(skipReasons.map((line) => `  ${line}`));
  }
  const skipped = counts.skipped > 0 ? `, ${counts.skipped} skipped` : '';
  step.done(`${counts.passed} passed, ${counts.failed} failed${skipped}  (${step.seconds} s)`);
  return counts;
}

function readIfThere(file) {
  return fs.existsSync(file) ? fs.readFileSync(file, 'utf8') : '';
}

/**
 * Runs the unit tests of a preset, as one step, and gives their counts. `pattern`: a regular expression for the names
 * of those to run, without which all are.
 */
export async function runUnitTests(step, preset, env = {}, pattern = null) {
  const directory = binaryDirectory(preset);
  const report = path.join(directory, 'unit-tests.xml');
  const log = path.join(directory, 'unit-tests.log');
  [report, log].forEach((file) => fs.rmSync(file, { force: true }));
  const remarks = [];
  const onLine = (line) => {
    const passed = /^ *(\d+)\/(\d+) Test +#\d+: (\S+) .* Passed +[\d.]+ sec$/.exec(line);
    if (passed) {
      step.progress(`${passed[1]} of ${passed[2]}  ${passed[3]}`);
    } else if (!/^ +Start +\d+: /.test(line)) {
      remarks.push(line);
    }
  };
  const args = ['--test-dir', directory, '-j', String(jobs), '--output-on-failure', '--no-tests=error',
    '--output-junit', report, ...(pattern ? ['--tests-regex', pattern] : [])];
  const exitCode = await run('ctest', args, { env, log, onLine });
  if (exitCode !== 0) {
    step.print([...remarks, `The whole output stands in ${shown(log)}.`]);
  }
  const xml = readIfThere(report);
  return finish(step, withExitCode(countJUnit(xml), exitCode), skipReasonsInJUnit(xml));
}

function findFiles(directory, ending) {
  return fs.readdirSync(directory, { withFileTypes: true })
    .flatMap((entry) => {
      const file = path.join(directory, entry.name);
      return entry.isDirectory() ? findFiles(file, ending) : [file];
    })
    .filter((file) => file.endsWith(ending))
    .sort();
}

/** The script tests: every *.test.js below test/script, or another folder. */
export function findScriptTests(directory = path.join(root, 'test', 'script')) {
  return findFiles(directory, '.test.js');
}

/** The last of what Node's test runner says of failures. */
const failuresIn = (text) => text.slice(Math.max(text.lastIndexOf('failing tests:'), 0));

/**
 * Runs files of script tests against the addon of a preset, as one step, and gives their counts. They find
 * the addon through OSTREL_TEST_ADDON, the fakes through OSTREL_TEST_BUILD_DIR and the machine's own Node.js
 * through OSTREL_TEST_OWN_NODE. `node`: { node, version } to run under. `name`: of the report. `concurrency`: files at a
 * time. `pattern`: a regular expression for the titles of those to run, without which all are.
 */
async function runFiles(step, preset, files,
  { env = {}, node = kitNode(), name, concurrency = 2 * jobs, pattern = null }) {
  const directory = binaryDirectory(preset);
  const log = path.join(directory, `${name}-tests.log`);
  const report = path.join(directory, `${name}-tests.txt`);
  [report, log].forEach((file) => fs.rmSync(file, { force: true }));
  let finished = 0;
  let title = '';
  const onLine = (line) => {
    title = /^ *# Subtest: (.*)$/.exec(line)?.[1] ?? title;
    if (/^ *(not )?ok \d+/.test(line)) {
      step.progress(`${++finished}  ${title}`);
    }
  };
  const args = ['--test', ...inOrder(node.version, concurrency), '--test-reporter=tap', '--test-reporter-destination=stdout',
    '--test-reporter=spec', `--test-reporter-destination=${report}`,
    ...(pattern ? [`--test-name-pattern=${pattern}`] : []), ...files];
  const exitCode = await run(node.node, args, {
    env: {
      OSTREL_TEST_ADDON: path.join(addonDirectory(preset), 'ostrel_native.node'),
      OSTREL_TEST_BUILD_DIR: directory,
      OSTREL_TEST_OWN_NODE: ownNode.node,
      ...env,
    },
    log,
    onLine,
  });
  if (exitCode !== 0) {
    step.print([failuresIn(readIfThere(report)), `The whole output stands in ${shown(report)} and ${shown(log)}.`]);
  }
  const tap = readIfThere(log);
  return finish(step, withExitCode(countTap(tap), exitCode), skipReasonsInTap(tap));
}

/** Runs the script tests of a preset, as one step. */
export function runScriptTests(step, preset, env) {
  // Those that wait out time-outs of twenty seconds begin at once.
  const files = findScriptTests().sort((a, b) => waitsLong.test(b) - waitsLong.test(a));
  return runFiles(step, preset, files, { env, name: 'script' });
}

/** Runs the tests of the viewer in a browser, which takes what processor there is, one file after the other. */
export function runBrowserTests(step, preset) {
  return runFiles(step, preset, findScriptTests(path.join(root, 'test', 'browser')), { name: 'browser', concurrency: 1 });
}

/** Runs what must hold under the oldest Node.js too, a step for each version that is here. */
export async function runOldNodeTests(preset) {
  const files = oldNodeTests.map((name) => path.join(root, 'test', 'script', `${name}.test.js`));
  const results = [];
  for (const node of oldNodes()) {
    const name = `node-${node.version}`;
    results.push(await runFiles(new Step(`under ${node.version}`), preset, files, { node, name }));
  }
  return results;
}

/** Runs all tests of a preset but those in a browser, and gives the counts of each kind. */
export async function runTests(preset, { unit, script } = {}) {
  return [
    await runUnitTests(new Step('unit tests'), preset, unit),
    await runScriptTests(new Step('script tests'), preset, script),
  ];
}

/** Every test source with its text, for a selection: lists of { file, text } by kind. */
export function readTestSources() {
  const read = (files) => files.map((file) => ({ file, text: fs.readFileSync(file, 'utf8') }));
  return {
    unit: read(findFiles(path.join(root, 'test', 'unit'), '_test.cpp')),
    script: read(findScriptTests()),
    browser: read(findScriptTests(path.join(root, 'test', 'browser'))),
  };
}

/** What has to be built for selected tests of a configured preset, as targets. */
export function targetsOf(selection, preset) {
  const database = JSON.parse(fs.readFileSync(path.join(binaryDirectory(preset), 'compile_commands.json'), 'utf8'));
  const wanted = new Set(selection.unit.map(({ file }) => file));
  const programs = database.filter(({ file }) => wanted.has(file))
    .map(({ command }) => / -o \S*CMakeFiles\/([^/]+)\.dir\//.exec(command)[1]);
  const scripts = selection.script.length > 0 ? ['script_test_needs'] : [];
  const browser = selection.browser.length > 0 ? addonTargets : [];
  return [...new Set([...programs, ...scripts, ...browser])];
}

/** Runs selected tests of a preset, a step for each kind that has some, and gives their counts. */
export async function runSelected(selection, preset) {
  const results = [];
  if (selection.unit.length > 0) {
    results.push(await runUnitTests(new Step('unit tests'), preset, {}, ctestPattern(selection.unit)));
  }
  for (const [kind, concurrency] of [['script', 2 * jobs], ['browser', 1]]) {
    const files = selection[kind].map(({ file }) => file);
    if (files.length > 0) {
      const pattern = namePattern(selection[kind]);
      results.push(await runFiles(new Step(`${kind} tests`), preset, files, { name: kind, concurrency, pattern }));
    }
  }
  return results;
}

/** Prints the closing line and sets the exit code. */
export function close(results) {
  process.exitCode = results.some(({ failed }) => failed > 0) ? 1 : 0;
  console.log(`\n${summary(results)}`);
}

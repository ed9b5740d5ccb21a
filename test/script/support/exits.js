// Ends processes while the addon works, many times, and counts those that did not end cleanly.

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { addonPath, testingAddonPath, untidyEnvironment } from './environment.js';
import { topBoxes } from './media.js';
import { makeRandom } from './odd-values.js';
import { makeTemporaryDirectory } from './temporary.js';

const childFile = fileURLToPath(new URL('exit-child.js', import.meta.url));
const cleanCode = 7;
const mostDelayMs = 25;
// Far above what any of them takes: it ends a child that hangs.
const longestMs = 120_000;

/** What the addon is busy with, and who ends what: see exit-child.js. */
export const exitActivities = ['preview', 'recording', 'direct', 'selections', 'fusion'];
export const exitEndings = ['main', 'beside', 'worker'];

/** Runs one child; gives what is wrong with its end, null where nothing is. */
function endOnce(job) {
  const env = {
    ...process.env,
    ...untidyEnvironment,
    NODE_TEST_CONTEXT: '',
    OSTREL_FFMPEG_ENCODER: 'libx264',
    OSTREL_TEST_ADDON: job.activity === 'direct' ? testingAddonPath : addonPath,
  };
  const child = spawn(process.execPath, [childFile, JSON.stringify(job)],
    { env, stdio: ['ignore', 'pipe', 'pipe'], timeout: longestMs, killSignal: 'SIGKILL' });
  let said = '';
  [child.stdout, child.stderr].forEach((stream) => stream.setEncoding('utf8').on('data', (text) => (said += text)));
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code, signal) => {
      if (code !== cleanCode || said !== '') {
        resolve(`${signal ?? `code ${code}`}${said ? `: ${said.trim()}` : ''}`);
      } else {
        resolve(job.file ? faultOf(job.file) : null);
      }
    });
  });
}

/** Why a recording that was left running is no finished file; null if it is one. */
function faultOf(file) {
  const boxes = fs.existsSync(file) ? topBoxes(file).join() : 'no file';
  fs.rmSync(file, { force: true });
  return boxes === 'ftyp,moov,free,mdat' ? null : `the recording is not finished: ${boxes}`;
}

/**
 * Ends processes `times` times for each activity, with the endings in turn, `jobs` at a time. What varies by
 * chance follows from `seed`. `onEnd(count)` is called after each. Gives { activity, runs, faults } for each
 * activity; a fault is { job, fault }.
 */
export async function runExits({ times, jobs = 2, seed = 1, activities = exitActivities, onEnd = () => {} }) {
  const directory = makeTemporaryDirectory();
  const random = makeRandom(seed);
  const results = activities.map((activity) => ({ activity, runs: 0, faults: [] }));
  const waiting = [];
  for (let run = 0; run < times; run += 1) {
    for (const result of results) {
      const { activity } = result;
      const job = { activity, ending: exitEndings[run % exitEndings.length], delayMs: random(mostDelayMs + 1) };
      waiting.push({ result, job: { ...job, ...(activity === 'recording' && { file: path.join(directory, `${run}.mp4`) }) } });
    }
  }
  let count = 0;
  const work = async () => {
    for (let next = waiting.shift(); next; next = waiting.shift()) {
      const { result, job } = next;
      const fault = await endOnce(job);
      result.runs += 1;
      if (fault !== null) {
        result.faults.push({ job, fault });
      }
      onEnd(++count);
    }
  };
  await Promise.all(Array.from({ length: jobs }, work));
  return results;
}

// What all examples print alike, and where they put their files.

import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const recordingsDirectory = fileURLToPath(new URL('../../recordings', import.meta.url));

export const heading = (text) => console.log(`\n${text}`);
export const row = (label, text) => console.log(`  ${label.padEnd(20)}  ${text}`);
export const seconds = (milliseconds) => `${(milliseconds / 1000).toFixed(1)} s`;

/** The time of day as the beginning of a file name; the locale writes 2000-12-31 23:59:59. */
export const timeName = () => new Date().toLocaleString('sv-SE').replace(/[ :]/g, '-');

/** A path from the command line: npm starts scripts in the project's folder and tells where the user is. */
export const userPath = (name) => path.resolve(process.env.INIT_CWD ?? '.', name);

/** Runs an example; what it throws is told in its message alone. */
export async function runExample(main) {
  try {
    await main();
  } catch (error) {
    console.error(`\n${error.message}`);
    process.exitCode = 1;
  }
}

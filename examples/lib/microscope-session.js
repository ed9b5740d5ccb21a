// What the examples of microscopes do alike: choose a library and a device, and lend a hand where
// the microscope is the virtual one.

import { mkdtemp, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { parseArgs } from 'node:util';

import { programArguments } from './program-arguments.js';
import { MicroscopeControl, simulatedLibrary } from './virtual-microscope.js';

/** The choice of the command line; `name` is that of the microscope's library. */
export function readMicroscopeArguments(name) {
  const { values } = parseArgs({ options: programArguments.ostrel.options });
  const directory = process.env.OSTREL_NATIVE_DIR;
  const real = values.library ?? (directory ? path.join(directory, name) : null);
  return { library: real ?? simulatedLibrary(name), isVirtual: real === null, device: Number(values.device) };
}

/**
 * Runs `open`, which loads the library, and then `use` with the hand at the chosen microscope: a
 * function that runs a command of simulator/README.md, or null where the microscope is a real one.
 */
export async function withHand({ isVirtual, device }, open, use) {
  const directory = await mkdtemp(path.join(os.tmpdir(), 'virtual-microscope-'));
  let control = null;
  try {
    process.env.OSTREL_SIMULATOR_CONTROL ??= path.join(directory, 'control');
    await open();
    control = isVirtual ? await MicroscopeControl.connect(process.env.OSTREL_SIMULATOR_CONTROL) : null;
    const hand = control && ((command) => control.run(`device ${device} ${command}`));
    // On a busy machine a first call that has to make the specimen may take too long for its time-out.
    await hand?.('prepare');
    await use(hand);
  } finally {
    control?.close();
    await rm(directory, { recursive: true });
  }
}

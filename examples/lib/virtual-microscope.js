// The virtual microscope of this project: where its libraries are, and the hand at it.

import net from 'node:net';
import path from 'node:path';
import { createInterface } from 'node:readline';

import { buildDirectory } from './load-addon.js';

/** The simulated library with the name of a real one, such as libostrel.so. */
export const simulatedLibrary = (name) => path.join(buildDirectory, 'simulator', name);

/**
 * Turns, presses and unplugs what no library lets a program do; simulator/README.md lists the
 * commands. The virtual microscope listens where OSTREL_SIMULATOR_CONTROL says, once one of its
 * libraries is in use.
 */
export class MicroscopeControl {
  static async connect(socketPath) {
    const socket = net.connect(socketPath);
    await new Promise((resolve, reject) => socket.once('connect', resolve).once('error', reject));
    return new MicroscopeControl(socket);
  }

  constructor(socket) {
    // The end of the answers says it.
    this.socket = socket.on('error', () => {});
    this.answers = createInterface({ input: socket })[Symbol.asyncIterator]();
  }

  /** Runs one command and gives its answer; an answer that tells an error is thrown. */
  async run(command) {
    this.socket.write(`${command}\n`);
    const { value: answer = 'error: the virtual microscope has gone' } = await this.answers.next();
    if (answer.startsWith('error: ')) {
      throw new Error(`${command}: ${answer.slice('error: '.length)}`);
    }
    return answer;
  }

  close() {
    this.socket.destroy();
  }
}

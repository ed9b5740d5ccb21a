// The virtual microscope of this project: where its libraries are, and the hand at it.

import net from 'node:net';
import path from 'node:path';

import { buildDirectory } from './load-addon.js';

const gone = 'error: the virtual microscope has gone';

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
    this.socket = socket;
    this.waiting = [];
    let rest = '';
    socket.setEncoding('utf8');
    socket.on('data', (text) => {
      const lines = (rest + text).split('\n');
      rest = lines.pop();
      lines.forEach((line) => this.waiting.shift()(line));
    });
    // The close that follows an error says it.
    socket.on('error', () => {});
    socket.on('close', () => this.waiting.splice(0).forEach((answer) => answer(gone)));
  }

  /** Runs one command and gives its answer; an answer that tells an error is thrown. */
  async run(command) {
    const answer = await new Promise((resolve) => {
      if (this.socket.destroyed) {
        resolve(gone);
        return;
      }
      this.waiting.push(resolve);
      this.socket.write(`${command}\n`);
    });
    if (answer.startsWith('error: ')) {
      throw new Error(`${command}: ${answer.slice('error: '.length)}`);
    }
    return answer;
  }

  close() {
    this.socket.destroy();
  }
}

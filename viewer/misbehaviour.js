// The hand at the virtual microscope: what no program can do to a real one, it turns and spoils.

import { MicroscopeControl } from '../examples/lib/virtual-microscope.js';

const isWhole = (least, most) => (value) => Number.isInteger(value) && value >= least && value <= most;
const isTruth = (value) => typeof value === 'boolean';
const isOneOf = (...values) => (value) => values.includes(value);

/** What may be set: whether a value is one, and the words of the command that sets it. */
const settings = {
  plugged: { isValid: isTruth, words: (value) => (value ? 'plug' : 'unplug') },
  frozen: { isValid: isTruth, words: (value) => `freeze ${Number(value)}` },
  slowMs: { isValid: isWhole(0, 1000), words: (value) => `slow ${value}` },
  hanging: { isValid: isOneOf('nothing', 'camera', 'microscope'), words: (value) => `hang ${value}` },
  refusing: { isValid: isTruth, words: (value) => `refuse ${Number(value)}` },
  moving: { isValid: isTruth, words: (value) => `stage ${value ? 'moving' : '0:0'}` },
  numbers: { isValid: isTruth, words: (value) => `numbers ${Number(value)}` },
  magnification: { isValid: isWhole(20, 220), words: (value) => `magnification ${value}` },
};

const wellBehaved = { plugged: true, frozen: false, slowMs: 0, hanging: 'nothing', refusing: false };

export class Misbehaviour {
  constructor({ board, camera }) {
    Object.assign(this, { board, camera, control: null, values: null });
  }

  /** Takes the hand at the socket that the virtual microscope listens at, once its library is in use. */
  async open(controlPath) {
    this.control = await MicroscopeControl.connect(controlPath);
    const status = (await this.control.run('status')).split(' ');
    const read = (name) => status[status.indexOf(name) + 1];
    this.values = { ...wellBehaved, moving: read('stage') === 'moving', magnification: Number(read('magnification')),
      numbers: process.env.OSTREL_SIMULATOR_NUMBERS !== '0' };
    this.board.set({ hand: this.values });
  }

  async run({ name, value, press }) {
    if (!this.control) {
      throw new Error('This microscope is a real one: nothing of it can be set here.');
    }
    if (press === true) {
      await this.send('press');
    } else if (Object.hasOwn(settings, name) && settings[name].isValid(value)) {
      await this.send(settings[name].words(value));
      this.values = { ...this.values, [name]: value };
      this.board.set({ hand: this.values });
    } else {
      throw new Error('The virtual microscope cannot be set like this.');
    }
  }

  /** Lets the specimen stand, without numbers on the pictures; gives what puts both back. */
  async holdStill() {
    if (!this.control) {
      return async () => {};
    }
    const { moving, numbers } = this.values;
    await this.send(settings.moving.words(false));
    await this.send(settings.numbers.words(false));
    return async () => {
      await this.send(settings.moving.words(moving));
      await this.send(settings.numbers.words(numbers));
    };
  }

  send(words) {
    return this.control.run(`device ${this.camera.camera?.index ?? 0} ${words}`);
  }

  /** Lets go of what hangs, so that all calls come back. */
  async close() {
    if (this.control) {
      await this.send('hang nothing').catch(() => {});
      this.control.close();
    }
  }
}

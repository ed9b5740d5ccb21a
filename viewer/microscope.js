// The microscope: focus, light, and what it tells of its optics.

import { ostrelCommands, watchDinoLite, watchOstrel } from '../kit/index.js';

const tellMs = 50;
// The LED's state is asked by a call that may wait for the library.
const ledMs = 500;

const statusWords = { 0: 'nothing selected', 1: 'ready', 2: 'focus moves', 3: 'auto-focus', 4: 'unplugged' };
const isTrouble = (status) => status === 'unplugged' || status === 'no answer';

export class MicroscopeDesk {
  constructor({ native, background, board }) {
    Object.assign(this, { native, background, board });
    this.told = {};
    this.capabilities = { focus: false, led: false };
    this.wantedFocus = null;
    this.led = -1;
  }

  /** Loads the libraries that are named; without any, the viewer is a camera's alone. */
  async open({ ostrel, dinoLite, onButton }) {
    if (ostrel) {
      await this.load('loadOstrel', ostrel);
      this.capabilities = (await this.background.call('ostrelCapabilities')).value;
      this.commands = ostrelCommands({ native: this.native });
      this.ostrel = this.follow('Ostrel', watchOstrel({ native: this.native, device: 0 }), onButton);
      this.ledTimer = setInterval(() => this.askLed(), ledMs);
    }
    if (dinoLite) {
      await this.load('loadDinoLite', dinoLite);
      this.dinoLite = this.follow('Dino-Lite', watchDinoLite({ native: this.native, device: 0 }), onButton);
    }
    this.timer = setInterval(() => this.tell(), tellMs);
  }

  async load(call, library) {
    const { value, words } = await this.background.call(call, library);
    if (!value.ok) {
      throw new Error(`The microscope library ${library} was refused: ${words}`);
    }
  }

  /** `family`: whose library it is. */
  follow(family, watch, onButton) {
    watch.on('button', () => {
      this.board.log('seen', 'The button was pressed');
      onButton();
    });
    watch.on('connected', ({ name }) => this.board.log('seen', `${family}: ${name} is connected`));
    watch.on('disconnected', ({ name }) => this.board.log('refused', `${family}: ${name} is not connected any more`));
    watch.on('trouble', (error) => this.board.log('refused', `${family}: ${error.message}`));
    return watch;
  }

  /** Puts what is known on the board, where it differs from what stands there. */
  tell() {
    const ostrel = this.ostrel?.state;
    const dinoLite = this.dinoLite?.state;
    const told = {
      name: ostrel?.device?.name ?? dinoLite?.device?.name ?? null,
      canFocus: this.capabilities.focus,
      canLight: this.capabilities.led,
      status: ostrel ? statusWords[ostrel.status] ?? (ostrel.status === null ? 'no answer' : `status ${ostrel.status}`) : null,
      focus: ostrel?.focus ?? null,
      wantedFocus: this.wantedFocus,
      pixel: ostrel?.pixelSize ?? null,
      led: this.led,
      magnification: dinoLite?.magnification ?? null,
      fieldOfView: dinoLite?.fieldOfView ?? null,
    };
    const text = JSON.stringify(told);
    if (text !== this.lastText) {
      this.noteStatus(told.status);
      this.lastText = text;
      this.told = told;
      this.board.set({ microscope: told });
    }
  }

  noteStatus(status) {
    const before = this.told.status;
    if (before && status !== before && (isTrouble(status) || isTrouble(before))) {
      this.board.log(isTrouble(status) ? 'refused' : 'seen', `The microscope's status: ${status}`);
    }
  }

  async askLed() {
    if (!this.capabilities.led || this.isAsking) {
      return;
    }
    this.isAsking = true;
    try {
      this.led = (await this.background.call('ostrelGetLedState')).value;
    } finally {
      this.isAsking = false;
    }
  }

  /** Drives the focus somewhere; of several wishes while it drives, the last one holds. */
  async focus(position) {
    this.wantedFocus = position;
    try {
      await this.commands.setFocus(position);
    } finally {
      if (this.wantedFocus === position) {
        this.wantedFocus = null;
      }
    }
  }

  step(direction) {
    return direction < 0 ? this.commands.focusNear() : this.commands.focusFar();
  }

  autoFocus() {
    return this.commands.autoFocus();
  }

  async light(on) {
    await this.commands.setLed(on);
    await this.askLed();
  }

  async close() {
    clearInterval(this.timer);
    clearInterval(this.ledTimer);
    this.ostrel?.close();
    this.dinoLite?.close();
    if (this.ostrel) {
      await this.native.ostrelDisposeAsync();
    }
    if (this.dinoLite) {
      await this.native.dinoLiteDisposeAsync();
    }
  }
}

// The polled values of an Ostrel microscope as events.

import { ostrelCommands } from './microscope-commands.js';
import { MicroscopeWatch, isSame, readWatchOptions } from './microscope-watch.js';
import { nativeOf } from './native.js';
import { SharedPoll } from './shared-poll.js';

const polls = new WeakMap();

/** What the getters that never wait say now; null where something is not known. */
function readSample(native) {
  const status = native.ostrelGetScopeStatus();
  const pixel = native.ostrelGetPixelSizeInfo();
  const lens = native.ostrelGetLensGroupInfo();
  const focus = native.ostrelGetFocusPosition();
  return {
    status: status === -1 ? null : status,
    focus: focus === -1 ? null : focus,
    lens: lens.ok ? { driver: lens.lensDriver, group: lens.lensGroup } : null,
    pixelSize: pixel.ok ? { micronsPerPixel: pixel.micronsPerPixel, width: pixel.width, height: pixel.height } : null,
    isPressed: native.ostrelIsCapturePressed(),
  };
}

function pollOf(native) {
  if (!polls.has(native)) {
    polls.set(native, new SharedPoll(() => readSample(native)));
  }
  return polls.get(native);
}

/** See index.d.ts. */
export function watchOstrel(options = {}) {
  return new OstrelWatch(options);
}

const identity = ({ uniqueId, index }) => uniqueId || `microscope ${index}`;

export class OstrelWatch extends MicroscopeWatch {
  #wanted;
  #known = new Map();
  #values = { status: null, focus: null, lens: null, pixelSize: null };

  constructor(options) {
    const choice = readWatchOptions(options);
    const native = nativeOf(options);
    super(pollOf(native), choice);
    this.#wanted = choice.device;
    this.commands = ostrelCommands({ native });
  }

  get state() {
    const device = this.#wanted === undefined ? null : [...this.#known.values()][0] ?? null;
    return Object.freeze({ connected: this.#known.size > 0, device, ...this.#values });
  }

  look(sample) {
    this.#compare(sample, 'status', (status, previous) => ({ status, previous }));
    this.#compare(sample, 'focus', (position, previous) => ({ position, previous }));
    this.#compare(sample, 'lens', (lens) => lens);
    this.#compare(sample, 'pixelSize', (pixelSize) => pixelSize);
  }

  #compare(sample, name, detail) {
    const previous = this.#values[name];
    if (!isSame(sample[name], previous)) {
      this.#values[name] = sample[name];
      this.tell(name, detail(sample[name], previous));
    }
  }

  async search(signal) {
    const listed = await this.commands.devices({ signal });
    const attached = this.#wanted === undefined ? listed : listed.filter((device) => this.#isWanted(device));
    const ids = new Set(attached.map(identity));
    for (const [id, device] of this.#known) {
      if (!ids.has(id)) {
        this.#known.delete(id);
        this.tell('disconnected', device);
      }
    }
    for (const device of attached) {
      await this.#meet(device, signal);
    }
  }

  /** An index names whatever microscope is there at first; from then on it is followed by its id. */
  #isWanted(device) {
    const isWanted = device.index === this.#wanted || device.uniqueId === this.#wanted;
    if (isWanted && typeof this.#wanted === 'number') {
      this.#wanted = identity(device);
    }
    return isWanted || identity(device) === this.#wanted;
  }

  async #meet(device, signal) {
    const known = this.#known.get(identity(device));
    if (this.#wanted !== undefined && known?.index !== device.index) {
      await this.commands.select(device.index, { signal });
    }
    this.#known.set(identity(device), device);
    if (!known) {
      this.tell('connected', device);
    }
  }
}

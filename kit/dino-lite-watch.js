// The polled values of a Dino-Lite microscope as events.

import { HeldMagnification } from './held-magnification.js';
import { dinoLiteCommands } from './microscope-commands.js';
import { MicroscopeWatch, readWatchOptions } from './microscope-watch.js';
import { nativeOf } from './native.js';
import { SharedPoll } from './shared-poll.js';

const polls = new WeakMap();

/**
 * Reads what the calls that never wait say now. The field of view is asked for at a magnification that is held:
 * one for each of many readings that wander would never come. Without a reading it is asked for all the same,
 * since it tells whether the microscope is still there.
 */
function makeReader(native) {
  const held = new HeldMagnification();
  let lastIndex = -1;
  return () => {
    const { selectedDeviceIndex: index, ledState, supportsMicrotouch } = native.dinoLiteDebugState();
    if (index !== lastIndex) {
      lastIndex = index;
      held.forget();
    }
    const reading = index < 0 ? null : native.dinoLiteGetAmr(index);
    // A library may give a reading that is no number.
    const magnification = Number.isFinite(reading) ? held.take(reading) : null;
    const fieldOfView = held.value === null ? null : native.dinoLiteGetFovx(index, held.value, 0);
    return {
      index,
      ledMode: ledState,
      supportsMicrotouch,
      magnification,
      fieldOfView: magnification === null ? null : fieldOfView,
      isThere: reading !== null || fieldOfView !== null,
      isPressed: index >= 0 && native.dinoLiteMicrotouchPressed(),
    };
  };
}

function pollOf(native) {
  if (!polls.has(native)) {
    polls.set(native, new SharedPoll(makeReader(native)));
  }
  return polls.get(native);
}

/** See index.d.ts. */
export function watchDinoLite(options = {}) {
  return new DinoLiteWatch(options);
}

export class DinoLiteWatch extends MicroscopeWatch {
  #native;
  #wanted;
  #microtouch;
  #device = null;
  /** Of the newest sample; and whether any has told since the microscope was connected. */
  #isThere = false;
  #wasThere = false;
  #isLost = false;
  #values = { magnification: null, fieldOfView: null, ledMode: 0 };

  constructor(options) {
    const choice = readWatchOptions(options);
    const native = nativeOf(options);
    super(pollOf(native), choice);
    this.#native = native;
    this.#wanted = choice.device;
    this.#microtouch = options.microtouch ?? choice.device !== undefined;
    this.commands = dinoLiteCommands({ native });
  }

  get state() {
    return Object.freeze({ connected: this.#device !== null, device: this.#device, ...this.#values });
  }

  look(sample) {
    this.#isThere = sample.isThere;
    if (this.#device !== null && sample.index === this.#device.index) {
      this.#wasThere ||= sample.isThere;
      if (this.#wasThere && !sample.isThere) {
        this.#lose();
      }
    }
    this.#tell(sample);
  }

  #lose() {
    const device = this.#device;
    this.#device = null;
    this.#wasThere = false;
    this.#isLost = true;
    this.tell('disconnected', device);
  }

  #tell({ magnification, fieldOfView, ledMode }) {
    const before = this.#values;
    // After a turn of the ring the field of view comes a little later.
    const isPending = fieldOfView === null && magnification !== null;
    this.#values = { magnification, fieldOfView, ledMode };
    if (magnification !== before.magnification) {
      this.tell('magnification', { magnification, previous: before.magnification });
    }
    if (fieldOfView !== before.fieldOfView && !isPending) {
      this.tell('fieldOfView', { fieldOfView, magnification });
    }
    if (ledMode !== before.ledMode) {
      this.tell('led', { mode: ledMode, previous: before.ledMode });
    }
  }

  async search(signal) {
    if (this.#device !== null) {
      return;
    }
    if (this.#wanted === undefined) {
      await this.#meetSelected(signal);
    } else {
      await this.#selectWanted(signal);
    }
  }

  /** Somebody else selects; what is selected counts as connected, and after a loss once it tells something. */
  async #meetSelected(signal) {
    const index = this.#native.dinoLiteDebugState().selectedDeviceIndex;
    if (index >= 0 && (this.#isThere || !this.#isLost)) {
      this.#connect((await this.commands.devices({ signal })).find((device) => device.index === index));
    }
  }

  async #selectWanted(signal) {
    const device = await this.#find(signal);
    if (!device) {
      return;
    }
    this.#wanted = device.uniqueId || this.#wanted;
    await this.commands.select(device.index, { signal });
    if (this.#microtouch && this.#native.dinoLiteDebugState().supportsMicrotouch) {
      await this.commands.enableMicrotouch(true, { signal });
    }
    this.#connect(device);
  }

  /** The library lists what was there when it was started, so it is started anew where that was no help. */
  async #find(signal) {
    for (const force of this.#isLost ? [true] : [false, true]) {
      await this.commands.init(force, { signal });
      // Until it is connected, another start may show more.
      this.#isLost ||= force;
      const devices = await this.commands.devices({ signal });
      const device = devices.find(({ index, uniqueId }) => index === this.#wanted || uniqueId === this.#wanted);
      if (device) {
        return device;
      }
    }
    return null;
  }

  #connect(device) {
    if (device) {
      this.#device = device;
      this.#isLost = false;
      this.tell('connected', device);
    }
  }
}

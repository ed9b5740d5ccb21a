// What is only read: optics, rates, health, the last error and the log.

import { fieldText, lengthText, micronsPerPixel, niceLength } from './optics.js';
import { timeOfDay } from './text.js';

const $ = (id) => document.getElementById(id);
const longestBar = 180;
const unknown = '–';

const healthTexts = {
  starting: 'Starting', live: 'Live', stalled: 'Stalled', lost: 'Disconnected', stopped: 'Stopped', closed: 'Viewer ended',
};
const veilTexts = {
  starting: 'Waiting for the camera', live: '', stalled: 'The camera delivers no frames', lost: 'The camera is not there',
  stopped: 'The camera is stopped', closed: 'The viewer has ended, or cannot be reached',
};

/** Writes a text where it differs: what stays alone costs nothing and is not read out again. */
function write(id, text) {
  const element = $(id);
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

export class Readouts {
  constructor(painter) {
    this.painter = painter;
    this.frame = null;
    this.microscope = null;
    new ResizeObserver(() => this.showOptics()).observe($('picture'));
    setInterval(() => {
      write('shown-rate', painter.readRate().toFixed(1));
      write('skipped', String(painter.skipped));
    }, 500);
  }

  /** A frame was painted. */
  noteFrame(frame) {
    const isSame = this.frame && ['width', 'height', 'sourceWidth', 'sourceHeight'].every((key) => this.frame[key] === frame[key]);
    this.frame = frame;
    if (!isSame) {
      this.showOptics();
    }
  }

  show(state) {
    this.microscope = state.microscope;
    const camera = state.cameras?.find(({ uniqueId }) => uniqueId === state.choice.camera);
    write('instrument', [camera?.name, state.microscope?.name].filter(Boolean).join('  ·  '));
    this.showHealth(state.health ?? 'starting');
    write('camera-rate', (state.counters?.fps ?? 0).toFixed(1));
    write('dropped', String(state.counters?.droppedFrames ?? 0));
    this.showError(state.lastError);
    this.showLog(state.log);
    this.showOptics();
  }

  showHealth(health) {
    $('health').dataset.health = health;
    write('health-text', healthTexts[health]);
    write('veil', veilTexts[health]);
  }

  showError(error) {
    write('error-text', error ? `${timeOfDay(error.at)}  ${error.text}` : 'none');
    $('error-text').title = error?.text ?? '';
    $('error').toggleAttribute('data-none', !error);
    $('clear-error').hidden = !error;
  }

  showLog(entries) {
    const list = $('log');
    const newest = Number(list.firstChild?.dataset.id ?? 0);
    const fresh = entries.filter(({ id }) => id > newest);
    // A viewer that was started anew counts from 1 again.
    if (entries.length > 0 && entries.at(-1).id < newest) {
      list.replaceChildren();
    }
    fresh.forEach(({ id, at, kind, text }) => {
      const line = document.createElement('li');
      Object.assign(line.dataset, { id, kind });
      const time = document.createElement('time');
      time.textContent = timeOfDay(at);
      line.append(time, text);
      list.prepend(line);
    });
    while (list.children.length > entries.length) {
      list.lastChild.remove();
    }
  }

  showOptics() {
    const microns = micronsPerPixel(this.microscope, this.frame);
    const magnification = this.microscope?.magnification;
    write('magnification', magnification > 0 ? `${magnification.toFixed(1)}×` : unknown);
    write('size', this.frame ? `${this.frame.width} × ${this.frame.height} of ${this.frame.sourceWidth} × ${this.frame.sourceHeight}` : unknown);
    write('pixel', microns === null ? unknown : `${microns.toFixed(3)} µm`);
    write('field', microns === null ? unknown : fieldText(microns * this.frame.width, microns * this.frame.height));
    this.showScale(microns);
  }

  /** The bar is as long on the screen as its length is in the picture. */
  showScale(microns) {
    const { clientWidth, clientHeight } = $('picture');
    $('scale-bar').hidden = microns === null || clientWidth === 0;
    if ($('scale-bar').hidden) {
      write('scale-text', unknown);
      return;
    }
    const screenPerPixel = Math.min(clientWidth / this.frame.width, clientHeight / this.frame.height);
    const length = niceLength((longestBar / screenPerPixel) * microns);
    $('scale-bar').style.width = `${(length / microns) * screenPerPixel}px`;
    write('scale-text', lengthText(length));
  }
}

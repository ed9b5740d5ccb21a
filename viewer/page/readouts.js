// What is only read: rates, health, the last error and the log.

import { timeOfDay, write } from './text.js';

const $ = (id) => document.getElementById(id);

const healthTexts = {
  starting: 'Starting', live: 'Live', stalled: 'Stalled', lost: 'Disconnected', stopped: 'Stopped', closed: 'Viewer ended',
};
const veilTexts = {
  starting: 'Waiting for the camera', live: '', stalled: 'The camera delivers no frames', lost: 'The camera is not there',
  stopped: 'The camera is stopped', closed: 'The viewer has ended, or cannot be reached',
};

export class Readouts {
  constructor(painter) {
    setInterval(() => {
      write('shown-rate', painter.readRate().toFixed(1));
      write('skipped', String(painter.skipped));
    }, 500);
  }

  show(state) {
    const camera = state.cameras?.find(({ uniqueId }) => uniqueId === state.choice.camera);
    write('instrument', [camera?.name, state.microscope?.name].filter(Boolean).join('  ·  '));
    this.showHealth(state.health ?? 'starting');
    write('camera-rate', (state.counters?.fps ?? 0).toFixed(1));
    write('dropped', String(state.counters?.droppedFrames ?? 0));
    this.showError(state.lastError);
    this.showLog(state.log);
  }

  showHealth(health) {
    $('health').dataset.health = health;
    write('health-text', healthTexts[health]);
    write('veil', veilTexts[health]);
  }

  close() {
    this.showHealth('closed');
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
}

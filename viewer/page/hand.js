// The hand at the virtual microscope.

import { DraggedValue } from './controls.js';

const $ = (id) => document.getElementById(id);
const switches = () => [...document.querySelectorAll('[data-hand]')];

export class Hand {
  constructor(link) {
    const set = (name, value) => link.run('hand', { name, value }).catch(() => {});
    switches().forEach((button) => button.addEventListener('click', () => {
      const isOn = button.getAttribute('aria-checked') === 'true';
      // "Unplug" is on where "plugged" is not.
      set(button.dataset.hand, 'inverse' in button.dataset ? isOn : !isOn);
    }));
    this.ring = new DraggedValue($('ring'), (value) => link.run('hand', { name: 'magnification', value }));
    $('slow').addEventListener('change', ({ target }) => set('slowMs', Number(target.value)));
    $('hang').addEventListener('change', ({ target }) => set('hanging', target.value));
    $('press').addEventListener('click', () => link.run('hand', { press: true }).catch(() => {}));
  }

  show({ hand }) {
    $('hand-section').hidden = !hand;
    if (!hand) {
      return;
    }
    switches().forEach((button) => {
      const value = hand[button.dataset.hand];
      button.setAttribute('aria-checked', String('inverse' in button.dataset ? !value : value));
    });
    this.ring.show(hand.magnification);
    $('ring-now').textContent = `${hand.magnification}×`;
    $('slow').value = String(hand.slowMs);
    $('hang').value = hand.hanging;
  }
}

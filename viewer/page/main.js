// Puts the page together.

import { Controls } from './controls.js';
import { Hand } from './hand.js';
import { Link } from './link.js';
import { Painter } from './painter.js';
import { Readouts } from './readouts.js';
import { listenForShortcuts } from './shortcuts.js';
import { StackView } from './stack-view.js';
import { Views } from './views.js';

const link = new Link();
const painter = new Painter(document.getElementById('picture'), (frame) => readouts.noteFrame(frame));
const readouts = new Readouts(painter);
const controls = new Controls(link);
const hand = new Hand(link);
const views = new Views();
const stackView = new StackView(link, () => views.show('stack'));

listenForShortcuts({ v: () => views.toggle() });

link.addEventListener('frame', ({ detail }) => {
  // The next one is on its way while this one is painted.
  link.askFrame();
  painter.take(detail);
});
link.addEventListener('state', ({ detail: state }) => [controls, readouts, hand, stackView].forEach((part) => part.show(state)));
link.addEventListener('closed', () => readouts.showHealth('closed'));

// Puts the page together.

import { Controls } from './controls.js';
import { FrameSource } from './frame-source.js';
import { Hand } from './hand.js';
import { Link } from './link.js';
import { OpticsBar } from './optics-bar.js';
import { Painter } from './painter.js';
import { Readouts } from './readouts.js';
import { listenForShortcuts } from './shortcuts.js';
import { StackView } from './stack-view.js';
import { Views } from './views.js';

const canvas = document.getElementById('picture');
const pair = document.getElementById('pair');

const link = new Link();
const painter = new Painter(canvas, { onFrame: () => showOptics(), onDone: (buffer) => frames.giveBack(buffer) });
const frames = new FrameSource((frame) => painter.take(frame));
const optics = new OpticsBar(canvas);
const stackView = new StackView(link, () => views.show('stack'));
const views = new Views(() => showOptics());
const parts = [new Controls(link), new Readouts(painter), new Hand(link), stackView];
let microscope = null;

/** Of the live picture, or of the stack's, as it was when that was taken. */
function showOptics() {
  const isStack = views.current === 'stack' && stackView.result !== null;
  optics.look(isStack ? pair : canvas);
  optics.tell(isStack ? stackView.result : painter.frame, isStack ? stackView.result.optics : microscope);
}

listenForShortcuts({ v: () => views.toggle() });

link.addEventListener('state', ({ detail: state }) => {
  microscope = state.microscope;
  parts.forEach((part) => part.show(state));
  showOptics();
});
link.addEventListener('closed', () => parts.forEach((part) => part.close?.()));

// What the examples of microscopes show live, and how they watch the button.

import { setTimeout as sleep } from 'node:timers/promises';

import { LiveLine } from '../../scripts/lib/live-line.js';
import { row } from './report.js';

export const pollMs = 16;
export const settledMs = 400;
export const handSeconds = 3;
// What the hand at the virtual microscope does is seen at once, except by a machine that is very busy.
export const virtualHandSeconds = 30;

/**
 * Polls as a window would, many times a second, and shows what it sees. What extends it gives
 * `read`, which asks the addon by calls that do not wait and counts `presses`, and `text`, which
 * says what was read.
 */
export class Telemetry {
  constructor(addon) {
    this.addon = addon;
    this.line = new LiveLine({ quietSeconds: 0.5 });
    this.presses = 0;
    this.polls = 0;
    this.slowestMs = 0;
    this.timer = setInterval(() => this.poll(), pollMs);
  }

  poll() {
    const started = performance.now();
    this.read();
    this.slowestMs = Math.max(this.slowestMs, performance.now() - started);
    ++this.polls;
    this.line.update(`  ${'live'.padEnd(20)}  ${this.text()}   button presses ${this.presses}`);
  }

  /** Waits until what is read fulfils a condition, or the time is over. */
  async until(isFulfilled, seconds) {
    for (const end = performance.now() + seconds * 1000; performance.now() < end && !isFulfilled();) {
      await sleep(pollMs);
    }
  }

  /** Counts presses of the button for a while; the hand, if there is one, presses twice. */
  async watchButton(hand) {
    this.say('button', hand ? 'pressed twice, by the hand at the virtual microscope'
      : `press it within ${handSeconds} seconds`);
    const before = this.presses;
    for (let i = 0; hand && i < 2; ++i) {
      await hand('press');
      await this.until(() => this.presses > before + i, virtualHandSeconds);
    }
    await sleep(hand ? settledMs : handSeconds * 1000);
    this.say('button', `${this.presses - before} presses seen`);
  }

  say(label, text) {
    this.line.clear();
    row(label, text);
  }

  stop() {
    clearInterval(this.timer);
    this.line.clear();
  }

  tellPolls() {
    row('polled', `${this.polls} times, the slowest took ${this.slowestMs.toFixed(2)} ms`);
  }
}

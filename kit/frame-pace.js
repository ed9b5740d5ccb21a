// When to look for the next frame: just as it is made, without asking all the time.

const smoothing = 0.2;
const longestPeriodMs = 1000;
const longestWaitMs = 50;
// Timers fire late, never early.
const earlyMs = 0.5;

/** Learns the period of a preview from its frames; all times are wall-clock milliseconds. */
export class FramePace {
  constructor(periodMs) {
    this.periodMs = periodMs;
    this.latest = null;
  }

  /** Takes note of a frame, { sequence, timestampMs }. */
  saw({ sequence, timestampMs }) {
    if (this.latest && sequence > this.latest.sequence) {
      const measured = (timestampMs - this.latest.timestampMs) / (sequence - this.latest.sequence);
      const likely = Math.min(Math.max(measured, 1), longestPeriodMs);
      this.periodMs += (likely - this.periodMs) * smoothing;
    }
    this.latest = { sequence, timestampMs };
  }

  /** How long to wait from `now` until the next look; longer and longer where frames stay away. */
  waitFrom(now) {
    if (!this.latest) {
      return Math.min(this.periodMs / 4, longestWaitMs);
    }
    const early = Math.min(this.latest.timestampMs + this.periodMs - now, this.periodMs);
    if (early > earlyMs) {
      return early;
    }
    return Math.min(Math.max(-early / 8, 1), longestWaitMs);
  }
}

// Whether a preview goes on, judged from what it answers at each look.

const nothingYet = -256;
const framesToRecover = 3;

/**
 * The health of one preview. `look` takes the time and an answer of cameraPreviewGetLatest and gives what
 * that makes of it: 'resting' (no preview runs), 'fine', 'waiting', 'failing' (the camera answers with
 * an error), 'stalled' (silent for too long, `isFailing` tells whether with an error), or 'recovered'
 * (delivers again; told once, `silenceMs` tells after how long).
 */
export class CameraHealth {
  constructor({ graceMs, stallMs }) {
    this.graceMs = graceMs;
    this.stallMs = stallMs;
    this.start(0);
  }

  /** A preview was started at `now`; with `tellRecovery` its first frames count as a recovery. */
  start(now, { tellRecovery = false } = {}) {
    this.silentSince = now;
    this.sequence = 0;
    this.arrivals = [];
    this.isStarting = true;
    this.isAway = tellRecovery;
    this.isFailing = false;
  }

  silentMs(now) {
    return now - this.silentSince;
  }

  look(now, { result, sequence, lastResult }) {
    if (result === -1) {
      this.start(now, { tellRecovery: this.isAway });
      return 'resting';
    }
    const fresh = sequence >= this.sequence ? sequence - this.sequence : sequence;
    this.sequence = sequence;
    return fresh > 0 ? this.#delivered(now, fresh) : this.#silent(now, lastResult);
  }

  #delivered(now, fresh) {
    this.arrivals = [...this.arrivals, ...Array(Math.min(fresh, framesToRecover)).fill(now)].slice(-framesToRecover);
    if (!this.isAway) {
      this.isStarting = false;
      this.silentSince = now;
      return 'fine';
    }
    // A camera that is frozen may still deliver its last frame now and then.
    if (this.arrivals.length < framesToRecover || this.arrivals[0] < now - this.stallMs) {
      return 'waiting';
    }
    this.isAway = false;
    this.isStarting = false;
    this.silenceMs = this.silentMs(now);
    this.silentSince = now;
    return 'recovered';
  }

  #silent(now, lastResult) {
    const isOverdue = this.silentMs(now) > (this.isStarting ? this.graceMs : this.stallMs);
    this.isFailing = lastResult < 0 && lastResult !== nothingYet;
    if (isOverdue) {
      this.isAway = true;
      return 'stalled';
    }
    return this.isFailing && !this.isStarting ? 'failing' : 'waiting';
  }
}

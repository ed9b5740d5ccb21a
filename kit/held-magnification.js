// A magnification that stays the same while its readings wander.

// Readings of a ring that nobody turns differ by less, and turning it changes them by more.
const band = 0.005;

/** Holds a reading until another one is off by more than 0.5 %. */
export class HeldMagnification {
  /** The magnification that is held; null before the first reading. */
  value = null;

  /** Takes a reading, a finite number, and gives the magnification that it counts for. */
  take(reading) {
    if (this.value === null || Math.abs(reading - this.value) > band * this.value) {
      this.value = reading;
    }
    return this.value;
  }

  /** Forgets what is held, for another microscope. */
  forget() {
    this.value = null;
  }
}

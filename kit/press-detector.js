// Tells the presses of a button from samples of it.

/** A button that is held shows as pressed again and again, with gaps where its library is slower than the samples. */
export class PressDetector {
  #releaseMs;
  #lastPressedAt = -Infinity;

  constructor(releaseMs) {
    this.#releaseMs = releaseMs;
  }

  /** Takes a sample of the time `now`; true where a press begins. */
  saw(isPressed, now) {
    if (!isPressed) {
      return false;
    }
    const isNew = now - this.#lastPressedAt > this.#releaseMs;
    this.#lastPressedAt = now;
    return isNew;
  }
}

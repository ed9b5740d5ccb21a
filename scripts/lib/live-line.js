// One line of progress: rewritten in place on a terminal, printed now and then elsewhere.

const clearLine = '\r\x1b[2K';

export class LiveLine {
  /** `quietSeconds`: the least time between two lines where there is no terminal. */
  constructor({ stream = process.stdout, quietSeconds = 15 } = {}) {
    this.stream = stream;
    this.quietMs = quietSeconds * 1000;
    this.lastPrint = -Infinity;
  }

  /** Shows `text` in place of the last one; without a terminal only if enough time has passed. */
  update(text) {
    if (this.stream.isTTY) {
      this.stream.write(clearLine + text.slice(0, (this.stream.columns || 80) - 1));
      return;
    }
    const now = performance.now();
    if (now - this.lastPrint >= this.quietMs) {
      this.lastPrint = now;
      this.stream.write(`${text}\n`);
    }
  }

  /** Replaces the progress by `text`, which stays. */
  finish(text) {
    this.stream.write(`${this.stream.isTTY ? clearLine : ''}${text}\n`);
  }

  /** Takes unfinished progress off the terminal, before something else is printed. */
  clear() {
    if (this.stream.isTTY) {
      this.stream.write(clearLine);
    }
  }
}

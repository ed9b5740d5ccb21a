// What all pages show alike: one record of the instrument's state, and a log of what happened.

const longestLog = 60;
// Many changes at a time become one message.
const gatherMs = 40;

export class Board {
  constructor() {
    this.state = { log: [], lastError: null };
    this.listeners = new Set();
    this.entries = 0;
    this.timer = null;
  }

  /** Takes over some of the state's members; those that change are told to the listeners. */
  set(changes) {
    Object.assign(this.state, changes);
    this.timer ??= setTimeout(() => {
      this.timer = null;
      this.listeners.forEach((listener) => listener(this.state));
    }, gatherMs);
  }

  /** Adds a line to the log. `kind`: 'done', 'refused', or 'seen' for what the instrument did by itself. */
  log(kind, text) {
    const entry = { id: ++this.entries, at: Date.now(), kind, text };
    const lastError = kind === 'refused' ? entry : this.state.lastError;
    this.set({ log: [...this.state.log, entry].slice(-longestLog), lastError });
  }

  clearError() {
    this.set({ lastError: null });
  }

  close() {
    clearTimeout(this.timer);
    this.listeners.clear();
  }
}

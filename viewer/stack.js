// A focus stack: pictures at several focus positions, fused into one that is sharp everywhere.

export class StackDesk {
  constructor({ board }) {
    this.fewest = 3;
    this.most = 11;
    this.phase = 'idle';
    board.set({ stack: { phase: 'idle', isBusy: false, fewest: 3, most: 11 } });
  }

  get isBusy() {
    return false;
  }
}

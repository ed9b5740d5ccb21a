// Target arrays that are used in turn.

/** Arrays that frames are copied into; the first round takes those that the native object made. */
export class FrameRing {
  constructor(count) {
    this.arrays = Array(count).fill(undefined);
    this.next = 0;
  }

  /** The array for the next frame; undefined where there is none yet, or its memory went to another thread. */
  target() {
    const array = this.arrays[this.next];
    return array?.length > 0 ? array : undefined;
  }

  /** Takes note of the frame that came, in the target or, where that was too small, in an array of its own. */
  keep(data) {
    const target = this.target();
    if (target?.buffer !== data.buffer) {
      this.arrays[this.next] = new Uint8Array(data.buffer, data.byteOffset, data.length);
    }
    this.next = (this.next + 1) % this.arrays.length;
    return new Uint8Array(data.buffer, data.byteOffset, data.length);
  }
}

// A focus stack: pictures at several focus positions, fused into one that is sharp everywhere.

import { fuseStack } from '../kit/index.js';
import { previewMicrons } from './page/optics.js';
import { encodeRgba } from './stills.js';

// Frames that may have been exposed while the focus still moved: one that waited to be fetched, the
// newest of the camera, and the one under way.
const unsettledFrames = 3;
// Of the progress bar; the rest is the fusion's.
const takingShare = 0.5;
const stageTexts = { measuring: 'Measuring', choosing: 'Choosing', aligning: 'Aligning', fusing: 'Fusing' };

/** How many pictures a stack has. */
export const fewestPictures = 3;
export const mostPictures = 11;

const positionsOf = ({ from, to, steps }) =>
  Array.from({ length: steps }, (_, i) => Math.round(from + ((to - from) * i) / (steps - 1)));

export class StackDesk {
  constructor({ native, board, archive, camera, microscope, misbehaviour }) {
    Object.assign(this, { native, board, archive, camera, microscope, misbehaviour });
    this.canceller = null;
    this.count = 0;
    this.result = null;
    this.tell('', 0);
  }

  get isBusy() {
    return this.canceller !== null;
  }

  tell(text, done) {
    this.board.set({ stack: { isBusy: this.isBusy, text, done, result: this.result } });
  }

  /** Takes and fuses a stack; the focus goes back to where it was. */
  async take(choice) {
    if (this.isBusy) {
      throw new Error('A focus stack is under way.');
    }
    if (this.camera.health !== 'live') {
      throw new Error('A focus stack needs a camera that delivers frames.');
    }
    if (choice.from === choice.to) {
      throw new Error('A focus stack needs two different focus positions to go from and to.');
    }
    this.canceller = new AbortController();
    const { signal } = this.canceller;
    try {
      this.result = await this.run(choice, signal);
      this.board.log('done', `Fused ${this.result.sources.length} pictures to ${this.result.fused}`);
    } catch (error) {
      if (!signal.aborted) {
        throw error;
      }
      this.board.log('seen', 'The focus stack was cancelled');
    } finally {
      this.canceller = null;
      this.tell(signal.aborted ? 'Cancelled' : '', 0);
    }
  }

  async run(choice, signal) {
    const id = ++this.count;
    const { focus: before, pixel, fieldOfView, magnification } = this.microscope.told;
    const release = await this.misbehaviour.holdStill();
    let pictures;
    try {
      pictures = await this.takePictures(positionsOf(choice), signal);
    } finally {
      await release();
      await this.microscope.focus(before).catch(() => {});
    }
    const optics = { pixel, fieldOfView, magnification };
    const microns = previewMicrons(optics, pictures[0]);
    // Before the fusion, which takes the pictures' memory over.
    const sources = await this.keepSources(id, pictures, microns);
    const fused = await fuseStack({
      native: this.native,
      frames: pictures.map(({ width, height, rgba }) => ({ width, height, rgba })),
      transfer: true,
      signal,
      onProgress: ({ stage, stageDone, done }) => this.tell(
        stage === 'fusing' ? 'Fusing' : `${stageTexts[stage]}, ${Math.round(100 * stageDone)} %`, takingShare + (1 - takingShare) * done),
    });
    const { sourceWidth, sourceHeight } = pictures[0];
    return { ...await this.keep(id, sources, fused, microns), sourceWidth, sourceHeight, optics };
  }

  async takePictures(positions, signal) {
    const pictures = [];
    for (const [i, position] of positions.entries()) {
      this.tell(`Picture ${i + 1} of ${positions.length}, focus at ${position}`, (takingShare * i) / positions.length);
      await this.microscope.focus(position);
      pictures.push({ position, ...await this.takePicture(signal) });
    }
    return pictures;
  }

  async takePicture(signal) {
    for (let i = 0; i < unsettledFrames; ++i) {
      (await this.camera.feed.next(signal)).release();
    }
    const frame = await this.camera.feed.next(signal);
    const { width, height, sourceWidth, sourceHeight } = frame;
    const rgba = frame.pixels.slice();
    frame.release();
    return { width, height, sourceWidth, sourceHeight, rgba };
  }

  keepSources(id, pictures, microns) {
    return Promise.all(pictures.map(async ({ position, ...picture }) => {
      const name = `stack-${id}-focus-${position}.png`;
      this.archive.keepPicture(name, await encodeRgba(picture, microns));
      return { name, position };
    }));
  }

  async keep(id, sources, { width, height, rgba, frames, reference, measuringMs, fusingMs }, microns) {
    const name = await this.archive.save('fused', '.png', await encodeRgba({ width, height, rgba }, microns));
    const reports = new Map(frames.map((report) => [report.index, report]));
    return {
      id, width, height, fused: name, measuringMs, fusingMs, reference,
      sources: sources.map((source, i) => ({ ...source, share: reports.get(i)?.share ?? 0 })),
    };
  }

  cancel() {
    this.canceller?.abort();
  }
}

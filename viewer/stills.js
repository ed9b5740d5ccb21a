// Stills at the camera's full size.

import { setTimeout as sleep } from 'node:timers/promises';

import sharp from 'sharp';

import { withPixelSize } from '../examples/lib/png.js';
import { cameraMicrons } from './page/optics.js';

const pollMs = 20;
const patienceMs = 5000;

const encode = async (rgb, { width, height, channels, microns }) =>
  withPixelSize(await sharp(rgb, { raw: { width, height, channels } }).removeAlpha().png({ compressionLevel: 3 }).toBuffer(), microns);

/** A PNG of RGBA pixels, `microns` wide and high each; null where that is not known. */
export const encodeRgba = ({ width, height, rgba }, microns) => encode(rgba, { width, height, channels: 4, microns });

export class StillsDesk {
  constructor({ native, board, archive, camera, microscope }) {
    Object.assign(this, { native, board, archive, camera, microscope });
  }

  /** Takes the next full picture there is, not one from before the wish, and gives its file. */
  async take() {
    const { device } = this.camera;
    const { sequence } = this.native.cameraPreviewGetLatestQualityFrame(device, Number.MAX_SAFE_INTEGER);
    const deadline = performance.now() + patienceMs;
    for (;;) {
      const still = this.native.cameraPreviewGetLatestQualityFrame(device, sequence);
      if (still.result === this.native.RESULT_OK) {
        return this.keep(still);
      }
      if (performance.now() > deadline) {
        throw new Error(`The camera delivered no full picture within ${patienceMs / 1000} s.`);
      }
      await sleep(pollMs);
    }
  }

  async keep({ width, height, data }) {
    const microns = cameraMicrons(this.microscope.told, width);
    const body = await encode(data, { width, height, channels: 3, microns });
    const name = await this.archive.save('still', '.png', body);
    this.board.log('done', `Took ${name}, ${width} × ${height}`);
    this.board.set({ still: { name, width, height } });
    return { name, width, height };
  }
}

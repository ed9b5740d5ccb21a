// What a recording of a preview's frames needs, worked out beforehand: pure functions.

const largestSide = 8192;
const smallestBitrate = 1_000_000;
const largestBitrate = 100_000_000;
const bitsPerPixel = 0.1;
const usualRate = 30;
const highestRate = 120;

/** The whole rate to tell the encoder, from frames a second as a preview measured them; 0: not known. */
export function nominalRate(producerFps) {
  return producerFps > 0 ? Math.min(Math.max(Math.round(producerFps), 1), highestRate) : usualRate;
}

/** A tenth of a bit for each pixel of each frame. */
export function usualBitrate({ width, height, frameRate }) {
  const bitrate = Math.round(bitsPerPixel * width * height * frameRate);
  return Math.min(Math.max(bitrate, smallestBitrate), largestBitrate);
}

/** Why frames of this size cannot be recorded, in words; null if they can. */
export function refusalOfSize({ width, height, sourceWidth, sourceHeight }) {
  const size = `The preview is ${width} x ${height} pixels`;
  const made = width === sourceWidth && height === sourceHeight ? '' : `, made from ${sourceWidth} x ${sourceHeight}`;
  if (width % 2 !== 0 || height % 2 !== 0) {
    return `${size}${made}, and only even sizes can be recorded. ` +
      'A preview shows every nth pixel of every nth row: start it with another size, or capture another format.';
  }
  if (width > largestSide || height > largestSide) {
    return `${size}${made}, and at most ${largestSide} a side can be recorded. Start the preview with a smaller size.`;
  }
  return null;
}

/**
 * How the colours of a size are tagged in the file, and how the pixels of an RGB preview are made. Players
 * go by the tags; where the two differ, they show greens and reds a little off.
 */
export function colourTags(width, height) {
  const tags = width < 1280 && height < 577 ? 'bt601' : 'bt709';
  return { tags, pixels: 'bt709', differ: tags !== 'bt709' };
}

/** What to warn of before frames are recorded: [{ code, message }]. */
export function warningsFor({ width, height, pixelFormat }) {
  const isRgb = pixelFormat === 'rgba' || pixelFormat === 'bgra';
  if (!isRgb || !colourTags(width, height).differ) {
    return [];
  }
  return [{
    code: 'colour-tags',
    message: `Frames of ${width} x ${height} are tagged BT.601 in the file, but their pixels are made by BT.709, so players ` +
      'show colours a little off. Where colours matter, record a preview at least 1280 wide or 578 high.',
  }];
}

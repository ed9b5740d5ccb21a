// Lengths in the picture, from what the microscope tells.

const niceSteps = [5, 2, 1];

/**
 * Micrometres for one pixel of the preview, or null where the microscope does not tell them for the frames that
 * the camera delivers. A preview has every n-th pixel of a frame.
 */
export function micronsPerPixel(microscope, frame) {
  if (!microscope || !frame) {
    return null;
  }
  const step = Math.max(1, Math.round(frame.sourceWidth / frame.width));
  const { pixel, fieldOfView } = microscope;
  if (pixel && pixel.micronsPerPixel > 0 && (pixel.width === 0 || pixel.width === frame.sourceWidth)) {
    return pixel.micronsPerPixel * step;
  }
  return fieldOfView > 0 ? (fieldOfView / frame.sourceWidth) * step : null;
}

/** The longest of 1, 2, 5, 10, ... micrometres that is at most `longest`. */
export function niceLength(longest) {
  const power = 10 ** Math.floor(Math.log10(longest));
  return power * (niceSteps.find((step) => step * power <= longest * (1 + 1e-9)) ?? 1);
}

/** A length in micrometres, in the unit that people would take. */
export function lengthText(microns) {
  if (microns >= 1000) {
    return `${microns / 1000} mm`;
  }
  return microns >= 1 ? `${microns} µm` : `${microns * 1000} nm`;
}

/** The field of a picture in millimetres or micrometres. */
export function fieldText(width, height) {
  return width >= 1000 ? `${(width / 1000).toFixed(3)} × ${(height / 1000).toFixed(3)} mm` : `${width.toFixed(1)} × ${height.toFixed(1)} µm`;
}

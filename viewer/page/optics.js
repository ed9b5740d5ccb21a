// Lengths in the picture, from what the microscope tells.

const niceSteps = [5, 2, 1];

/**
 * Micrometres for one pixel of the camera's frames, which are those of a still, or null where the microscope
 * does not tell them for frames of this width.
 */
export function cameraMicrons(microscope, sourceWidth) {
  const { pixel, fieldOfView } = microscope ?? {};
  if (pixel && pixel.micronsPerPixel > 0 && (pixel.width === 0 || pixel.width === sourceWidth)) {
    return pixel.micronsPerPixel;
  }
  return fieldOfView > 0 ? fieldOfView / sourceWidth : null;
}

/**
 * The same for one pixel of a preview, which has every n-th pixel of a frame: of what is shown, recorded and
 * fused.
 */
export function previewMicrons(microscope, { width, sourceWidth }) {
  const microns = cameraMicrons(microscope, sourceWidth);
  return microns === null ? null : microns * Math.max(1, Math.round(sourceWidth / width));
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

// What stands in a PNG beside its pixels.

/** The chunks of a PNG, [{ type, body, sum, covered }]; `sum` is the checksum, of the bytes `covered`. */
export function chunksOf(png) {
  const chunks = [];
  for (let at = 8; at < png.length;) {
    const end = at + 8 + png.readUInt32BE(at);
    chunks.push({ type: png.toString('latin1', at + 4, at + 8), body: png.subarray(at + 8, end), sum: png.readUInt32BE(end),
      covered: png.subarray(at + 4, end) });
    at = end + 4;
  }
  return chunks;
}

/** How wide a pixel is by the PNG itself, in micrometres; null where it does not say so. */
export function pixelMicrons(png) {
  const found = chunksOf(png).find(({ type }) => type === 'pHYs');
  return found ? 1e6 / found.body.readUInt32BE(0) : null;
}

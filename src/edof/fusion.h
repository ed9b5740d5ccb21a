// Multiband fusion of a focus stack into one image, defined to the bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "edof/float_buffer.h"

namespace ostrel_native {

/// One frame of the stack; the pixels are the caller's and outlive the fusion.
struct FrameView {
  const std::uint8_t* rgba;  ///< R, G, B, A; packed rows of the output's size; A counts not
  double sourcePixelsPerOutputPixel;  ///< about the image centre; finite, above 0
};

/// How one frame lies on the output grid; the maps are the caller's and outlive the fusion. Each
/// has `mapWidth * mapHeight` values, row by row.
struct FieldView {
  std::int32_t mapWidth;    ///< cells, 1 to 16384
  std::int32_t mapHeight;   ///< cells, 1 to 16384
  const float* x;           ///< where the spot of a cell lies in this frame, in map coordinates
  const float* y;           ///< the same, vertically
  const float* confidence;  ///< of the alignment
  bool accepted;            ///< whether the frame gives pixels; its weights count in any case
};

/// One level of a pyramid, or the sums over the pyramids of a stack. A row holds its R values,
/// then its G values, then its B values, so that every inner loop runs over one plain array.
/// The scale is that of the bytes, 0 to 255.
struct Level {
  Level(std::int32_t levelWidth, std::int32_t levelHeight);

  /// `3 * width` values: R, G, B.
  float* RgbRow(std::int32_t y) { return rgb.data() + 3 * RowOffset(y); }
  const float* RgbRow(std::int32_t y) const { return rgb.data() + 3 * RowOffset(y); }
  float* WeightRow(std::int32_t y) { return weight.data() + RowOffset(y); }
  const float* WeightRow(std::int32_t y) const { return weight.data() + RowOffset(y); }
  std::size_t RowOffset(std::int32_t y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
  }

  std::int32_t width;   ///< pixels a row
  std::int32_t height;  ///< rows
  FloatBuffer rgb;      ///< `width * height * 3` values, unset at first
  FloatBuffer weight;   ///< `width * height` values, unset at first
};

/// Where the values of `channel`, 0 to 2, begin in a row of `Level` of `width` pixels.
/// Thread: any.
constexpr std::ptrdiff_t PlaneOffset(std::int32_t channel, std::int32_t width) {
  return std::ptrdiff_t{channel} * width;
}

/// The number of pixels. Throws `std::runtime_error` ("Native EDOF dimensions are invalid")
/// unless both numbers are 1 to 16384.
/// Thread: any.
std::uint64_t CheckedPixels(int width, int height);

/// Fuses the stack: three lists of one length, `weights[i]` with a value for each cell of
/// `fields[i]`'s maps, `referenceIndex` within them. Gives `width * height` pixels R, G, B, 255.
/// The bytes depend neither on `maxThreads`, the most threads that work at a time, nor on `simd`,
/// which may be "avx2" on processors that have it.
/// Throws what `CheckedPixels` throws, and standard exceptions if memory or a thread can't be had.
/// Thread: script.
std::vector<std::uint8_t> Fuse(int width, int height, int referenceIndex,
                               const std::vector<FrameView>& frames,
                               const std::vector<FieldView>& fields,
                               const std::vector<const float*>& weights, unsigned maxThreads,
                               const std::string& simd);

}  // namespace ostrel_native

// Multiband fusion of a focus stack into one image, bit-exact on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "edof/float_buffer.h"

namespace ostrel_native {

/// One frame of the stack. The caller owns the pixels, which must outlive the fusion.
struct FrameView {
  const std::uint8_t* rgba;  ///< R, G, B, A; packed rows, same size as the output; A is ignored
  double sourcePixelsPerOutputPixel;  ///< about the image centre; finite, above 0
};

/// Alignment of one frame to the output grid. The caller owns the maps, which must outlive the
/// fusion; each has `mapWidth * mapHeight` values, row-major.
struct FieldView {
  std::int32_t mapWidth;    ///< cells, 1 to 16384
  std::int32_t mapHeight;   ///< cells, 1 to 16384
  const float* x;           ///< horizontal position of the cell in this frame, in map coordinates
  const float* y;           ///< vertical position
  const float* confidence;  ///< of the alignment
  bool accepted;            ///< false: contributes no pixels, only weights
};

/// One level of a pyramid, or the sums over the pyramids of a stack. A row holds its R values,
/// then its G values, then its B values, so that every inner loop runs over one plain array.
/// Values range from 0 to 255, like the bytes.
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

/// Index of the first value of `channel` (0 to 2) in a row of `Level` of `width` pixels.
/// Thread: any.
constexpr std::ptrdiff_t PlaneOffset(std::int32_t channel, std::int32_t width) {
  return std::ptrdiff_t{channel} * width;
}

/// Returns the number of pixels. Throws `std::runtime_error` ("Native EDOF dimensions are invalid")
/// unless both numbers are 1 to 16384.
/// Thread: any.
std::uint64_t CheckedPixels(int width, int height);

/// Fuses the stack. Precondition: the three lists have the same length, `weights[i]` has one value
/// for each cell of `fields[i]`'s maps, and `referenceIndex` is a valid index.
/// Returns `width * height` pixels R, G, B, 255. The bytes depend neither on `maxThreads`, the
/// maximum number of concurrent threads, nor on `simd`, which may be "avx2" only where the
/// processor has it.
/// Throws what `CheckedPixels` throws, and standard exceptions if memory or a thread is not
/// available. Thread: any environment.
std::vector<std::uint8_t> Fuse(int width, int height, int referenceIndex,
                               const std::vector<FrameView>& frames,
                               const std::vector<FieldView>& fields,
                               const std::vector<const float*>& weights, unsigned maxThreads,
                               const std::string& simd);

}  // namespace ostrel_native

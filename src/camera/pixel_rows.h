// Reduction of one pixel row to the four-byte pixels that a screen paints.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrel_native {

/// Bytes behind the last pixel of a source that the row functions may read, never use: three-byte
/// pixels are read four bytes at a time.
inline constexpr std::size_t kPixelReadAhead = 1;

/// Writes `width` RGBA pixels to `out` (4 * `width` bytes): pixel i takes the three bytes at
/// `source + columnOffsets[i]`, alpha is 255.
/// Reads `kPixelReadAhead` bytes behind each pixel.
/// Thread: any.
void ReduceRgbRow(const std::uint8_t* source, const std::uint32_t* columnOffsets, int width,
                  std::uint8_t* out);

/// Writes `width` pixels to `out` (4 * `width` bytes): pixel i takes the four bytes at
/// `source + columnOffsets[i]`.
/// Thread: any.
void ReduceBgraRow(const std::uint8_t* source, const std::uint32_t* columnOffsets, int width,
                   std::uint8_t* out);

}  // namespace ostrel_native

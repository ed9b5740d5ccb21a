// Reduction of one pixel row to the four-byte pixels that a screen paints.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrel_native {

/// Bytes behind the last pixel of a source that the row functions may read, never use: three-byte
/// pixels are read four bytes at a time.
inline constexpr std::size_t kPixelReadAhead = 1;

/// Writes `width` RGBA pixels to `out` (4 * `width` bytes): each takes the three bytes of every
/// `step`-th source pixel, alpha is 255.
/// Reads `kPixelReadAhead` bytes behind the last pixel that it takes.
/// Thread: any.
void ReduceRgbRow(const std::uint8_t* source, int step, int width, std::uint8_t* out);

/// Writes `width` pixels to `out` (4 * `width` bytes): each takes the four bytes of every
/// `step`-th source pixel.
/// Thread: any.
void ReduceBgraRow(const std::uint8_t* source, int step, int width, std::uint8_t* out);

/// The plain form of `ReduceRgbRow`, which every processor can run and which the vector form
/// equals to the bit.
/// Thread: any.
void ReduceRgbRowPlain(const std::uint8_t* source, int step, int width, std::uint8_t* out);

}  // namespace ostrel_native

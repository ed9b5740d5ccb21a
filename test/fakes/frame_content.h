// Frame contents that prove a frame whole: fakes write them, tests read them back.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace ostrel_native {

inline constexpr std::uint8_t kFakePaddingByte = 0xEE;  ///< behind the pixels of a padded row

/// The three bytes of every pixel of frame `number` with uniform content.
inline std::array<std::uint8_t, 3> UniformPixel(std::uint32_t number) {
  return {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number >> 16)};
}

/// The frame number that a pixel of uniform content carries.
inline std::uint32_t UniformNumber(const std::uint8_t* pixel) {
  return pixel[0] | (std::uint32_t{pixel[1]} << 8) | (std::uint32_t{pixel[2]} << 16);
}

/// The byte at `offset` of frame `number` with ramp content. The period is a prime, so no row
/// size hides a wrong row.
inline std::uint8_t RampByte(std::uint32_t number, std::size_t offset) {
  return static_cast<std::uint8_t>((offset + std::size_t{number} * 31) % 251);
}

/// Writes uniform content into `size` bytes of rows of `bytesPerRow`, padding included.
inline void FillUniform(std::uint8_t* buffer, std::size_t size, int width, int bytesPerRow,
                        std::uint32_t number) {
  if (width < 1 || bytesPerRow < 1) {
    return;
  }
  const std::size_t rowSize = static_cast<std::size_t>(bytesPerRow);
  const std::size_t pixelBytes = std::min(static_cast<std::size_t>(width) * 3, rowSize);
  const std::array<std::uint8_t, 3> pixel = UniformPixel(number);
  std::vector<std::uint8_t> row(rowSize, kFakePaddingByte);
  for (std::size_t i = 0; i < pixelBytes; ++i) {
    row[i] = pixel[i % 3];
  }
  for (std::size_t start = 0; start < size; start += rowSize) {
    std::memcpy(buffer + start, row.data(), std::min(rowSize, size - start));
  }
}

/// Writes ramp content into `size` bytes.
inline void FillRamp(std::uint8_t* buffer, std::size_t size, std::uint32_t number) {
  for (std::size_t i = 0; i < size; ++i) {
    buffer[i] = RampByte(number, i);
  }
}

}  // namespace ostrel_native

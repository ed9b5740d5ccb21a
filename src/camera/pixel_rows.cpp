#include "camera/pixel_rows.h"

#include <cstring>

namespace ostrel_native {

namespace {

std::uint32_t LoadPixel(const std::uint8_t* bytes) {
  std::uint32_t pixel;
  std::memcpy(&pixel, bytes, sizeof pixel);
  return pixel;
}

// The fourth byte in memory is the highest of a little-endian word.
constexpr std::uint32_t kOpaque = 0xFF000000U;

template <std::uint32_t Alpha>
void ReduceRow(const std::uint8_t* __restrict source, const std::uint32_t* __restrict columnOffsets,
               int width, std::uint8_t* __restrict out) {
  for (int x = 0; x < width; ++x) {
    const std::uint32_t pixel = LoadPixel(source + columnOffsets[x]) | Alpha;
    std::memcpy(out + std::size_t{4} * static_cast<std::size_t>(x), &pixel, sizeof pixel);
  }
}

}  // namespace

void ReduceRgbRow(const std::uint8_t* source, const std::uint32_t* columnOffsets, int width,
                  std::uint8_t* out) {
  ReduceRow<kOpaque>(source, columnOffsets, width, out);
}

void ReduceBgraRow(const std::uint8_t* source, const std::uint32_t* columnOffsets, int width,
                   std::uint8_t* out) {
  ReduceRow<0>(source, columnOffsets, width, out);
}

}  // namespace ostrel_native

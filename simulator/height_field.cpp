#include "simulator/specimen.h"

namespace ostrel_simulator {

int HeightField::At(std::uint32_t u, std::uint32_t v) const {
  // 1/65536 texel is 1/(8 * 65536) of the spacing; 8 bits of the fraction are enough.
  constexpr int kCellBits = 19;
  const auto left = static_cast<int>(u >> kCellBits);
  const auto top = static_cast<int>(v >> kCellBits);
  const auto right = (left + 1) % kHeightColumns;
  const auto bottom = (top + 1) % kHeightRows;
  const auto fractionX = static_cast<int>(u >> (kCellBits - 8)) & 255;
  const auto fractionY = static_cast<int>(v >> (kCellBits - 8)) & 255;
  const auto value = [&](int column, int row) -> int {
    return sixteenths[static_cast<std::size_t>(row) * kHeightColumns +
                      static_cast<std::size_t>(column)];
  };
  const int above = value(left, top) * (256 - fractionX) + value(right, top) * fractionX;
  const int below = value(left, bottom) * (256 - fractionX) + value(right, bottom) * fractionX;
  return (above / 256 * (256 - fractionY) + below / 256 * fractionY) / 256;
}

}  // namespace ostrel_simulator

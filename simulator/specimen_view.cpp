// What the camera sees of the specimen.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "simulator/specimen.h"

namespace ostrel_simulator {

void CopyView(const Specimen& specimen, std::uint32_t number, int width, int height,
              int bytesPerRow, std::uint8_t* target) {
  // Slow enough to look at, and different steps a side, so that no two frames are alike.
  const int left = static_cast<int>(std::uint64_t{number} * 2 % kSpecimenWidth);
  const int top = static_cast<int>(number % kSpecimenHeight);
  const std::size_t beforeSeam =
      static_cast<std::size_t>(std::min(width, kSpecimenWidth - left)) * 3;
  const std::size_t behindSeam = static_cast<std::size_t>(width) * 3 - beforeSeam;
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* const source =
        specimen.pixels.data() + std::ptrdiff_t{(top + y) % kSpecimenHeight} * kSpecimenWidth * 3;
    std::uint8_t* const row = target + std::ptrdiff_t{y} * bytesPerRow;
    std::memcpy(row, source + std::ptrdiff_t{left} * 3, beforeSeam);
    std::memcpy(row + beforeSeam, source, behindSeam);
  }
}

}  // namespace ostrel_simulator

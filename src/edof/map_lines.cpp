#include "edof/map_lines.h"

#include <algorithm>
#include <cstddef>

namespace ostrel_native {

MapPosition LocateInMap(int index, int size, int mapSize) {
  // Multiplied first and then divided: a factor worked out beforehand would round differently.
  const double position = (index + 0.5) * mapSize / size - 0.5;
  const double lastCell = mapSize - 1;
  const double clamped = std::min(position, lastCell);
  MapPosition result{0, 1, 0.0, position >= 0.0 && position <= lastCell};
  if (clamped > 0.0) {
    // Cutting is flooring for what is positive.
    result.low = static_cast<int>(clamped);
    result.high = result.low + 1;
    result.fraction = clamped - result.low;
  }
  result.high = std::min(result.high, mapSize - 1);
  return result;
}

MapColumns::MapColumns(int outputWidth)
    : width(outputWidth),
      low(static_cast<std::size_t>(outputWidth)),
      high(static_cast<std::size_t>(outputWidth)),
      fraction(static_cast<std::size_t>(outputWidth)) {}

void MapColumns::Lay(int newMapWidth) {
  if (mapWidth == newMapWidth) {
    return;
  }
  mapWidth = newMapWidth;
  insideBegin = 0;
  insideEnd = 0;
  for (int column = 0; column < width; ++column) {
    const MapPosition position = LocateInMap(column, width, mapWidth);
    const auto i = static_cast<std::size_t>(column);
    low[i] = position.low;
    high[i] = position.high;
    fraction[i] = position.fraction;
    if (position.inside) {
      if (insideEnd == 0) {
        insideBegin = column;
      }
      insideEnd = column + 1;
    }
  }
}

MapLines::MapLines(int outputWidth)
    : width(outputWidth), held{-1, -1}, lines(2 * static_cast<std::size_t>(outputWidth)) {}

void MapLines::Forget() {
  held[0] = -1;
  held[1] = -1;
}

const double* MapLines::Line(const float* map, const MapColumns& columns, int row) {
  const int slot = row & 1;
  double* __restrict line = lines.data() + static_cast<std::size_t>(slot) * columns.low.size();
  if (held[slot] != row) {
    held[slot] = row;
    const float* const cells =
        map + static_cast<std::size_t>(row) * static_cast<std::size_t>(columns.mapWidth);
    const std::int32_t* const low = columns.low.data();
    const std::int32_t* const high = columns.high.data();
    const double* const fraction = columns.fraction.data();
    for (int x = 0; x < width; ++x) {
      const float a = cells[low[x]];
      const float b = cells[high[x]];
      line[x] = static_cast<double>(b - a) * fraction[x] + static_cast<double>(a);
    }
  }
  return line;
}

}  // namespace ostrel_native

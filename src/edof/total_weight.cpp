#include "edof/total_weight.h"

#include <algorithm>
#include <cstddef>

namespace ostrel_native {

namespace {

// Rows of sums that stay in the second-level cache while one frame after the other is added.
// Each frame starts anew at each block, at the price of two lines of its map.
constexpr int kBlockRows = 32;

void AddSampledRow(const double* __restrict top, const double* __restrict bottom, double fraction,
                   int width, float* __restrict sums) {
  for (int x = 0; x < width; ++x) {
    sums[x] += SampledWeight(top[x], bottom[x], fraction);
  }
}

}  // namespace

void AccumulateTotalWeight(const std::vector<FieldView>& fields,
                           const std::vector<const float*>& weights, int height,
                           MapColumns& columns, MapLines& lines, float* totalWeight, int firstRow,
                           int lastRow) {
  const auto width = static_cast<std::size_t>(columns.width);
  for (int blockBegin = firstRow; blockBegin < lastRow; blockBegin += kBlockRows) {
    const int blockEnd = std::min(blockBegin + kBlockRows, lastRow);
    std::fill(totalWeight + static_cast<std::size_t>(blockBegin) * width,
              totalWeight + static_cast<std::size_t>(blockEnd) * width, 0.0F);
    for (std::size_t i = 0; i < fields.size(); ++i) {
      columns.Lay(fields[i].mapWidth);
      lines.Forget();
      for (int y = blockBegin; y < blockEnd; ++y) {
        const MapPosition place = LocateInMap(y, height, fields[i].mapHeight);
        const double* const top = lines.Line(weights[i], columns, place.low);
        const double* const bottom = lines.Line(weights[i], columns, place.high);
        AddSampledRow(top, bottom, place.fraction, columns.width,
                      totalWeight + static_cast<std::size_t>(y) * width);
      }
    }
  }
}

}  // namespace ostrel_native

#include "edof/finest_level.h"

#include <algorithm>
#include <cstddef>

#include "edof/fusion_rows.h"

namespace ostrel_native {

namespace {

constexpr int kRingRows = 4;

int RingRow(int y) {
  return y % kRingRows;
}

// Row `y` of the next level and the two rows of the finest level that it is made of, into the
// rings.
void MakeRow(const FrameWarp& warp, int y, RowMemory& memory) {
  const int last = std::min(2 * y + 1, warp.height - 1);
  for (int fineY = 2 * y; fineY <= last; ++fineY) {
    const int row = RingRow(fineY);
    WarpFrameRow(warp, fineY, memory.warp, memory.fine.RgbRow(row), memory.fine.WeightRow(row));
  }
  HalveLevelRows(memory.fine, RingRow(2 * y), last > 2 * y ? RingRow(last) : -1, memory.coarse,
                 RingRow(y));
}

void StoreRow(const Level& ring, int y, Level& level) {
  const auto width = static_cast<std::size_t>(level.width);
  std::copy_n(ring.RgbRow(RingRow(y)), 3 * width, level.RgbRow(y));
  std::copy_n(ring.WeightRow(RingRow(y)), width, level.WeightRow(y));
}

// Adds the band of the two finest rows that row `y` of the next level is made of. They lie between
// its rows y - 1 and y + 1: fine row 2y is at y - 1/4 there and row 2y + 1 at y + 1/4 if the
// height doubles, and where it doubles less one, rows lie below that by up to half a row more.
void BlendRows(const FrameWarp& warp, int y, int nextHeight, const ExpansionColumns& columns,
               RowMemory& memory, Level& sums) {
  const int end = std::min(2 * y + 2, warp.height);
  for (int fineY = 2 * y; fineY < end; ++fineY) {
    const ExpansionPosition place = LocateInCoarser(fineY, warp.height, nextHeight);
    UpsampleRgb(memory.coarse.RgbRow(RingRow(place.low)), memory.coarse.RgbRow(RingRow(place.high)),
                place.fraction, columns, memory.expansion.data());
    const int row = RingRow(fineY);
    AccumulateBandRow(memory.fine.RgbRow(row), memory.expansion.data(), memory.fine.WeightRow(row),
                      warp.width, sums.RgbRow(fineY), sums.WeightRow(fineY));
  }
}

}  // namespace

RowMemory::RowMemory(int width)
    : warp(width),
      fine(width, kRingRows),
      coarse((width + 1) / 2, kRingRows),
      expansion(3 * static_cast<std::size_t>(width)) {}

void BlendFinestLevel(const FrameWarp& warp, const ExpansionColumns& columns, RowMemory& memory,
                      Level& next, Level& sums, int firstRow, int lastRow) {
  memory.warp.Begin(warp);
  const int begin = std::max(firstRow - 1, 0);
  const int end = std::min(lastRow + 1, next.height);
  for (int y = begin; y < end; ++y) {
    MakeRow(warp, y, memory);
    if (y >= firstRow && y < lastRow) {
      StoreRow(memory.coarse, y, next);
    }
    // Row y is the last one that the band behind row y - 1 needs.
    if (y > firstRow) {
      BlendRows(warp, y - 1, next.height, columns, memory, sums);
    }
  }
  if (end == lastRow) {
    BlendRows(warp, lastRow - 1, next.height, columns, memory, sums);
  }
}

void BlendOnlyLevel(const FrameWarp& warp, RowMemory& memory, Level& sums, int firstRow,
                    int lastRow) {
  memory.warp.Begin(warp);
  float* const rgb = memory.fine.RgbRow(0);
  float* const weight = memory.fine.WeightRow(0);
  for (int y = firstRow; y < lastRow; ++y) {
    WarpFrameRow(warp, y, memory.warp, rgb, weight);
    AccumulateTopRow(rgb, weight, warp.width, sums.RgbRow(y), sums.WeightRow(y));
  }
}

}  // namespace ostrel_native

#include "edof/fusion.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "edof/add_array.h"
#include "edof/finest_level.h"
#include "edof/fusion_rows.h"
#include "edof/parallel_rows.h"
#include "edof/pyramid.h"
#include "edof/total_weight.h"

namespace ostrel_native {

namespace {

constexpr int kMinSize = 1;
constexpr int kMaxSize = 16384;

using AddArray = void (*)(float* target, const float* source, std::size_t count);

// The memory of the threads, made before any of them starts: row bodies allocate nothing.
struct RowMemories {
  RowMemories(int width, std::size_t count) {
    memories.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      memories.emplace_back(width);
    }
  }

  // To be called before each stage, when no thread runs.
  void Release() { taken.store(0, std::memory_order_relaxed); }

  // One for each part of a stage.
  RowMemory& Take() { return memories[taken.fetch_add(1, std::memory_order_relaxed)]; }

  std::vector<RowMemory> memories;
  // Written by the calling thread between stages and by every thread of a stage; all that a thread
  // needs is a number of its own, and starting and joining threads orders everything else.
  std::atomic<std::size_t> taken{0};
};

// One fusion from its first stage to its last. The memory grows with the image, not with the
// stack: the pyramid of one frame takes the place of that of the frame before.
struct Fusion {
  Fusion(int outputWidth, int outputHeight, unsigned threads);

  void SumWeights(const std::vector<FieldView>& fields, const std::vector<const float*>& weights);
  void BlendFrame(const FrameWarp& warp);
  std::vector<std::uint8_t> Collapse(AddArray addArray);

  // Adds the expanded level below to row `y` of level `l`, which is thereby done.
  void FinishRow(std::size_t l, int y, AddArray addArray, RowMemory& memory);

  int width;
  int height;
  unsigned maxThreads;
  std::vector<Level> sums;                // a level each; after the collapse, the image itself
  std::vector<Level> frame;               // the coarser levels of one frame: level l is at l - 1
  std::vector<ExpansionColumns> columns;  // from level l + 1 to level l
  FloatBuffer totalWeight;                // one an output pixel
  RowMemories memories;
};

Fusion::Fusion(int outputWidth, int outputHeight, unsigned threads)
    : width(outputWidth),
      height(outputHeight),
      maxThreads(threads),
      totalWeight(static_cast<std::size_t>(outputWidth) * static_cast<std::size_t>(outputHeight)),
      memories(outputWidth, std::clamp(threads, 1U, static_cast<unsigned>(outputHeight))) {
  const std::vector<std::pair<int, int>> sizes = LevelSizes(width, height);
  sums.reserve(sizes.size());
  frame.reserve(sizes.size());
  columns.reserve(sizes.size());
  for (std::size_t l = 0; l < sizes.size(); ++l) {
    sums.emplace_back(sizes[l].first, sizes[l].second);
    if (l > 0) {
      frame.emplace_back(sizes[l].first, sizes[l].second);
      columns.emplace_back(sizes[l].first, sizes[l - 1].first);
    }
  }
  for (Level& level : sums) {
    ParallelRows(level.height, maxThreads, [&level](int firstRow, int lastRow) {
      std::fill(level.RgbRow(firstRow), level.RgbRow(lastRow), 0.0F);
      std::fill(level.WeightRow(firstRow), level.WeightRow(lastRow), 0.0F);
    });
  }
}

void Fusion::SumWeights(const std::vector<FieldView>& fields,
                        const std::vector<const float*>& weights) {
  memories.Release();
  ParallelRows(height, maxThreads, [this, &fields, &weights](int firstRow, int lastRow) {
    WarpMemory& memory = memories.Take().warp;
    AccumulateTotalWeight(fields, weights, height, memory.columns, memory.weight,
                          totalWeight.data(), firstRow, lastRow);
  });
}

void Fusion::BlendFrame(const FrameWarp& warp) {
  memories.Release();
  if (frame.empty()) {
    ParallelRows(height, maxThreads, [this, &warp](int firstRow, int lastRow) {
      BlendOnlyLevel(warp, memories.Take(), sums[0], firstRow, lastRow);
    });
    return;
  }
  ParallelRows(frame[0].height, maxThreads, [this, &warp](int firstRow, int lastRow) {
    BlendFinestLevel(warp, columns[0], memories.Take(), frame[0], sums[0], firstRow, lastRow);
  });
  for (std::size_t l = 1; l < frame.size(); ++l) {
    Downsample(frame[l - 1], frame[l], maxThreads);
  }
  for (std::size_t l = 1; l < frame.size(); ++l) {
    memories.Release();
    ParallelRows(frame[l - 1].height, maxThreads, [this, l](int firstRow, int lastRow) {
      AccumulateBand(frame[l - 1], frame[l], columns[l], memories.Take().expansion.data(), sums[l],
                     firstRow, lastRow);
    });
  }
  ParallelRows(frame.back().height, maxThreads, [this](int firstRow, int lastRow) {
    AccumulateTop(frame.back(), sums.back(), firstRow, lastRow);
  });
}

void Fusion::FinishRow(std::size_t l, int y, AddArray addArray, RowMemory& memory) {
  NormalizeLevelRow(sums[l].WeightRow(y), sums[l].width, sums[l].RgbRow(y));
  if (l + 1 < sums.size()) {
    UpsampleRgbRow(sums[l + 1], y, sums[l].height, columns[l], memory.expansion.data());
    addArray(sums[l].RgbRow(y), memory.expansion.data(),
             3 * static_cast<std::size_t>(sums[l].width));
  }
}

std::vector<std::uint8_t> Fusion::Collapse(AddArray addArray) {
  for (std::size_t l = sums.size() - 1; l > 0; --l) {
    memories.Release();
    ParallelRows(sums[l].height, maxThreads, [this, l, addArray](int firstRow, int lastRow) {
      RowMemory& memory = memories.Take();
      for (int y = firstRow; y < lastRow; ++y) {
        FinishRow(l, y, addArray, memory);
      }
    });
  }
  std::vector<std::uint8_t> rgba(4 * totalWeight.size());
  memories.Release();
  ParallelRows(height, maxThreads, [this, addArray, &rgba](int firstRow, int lastRow) {
    RowMemory& memory = memories.Take();
    for (int y = firstRow; y < lastRow; ++y) {
      FinishRow(0, y, addArray, memory);
      PackRgbaRow(sums[0].RgbRow(y), width, rgba.data() + 4 * sums[0].RowOffset(y));
    }
  });
  return rgba;
}

}  // namespace

Level::Level(std::int32_t levelWidth, std::int32_t levelHeight)
    : width(levelWidth),
      height(levelHeight),
      rgb(3 * static_cast<std::size_t>(CheckedPixels(levelWidth, levelHeight))),
      weight(rgb.size() / 3) {}

std::uint64_t CheckedPixels(int width, int height) {
  if (width < kMinSize || width > kMaxSize || height < kMinSize || height > kMaxSize) {
    throw std::runtime_error("Native EDOF dimensions are invalid");
  }
  return static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
}

std::vector<std::uint8_t> Fuse(int width, int height, int referenceIndex,
                               const std::vector<FrameView>& frames,
                               const std::vector<FieldView>& fields,
                               const std::vector<const float*>& weights, unsigned maxThreads,
                               const std::string& simd) {
  CheckedPixels(width, height);
  Fusion fusion(width, height, maxThreads);
  fusion.SumWeights(fields, weights);
  const auto reference = static_cast<std::size_t>(referenceIndex);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (fields[i].accepted) {
      fusion.BlendFrame({frames[i], fields[i], weights[i], frames[reference].rgba,
                         fusion.totalWeight.data(), i == reference ? 1.0F : 0.0F, width, height});
    }
  }
  return fusion.Collapse(simd == "avx2" ? AddArrayAvx2 : AddArraySse2);
}

}  // namespace ostrel_native

#include "simulator/specimen_view.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "simulator/pixel_mix.h"

namespace ostrel_simulator {

namespace {

constexpr int kFractionBits = 16;
constexpr std::int64_t kHalfTexel = 1 << (kFractionBits - 1);
constexpr std::int64_t kWidthFixed = std::int64_t{kSpecimenWidth} << kFractionBits;
constexpr std::int64_t kHeightFixed = std::int64_t{kSpecimenHeight} << kFractionBits;

// Heights are looked up for every eighth pixel of a row and lie on lines in between; four pixels
// at a time get the same blur. Both begin at multiples, so that no pixel depends on what is
// painted with it.
constexpr int kBlock = 8;
constexpr int kGroup = 4;

constexpr int kShifts = kLayers.back().shift + 1;

// Around the torus.
std::int64_t Wrap(std::int64_t position, std::int64_t size) {
  const std::int64_t rest = position % size;
  return rest < 0 ? rest + size : rest;
}

// The coordinate of a point of the specimen in a layer, in 1/65536 of its pixels: the centre of
// pixel i lies at texel (i + 0.5) * 2^shift - 0.5.
std::int64_t InLayer(std::int64_t position, int shift) {
  return ((position + kHalfTexel) >> shift) - kHalfTexel;
}

unsigned MixWeightAt(std::int64_t position) {
  return static_cast<unsigned>(position >> (kFractionBits - kMixBits)) & (kMixOne - 1);
}

// What all rows of a part of a view have in common.
struct ColumnPlan {
  const SpecimenView& view;
  std::int64_t first;  ///< pixel of the view, the beginning of a block
  int blocks;
  /// For each layer shift and pixel: its place in the layer's line, whose first pixel is
  /// `lineStart`, and how far it lies towards the next.
  std::array<std::vector<SamplePoint>, kShifts> points;
  std::array<std::int64_t, kShifts> lineStart;

  ColumnPlan(const SpecimenView& planView, std::int64_t left, int width)
      : view(planView), first(left & ~std::int64_t{kBlock - 1}) {
    blocks = static_cast<int>((left + width - first + kBlock - 1) / kBlock);
    for (int shift = 0; shift < kShifts; ++shift) {
      auto& shiftPoints = points[static_cast<std::size_t>(shift)];
      auto& start = lineStart[static_cast<std::size_t>(shift)];
      start = InLayer(At(0), shift) >> kFractionBits;
      shiftPoints.reserve(static_cast<std::size_t>(blocks) * kBlock);
      for (int column = 0; column < blocks * kBlock; ++column) {
        const std::int64_t position = InLayer(At(column), shift);
        shiftPoints.push_back({static_cast<std::uint16_t>((position >> kFractionBits) - start),
                               static_cast<std::uint16_t>(MixWeightAt(position))});
      }
    }
  }

  // In 1/65536 texel, not wrapped.
  std::int64_t At(int column) const { return kWidthFixed / 2 + (first + column) * view.step; }
};

// The groups of a row that are mixed from a layer; none where `last` is below `first`.
struct GroupRange {
  int first;
  int last;
};

// Paints the rows of a part of a view, one after the other.
struct RowPainter {
  const ColumnPlan& plan;
  std::vector<std::uint16_t> mixes;  ///< layer lookup of each group
  std::array<GroupRange, kLayers.size()> ranges;
  /// Each layer between two of its rows, as far as the row needs it.
  std::array<std::vector<std::uint8_t>, kLayers.size()> lines;

  explicit RowPainter(const ColumnPlan& rowPlan) : plan(rowPlan) {
    mixes.resize(static_cast<std::size_t>(plan.blocks) * (kBlock / kGroup));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const auto& points = plan.points[static_cast<std::size_t>(kLayers[i].shift)];
      lines[i].resize((std::size_t{points.back().index} + 2) * 4);
    }
  }

  // Which layers each group of the row is mixed from.
  void FindBlur(std::int64_t v) {
    const HeightField& heights = plan.view.specimen.heights;
    const auto height = [&](int column) {
      return heights.At(static_cast<std::uint32_t>(Wrap(plan.At(column), kWidthFixed)),
                        static_cast<std::uint32_t>(v));
    };
    const int focus = plan.view.optics.focus * kHeightUnit;
    ranges.fill({1, 0});
    int next = height(0);
    for (int block = 0; block < plan.blocks; ++block) {
      const int here = next;
      next = height((block + 1) * kBlock);
      // The middles of the two groups of a block.
      SetGroup(2 * block, std::abs(here + (next - here) * 3 / 16 - focus));
      SetGroup(2 * block + 1, std::abs(here + (next - here) * 11 / 16 - focus));
    }
  }

  void SetGroup(int group, int distance) {
    const std::uint16_t mix = plan.view.lookup[static_cast<std::size_t>(distance)];
    mixes[static_cast<std::size_t>(group)] = mix;
    const std::size_t sharp = mix / 256U;
    for (const std::size_t layer : {sharp, sharp + 1}) {
      GroupRange& range = ranges[layer];
      range.first = range.last < range.first ? group : range.first;
      range.last = group;
    }
  }

  // Mixes the part of a layer that the row needs out of the two rows that the row lies between.
  void FillLine(std::size_t index, std::int64_t v) {
    const BlurLayer& layer = plan.view.specimen.layers[index];
    const auto shift = static_cast<std::size_t>(kLayers[index].shift);
    const auto& points = plan.points[shift];
    const std::int64_t position = InLayer(v, kLayers[index].shift);
    const int row = static_cast<int>(position >> kFractionBits);
    const std::uint8_t* const above = layer.Row(row);
    const std::uint8_t* const below = layer.Row(row + 1);
    int at = points[static_cast<std::size_t>(ranges[index].first) * kGroup].index;
    const int end =
        points[static_cast<std::size_t>(ranges[index].last * kGroup + kGroup - 1)].index + 2;
    while (at < end) {
      const int source = static_cast<int>(Wrap(plan.lineStart[shift] + at, layer.width));
      const int count = std::min(end - at, layer.width - source);
      MixPixels(above + std::ptrdiff_t{source} * 4, below + std::ptrdiff_t{source} * 4, count,
                MixWeightAt(position), lines[index].data() + std::ptrdiff_t{at} * 4);
      at += count;
    }
  }

  // The RGB bytes of one group.
  void PaintGroup(int group, unsigned gain, std::uint8_t* target) const {
    const std::uint16_t mix = mixes[static_cast<std::size_t>(group)];
    const std::size_t sharp = mix / 256U;
    const auto source = [&](std::size_t layer) -> SampledLine {
      const auto& points = plan.points[static_cast<std::size_t>(kLayers[layer].shift)];
      return {lines[layer].data(), points.data() + std::ptrdiff_t{group} * kGroup};
    };
    PaintFourPixels(source(sharp), source(sharp + 1), (mix & 255U) >> (8 - kMixBits), gain, target);
  }

  // The pixels `from` to `to` of the row, counted from the plan's first.
  void PaintRow(std::int64_t y, int from, int to, std::uint8_t* target) {
    const std::int64_t v = Wrap(kHeightFixed / 2 + y * plan.view.step, kHeightFixed);
    FindBlur(v);
    for (std::size_t layer = 0; layer < lines.size(); ++layer) {
      if (ranges[layer].first <= ranges[layer].last) {
        FillLine(layer, v);
      }
    }
    const auto gain = static_cast<unsigned>(LightGain(plan.view.optics.light));
    for (int group = from / kGroup; group * kGroup < to; ++group) {
      const int begin = std::max(from - group * kGroup, 0);
      const int end = std::min(to - group * kGroup, kGroup);
      if (end - begin == kGroup) {
        PaintGroup(group, gain, target);
      } else {
        std::array<std::uint8_t, std::size_t{kGroup} * 3> whole;
        PaintGroup(group, gain, whole.data());
        std::memcpy(target, whole.data() + std::ptrdiff_t{begin} * 3,
                    static_cast<std::size_t>(end - begin) * 3);
      }
      target += std::ptrdiff_t{end - begin} * 3;
    }
  }
};

}  // namespace

SpecimenView::SpecimenView(const LayeredSpecimen& viewedSpecimen, const Optics& viewOptics)
    : specimen(viewedSpecimen),
      optics(viewOptics),
      step(PixelStep(viewOptics)),
      lookup(MakeLayerLookup(viewOptics)) {}

void SpecimenView::Paint(std::int64_t left, std::int64_t top, int width, int height,
                         std::ptrdiff_t bytesPerRow, std::uint8_t* target) const {
  if (width < 1 || height < 1) {
    return;
  }
  const ColumnPlan plan(*this, left, width);
  RowPainter painter(plan);
  const int from = static_cast<int>(left - plan.first);
  for (int y = 0; y < height; ++y) {
    painter.PaintRow(top + y, from, from + width, target + y * bytesPerRow);
  }
}

std::int64_t SpecimenView::PixelAt(std::int64_t stage) const {
  const std::int64_t doubled = 2 * stage + step;
  const std::int64_t quotient = doubled / (2 * step);
  return doubled % (2 * step) < 0 ? quotient - 1 : quotient;
}

}  // namespace ostrel_simulator

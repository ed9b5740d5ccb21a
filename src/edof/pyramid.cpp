#include "edof/pyramid.h"

#include <algorithm>
#include <cstddef>

#include "edof/parallel_rows.h"

namespace ostrel_native {

namespace {

constexpr std::size_t kMaxLevels = 4;
constexpr int kMinSplitWidth = 64;
constexpr int kMinSplitHeight = 36;

// The taps of one expanded value; the products are of 64 bits, and each sum is rounded to 32.
// The first product would be added to 0, which could only turn a negative zero into a positive
// one: no byte of a result shows that.
struct Taps {
  Taps(double fx, double fy)
      : topLeft((1.0 - fx) * (1.0 - fy)),
        topRight(fx * (1.0 - fy)),
        bottomLeft((1.0 - fx) * fy),
        bottomRight(fx * fy) {}

  float Sum(double a, double b, double c, double d) const {
    float sum = static_cast<float>(a * topLeft);
    sum = static_cast<float>(sum + b * topRight);
    sum = static_cast<float>(sum + c * bottomLeft);
    return static_cast<float>(sum + d * bottomRight);
  }

  double topLeft;
  double topRight;
  double bottomLeft;
  double bottomRight;
};

// Coarse columns that go through all taps together, so that the sums stay in the first-level cache.
constexpr int kDoubleStrip = 256;

// Column x of an exactly doubled width lies at (x + 0.5) / 2 - 0.5, which is exact: columns 2k + 1
// and 2k + 2 lie a quarter and three quarters of the way from coarse column k to k + 1. The first
// column lies before the first coarse one and takes its value, as its fraction is clamped to 0;
// the last has no neighbour but keeps its fraction of a quarter.
// One tap after the other: four roundings in a row would wait for each other, while the turns of a
// loop are independent.
void DoubleRow(const float* __restrict top, const float* __restrict bottom, double fraction,
               int sourceWidth, float* __restrict out) {
  const Taps quarter(0.25, fraction);
  const Taps threeQuarters(0.75, fraction);
  const int last = sourceWidth - 1;
  const int second = std::min(1, last);
  out[0] = Taps(0.0, fraction).Sum(top[0], top[second], bottom[0], bottom[second]);
  float near[kDoubleStrip];
  float far[kDoubleStrip];
  for (int begin = 0; begin < last; begin += kDoubleStrip) {
    const int count = std::min(kDoubleStrip, last - begin);
    const float* __restrict upper = top + begin;
    const float* __restrict lower = bottom + begin;
    float* __restrict target = out + 1 + std::ptrdiff_t{2} * begin;
    for (int k = 0; k < count; ++k) {
      const double value = upper[k];
      near[k] = static_cast<float>(value * quarter.topLeft);
      far[k] = static_cast<float>(value * threeQuarters.topLeft);
    }
    for (int k = 0; k < count; ++k) {
      const double value = upper[k + 1];
      near[k] = static_cast<float>(near[k] + value * quarter.topRight);
      far[k] = static_cast<float>(far[k] + value * threeQuarters.topRight);
    }
    for (int k = 0; k < count; ++k) {
      const double value = lower[k];
      near[k] = static_cast<float>(near[k] + value * quarter.bottomLeft);
      far[k] = static_cast<float>(far[k] + value * threeQuarters.bottomLeft);
    }
    for (std::ptrdiff_t k = 0; k < count; ++k) {
      const double value = lower[k + 1];
      target[2 * k] = static_cast<float>(near[k] + value * quarter.bottomRight);
      target[2 * k + 1] = static_cast<float>(far[k] + value * threeQuarters.bottomRight);
    }
  }
  out[2 * last + 1] = quarter.Sum(top[last], top[last], bottom[last], bottom[last]);
}

void ExpandRow(const float* top, const float* bottom, double fraction,
               const ExpansionColumns& columns, float* out) {
  for (std::size_t x = 0; x < columns.table.size(); ++x) {
    const ExpansionPosition& place = columns.table[x];
    out[x] = Taps(place.fraction, fraction)
                 .Sum(top[place.low], top[place.high], bottom[place.low], bottom[place.high]);
  }
}

}  // namespace

std::vector<std::pair<int, int>> LevelSizes(int width, int height) {
  std::vector<std::pair<int, int>> sizes{{width, height}};
  while (sizes.size() < kMaxLevels && sizes.back().first > kMinSplitWidth &&
         sizes.back().second > kMinSplitHeight) {
    const auto [lastWidth, lastHeight] = sizes.back();
    sizes.emplace_back((lastWidth + 1) / 2, (lastHeight + 1) / 2);
  }
  return sizes;
}

void HalveRows(const float* __restrict top, const float* __restrict bottom, int width,
               float* __restrict out) {
  const std::ptrdiff_t pairs = width / 2;
  // A quarter and a half are powers of two: multiplying by them is exactly dividing by 4 and 2.
  if (bottom != nullptr) {
    for (std::ptrdiff_t k = 0; k < pairs; ++k) {
      double sum = top[2 * k];
      sum += top[2 * k + 1];
      sum += bottom[2 * k];
      sum += bottom[2 * k + 1];
      out[k] = static_cast<float>(sum * 0.25);
    }
    if (width % 2 != 0) {
      const double sum = static_cast<double>(top[width - 1]) + bottom[width - 1];
      out[pairs] = static_cast<float>(sum * 0.5);
    }
  } else {
    for (std::ptrdiff_t k = 0; k < pairs; ++k) {
      const double sum = static_cast<double>(top[2 * k]) + top[2 * k + 1];
      out[k] = static_cast<float>(sum * 0.5);
    }
    if (width % 2 != 0) {
      out[pairs] = top[width - 1];
    }
  }
}

void HalveLevelRows(const Level& source, int topRow, int bottomRow, Level& target, int targetRow) {
  const bool whole = bottomRow >= 0;
  for (int channel = 0; channel < 3; ++channel) {
    const std::ptrdiff_t offset = PlaneOffset(channel, source.width);
    HalveRows(source.RgbRow(topRow) + offset, whole ? source.RgbRow(bottomRow) + offset : nullptr,
              source.width, target.RgbRow(targetRow) + PlaneOffset(channel, target.width));
  }
  HalveRows(source.WeightRow(topRow), whole ? source.WeightRow(bottomRow) : nullptr, source.width,
            target.WeightRow(targetRow));
}

void Downsample(const Level& source, Level& target, unsigned maxThreads) {
  ParallelRows(target.height, maxThreads, [&source, &target](int firstRow, int lastRow) {
    for (int y = firstRow; y < lastRow; ++y) {
      HalveLevelRows(source, 2 * y, 2 * y + 1 < source.height ? 2 * y + 1 : -1, target, y);
    }
  });
}

ExpansionPosition LocateInCoarser(int index, int targetSize, int sourceSize) {
  const double position = (index + 0.5) * sourceSize / targetSize - 0.5;
  // Cutting differs from flooring below 0 only, where both give no more than 0.
  const int low = std::min(static_cast<int>(position), sourceSize - 1);
  ExpansionPosition result{0, 1, position};
  if (low > 0) {
    result = {low, low + 1, position - low};
  }
  result.fraction = std::clamp(result.fraction, 0.0, 1.0);
  result.high = std::min(result.high, sourceSize - 1);
  return result;
}

ExpansionColumns::ExpansionColumns(int coarseWidth, int fineWidth)
    : sourceWidth(coarseWidth), targetWidth(fineWidth), doubles(fineWidth == 2 * coarseWidth) {
  if (!doubles) {
    table.reserve(static_cast<std::size_t>(fineWidth));
    for (int x = 0; x < fineWidth; ++x) {
      table.push_back(LocateInCoarser(x, fineWidth, coarseWidth));
    }
  }
}

void UpsampleRgb(const float* top, const float* bottom, double fraction,
                 const ExpansionColumns& columns, float* out) {
  for (int channel = 0; channel < 3; ++channel) {
    const float* const topPlane = top + PlaneOffset(channel, columns.sourceWidth);
    const float* const bottomPlane = bottom + PlaneOffset(channel, columns.sourceWidth);
    float* const outPlane = out + PlaneOffset(channel, columns.targetWidth);
    if (columns.doubles) {
      DoubleRow(topPlane, bottomPlane, fraction, columns.sourceWidth, outPlane);
    } else {
      ExpandRow(topPlane, bottomPlane, fraction, columns, outPlane);
    }
  }
}

void UpsampleRgbRow(const Level& source, int y, int targetHeight, const ExpansionColumns& columns,
                    float* out) {
  const ExpansionPosition place = LocateInCoarser(y, targetHeight, source.height);
  UpsampleRgb(source.RgbRow(place.low), source.RgbRow(place.high), place.fraction, columns, out);
}

}  // namespace ostrel_native

#include "edof/pyramid.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

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

// `value` rounded to the 24 bits that a float has, without becoming one: converting there and back
// takes longer. Adding a power of two with 29 bits more pushes the bits out that are too many, and
// half of that power on top keeps the sum within its binade; subtracting both is exact. Values
// below the normal floats keep more bits than a float would: they are far from making a byte
// differ.
double RoundedToFloat(double value) {
  constexpr std::uint64_t kExponent = 0x7ff0000000000000U;
  constexpr std::uint64_t kTimesThreeHalvesOfTwoToThe29 = 0x01d8000000000000U;
  const std::uint64_t power = std::bit_cast<std::uint64_t>(value) & kExponent;
  const auto large = std::bit_cast<double>(power + kTimesThreeHalvesOfTwoToThe29);
  return (value + large) - large;
}

// Whether a fraction is 0, 1/4, 1/2 or 3/4: its taps are then sixteenths.
bool IsQuarters(double fraction) {
  return fraction == 0.0 || fraction == 0.25 || fraction == 0.5 || fraction == 0.75;
}

// Column x of an exactly doubled width lies at (x + 0.5) / 2 - 0.5, which is exact: columns 2k + 1
// and 2k + 2 lie a quarter and three quarters of the way from coarse column k to k + 1. The first
// column lies before the first coarse one and takes its value, as its fraction is clamped to 0;
// the last has no neighbour but keeps its fraction of a quarter.
// `fraction` is of quarters, so that the first product is one of floats, rounded once.
void DoubleRow(const float* __restrict top, const float* __restrict bottom, double fraction,
               int sourceWidth, float* __restrict out) {
  const Taps near(0.25, fraction);
  const Taps far(0.75, fraction);
  const int last = sourceWidth - 1;
  const int second = std::min(1, last);
  out[0] = Taps(0.0, fraction).Sum(top[0], top[second], bottom[0], bottom[second]);
  const auto nearTopLeft = static_cast<float>(near.topLeft);
  const auto farTopLeft = static_cast<float>(far.topLeft);
  float* __restrict target = out + 1;
  for (std::ptrdiff_t k = 0; k < last; ++k) {
    const double topRight = top[k + 1];
    const double bottomLeft = bottom[k];
    const double bottomRight = bottom[k + 1];
    double nearSum = top[k] * nearTopLeft;
    double farSum = top[k] * farTopLeft;
    nearSum = RoundedToFloat(nearSum + topRight * near.topRight);
    farSum = RoundedToFloat(farSum + topRight * far.topRight);
    nearSum = RoundedToFloat(nearSum + bottomLeft * near.bottomLeft);
    farSum = RoundedToFloat(farSum + bottomLeft * far.bottomLeft);
    target[2 * k] = static_cast<float>(nearSum + bottomRight * near.bottomRight);
    target[2 * k + 1] = static_cast<float>(farSum + bottomRight * far.bottomRight);
  }
  out[2 * last + 1] = near.Sum(top[last], top[last], bottom[last], bottom[last]);
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
  table.reserve(static_cast<std::size_t>(fineWidth));
  for (int x = 0; x < fineWidth; ++x) {
    table.push_back(LocateInCoarser(x, fineWidth, coarseWidth));
  }
}

void UpsampleRgb(const float* top, const float* bottom, double fraction,
                 const ExpansionColumns& columns, float* out) {
  for (int channel = 0; channel < 3; ++channel) {
    const float* const topPlane = top + PlaneOffset(channel, columns.sourceWidth);
    const float* const bottomPlane = bottom + PlaneOffset(channel, columns.sourceWidth);
    float* const outPlane = out + PlaneOffset(channel, columns.targetWidth);
    if (columns.doubles && IsQuarters(fraction)) {
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

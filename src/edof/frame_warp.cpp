#include "edof/frame_warp.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

#include "edof/total_weight.h"

namespace ostrel_native {

namespace {

// Pixels that go through all steps together. Each step is one loop over arrays of this length:
// the compiler vectorises it, and the arrays stay in the first-level cache.
constexpr int kStrip = 64;

// The threshold is the 32-bit float next to 0.02; confidences are compared in 64 bits.
constexpr double kMinConfidence = 0.02F;

struct WarpStrip {
  double confidence[kStrip];
  double usable[kStrip];  // 1 or 0; as wide as what is compared, else the loop isn't vectorised
  double sourceX[kStrip];
  double sourceY[kStrip];
  // The four pixels around the source position: their weights, where they are, what they hold.
  double weight00[kStrip];
  double weight10[kStrip];
  double weight01[kStrip];
  double weight11[kStrip];
  std::int32_t index[kStrip];  // of the upper left one
  std::int32_t right[kStrip];  // pixels from a left one to its right neighbour
  std::int32_t below[kStrip];  // pixels from an upper one to its lower neighbour
  std::int32_t pixel00[kStrip];
  std::int32_t pixel10[kStrip];
  std::int32_t pixel01[kStrip];
  std::int32_t pixel11[kStrip];
};

// A map between the two lines at a row: both at the strip's first column, and where between.
struct RowOfMap {
  const double* top;
  const double* bottom;
  double fraction;
};

void NormaliseWeights(const RowOfMap& map, const float* __restrict total,
                      float weightWhereStackVanishes, int count, float* __restrict weight) {
  const double* const top = map.top;
  const double* const bottom = map.bottom;
  const double fraction = map.fraction;
  // Dividing is a loop of its own: what a choice might skip is not vectorised.
  float quotient[kStrip];
  for (int i = 0; i < count; ++i) {
    quotient[i] = SampledWeight(top[i], bottom[i], fraction) / total[i];
  }
  for (int i = 0; i < count; ++i) {
    weight[i] = total[i] > kVanishingWeight ? quotient[i] : weightWhereStackVanishes;
  }
}

void Interpolate(const RowOfMap& map, int count, double* __restrict out) {
  const double* const top = map.top;
  const double* const bottom = map.bottom;
  const double fraction = map.fraction;
  for (int i = 0; i < count; ++i) {
    out[i] = top[i] * (1.0 - fraction) + bottom[i] * fraction;
  }
}

// From map coordinates to frame pixels, about the image centre.
void ConvertToSource(double size, double mapSize, double scale, int count,
                     double* __restrict position) {
  const double centre = (size - 1.0) * 0.5;
  for (int i = 0; i < count; ++i) {
    position[i] = ((position[i] + 0.5) * size / mapSize - 0.5 - centre) * scale + centre;
  }
}

// Sets which pixels of the strip the frame can deliver, moves the others to a position that can
// be read, and gives the number of the deliverable ones.
//
// These six comparisons also stand for the tests whether each corner of a cell, and what is
// interpolated between them, is finite. Say a to d are the corners: the interpolation is
// ((b - a) * tx + a) * (1 - ty) + ((d - c) * tx + c) * ty with tx and ty from 0 to below 1.
// - a or c is not finite: b - a is NaN or the opposite infinity; times 0 that is NaN, and times
//   more it meets a: NaN.
// - b or d is not finite, a and c are: b - a is NaN or an infinity, and no finite number comes
//   back from that: 1 - ty is above 0, and times ty = 0 is NaN.
// - All are finite, b - a overflows: as if b were not finite.
// So the result is NaN or an infinity, which the conversion to frame pixels keeps, as the scale
// is finite and above 0; both fail the range of the source position. A confidence that is not
// finite fails the threshold or, if it is the positive infinity, the upper bound.
int FindUsable(double lastX, double lastY, int count, WarpStrip& strip) {
  double* __restrict sourceX = strip.sourceX;
  double* __restrict sourceY = strip.sourceY;
  double* __restrict usable = strip.usable;
  const double* __restrict confidence = strip.confidence;
  for (int i = 0; i < count; ++i) {
    const double x = sourceX[i];
    const double y = sourceY[i];
    const double sure = confidence[i];
    const bool deliverable = (sure >= kMinConfidence) &
                             (sure <= std::numeric_limits<double>::max()) & (x >= 0.0) &
                             (x <= lastX) & (y >= 0.0) & (y <= lastY);
    usable[i] = deliverable ? 1.0 : 0.0;
    sourceX[i] = deliverable ? x : 0.0;
    sourceY[i] = deliverable ? y : 0.0;
  }
  int usableCount = 0;
  for (int i = 0; i < count; ++i) {
    usableCount += static_cast<int>(usable[i]);
  }
  return usableCount;
}

void FindSourcePixels(int width, int height, int count, WarpStrip& strip) {
  const double* __restrict sourceX = strip.sourceX;
  const double* __restrict sourceY = strip.sourceY;
  double* __restrict weight00 = strip.weight00;
  double* __restrict weight10 = strip.weight10;
  double* __restrict weight01 = strip.weight01;
  double* __restrict weight11 = strip.weight11;
  std::int32_t* __restrict index = strip.index;
  std::int32_t* __restrict right = strip.right;
  std::int32_t* __restrict below = strip.below;
  const double rowPixels = width;
  for (int i = 0; i < count; ++i) {
    // Cutting is flooring: the positions are not negative.
    const int x0 = static_cast<int>(sourceX[i]);
    const int y0 = static_cast<int>(sourceY[i]);
    const double fx = sourceX[i] - x0;
    const double fy = sourceY[i] - y0;
    weight00[i] = (1.0 - fx) * (1.0 - fy);
    weight10[i] = fx * (1.0 - fy);
    weight01[i] = (1.0 - fx) * fy;
    weight11[i] = fx * fy;
    // Below 2^28, so exact in 64-bit float, which has the vector product that int32 lacks.
    index[i] = static_cast<std::int32_t>(y0 * rowPixels + x0);
    right[i] = x0 < width - 1 ? 1 : 0;
    below[i] = y0 < height - 1 ? width : 0;
  }
}

const std::uint8_t* PixelAt(const std::uint8_t* row, int x) {
  return row + std::ptrdiff_t{4} * x;
}

std::int32_t LoadPixel(const std::uint8_t* rgba, std::size_t index) {
  std::int32_t pixel;
  std::memcpy(&pixel, rgba + 4 * index, sizeof pixel);
  return pixel;
}

void GatherSourcePixels(const std::uint8_t* rgba, int count, WarpStrip& strip) {
  for (int i = 0; i < count; ++i) {
    const auto upper = static_cast<std::size_t>(strip.index[i]);
    const auto lower = upper + static_cast<std::size_t>(strip.below[i]);
    const auto right = static_cast<std::size_t>(strip.right[i]);
    strip.pixel00[i] = LoadPixel(rgba, upper);
    strip.pixel10[i] = LoadPixel(rgba, upper + right);
    strip.pixel01[i] = LoadPixel(rgba, lower);
    strip.pixel11[i] = LoadPixel(rgba, lower + right);
  }
}

// Byte `kChannel` of a pixel's little-endian word.
template <int kChannel>
double ChannelOf(std::int32_t pixel) {
  return (pixel >> (8 * kChannel)) & 0xff;
}

// Adds one of the four pixels to the sums of R, G and B: every product is of 64 bits, every sum is
// rounded to 32. One pixel after the other, since four roundings in a row would wait for each
// other; this way a loop's turns are independent. The first product would be added to 0, which
// changes nothing, as it is not negative.
template <bool kFirst>
void AddTap(const std::int32_t* __restrict pixels, const double* __restrict weights, int count,
            float* __restrict red, float* __restrict green, float* __restrict blue) {
  for (int i = 0; i < count; ++i) {
    const std::int32_t pixel = pixels[i];
    const double weight = weights[i];
    const double redPart = ChannelOf<0>(pixel) * weight;
    const double greenPart = ChannelOf<1>(pixel) * weight;
    const double bluePart = ChannelOf<2>(pixel) * weight;
    red[i] = static_cast<float>(kFirst ? redPart : red[i] + redPart);
    green[i] = static_cast<float>(kFirst ? greenPart : green[i] + greenPart);
    blue[i] = static_cast<float>(kFirst ? bluePart : blue[i] + bluePart);
  }
}

void SampleFrame(const WarpStrip& strip, int count, int width, float* rgb) {
  float* const green = rgb + PlaneOffset(1, width);
  float* const blue = rgb + PlaneOffset(2, width);
  AddTap<true>(strip.pixel00, strip.weight00, count, rgb, green, blue);
  AddTap<false>(strip.pixel10, strip.weight10, count, rgb, green, blue);
  AddTap<false>(strip.pixel01, strip.weight01, count, rgb, green, blue);
  AddTap<false>(strip.pixel11, strip.weight11, count, rgb, green, blue);
}

template <int kChannel>
void WidenChannel(const std::uint8_t* rgba, int count, float* __restrict out) {
  for (int i = 0; i < count; ++i) {
    out[i] = rgba[4 * i + kChannel];
  }
}

// The reference frame's colours, and weight 0: a hole then counts for nothing, while what is
// averaged over it regardless of weight sees a plausible colour instead of black.
void FallBack(const std::uint8_t* reference, int count, int width, float* rgb, float* weight) {
  WidenChannel<0>(reference, count, rgb);
  WidenChannel<1>(reference, count, rgb + PlaneOffset(1, width));
  WidenChannel<2>(reference, count, rgb + PlaneOffset(2, width));
  std::fill(weight, weight + count, 0.0F);
}

void FallBackWhereUnusable(const WarpStrip& strip, const std::uint8_t* reference, int count,
                           int width, float* rgb, float* weight) {
  for (int i = 0; i < count; ++i) {
    if (strip.usable[i] == 0.0) {
      FallBack(PixelAt(reference, i), 1, width, rgb + i, weight + i);
    }
  }
}

}  // namespace

WarpMemory::WarpMemory(int width)
    : columns(width), weight(width), x(width), y(width), confidence(width) {}

void WarpMemory::Begin(const FrameWarp& warp) {
  columns.Lay(warp.field.mapWidth);
  weight.Forget();
  x.Forget();
  y.Forget();
  confidence.Forget();
}

void WarpFrameRow(const FrameWarp& warp, int y, WarpMemory& memory, float* rgb, float* weight) {
  const int width = warp.width;
  const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
  const std::uint8_t* const reference = warp.reference + 4 * row;
  const MapPosition place = LocateInMap(y, warp.height, warp.field.mapHeight);
  const MapColumns& columns = memory.columns;
  if (!place.inside || columns.insideBegin == columns.insideEnd) {
    FallBack(reference, width, width, rgb, weight);
    return;
  }
  const auto rowOf = [&columns, &place](MapLines& lines, const float* map) {
    return RowOfMap{lines.Line(map, columns, place.low), lines.Line(map, columns, place.high),
                    place.fraction};
  };
  const auto from = [](const RowOfMap& map, int column) {
    return RowOfMap{map.top + column, map.bottom + column, map.fraction};
  };
  const RowOfMap weightRow = rowOf(memory.weight, warp.weights);
  const RowOfMap xRow = rowOf(memory.x, warp.field.x);
  const RowOfMap yRow = rowOf(memory.y, warp.field.y);
  const RowOfMap confidenceRow = rowOf(memory.confidence, warp.field.confidence);
  const double scale = warp.frame.sourcePixelsPerOutputPixel;

  FallBack(reference, columns.insideBegin, width, rgb, weight);
  WarpStrip strip;
  for (int x = columns.insideBegin; x < columns.insideEnd; x += kStrip) {
    const int count = std::min(kStrip, columns.insideEnd - x);
    NormaliseWeights(from(weightRow, x), warp.totalWeight + row + x, warp.weightWhereStackVanishes,
                     count, weight + x);
    Interpolate(from(xRow, x), count, strip.sourceX);
    Interpolate(from(yRow, x), count, strip.sourceY);
    Interpolate(from(confidenceRow, x), count, strip.confidence);
    ConvertToSource(width, warp.field.mapWidth, scale, count, strip.sourceX);
    ConvertToSource(warp.height, warp.field.mapHeight, scale, count, strip.sourceY);
    const int usable = FindUsable(width - 1, warp.height - 1, count, strip);
    FindSourcePixels(width, warp.height, count, strip);
    GatherSourcePixels(warp.frame.rgba, count, strip);
    SampleFrame(strip, count, width, rgb + x);
    if (usable < count) {
      FallBackWhereUnusable(strip, PixelAt(reference, x), count, width, rgb + x, weight + x);
    }
  }
  const int end = columns.insideEnd;
  FallBack(PixelAt(reference, end), width - end, width, rgb + end, weight + end);
}

}  // namespace ostrel_native

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
  double usable[kStrip];  // 1 or 0; as wide as what is compared, else the loop isn't vectorised
  std::int32_t index[kStrip];  // of the upper left of the four pixels around the source position
  // The four pixels: their weights, what they hold.
  double weight00[kStrip];
  double weight10[kStrip];
  double weight01[kStrip];
  double weight11[kStrip];
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

// How positions of one direction, columns or rows, go from a map to the frame.
struct Axis {
  Axis(int frameSize, int fieldSize, double frameScale)
      : size(frameSize),
        mapSize(fieldSize),
        centre((size - 1.0) * 0.5),
        scale(frameScale),
        last(size - 1.0),
        lastWithNext(std::max(frameSize - 2, 0)) {}

  // From map coordinates to frame pixels, about the image centre.
  double ToFrame(double position) const {
    return ((position + 0.5) * size / mapSize - 0.5 - centre) * scale + centre;
  }

  // The pixel at or before a position from 0 to `last`. At `last` it is the one before, so that
  // there is always a next pixel to read: the position then lies at 1 between the two instead of at
  // 0 beyond the last, and all sums get the same products, in the same order but for zeroes.
  int PixelBefore(double position) const {
    // Cutting is flooring: the position is not negative.
    const int pixel = static_cast<int>(position);
    return pixel - (pixel > lastWithNext ? 1 : 0);
  }

  double size;
  double mapSize;
  double centre;
  double scale;
  double last;       // the last pixel
  int lastWithNext;  // the last pixel that has a next one, or the only one
};

double Interpolate(double top, double bottom, double fraction) {
  return top * (1.0 - fraction) + bottom * fraction;
}

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

// Finds for each pixel of the strip where it lies in the frame, and whether the frame can deliver
// it; one that it can't is moved to a position that can be read. Gives the number of those.
//
// The six comparisons also stand for the tests whether each corner of a cell, and what is
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
int FindSources(const RowOfMap& xMap, const RowOfMap& yMap, const RowOfMap& confidenceMap,
                const Axis& columns, const Axis& rows, int count, WarpStrip& strip) {
  const double fraction = xMap.fraction;
  const double* __restrict xTop = xMap.top;
  const double* __restrict xBottom = xMap.bottom;
  const double* __restrict yTop = yMap.top;
  const double* __restrict yBottom = yMap.bottom;
  const double* __restrict confidenceTop = confidenceMap.top;
  const double* __restrict confidenceBottom = confidenceMap.bottom;
  double* __restrict usable = strip.usable;
  double* __restrict weight00 = strip.weight00;
  double* __restrict weight10 = strip.weight10;
  double* __restrict weight01 = strip.weight01;
  double* __restrict weight11 = strip.weight11;
  std::int32_t* __restrict index = strip.index;
  int unusableCount = 0;
  for (int i = 0; i < count; ++i) {
    const double x = columns.ToFrame(Interpolate(xTop[i], xBottom[i], fraction));
    const double y = rows.ToFrame(Interpolate(yTop[i], yBottom[i], fraction));
    const double sure = Interpolate(confidenceTop[i], confidenceBottom[i], fraction);
    const bool deliverable = (sure >= kMinConfidence) &
                             (sure <= std::numeric_limits<double>::max()) & (x >= 0.0) &
                             (x <= columns.last) & (y >= 0.0) & (y <= rows.last);
    usable[i] = deliverable ? 1.0 : 0.0;
    unusableCount += deliverable ? 0 : 1;
    const double frameX = deliverable ? x : 0.0;
    const double frameY = deliverable ? y : 0.0;
    const int x0 = columns.PixelBefore(frameX);
    const int y0 = rows.PixelBefore(frameY);
    const double fx = frameX - x0;
    const double fy = frameY - y0;
    weight00[i] = (1.0 - fx) * (1.0 - fy);
    weight10[i] = fx * (1.0 - fy);
    weight01[i] = (1.0 - fx) * fy;
    weight11[i] = fx * fy;
    // Below 2^28, so exact in 64-bit float, which has the vector product that int32 lacks.
    index[i] = static_cast<std::int32_t>(y0 * columns.size + x0);
  }
  return unusableCount;
}

const std::uint8_t* PixelAt(const std::uint8_t* row, int x) {
  return row + std::ptrdiff_t{4} * x;
}

std::int32_t LoadPixel(const std::uint8_t* rgba) {
  std::int32_t pixel;
  std::memcpy(&pixel, rgba, sizeof pixel);
  return pixel;
}

void GatherSourcePixels(const std::uint8_t* rgba, int width, int height, int count,
                        WarpStrip& strip) {
  const std::ptrdiff_t right = width > 1 ? 4 : 0;
  const std::ptrdiff_t below = height > 1 ? std::ptrdiff_t{4} * width : 0;
  for (int i = 0; i < count; ++i) {
    const std::uint8_t* const upper = PixelAt(rgba, strip.index[i]);
    const std::uint8_t* const lower = upper + below;
    strip.pixel00[i] = LoadPixel(upper);
    strip.pixel10[i] = LoadPixel(upper + right);
    strip.pixel01[i] = LoadPixel(lower);
    strip.pixel11[i] = LoadPixel(lower + right);
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
  const Axis xAxis(width, warp.field.mapWidth, scale);
  const Axis yAxis(warp.height, warp.field.mapHeight, scale);

  FallBack(reference, columns.insideBegin, width, rgb, weight);
  WarpStrip strip;
  for (int x = columns.insideBegin; x < columns.insideEnd; x += kStrip) {
    const int count = std::min(kStrip, columns.insideEnd - x);
    NormaliseWeights(from(weightRow, x), warp.totalWeight + row + x, warp.weightWhereStackVanishes,
                     count, weight + x);
    const int unusable = FindSources(from(xRow, x), from(yRow, x), from(confidenceRow, x), xAxis,
                                     yAxis, count, strip);
    GatherSourcePixels(warp.frame.rgba, width, warp.height, count, strip);
    SampleFrame(strip, count, width, rgb + x);
    if (unusable > 0) {
      FallBackWhereUnusable(strip, PixelAt(reference, x), count, width, rgb + x, weight + x);
    }
  }
  const int end = columns.insideEnd;
  FallBack(PixelAt(reference, end), width - end, width, rgb + end, weight + end);
}

}  // namespace ostrel_native

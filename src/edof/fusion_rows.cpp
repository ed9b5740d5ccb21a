#include "edof/fusion_rows.h"

#include <algorithm>
#include <cstring>

#include "edof/total_weight.h"

namespace ostrel_native {

namespace {

void AddWeights(const float* __restrict weight, int width, float* __restrict weightSum) {
  for (int x = 0; x < width; ++x) {
    weightSum[x] += weight[x];
  }
}

// Pixels that go through all steps of packing together, in arrays in the first-level cache.
constexpr int kPackStrip = 256;

// 2^63, from where a `long` has no number.
constexpr float kLongEnd = 9223372036854775808.0F;

// Each step is a loop with one choice: the compiler would thread a chain of choices into
// branches and leave the loop scalar.
void RoundToBytes(const float* __restrict values, int count, std::int32_t* __restrict bytes) {
  float clamped[kPackStrip];
  for (int i = 0; i < count; ++i) {
    const float value = values[i];
    clamped[i] = value < kLongEnd ? value : 0.0F;
  }
  for (int i = 0; i < count; ++i) {
    const float value = clamped[i];
    clamped[i] = value > 0.0F ? value : 0.0F;
  }
  for (int i = 0; i < count; ++i) {
    const float value = clamped[i];
    clamped[i] = value < 255.0F ? value : 255.0F;
  }
  // Between 0 and 255 cutting leaves an exact remainder, which alone decides on rounding.
  for (int i = 0; i < count; ++i) {
    const auto whole = static_cast<std::int32_t>(clamped[i]);
    bytes[i] = whole + (clamped[i] - static_cast<float>(whole) >= 0.5F ? 1 : 0);
  }
}

}  // namespace

void AccumulateBandRow(const float* rgb, const float* expansion, const float* __restrict weight,
                       int width, float* rgbSum, float* weightSum) {
  for (int channel = 0; channel < 3; ++channel) {
    const std::ptrdiff_t offset = PlaneOffset(channel, width);
    const float* __restrict fine = rgb + offset;
    const float* __restrict coarse = expansion + offset;
    float* __restrict sum = rgbSum + offset;
    for (int x = 0; x < width; ++x) {
      sum[x] += (fine[x] - coarse[x]) * weight[x];
    }
  }
  AddWeights(weight, width, weightSum);
}

void AccumulateTopRow(const float* rgb, const float* __restrict weight, int width, float* rgbSum,
                      float* weightSum) {
  for (int channel = 0; channel < 3; ++channel) {
    const float* __restrict colour = rgb + PlaneOffset(channel, width);
    float* __restrict sum = rgbSum + PlaneOffset(channel, width);
    for (int x = 0; x < width; ++x) {
      sum[x] += colour[x] * weight[x];
    }
  }
  AddWeights(weight, width, weightSum);
}

void AccumulateBand(const Level& level, const Level& coarser, const ExpansionColumns& columns,
                    float* expansion, Level& sums, int firstRow, int lastRow) {
  for (int y = firstRow; y < lastRow; ++y) {
    UpsampleRgbRow(coarser, y, level.height, columns, expansion);
    AccumulateBandRow(level.RgbRow(y), expansion, level.WeightRow(y), level.width, sums.RgbRow(y),
                      sums.WeightRow(y));
  }
}

void AccumulateTop(const Level& level, Level& sums, int firstRow, int lastRow) {
  for (int y = firstRow; y < lastRow; ++y) {
    AccumulateTopRow(level.RgbRow(y), level.WeightRow(y), level.width, sums.RgbRow(y),
                     sums.WeightRow(y));
  }
}

void NormalizeLevelRow(const float* __restrict weightSum, int width, float* rgbSum) {
  for (int channel = 0; channel < 3; ++channel) {
    float* __restrict sum = rgbSum + PlaneOffset(channel, width);
    for (int x = 0; x < width; ++x) {
      const float weight = weightSum[x];
      // Dividing by 1 is keeping; a NaN is not at most 1e-8 and so divides.
      const float divisor = kVanishingWeight >= weight ? 1.0F : weight;
      sum[x] /= divisor;
    }
  }
}

void PackRgbaRow(const float* rgb, int width, std::uint8_t* rgba) {
  std::int32_t red[kPackStrip];
  std::int32_t green[kPackStrip];
  std::int32_t blue[kPackStrip];
  std::uint32_t pixels[kPackStrip];
  for (int x = 0; x < width; x += kPackStrip) {
    const int count = std::min(kPackStrip, width - x);
    RoundToBytes(rgb + x, count, red);
    RoundToBytes(rgb + PlaneOffset(1, width) + x, count, green);
    RoundToBytes(rgb + PlaneOffset(2, width) + x, count, blue);
    for (int i = 0; i < count; ++i) {
      // R is the lowest byte of a little-endian word.
      pixels[i] = 0xff000000U | static_cast<std::uint32_t>(blue[i]) << 16 |
                  static_cast<std::uint32_t>(green[i]) << 8 | static_cast<std::uint32_t>(red[i]);
    }
    std::memcpy(rgba + 4 * static_cast<std::size_t>(x), pixels,
                sizeof pixels[0] * static_cast<std::size_t>(count));
  }
}

}  // namespace ostrel_native

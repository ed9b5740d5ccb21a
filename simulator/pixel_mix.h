// The arithmetic that every pixel of a view goes through.
#pragma once

#include <emmintrin.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simulator/optics.h"

namespace ostrel_simulator {

// Weights of a mix of two brightnesses go from 0 to 127, of 128: with them, products of
// differences fit 16 bits.
inline constexpr int kMixBits = 7;
inline constexpr unsigned kMixOne = 1U << kMixBits;

/// Where in a line of pixels a pixel is sampled.
struct SamplePoint {
  std::uint16_t index;   ///< of the pixel to the left
  std::uint16_t weight;  ///< of the pixel to the right, of kMixOne
};

/// A line of 4 bytes a pixel, and where the next four pixels sample it.
struct SampledLine {
  const std::uint8_t* pixels;
  const SamplePoint* points;
};

// Each weight four times, for the channels of a pixel.
constexpr auto MakeWeightTable() {
  std::array<std::array<std::int16_t, 4>, kMixOne> table{};
  for (std::size_t weight = 0; weight < table.size(); ++weight) {
    table[weight].fill(static_cast<std::int16_t>(weight));
  }
  return table;
}

inline constexpr auto kWeights = MakeWeightTable();

inline __m128i Load8(const void* bytes) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(bytes));
}

// a + (b - a) * weight / 128, rounded.
inline __m128i Mix(__m128i a, __m128i b, __m128i weight) {
  const __m128i change = _mm_mullo_epi16(_mm_sub_epi16(b, a), weight);
  const __m128i half = _mm_set1_epi16(kMixOne / 2);
  return _mm_add_epi16(a, _mm_srai_epi16(_mm_add_epi16(change, half), kMixBits));
}

// The samples of both lines at one point, the sharp one below.
inline __m128i SampleBoth(const SampledLine& sharp, const SampledLine& soft, int i) {
  const SamplePoint& sharpPoint = sharp.points[i];
  const SamplePoint& softPoint = soft.points[i];
  const __m128i pairs = _mm_unpacklo_epi32(Load8(sharp.pixels + std::size_t{sharpPoint.index} * 4),
                                           Load8(soft.pixels + std::size_t{softPoint.index} * 4));
  const __m128i zero = _mm_setzero_si128();
  const __m128i weights =
      _mm_unpacklo_epi64(Load8(&kWeights[sharpPoint.weight]), Load8(&kWeights[softPoint.weight]));
  return Mix(_mm_unpacklo_epi8(pairs, zero), _mm_unpackhi_epi8(pairs, zero), weights);
}

inline __m128i PaintTwoPixels(const SampledLine& sharp, const SampledLine& soft, int i,
                              __m128i weight, __m128i gain) {
  const __m128i first = SampleBoth(sharp, soft, i);
  const __m128i second = SampleBoth(sharp, soft, i + 1);
  const __m128i seen =
      Mix(_mm_unpacklo_epi64(first, second), _mm_unpackhi_epi64(first, second), weight);
  return _mm_add_epi16(_mm_srli_epi16(_mm_mullo_epi16(seen, gain), 8), _mm_set1_epi16(kBlackLevel));
}

/// Mixes `count` pixels of 4 bytes of `above` and `below`: the weight, below kMixOne, is that of
/// `below`. The target holds the pixels exactly.
inline void MixPixels(const std::uint8_t* above, const std::uint8_t* below, int count,
                      unsigned weight, std::uint8_t* target) {
  const std::size_t bytes = static_cast<std::size_t>(count) * 4;
  if (weight == 0) {
    std::memcpy(target, above, bytes);
    return;
  }
  const __m128i weights = _mm_set1_epi16(static_cast<std::int16_t>(weight));
  const __m128i zero = _mm_setzero_si128();
  std::size_t i = 0;
  for (; i + 16 <= bytes; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(above + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(below + i));
    const __m128i low = Mix(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero), weights);
    const __m128i high = Mix(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero), weights);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i), _mm_packus_epi16(low, high));
  }
  for (; i < bytes; ++i) {
    const int change = (below[i] - above[i]) * static_cast<int>(weight);
    target[i] = static_cast<std::uint8_t>(above[i] +
                                          ((change + static_cast<int>(kMixOne) / 2) >> kMixBits));
  }
}

/// Samples both lines at their next four points and mixes them, with `weight`, below kMixOne, for
/// `soft`. The light makes `value * gain / 256 + kBlackLevel` of each brightness; `gain` is up to
/// 256. The target gets 12 bytes.
inline void PaintFourPixels(const SampledLine& sharp, const SampledLine& soft, unsigned weight,
                            unsigned gain, std::uint8_t* target) {
  const __m128i weights = _mm_set1_epi16(static_cast<std::int16_t>(weight));
  const __m128i gains = _mm_set1_epi16(static_cast<std::int16_t>(gain));
  const __m128i pixels = _mm_packus_epi16(PaintTwoPixels(sharp, soft, 0, weights, gains),
                                          PaintTwoPixels(sharp, soft, 2, weights, gains));
  // Four pixels of 4 bytes to 3 each: first within each half, then the halves to one another.
  const __m128i even = _mm_and_si128(pixels, _mm_set1_epi64x(0x0000000000FFFFFF));
  const __m128i odd = _mm_and_si128(_mm_srli_epi64(pixels, 8), _mm_set1_epi64x(0x0000FFFFFF000000));
  const __m128i sixes = _mm_or_si128(even, odd);
  const __m128i upper = _mm_srli_si128(sixes, 8);
  const __m128i eight = _mm_or_si128(sixes, _mm_slli_epi64(upper, 48));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(target), eight);
  const int last = _mm_cvtsi128_si32(_mm_srli_epi64(upper, 16));
  std::memcpy(target + 8, &last, sizeof(last));
}

}  // namespace ostrel_simulator

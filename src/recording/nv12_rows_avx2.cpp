// The AVX2 form of the row functions. Each function carries the target attribute by itself: a
// file-wide flag would also compile inline functions of headers with AVX2, and the linker might
// keep those for processors without it.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "recording/nv12_rows.h"

#define OSTREL_AVX2 __attribute__((target("avx2")))
#define OSTREL_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline

namespace ostrel_native {

namespace {

// Pixels that one step of a row takes: what it writes for them fills one register.
constexpr std::int32_t kBlock = 32;

OSTREL_AVX2_INLINE __m256i Load(const std::uint8_t* source) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source));
}

OSTREL_AVX2_INLINE void Store(std::uint8_t* target, __m256i bytes) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), bytes);
}

// The even (`kByte` 0) or odd (`kByte` 1) bytes of 64. Packing works in halves of 128 bits, so
// its four quarters come out as 0, 2, 1, 3.
template <int kByte>
OSTREL_AVX2_INLINE __m256i EveryOtherByte(__m256i low, __m256i high) {
  if constexpr (kByte == 0) {
    const __m256i mask = _mm256_set1_epi16(0x00ff);
    low = _mm256_and_si256(low, mask);
    high = _mm256_and_si256(high, mask);
  } else {
    low = _mm256_srli_epi16(low, 8);
    high = _mm256_srli_epi16(high, 8);
  }
  return _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), _MM_SHUFFLE(3, 1, 2, 0));
}

template <int kLuma>
OSTREL_AVX2_INLINE void PairLumaBlock(const std::uint8_t* source, std::uint8_t* y) {
  Store(y, EveryOtherByte<kLuma>(Load(source), Load(source + 32)));
}

// `_mm256_avg_epu8` is (a + b + 1) >> 1.
template <int kChroma>
OSTREL_AVX2_INLINE void PairChromaBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                        std::uint8_t* uv) {
  const __m256i low = _mm256_avg_epu8(Load(top), Load(bottom));
  const __m256i high = _mm256_avg_epu8(Load(top + 32), Load(bottom + 32));
  Store(uv, EveryOtherByte<kChroma>(low, high));
}

// Four bytes, the first at the lowest address, in every 32-bit lane.
OSTREL_AVX2_INLINE __m256i RepeatBytes(int first, int second, int third, int fourth) {
  const unsigned word =
      (static_cast<unsigned>(first) & 0xffu) | (static_cast<unsigned>(second) & 0xffu) << 8 |
      (static_cast<unsigned>(third) & 0xffu) << 16 | (static_cast<unsigned>(fourth) & 0xffu) << 24;
  return _mm256_set1_epi32(static_cast<int>(word));
}

// One weight for each channel of a pixel; the fourth byte counts nothing.
template <int kRed, int kBlue>
OSTREL_AVX2_INLINE __m256i ChannelWeights(int red, int green, int blue) {
  static_assert((kRed == 0 && kBlue == 2) || (kRed == 2 && kBlue == 0));
  return kRed == 0 ? RepeatBytes(red, green, blue, 0) : RepeatBytes(blue, green, red, 0);
}

// Undoes the order in which adding neighbours and packing, both in halves of 128 bits, leave
// eight groups of 32 bits.
OSTREL_AVX2_INLINE __m256i InOrder(__m256i groups) {
  return _mm256_permutevar8x32_epi32(groups, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// Sixteen bits of weighted channel sums, 8 pixels each in `low` and `high`.
//
// The weight 157 does not fit a signed byte, and the multiplication takes one unsigned and one
// signed factor. So the weights are the unsigned ones, and 128 is taken off each channel, which
// is what flipping its highest bit does to a signed byte. The sums stay between -28160 and 27940.
OSTREL_AVX2_INLINE __m256i LumaSums(__m256i weights, __m256i low, __m256i high) {
  const __m256i highestBit = _mm256_set1_epi8(-128);
  return _mm256_hadd_epi16(_mm256_maddubs_epi16(weights, _mm256_xor_si256(low, highestBit)),
                           _mm256_maddubs_epi16(weights, _mm256_xor_si256(high, highestBit)));
}

template <int kRed, int kBlue>
OSTREL_AVX2_INLINE void RgbLumaBlock(const std::uint8_t* source, std::uint8_t* y) {
  const __m256i weights = ChannelWeights<kRed, kBlue>(47, 157, 16);
  // 128 rounds; the rest gives back the 128 that each channel lost. The sum fits an unsigned
  // 16-bit lane: it is at most 220 * 255 + 128.
  const __m256i offset = _mm256_set1_epi16(128 + 128 * (47 + 157 + 16));
  const __m256i first = LumaSums(weights, Load(source), Load(source + 32));
  const __m256i second = LumaSums(weights, Load(source + 64), Load(source + 96));
  const __m256i luma = _mm256_packus_epi16(_mm256_srli_epi16(_mm256_add_epi16(first, offset), 8),
                                           _mm256_srli_epi16(_mm256_add_epi16(second, offset), 8));
  Store(y, InOrder(_mm256_add_epi8(luma, _mm256_set1_epi8(16))));
}

// The channel means of the 2 by 2 blocks in 8 columns of two rows, 16 bits each. Neighbouring
// pixels are brought together channel by channel, so that multiplying by ones adds them.
OSTREL_AVX2_INLINE __m256i BlockMeans(__m256i top, __m256i bottom) {
  const __m256i channelPairs = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i sum =
      _mm256_add_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(top, channelPairs), ones),
                       _mm256_maddubs_epi16(_mm256_shuffle_epi8(bottom, channelPairs), ones));
  // (sum * 2^13 + 2^14) >> 15, which is (sum + 2) >> 2.
  return _mm256_mulhrs_epi16(sum, _mm256_set1_epi16(1 << 13));
}

// The means of 16 columns of two rows as bytes, in the order of the packing.
OSTREL_AVX2_INLINE __m256i PackedMeans(const std::uint8_t* top, const std::uint8_t* bottom) {
  return _mm256_packus_epi16(BlockMeans(Load(top), Load(bottom)),
                             BlockMeans(Load(top + 32), Load(bottom + 32)));
}

// 256 times the chroma value of 16 blocks, as unsigned 16-bit lanes. `weights` are signed bytes
// and their sums stay between -28815 and 28560; 128 rounds, 128 * 256 moves them above zero,
// where a shift without a sign rounds down as the arithmetic one does.
OSTREL_AVX2_INLINE __m256i ChromaSums(__m256i weights, __m256i lowMeans, __m256i highMeans) {
  const __m256i sums = _mm256_hadd_epi16(_mm256_maddubs_epi16(lowMeans, weights),
                                         _mm256_maddubs_epi16(highMeans, weights));
  return _mm256_add_epi16(sums, _mm256_set1_epi16(static_cast<short>(0x8080)));
}

template <int kRed, int kBlue>
OSTREL_AVX2_INLINE void RgbChromaBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                       std::uint8_t* uv) {
  const __m256i uWeights = ChannelWeights<kRed, kBlue>(-26, -87, 112);
  const __m256i vWeights = ChannelWeights<kRed, kBlue>(112, -102, -10);
  const __m256i lowMeans = PackedMeans(top, bottom);
  const __m256i highMeans = PackedMeans(top + 64, bottom + 64);
  const __m256i u = _mm256_srli_epi16(ChromaSums(uWeights, lowMeans, highMeans), 8);
  const __m256i v = _mm256_and_si256(ChromaSums(vWeights, lowMeans, highMeans),
                                     _mm256_set1_epi16(static_cast<short>(0xff00)));
  Store(uv, InOrder(_mm256_or_si256(u, v)));
}

// A row is blocks side by side, and one more that ends with the row. That one may write some
// bytes a second time with the same values; so no row leaves a remainder.
template <int kBytesPerPixel, void (*kBlockOf)(const std::uint8_t*, std::uint8_t*)>
OSTREL_AVX2 void LumaRow(const std::uint8_t* source, std::uint8_t* y, std::int32_t width) {
  const std::ptrdiff_t last = width - kBlock;
  for (std::ptrdiff_t x = 0; x < last; x += kBlock) {
    kBlockOf(source + kBytesPerPixel * x, y + x);
  }
  kBlockOf(source + kBytesPerPixel * last, y + last);
}

template <int kBytesPerPixel,
          void (*kBlockOf)(const std::uint8_t*, const std::uint8_t*, std::uint8_t*)>
OSTREL_AVX2 void ChromaRow(const std::uint8_t* top, const std::uint8_t* bottom, std::uint8_t* uv,
                           std::int32_t width) {
  const std::ptrdiff_t last = width - kBlock;
  for (std::ptrdiff_t x = 0; x < last; x += kBlock) {
    kBlockOf(top + kBytesPerPixel * x, bottom + kBytesPerPixel * x, uv + x);
  }
  kBlockOf(top + kBytesPerPixel * last, bottom + kBytesPerPixel * last, uv + last);
}

}  // namespace

const Nv12Rows kNv12RowsAvx2 = {
    .minWidth = kBlock,
    .yuy2Luma = LumaRow<2, PairLumaBlock<0>>,
    .yuy2Chroma = ChromaRow<2, PairChromaBlock<1>>,
    .uyvyLuma = LumaRow<2, PairLumaBlock<1>>,
    .uyvyChroma = ChromaRow<2, PairChromaBlock<0>>,
    .bgraLuma = LumaRow<4, RgbLumaBlock<2, 0>>,
    .bgraChroma = ChromaRow<4, RgbChromaBlock<2, 0>>,
    .rgbaLuma = LumaRow<4, RgbLumaBlock<0, 2>>,
    .rgbaChroma = ChromaRow<4, RgbChromaBlock<0, 2>>,
};

}  // namespace ostrel_native

#undef OSTREL_AVX2
#undef OSTREL_AVX2_INLINE

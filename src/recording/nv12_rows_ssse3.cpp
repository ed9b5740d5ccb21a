// The SSSE3 form of the row functions. Each function carries the target attribute by itself: a
// file-wide flag would also compile inline functions of headers with SSSE3, and the linker might
// keep those for processors without it.
#include <tmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "recording/nv12_rows.h"

#define OSTREL_SSSE3 __attribute__((target("ssse3")))
#define OSTREL_SSSE3_INLINE __attribute__((target("ssse3"), always_inline)) inline

namespace ostrel_native {

namespace {

// Pixels that one step of a row takes: what it writes for them fills two registers.
constexpr std::int32_t kBlock = 32;

OSTREL_SSSE3_INLINE __m128i Load(const std::uint8_t* source) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
}

OSTREL_SSSE3_INLINE void Store(std::uint8_t* target, __m128i bytes) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(target), bytes);
}

// The even (`kByte` 0) or odd (`kByte` 1) bytes of 32.
template <int kByte>
OSTREL_SSSE3_INLINE __m128i EveryOtherByte(__m128i low, __m128i high) {
  if constexpr (kByte == 0) {
    const __m128i mask = _mm_set1_epi16(0x00ff);
    low = _mm_and_si128(low, mask);
    high = _mm_and_si128(high, mask);
  } else {
    low = _mm_srli_epi16(low, 8);
    high = _mm_srli_epi16(high, 8);
  }
  return _mm_packus_epi16(low, high);
}

// The chroma of 16 columns. `_mm_avg_epu8` is (a + b + 1) >> 1; the compiler would take the means
// only of what it has packed before, with twice the packing.
template <int kChroma>
OSTREL_SSSE3_INLINE __m128i PairChroma(const std::uint8_t* top, const std::uint8_t* bottom) {
  const __m128i low = _mm_avg_epu8(Load(top), Load(bottom));
  const __m128i high = _mm_avg_epu8(Load(top + 16), Load(bottom + 16));
  return EveryOtherByte<kChroma>(low, high);
}

template <int kChroma>
OSTREL_SSSE3_INLINE void PairChromaBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                         std::uint8_t* uv) {
  Store(uv, PairChroma<kChroma>(top, bottom));
  Store(uv + 16, PairChroma<kChroma>(top + 32, bottom + 32));
}

// Four bytes, the first at the lowest address, in every 32-bit lane.
OSTREL_SSSE3_INLINE __m128i RepeatBytes(int first, int second, int third, int fourth) {
  const unsigned word =
      (static_cast<unsigned>(first) & 0xffu) | (static_cast<unsigned>(second) & 0xffu) << 8 |
      (static_cast<unsigned>(third) & 0xffu) << 16 | (static_cast<unsigned>(fourth) & 0xffu) << 24;
  return _mm_set1_epi32(static_cast<int>(word));
}

// The weighted channel sums of 4 pixels, 32 bits each.
//
// The weight 157 does not fit a signed byte, and the multiplication takes one unsigned and one
// signed factor. So the weights are the unsigned ones, and 128 is taken off each channel, which
// is what flipping its highest bit does to a signed byte. The sums stay between -28160 and 27940.
// Multiplying by ones adds neighbours, in less time than the instruction that only adds them.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE __m128i LumaSums(const std::uint8_t* source) {
  static_assert((kRed == 0 && kBlue == 2) || (kRed == 2 && kBlue == 0));
  const __m128i weights = kRed == 0 ? RepeatBytes(47, 157, 16, 0) : RepeatBytes(16, 157, 47, 0);
  const __m128i channels = _mm_xor_si128(Load(source), _mm_set1_epi8(-128));
  return _mm_madd_epi16(_mm_maddubs_epi16(weights, channels), _mm_set1_epi16(1));
}

// The luma of 8 pixels, 16 bits each.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE __m128i Luma(const std::uint8_t* source) {
  // 128 rounds, 128 times the weights gives back what each channel lost, and 16 * 256 is the
  // black level. The result fits an unsigned 16-bit lane: it is at most 220 * 255 + 128 + 4096.
  const __m128i offset = _mm_set1_epi16(128 + 128 * (47 + 157 + 16) + 16 * 256);
  const __m128i low = LumaSums<kRed, kBlue>(source);
  const __m128i high = LumaSums<kRed, kBlue>(source + 16);
  return _mm_srli_epi16(_mm_add_epi16(_mm_packs_epi32(low, high), offset), 8);
}

template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE void RgbLumaBlock(const std::uint8_t* source, std::uint8_t* y) {
  for (int half = 0; half < 2; ++half) {
    const __m128i low = Luma<kRed, kBlue>(source + 64 * half);
    const __m128i high = Luma<kRed, kBlue>(source + 64 * half + 32);
    Store(y + 16 * half, _mm_packus_epi16(low, high));
  }
}

// The channel sums of pixels 0 and 1 and of pixels 2 and 3, 16 bits each: of channels 0 and 1 for
// both pairs, then of channels 2 and 3.
OSTREL_SSSE3_INLINE __m128i PixelPairSums(const std::uint8_t* source) {
  const __m128i channelPairs = _mm_setr_epi8(0, 4, 1, 5, 8, 12, 9, 13, 2, 6, 3, 7, 10, 14, 11, 15);
  return _mm_maddubs_epi16(_mm_shuffle_epi8(Load(source), channelPairs), _mm_set1_epi8(1));
}

// The channel means of the 2 by 2 blocks in 4 columns of two rows, in the order of the sums.
OSTREL_SSSE3_INLINE __m128i BlockMeans(const std::uint8_t* top, const std::uint8_t* bottom) {
  const __m128i sum = _mm_add_epi16(PixelPairSums(top), PixelPairSums(bottom));
  // (sum * 2^13 + 2^14) >> 15, which is (sum + 2) >> 2.
  return _mm_mulhrs_epi16(sum, _mm_set1_epi16(1 << 13));
}

// The means of 8 columns as bytes.
OSTREL_SSSE3_INLINE __m128i PackedMeans(const std::uint8_t* top, const std::uint8_t* bottom) {
  const __m128i low = BlockMeans(top, bottom);
  const __m128i high = BlockMeans(top + 16, bottom + 16);
  return _mm_packus_epi16(low, high);
}

// The even (`kLane` 0) or odd (`kLane` 1) 32-bit lanes of two registers.
template <int kLane>
OSTREL_SSSE3_INLINE __m128i EveryOtherLane(__m128i low, __m128i high) {
  constexpr int kOrder = _MM_SHUFFLE(2 + kLane, kLane, 2 + kLane, kLane);
  return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(low), _mm_castsi128_ps(high), kOrder));
}

// 256 times the chroma value of 8 blocks, as unsigned 16-bit lanes. The weights are signed bytes,
// and the sums stay between -28815 and 28560; 128 rounds, 128 * 256 moves them above zero, where
// a shift without a sign rounds down as the arithmetic one does.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE __m128i ChromaSums(__m128i firstTwo, __m128i lastTwo, int red, int green,
                                       int blue) {
  const int first = kRed == 0 ? red : blue;
  const int third = kRed == 0 ? blue : red;
  const __m128i sums =
      _mm_add_epi16(_mm_maddubs_epi16(firstTwo, RepeatBytes(first, green, first, green)),
                    _mm_maddubs_epi16(lastTwo, RepeatBytes(third, 0, third, 0)));
  return _mm_add_epi16(sums, _mm_set1_epi16(static_cast<short>(0x8080)));
}

// The chroma of 16 columns from their means.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE __m128i RgbChroma(__m128i lowMeans, __m128i highMeans) {
  const __m128i firstTwo = EveryOtherLane<0>(lowMeans, highMeans);
  const __m128i lastTwo = EveryOtherLane<1>(lowMeans, highMeans);
  const __m128i u = ChromaSums<kRed, kBlue>(firstTwo, lastTwo, -26, -87, 112);
  const __m128i v = ChromaSums<kRed, kBlue>(firstTwo, lastTwo, 112, -102, -10);
  return _mm_or_si128(_mm_srli_epi16(u, 8),
                      _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xff00))));
}

// All means first: the processor finds work in the later ones while the earlier ones, a long
// chain of instructions, come to their end. That is a tenth of the time.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE void RgbChromaBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                        std::uint8_t* uv) {
  const __m128i means0 = PackedMeans(top, bottom);
  const __m128i means1 = PackedMeans(top + 32, bottom + 32);
  const __m128i means2 = PackedMeans(top + 64, bottom + 64);
  const __m128i means3 = PackedMeans(top + 96, bottom + 96);
  Store(uv, RgbChroma<kRed, kBlue>(means0, means1));
  Store(uv + 16, RgbChroma<kRed, kBlue>(means2, means3));
}

// A row is blocks side by side, and one more that ends with the row. That one may write some
// bytes a second time with the same values; so no row leaves a remainder.
template <void (*kBlockOf)(const std::uint8_t*, std::uint8_t*)>
OSTREL_SSSE3 void RgbLumaRow(const std::uint8_t* source, std::uint8_t* y, std::int32_t width) {
  const std::ptrdiff_t last = width - kBlock;
  for (std::ptrdiff_t x = 0; x < last; x += kBlock) {
    kBlockOf(source + 4 * x, y + x);
  }
  kBlockOf(source + 4 * last, y + last);
}

template <int kBytesPerPixel,
          void (*kBlockOf)(const std::uint8_t*, const std::uint8_t*, std::uint8_t*)>
OSTREL_SSSE3 void ChromaRow(const std::uint8_t* top, const std::uint8_t* bottom, std::uint8_t* uv,
                            std::int32_t width) {
  const std::ptrdiff_t last = width - kBlock;
  for (std::ptrdiff_t x = 0; x < last; x += kBlock) {
    kBlockOf(top + kBytesPerPixel * x, bottom + kBytesPerPixel * x, uv + x);
  }
  kBlockOf(top + kBytesPerPixel * last, bottom + kBytesPerPixel * last, uv + last);
}

}  // namespace

const Nv12Rows kNv12RowsSsse3 = {
    .minWidth = kBlock,
    .yuy2Luma = kNv12RowsPlain.yuy2Luma,
    .yuy2Chroma = ChromaRow<2, PairChromaBlock<1>>,
    .uyvyLuma = kNv12RowsPlain.uyvyLuma,
    .uyvyChroma = ChromaRow<2, PairChromaBlock<0>>,
    .bgraLuma = RgbLumaRow<RgbLumaBlock<2, 0>>,
    .bgraChroma = ChromaRow<4, RgbChromaBlock<2, 0>>,
    .rgbaLuma = RgbLumaRow<RgbLumaBlock<0, 2>>,
    .rgbaChroma = ChromaRow<4, RgbChromaBlock<0, 2>>,
};

}  // namespace ostrel_native

#undef OSTREL_SSSE3
#undef OSTREL_SSSE3_INLINE

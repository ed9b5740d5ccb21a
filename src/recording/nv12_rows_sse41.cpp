// The SSE4.1 form of the row functions. Each function carries the target attribute by itself: a
// file-wide flag would also compile inline functions of headers with SSE4.1, and the linker might
// keep those for processors without it.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "recording/nv12_rows.h"

#define OSTREL_SSE41 __attribute__((target("sse4.1")))
#define OSTREL_SSE41_INLINE __attribute__((target("sse4.1"), always_inline)) inline

namespace ostrel_native {

namespace {

// Pixels that one step of a row takes: what it writes for them fills one register.
constexpr std::int32_t kBlock = 16;

OSTREL_SSE41_INLINE __m128i Load(const std::uint8_t* source) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
}

OSTREL_SSE41_INLINE void Store(std::uint8_t* target, __m128i bytes) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(target), bytes);
}

// The even (`kByte` 0) or odd (`kByte` 1) bytes of 32.
template <int kByte>
OSTREL_SSE41_INLINE __m128i EveryOtherByte(__m128i low, __m128i high) {
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

// `kLuma`: the byte of the first luma sample in a pixel pair; U and V lie in the other bytes.
// `_mm_avg_epu8` is (a + b + 1) >> 1.
template <int kLuma>
struct PairLayout {
  static constexpr std::ptrdiff_t kBytesPerPixel = 2;

  OSTREL_SSE41_INLINE static void ConvertBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                               const Nv12RowPairTarget& target, std::ptrdiff_t x) {
    const __m128i top0 = Load(top);
    const __m128i top1 = Load(top + 16);
    const __m128i bottom0 = Load(bottom);
    const __m128i bottom1 = Load(bottom + 16);
    Store(target.yTop + x, EveryOtherByte<kLuma>(top0, top1));
    Store(target.yBottom + x, EveryOtherByte<kLuma>(bottom0, bottom1));
    Store(target.uv + x,
          EveryOtherByte<1 - kLuma>(_mm_avg_epu8(top0, bottom0), _mm_avg_epu8(top1, bottom1)));
  }
};

// Two bytes, the first at the lower address, in every 16-bit lane.
OSTREL_SSE41_INLINE __m128i RepeatPair(int first, int second) {
  const unsigned pair =
      (static_cast<unsigned>(first) & 0xffu) | (static_cast<unsigned>(second) & 0xffu) << 8;
  return _mm_set1_epi16(static_cast<short>(pair));
}

// What 32-bit pixels with red and blue at these bytes become.
template <int kRed, int kBlue>
struct RgbLayout {
  static_assert((kRed == 0 && kBlue == 2) || (kRed == 2 && kBlue == 0));
  static constexpr std::ptrdiff_t kBytesPerPixel = 4;

  static constexpr int Weight(int channel, int red, int green, int blue) {
    return channel == kRed ? red : channel == 1 ? green : blue;
  }

  // The first two bytes of the pixels 0, 4, 1, 5, 2, 6, 3 and 7. A load that begins one pair
  // early has the later pixels in the odd lanes, so that one blend takes the place of shuffles.
  OSTREL_SSE41_INLINE static __m128i BytePairs(const std::uint8_t* source) {
    const __m128i oddLanes = _mm_set1_epi32(static_cast<int>(0xffff0000u));
    return _mm_blendv_epi8(Load(source), Load(source + 14), oddLanes);
  }

  // 256 times the luma of 8 pixels, as unsigned 16-bit lanes in the order of `BytePairs`.
  //
  // The multiplication takes one unsigned and one signed byte, and 157 is no signed one: so green
  // comes twice, with each of the other channels once. A pair gives 31875 at most, both 56100.
  OSTREL_SSE41_INLINE static __m128i LumaSums(const std::uint8_t* source) {
    const __m128i firstWeights = RepeatPair(Weight(0, 47, 157, 16), 79);
    const __m128i lastWeights = RepeatPair(157 - 79, Weight(2, 47, 157, 16));
    const __m128i roundingAndOffset = _mm_set1_epi16(128 + 16 * 256);
    const __m128i first = _mm_maddubs_epi16(BytePairs(source), firstWeights);
    const __m128i last = _mm_maddubs_epi16(BytePairs(source + 1), lastWeights);
    return _mm_add_epi16(_mm_add_epi16(first, roundingAndOffset), last);
  }

  // Luma of 8 pixels: the high bytes of the sums, back in the order of the pixels.
  OSTREL_SSE41_INLINE static void ConvertLuma(const std::uint8_t* source, std::uint8_t* y) {
    const __m128i highBytes =
        _mm_setr_epi8(1, 5, 9, 13, 3, 7, 11, 15, -1, -1, -1, -1, -1, -1, -1, -1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(y), _mm_shuffle_epi8(LumaSums(source), highBytes));
  }

  // The channel means of the two 2 by 2 blocks in 4 columns of two rows, as 16-bit lanes: blue
  // and green of each block, then red and zero of each. Neighbouring pixels are brought together
  // channel by channel, so that multiplying by ones adds them.
  OSTREL_SSE41_INLINE static __m128i BlockMeans(const std::uint8_t* top,
                                                const std::uint8_t* bottom) {
    constexpr char kZero = -1;
    const __m128i channelPairs =
        _mm_setr_epi8(kBlue, kBlue + 4, 1, 5, kBlue + 8, kBlue + 12, 9, 13, kRed, kRed + 4, kZero,
                      kZero, kRed + 8, kRed + 12, kZero, kZero);
    const __m128i ones = _mm_set1_epi8(1);
    const __m128i sum =
        _mm_add_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(Load(top), channelPairs), ones),
                      _mm_maddubs_epi16(_mm_shuffle_epi8(Load(bottom), channelPairs), ones));
    // (sum * 2^13 + 2^14) >> 15, which is (sum + 2) >> 2.
    return _mm_mulhrs_epi16(sum, _mm_set1_epi16(1 << 13));
  }

  // The means of 8 columns as bytes. Of floating-point type only for the shuffle that follows.
  OSTREL_SSE41_INLINE static __m128 MeanBytes(const std::uint8_t* top, const std::uint8_t* bottom) {
    return _mm_castsi128_ps(
        _mm_packus_epi16(BlockMeans(top, bottom), BlockMeans(top + 16, bottom + 16)));
  }

  // 256 times the chroma value of 8 blocks, as unsigned 16-bit lanes. The weighted sums stay
  // between -28815 and 28560; 128 rounds, 128 * 256 moves them above zero, where a shift without
  // a sign rounds down as the arithmetic one does.
  OSTREL_SSE41_INLINE static __m128i ChromaSums(__m128i blueGreen, __m128i redZero,
                                                __m128i blueGreenWeights, int redWeight) {
    const __m128i roundingAndOffset = _mm_set1_epi16(static_cast<short>(0x8080));
    return _mm_add_epi16(
        _mm_add_epi16(_mm_maddubs_epi16(blueGreen, blueGreenWeights), roundingAndOffset),
        _mm_maddubs_epi16(redZero, RepeatPair(redWeight, 0)));
  }

  // U, V pairs of the 8 blocks in 16 columns.
  OSTREL_SSE41_INLINE static void ConvertChroma(const std::uint8_t* top, const std::uint8_t* bottom,
                                                std::uint8_t* uv) {
    const __m128 low = MeanBytes(top, bottom);
    const __m128 high = MeanBytes(top + 32, bottom + 32);
    const __m128i blueGreen = _mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i redZero = _mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1)));
    const __m128i u = ChromaSums(blueGreen, redZero, RepeatPair(112, -87), -26);
    const __m128i v = ChromaSums(blueGreen, redZero, RepeatPair(-10, -102), 112);
    const __m128i highBytes = _mm_set1_epi16(static_cast<short>(0xff00));
    Store(uv, _mm_blendv_epi8(_mm_srli_epi16(u, 8), v, highBytes));
  }

  OSTREL_SSE41_INLINE static void ConvertBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                               const Nv12RowPairTarget& target, std::ptrdiff_t x) {
    ConvertChroma(top, bottom, target.uv + x);
    ConvertLuma(top, target.yTop + x);
    ConvertLuma(top + 32, target.yTop + x + 8);
    ConvertLuma(bottom, target.yBottom + x);
    ConvertLuma(bottom + 32, target.yBottom + x + 8);
  }
};

// A pair of rows is blocks side by side, and one more that ends with the rows. That one may write
// some bytes a second time with the same values; so no row leaves a remainder.
template <typename Layout>
OSTREL_SSE41 void RowPair(const std::uint8_t* top, const std::uint8_t* bottom,
                          const Nv12RowPairTarget& target, std::int32_t width) {
  // A copy that no store through a byte pointer can change, so that it stays in registers.
  const Nv12RowPairTarget rows = target;
  const std::ptrdiff_t last = width - kBlock;
#pragma GCC unroll 2
  for (std::ptrdiff_t x = 0; x < last; x += kBlock) {
    const std::ptrdiff_t offset = Layout::kBytesPerPixel * x;
    Layout::ConvertBlock(top + offset, bottom + offset, rows, x);
  }
  const std::ptrdiff_t offset = Layout::kBytesPerPixel * last;
  Layout::ConvertBlock(top + offset, bottom + offset, rows, last);
}

}  // namespace

const Nv12Rows kNv12RowsSse41 = {
    .minWidth = kBlock,
    .yuy2 = RowPair<PairLayout<0>>,
    .uyvy = RowPair<PairLayout<1>>,
    .bgra = RowPair<RgbLayout<2, 0>>,
    .rgba = RowPair<RgbLayout<0, 2>>,
};

}  // namespace ostrel_native

#undef OSTREL_SSE41
#undef OSTREL_SSE41_INLINE

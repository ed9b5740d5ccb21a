// The SSSE3 form of the row functions. Each function carries the target attribute by itself: a
// file-wide flag would also compile inline functions of headers with SSSE3, and the linker might
// keep those for processors without it.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "recording/nv12_rows.h"

#define OSTREL_SSSE3 __attribute__((target("ssse3")))
#define OSTREL_SSSE3_INLINE __attribute__((target("ssse3"), always_inline)) inline

namespace ostrel_native {

namespace {

// Pixels that one step of a row takes: what it writes for them fills one register.
constexpr std::int32_t kBlock = 16;

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

// `kLuma`: the byte of the first luma sample in a pixel pair; U and V lie in the other bytes.
// `_mm_avg_epu8` is (a + b + 1) >> 1.
template <int kLuma>
struct PairLayout {
  static constexpr std::ptrdiff_t kBytesPerPixel = 2;

  OSTREL_SSSE3_INLINE static void ConvertBlock(const std::uint8_t* top, const std::uint8_t* bottom,
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

// Four bytes, the first at the lowest address, in every 32-bit lane.
OSTREL_SSSE3_INLINE __m128i RepeatBytes(int first, int second, int third, int fourth) {
  const unsigned word =
      (static_cast<unsigned>(first) & 0xffu) | (static_cast<unsigned>(second) & 0xffu) << 8 |
      (static_cast<unsigned>(third) & 0xffu) << 16 | (static_cast<unsigned>(fourth) & 0xffu) << 24;
  return _mm_set1_epi32(static_cast<int>(word));
}

// One weight for each channel of a pixel; the fourth byte counts nothing.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE __m128i ChannelWeights(int red, int green, int blue) {
  static_assert((kRed == 0 && kBlue == 2) || (kRed == 2 && kBlue == 0));
  return kRed == 0 ? RepeatBytes(red, green, blue, 0) : RepeatBytes(blue, green, red, 0);
}

// The sums of neighbouring 16-bit lanes, each of which fits 16 bits again, those of `low` first.
// Multiplying by ones and packing takes one shuffle where a horizontal addition takes two.
OSTREL_SSSE3_INLINE __m128i AddNeighbours(__m128i low, __m128i high) {
  const __m128i ones = _mm_set1_epi16(1);
  return _mm_packs_epi32(_mm_madd_epi16(low, ones), _mm_madd_epi16(high, ones));
}

// Sixteen bits of weighted channel sums for 8 pixels.
//
// The weight 157 does not fit a signed byte, and the multiplication takes one unsigned and one
// signed factor. So the weights are the unsigned ones, and 128 is taken off each channel, which
// is what flipping its highest bit does to a signed byte. The sums stay between -28160 and 27940.
OSTREL_SSSE3_INLINE __m128i LumaSums(__m128i weights, __m128i low, __m128i high) {
  const __m128i highestBit = _mm_set1_epi8(-128);
  return AddNeighbours(_mm_maddubs_epi16(weights, _mm_xor_si128(low, highestBit)),
                       _mm_maddubs_epi16(weights, _mm_xor_si128(high, highestBit)));
}

// 16 luma bytes from the sums of 16 pixels.
OSTREL_SSSE3_INLINE __m128i LumaOfSums(__m128i first, __m128i second) {
  // (sum * 2^7 + 2^14) >> 15, which is (sum + 128) >> 8.
  const __m128i scale = _mm_set1_epi16(1 << 7);
  const __m128i luma =
      _mm_packs_epi16(_mm_mulhrs_epi16(first, scale), _mm_mulhrs_epi16(second, scale));
  // What each channel has lost is a multiple of 256, so it may come back now; luma begins at 16.
  constexpr char kOffset = 16 + 128 * (47 + 157 + 16) / 256;
  return _mm_add_epi8(luma, _mm_set1_epi8(kOffset));
}

// The channel means of the 2 by 2 blocks in 4 columns of two rows, 16 bits each. Neighbouring
// pixels are brought together channel by channel, so that multiplying by ones adds them.
OSTREL_SSSE3_INLINE __m128i BlockMeans(__m128i top, __m128i bottom) {
  const __m128i channelPairs = _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
  const __m128i ones = _mm_set1_epi8(1);
  const __m128i sum =
      _mm_add_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(top, channelPairs), ones),
                    _mm_maddubs_epi16(_mm_shuffle_epi8(bottom, channelPairs), ones));
  // (sum * 2^13 + 2^14) >> 15, which is (sum + 2) >> 2.
  return _mm_mulhrs_epi16(sum, _mm_set1_epi16(1 << 13));
}

// 256 times the chroma value of 8 blocks, as unsigned 16-bit lanes. `weights` are signed bytes
// and their sums stay between -28815 and 28560; 128 rounds, 128 * 256 moves them above zero,
// where a shift without a sign rounds down as the arithmetic one does.
OSTREL_SSSE3_INLINE __m128i ChromaSums(__m128i weights, __m128i lowMeans, __m128i highMeans) {
  const __m128i sums =
      AddNeighbours(_mm_maddubs_epi16(lowMeans, weights), _mm_maddubs_epi16(highMeans, weights));
  return _mm_add_epi16(sums, _mm_set1_epi16(static_cast<short>(0x8080)));
}

// U, V pairs of 8 blocks from their channel means.
template <int kRed, int kBlue>
OSTREL_SSSE3_INLINE __m128i ChromaOfMeans(__m128i lowMeans, __m128i highMeans) {
  const __m128i uWeights = ChannelWeights<kRed, kBlue>(-26, -87, 112);
  const __m128i vWeights = ChannelWeights<kRed, kBlue>(112, -102, -10);
  const __m128i u = _mm_srli_epi16(ChromaSums(uWeights, lowMeans, highMeans), 8);
  const __m128i v = _mm_and_si128(ChromaSums(vWeights, lowMeans, highMeans),
                                  _mm_set1_epi16(static_cast<short>(0xff00)));
  return _mm_or_si128(u, v);
}

// What 8 columns of two rows give: the sums for their luma, the means for their chroma.
struct RgbHalfBlock {
  __m128i topSums;
  __m128i bottomSums;
  __m128i means;  // bytes
};

template <int kRed, int kBlue>
struct RgbLayout {
  static constexpr std::ptrdiff_t kBytesPerPixel = 4;

  OSTREL_SSSE3_INLINE static RgbHalfBlock ReadHalf(const std::uint8_t* top,
                                                   const std::uint8_t* bottom) {
    const __m128i weights = ChannelWeights<kRed, kBlue>(47, 157, 16);
    const __m128i top0 = Load(top);
    const __m128i top1 = Load(top + 16);
    const __m128i bottom0 = Load(bottom);
    const __m128i bottom1 = Load(bottom + 16);
    return {LumaSums(weights, top0, top1), LumaSums(weights, bottom0, bottom1),
            _mm_packus_epi16(BlockMeans(top0, bottom0), BlockMeans(top1, bottom1))};
  }

  OSTREL_SSSE3_INLINE static void ConvertBlock(const std::uint8_t* top, const std::uint8_t* bottom,
                                               const Nv12RowPairTarget& target, std::ptrdiff_t x) {
    const RgbHalfBlock low = ReadHalf(top, bottom);
    const RgbHalfBlock high = ReadHalf(top + 32, bottom + 32);
    Store(target.yTop + x, LumaOfSums(low.topSums, high.topSums));
    Store(target.yBottom + x, LumaOfSums(low.bottomSums, high.bottomSums));
    Store(target.uv + x, ChromaOfMeans<kRed, kBlue>(low.means, high.means));
  }
};

// A pair of rows is blocks side by side, and one more that ends with the rows. That one may write
// some bytes a second time with the same values; so no row leaves a remainder.
template <typename Layout>
OSTREL_SSSE3 void RowPair(const std::uint8_t* top, const std::uint8_t* bottom,
                          const Nv12RowPairTarget& target, std::int32_t width) {
  const std::ptrdiff_t last = width - kBlock;
  for (std::ptrdiff_t x = 0; x < last; x += kBlock) {
    const std::ptrdiff_t offset = Layout::kBytesPerPixel * x;
    Layout::ConvertBlock(top + offset, bottom + offset, target, x);
  }
  const std::ptrdiff_t offset = Layout::kBytesPerPixel * last;
  Layout::ConvertBlock(top + offset, bottom + offset, target, last);
}

}  // namespace

const Nv12Rows kNv12RowsSsse3 = {
    .minWidth = kBlock,
    .yuy2 = RowPair<PairLayout<0>>,
    .uyvy = RowPair<PairLayout<1>>,
    .bgra = RowPair<RgbLayout<2, 0>>,
    .rgba = RowPair<RgbLayout<0, 2>>,
};

}  // namespace ostrel_native

#undef OSTREL_SSSE3
#undef OSTREL_SSSE3_INLINE

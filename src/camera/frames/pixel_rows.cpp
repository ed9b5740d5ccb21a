#include "camera/frames/pixel_rows.h"

#include <tmmintrin.h>

#include <cstring>

namespace ostrel_native {

namespace {

// The fourth byte in memory is the highest of a little-endian word.
constexpr std::uint32_t kOpaque = 0xFF000000U;

template <std::size_t PixelBytes, std::uint32_t Alpha>
void ReduceRow(const std::uint8_t* __restrict source, int step, int width,
               std::uint8_t* __restrict out) {
  const std::size_t distance = PixelBytes * static_cast<std::size_t>(step);
  for (int x = 0; x < width; ++x) {
    std::uint32_t pixel;
    std::memcpy(&pixel, source, sizeof pixel);
    pixel |= Alpha;
    std::memcpy(out, &pixel, sizeof pixel);
    source += distance;
    out += sizeof pixel;
  }
}

// Two pixels, `step` apart, lie within one 16-byte load up to this step.
constexpr int kMaxVectorStep = 4;

// Four pixels a round, from two loads of 16 bytes: one at the first pixel, one at the third. Each
// holds its pixel at byte 0 and the next at byte 3 * step; the shuffle puts both in place.
__attribute__((target("ssse3"))) void ReduceRgbRowSsse3(const std::uint8_t* source, int step,
                                                        int width, std::uint8_t* out) {
  const std::ptrdiff_t distance = std::ptrdiff_t{3} * step;
  const auto byte = [distance](int index) { return static_cast<char>(distance + index); };
  constexpr char kZero = -1;  // a set high bit shuffles in a zero byte
  const __m128i places = _mm_setr_epi8(0, 1, 2, kZero, byte(0), byte(1), byte(2), kZero, kZero,
                                       kZero, kZero, kZero, kZero, kZero, kZero, kZero);
  const __m128i opaque = _mm_set1_epi32(static_cast<int>(kOpaque));
  // The second load ends 2 * distance + 16 bytes behind the round's first pixel, which must lie
  // within the row's readable bytes: 12 bytes behind the third pixel's read-ahead.
  const int pixelsRead = 3 + static_cast<int>((12 + distance - 1) / distance);
  int x = 0;
  for (; x + pixelsRead <= width; x += 4) {
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    const __m128i third = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 2 * distance));
    const __m128i pixels =
        _mm_unpacklo_epi64(_mm_shuffle_epi8(first, places), _mm_shuffle_epi8(third, places));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(pixels, opaque));
    source += 4 * distance;
    out += 16;
  }
  ReduceRgbRowPlain(source, step, width - x, out);
}

// Four pixels a round from one load of 16 bytes, of which 12 are used; so a row's last pixel at
// least is left to the plain form.
__attribute__((target("ssse3"))) void WidenRgbRowSsse3(const std::uint8_t* source, int width,
                                                       std::uint8_t* out) {
  constexpr char kZero = -1;
  const __m128i places =
      _mm_setr_epi8(0, 1, 2, kZero, 3, 4, 5, kZero, 6, 7, 8, kZero, 9, 10, 11, kZero);
  const __m128i opaque = _mm_set1_epi32(static_cast<int>(kOpaque));
  int x = 0;
  for (; x + 5 <= width; x += 4) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_or_si128(_mm_shuffle_epi8(bytes, places), opaque));
    source += 12;
    out += 16;
  }
  ReduceRgbRowPlain(source, 1, width - x, out);
}

}  // namespace

void ReduceRgbRowPlain(const std::uint8_t* source, int step, int width, std::uint8_t* out) {
  ReduceRow<3, kOpaque>(source, step, width, out);
}

void ReduceRgbRow(const std::uint8_t* source, int step, int width, std::uint8_t* out) {
  static const bool hasSsse3 = __builtin_cpu_supports("ssse3") != 0;
  if (hasSsse3 && step == 1) {
    WidenRgbRowSsse3(source, width, out);
  } else if (hasSsse3 && step <= kMaxVectorStep) {
    ReduceRgbRowSsse3(source, step, width, out);
  } else {
    ReduceRgbRowPlain(source, step, width, out);
  }
}

void ReduceBgraRow(const std::uint8_t* source, int step, int width, std::uint8_t* out) {
  ReduceRow<4, 0>(source, step, width, out);
}

}  // namespace ostrel_native

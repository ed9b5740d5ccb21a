#include "simulator/sensor_noise.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "simulator/random.h"

namespace ostrel_simulator {

namespace {

// Rows begin anywhere in so many samples, and are at most so long.
constexpr std::size_t kRowStarts = 65536;
constexpr std::size_t kLongestRow = 16384;

// Nearly normal: the sum of eight bytes has the mean 8 * 127.5 and the deviation 209.02.
std::int8_t Sample(Random& random, int tenths) {
  const std::uint64_t bits = random.Next();
  int sum = 0;
  for (int byte = 0; byte < 8; ++byte) {
    sum += static_cast<int>((bits >> (8 * byte)) & 255);
  }
  const int scaled = (sum - 1020) * tenths;
  const int rounded = (scaled + (scaled < 0 ? -1045 : 1045)) / 2090;
  return static_cast<std::int8_t>(std::clamp(rounded, -127, 127));
}

// Brightnesses shifted to signed bytes, whose sums the processor holds within their range.
void CopyWithNoise(const std::uint8_t* source, const std::int8_t* noise, std::size_t count,
                   std::uint8_t* target) {
  const __m128i middle = _mm_set1_epi8(-128);
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i));
    const __m128i change = _mm_loadu_si128(reinterpret_cast<const __m128i*>(noise + i));
    const __m128i sum = _mm_adds_epi8(_mm_xor_si128(pixels, middle), change);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i), _mm_xor_si128(sum, middle));
  }
  for (; i < count; ++i) {
    target[i] = static_cast<std::uint8_t>(std::clamp(source[i] + noise[i], 0, 255));
  }
}

}  // namespace

SensorNoise::SensorNoise(std::uint64_t noiseSeed, int tenths)
    : seed(noiseSeed), isSilent(tenths == 0) {
  if (isSilent) {
    return;
  }
  Random random{seed};
  samples.resize(kRowStarts + kLongestRow);
  for (std::int8_t& sample : samples) {
    sample = Sample(random, tenths);
  }
}

void SensorNoise::CopyRow(std::uint32_t frame, int row, std::size_t offset,
                          const std::uint8_t* source, std::size_t count,
                          std::uint8_t* target) const {
  if (isSilent) {
    std::memcpy(target, source, count);
    return;
  }
  Random random{seed ^ (std::uint64_t{frame} << 20) ^ static_cast<std::uint64_t>(row)};
  const std::size_t start = random.Next() % kRowStarts;
  CopyWithNoise(source, samples.data() + start + offset, count, target);
}

}  // namespace ostrel_simulator

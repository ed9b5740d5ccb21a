// Conversions from script numbers that a plain cast leaves undefined.
#pragma once

#include <cstdint>
#include <limits>

namespace ostrel_native {

/// `value` cut to a whole number. Zero, negative numbers and NaN give 0; what is too large gives
/// the largest number.
/// Thread: any.
constexpr std::uint64_t SaturatingUint64(double value) {
  if (!(value > 0.0)) {
    return 0;
  }
  constexpr double kTwoTo64 = 18446744073709551616.0;
  return value >= kTwoTo64 ? std::numeric_limits<std::uint64_t>::max()
                           : static_cast<std::uint64_t>(value);
}

/// `value` cut toward zero. What no int32 holds, NaN included, gives the most negative number.
/// Thread: any.
constexpr std::int32_t TruncatedInt32(double value) {
  // Fractions beyond the ends still cut to the ends.
  return value > -2147483649.0 && value < 2147483648.0 ? static_cast<std::int32_t>(value)
                                                       : std::numeric_limits<std::int32_t>::min();
}

}  // namespace ostrel_native

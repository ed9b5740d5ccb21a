// Random numbers from a seed, the same on every machine.
#pragma once

#include <cstdint>

namespace ostrel_simulator {

/// SplitMix64; the same everywhere, unlike the distributions of the standard library.
struct Random {
  std::uint64_t state;

  std::uint64_t Next() {
    state += 0x9E3779B97F4A7C15;
    std::uint64_t value = state;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
  }

  /// In [low, high).
  double Uniform(double low, double high) {
    constexpr double kTwoTo53 = 9007199254740992.0;
    return low + (high - low) * (static_cast<double>(Next() >> 11) / kTwoTo53);
  }
};

}  // namespace ostrel_simulator

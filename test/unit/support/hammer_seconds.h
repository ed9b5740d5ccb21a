// How long a test hammers on something that only shows its faults now and then.
#pragma once

#include <chrono>
#include <cstdlib>

namespace ostrel_native {

/// Two seconds, or what OSTREL_TEST_HAMMER_SECONDS says; the sanitizer runs make it a minute.
inline std::chrono::seconds HammerSeconds() {
  const char* const seconds = std::getenv("OSTREL_TEST_HAMMER_SECONDS");
  return std::chrono::seconds(seconds == nullptr ? 2 : std::atoi(seconds));
}

}  // namespace ostrel_native

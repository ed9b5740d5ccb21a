// Waiting for something that another thread brings about and that offers nothing to wait on.
#pragma once

#include <chrono>
#include <thread>

namespace ostrel_native {

/// Whether `condition` comes true within a minute: far beyond what the slowest machine needs, so
/// only a condition that never comes true fails.
template <typename Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace ostrel_native

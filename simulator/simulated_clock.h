// The time by which the microscope moves: real, or by hand for whoever needs to know exactly.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace ostrel_simulator {

/// Milliseconds since its making, which never run backwards.
/// Thread: any, for all members.
struct SimulatedClock {
  std::int64_t NowMs() {
    const std::lock_guard lock(mutex);
    return Now();
  }

  /// Stands still from now on, but for `Advance`.
  void Stop() {
    const std::lock_guard lock(mutex);
    stoppedMs = Now();
    isStopped = true;
  }

  /// Puts a clock that stands still forward; false where it runs.
  bool Advance(std::int64_t ms) {
    const std::lock_guard lock(mutex);
    stoppedMs += isStopped ? ms : 0;
    return isStopped;
  }

  /// Goes on from the time at which it stands.
  void Run() {
    const std::lock_guard lock(mutex);
    aheadMs = Now() - RealMs();
    isStopped = false;
  }

  std::int64_t Now() const { return isStopped ? stoppedMs : RealMs() + aheadMs; }

  std::int64_t RealMs() const {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
  }

  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  std::mutex mutex;  ///< guards the rest; a leaf
  bool isStopped = false;
  std::int64_t stoppedMs = 0;  ///< the time at which it stands
  std::int64_t aheadMs = 0;    ///< of the real time, while it runs
};

}  // namespace ostrel_simulator

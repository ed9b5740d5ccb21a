// Timing for the benchmarks: contenders take turns within one run, medians speak for them.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <functional>
#include <vector>

namespace ostrel_native::bench {

inline constexpr int kRounds = 25;
inline constexpr double kSecondsPerTurn = 0.02;

/// Seconds of the clock on the wall of `repeats` calls.
inline double SecondsOf(const std::function<void()>& operation, int repeats) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < repeats; ++i) {
    operation();
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  return elapsed.count();
}

/// Processor seconds that the calling thread has used. Other programs on the machine make it wait,
/// but its own time hardly grows by that.
inline double ThreadSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Thread seconds of `repeats` calls.
inline double ThreadSecondsOf(const std::function<void()>& operation, int repeats) {
  const double begin = ThreadSeconds();
  for (int i = 0; i < repeats; ++i) {
    operation();
  }
  return ThreadSeconds() - begin;
}

/// Repeats that make one turn last about `kSecondsPerTurn`; warms up caches and pages as well.
inline int RepeatsPerTurn(const std::function<void()>& operation) {
  int repeats = 1;
  double seconds = ThreadSecondsOf(operation, repeats);
  while (seconds < kSecondsPerTurn / 4) {
    repeats *= 2;
    seconds = ThreadSecondsOf(operation, repeats);
  }
  return std::max(1, static_cast<int>(repeats * kSecondsPerTurn / seconds));
}

/// The middle value; the upper one of two. `values` is not empty.
inline double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Thread seconds of one call of each of two operations.
struct Comparison {
  double ours;
  double theirs;
  double ratio;  ///< speed of ours over theirs; above 1 ours is faster
};

/// Runs both operations, each on the calling thread alone, in turns, so that a slower or a busier
/// moment of the machine meets both. The ratio is the median of the ratios of the rounds, not the
/// ratio of the medians.
inline Comparison Compare(const std::function<void()>& ours, const std::function<void()>& theirs,
                          int rounds = kRounds) {
  const int ourRepeats = RepeatsPerTurn(ours);
  const int theirRepeats = RepeatsPerTurn(theirs);
  std::vector<double> ourSeconds;
  std::vector<double> theirSeconds;
  std::vector<double> ratios;
  for (int round = 0; round < rounds; ++round) {
    ourSeconds.push_back(ThreadSecondsOf(ours, ourRepeats) / ourRepeats);
    theirSeconds.push_back(ThreadSecondsOf(theirs, theirRepeats) / theirRepeats);
    ratios.push_back(theirSeconds.back() / ourSeconds.back());
  }
  return {Median(ourSeconds), Median(theirSeconds), Median(ratios)};
}

}  // namespace ostrel_native::bench

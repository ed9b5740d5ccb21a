// Several atomics that are written and read as one record.
#pragma once

#include <atomic>
#include <cstdint>

#include "addon/mutex.h"

namespace ostrel_native {

/// Keeps the members of a record together: whoever stores them does so in `Write`, whoever loads
/// more than one of them in `Read`. All of them are atomics with sequentially consistent accesses.
struct ReadingRecord {
  /// Runs `store`, which writes members of the record and throws nothing.
  /// Thread: any.
  template <typename F>
  void Write(F store) {
    const MutexLock lock(mutex);
    ++generation;
    store();
    ++generation;
  }

  /// The result of `load`, which copies members of the record, all of the same moment. `load` may
  /// run several times. There is no lock to take unless writers come in at each of a few tries, and
  /// they hold it for a few stores.
  /// Thread: any.
  template <typename F>
  auto Read(F load) {
    for (int i = 0; i < kTriesWithoutLock; ++i) {
      const std::uint64_t before = generation;
      const auto members = load();
      if (before % 2 == 0 && generation == before) {
        return members;
      }
    }
    const MutexLock lock(mutex);
    return load();
  }

  static constexpr int kTriesWithoutLock = 4;

  Mutex mutex;                               ///< a leaf: held for stores and loads only
  std::atomic<std::uint64_t> generation{0};  ///< odd while a writer is at work
};

}  // namespace ostrel_native

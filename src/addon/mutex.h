// The mutex of this project and the ways to hold it: those of the standard library, whose own carry
// no annotations that Clang could check.
#pragma once

#include <mutex>

#include "addon/thread_annotations.h"

namespace ostrel_native {

/// A `std::mutex`; a condition variable waits on it through `ConditionLock`.
struct OSTREL_CAPABILITY("mutex") Mutex : std::mutex {
  constexpr Mutex() = default;

  void lock() OSTREL_ACQUIRE() { std::mutex::lock(); }
  void unlock() OSTREL_RELEASE() { std::mutex::unlock(); }
  bool try_lock() OSTREL_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }

  /// For a place that the analysis cannot follow: the calling thread holds the mutex.
  void AssertHeld() const OSTREL_ASSERTS() {}
};

/// Holds a mutex for the life of the object, like `std::lock_guard`.
struct OSTREL_SCOPED_CAPABILITY MutexLock {
  explicit MutexLock(Mutex& lockedMutex) OSTREL_ACQUIRE(lockedMutex) : mutex(lockedMutex) {
    mutex.lock();
  }
  ~MutexLock() OSTREL_RELEASE() { mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  Mutex& mutex;
};

/// Holds a mutex like `std::unique_lock`: it may be given back and taken again, and a condition
/// variable may wait on it.
struct OSTREL_SCOPED_CAPABILITY ConditionLock {
  explicit ConditionLock(Mutex& lockedMutex) OSTREL_ACQUIRE(lockedMutex) : held(lockedMutex) {}
  ~ConditionLock() OSTREL_RELEASE() {}
  ConditionLock(const ConditionLock&) = delete;
  ConditionLock& operator=(const ConditionLock&) = delete;

  void Lock() OSTREL_ACQUIRE() { held.lock(); }
  void Unlock() OSTREL_RELEASE() { held.unlock(); }

  std::unique_lock<std::mutex> held;  ///< for condition variables alone
};

}  // namespace ostrel_native

// Splits the rows of an image over short-lived threads.
#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace ostrel_native {

/// Fewer rows than this run on the calling thread: starting threads would cost more than it saves.
inline constexpr int kMinParallelRows = 48;

/// Joins the threads of a vector at the end of the scope, also on exceptions: destroying a joinable
/// thread would terminate the process.
struct ThreadJoiner {
  explicit ThreadJoiner(std::vector<std::thread>& threadsToJoin) : threads(threadsToJoin) {}
  ~ThreadJoiner() {
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  ThreadJoiner(const ThreadJoiner&) = delete;
  ThreadJoiner& operator=(const ThreadJoiner&) = delete;

  std::vector<std::thread>& threads;
};

/// Calls `fn(first row, one past the last row)` for equal parts of `rows`, one thread a part, the
/// last part on the calling thread; returns when all are done. Parts: the smaller of `rows` and
/// `maxThreads`.
/// Throws the first exception of a started thread, the exception of the calling thread's own part,
/// or the system error of a thread that could not be started (the calling thread then runs no
/// part); in each case after all threads have ended.
/// Thread: any; `fn` runs on it and on fusion threads.
template <typename Fn>
void ParallelRows(int rows, unsigned maxThreads, Fn fn) {
  if (rows < 1) {
    return;
  }
  const unsigned parts = std::min(static_cast<unsigned>(rows), maxThreads);
  if (parts < 2 || rows < kMinParallelRows) {
    fn(0, rows);
    return;
  }
  const auto partBegin = [rows, parts](unsigned part) {
    return static_cast<int>(static_cast<std::int64_t>(part) * rows / parts);
  };
  std::exception_ptr failure;  // guarded by failureMutex
  std::mutex failureMutex;
  std::vector<std::thread> threads;
  threads.reserve(parts - 1);
  {
    const ThreadJoiner joiner(threads);
    for (unsigned part = 0; part + 1 < parts; ++part) {
      threads.emplace_back(
          [&fn, &failure, &failureMutex, first = partBegin(part), last = partBegin(part + 1)] {
            try {
              fn(first, last);
            } catch (...) {
              const std::lock_guard lock(failureMutex);
              if (!failure) {
                failure = std::current_exception();
              }
            }
          });
    }
    fn(partBegin(parts - 1), rows);
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace ostrel_native

// The owner thread of one vendor library: every call into the library runs on it, one at a time.
//
// Such a library is closed, not known to be thread-safe, and may take seconds or for ever. So its
// callers wait with a time-out, and whoever polls posts a refresh and does not wait at all.
//
// A time-out cancels nothing: the task still runs, or goes on running, when its caller has long
// gone. A callable therefore owns all that it touches; its captures are values, never a reference,
// `this` or a script value, and its result owns its data.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_set>
#include <utility>

#include "addon/common.h"
#include "addon/mutex.h"

namespace ostrel_native {

/// A key of `PostCoalesced` for those who post all the time, of one executor only: while a task of
/// this key is in flight, another post costs the look at a flag. Outlives the executor.
struct CoalescedKey {
  const char* name;
  std::atomic<bool> inFlight{false};  ///< queued or running; written under the executor's mutex
};

/// Guarantees: tasks run in the order of their arrival and never overlap; what was queued before
/// the destruction begins still runs; what a task captured dies on the owner thread before the
/// next wait, unless a caller of `Invoke` still holds it. Exceptions of tasks never reach the
/// thread.
///
/// A task must not call `Invoke` on its own executor: it would wait for what is queued behind it.
struct VendorSdkExecutor {
  /// Starts the owner thread. `executorName` begins every text that a failure sets; in lower case
  /// and with " sdk" behind it, it is the name of the thread, of which the system keeps 15 bytes.
  VendorSdkExecutor(std::string executorName, std::chrono::milliseconds longestSleep);

  /// Runs what is queued, then ends the owner thread. A task that never returns blocks it.
  ~VendorSdkExecutor();
  VendorSdkExecutor(const VendorSdkExecutor&) = delete;
  VendorSdkExecutor& operator=(const VendorSdkExecutor&) = delete;

  /// Appends `task`. False, and the task is dropped, once the executor is shutting down.
  /// Thread: any.
  bool Enqueue(std::function<void()> task);

  /// Appends `task` unless one with this key is queued or running; then, or once the executor is
  /// shutting down, it is dropped without a word. Never waits for a task.
  /// Thread: any.
  void PostCoalesced(const std::string& key, std::function<void()> task);

  /// The same for a key whose posts are many.
  /// Thread: any.
  template <typename F>
  void PostCoalesced(CoalescedKey& key, F&& task) {
    if (!key.inFlight) {
      Post(key.name, std::forward<F>(task), &key.inFlight);
    }
  }

  /// Runs `fn` on the owner thread and waits for its result, at most for `timeout`.
  /// Empty, with the last error set, after a time-out, after an exception of `fn`, and, without
  /// running it, once the executor is shutting down. Success leaves the last error alone.
  /// Thread: any but the owner.
  template <typename F>
  std::optional<std::invoke_result_t<std::decay_t<F>&>> Invoke(F&& fn,
                                                               std::chrono::milliseconds timeout);

  /// As `Invoke`, for a callable without a result: true if it ran to its end in time.
  /// Thread: any but the owner.
  template <typename F>
  bool InvokeVoid(F&& fn, std::chrono::milliseconds timeout);

  /// Runs `fn` on the calling thread, for what is not the owner thread's. An exception of `fn` sets
  /// the last error as in `Invoke`, and the result is empty.
  /// Thread: any.
  template <typename F>
  std::optional<std::invoke_result_t<F&>> CallHere(F&& fn) const {
    return Reported(name, fn);
  }

  /// Whether the owner thread is the caller.
  /// Thread: any while the executor lives.
  bool IsOwnerThread() const { return worker.get_id() == std::this_thread::get_id(); }

  /// Replaces the task that runs at the end of each interval without work; empty for none.
  /// Thread: any.
  void SetIdleTask(std::function<void()> task);

  /// Ends the owner thread once the queue is empty. The first call runs `lastTask`, if there is
  /// one, while work is still accepted; if it fails, the last error tells and nothing else.
  /// Thread: any but the owner.
  void Shutdown(const std::function<void()>& lastTask);

  /// The owner thread's loop.
  void Run();

  /// What both forms of `PostCoalesced` do. `inFlight`, unless null, is true for as long as the key
  /// is in `coalescedKeys`.
  void Post(const std::string& key, std::function<void()> task, std::atomic<bool>* inFlight);

  /// The result of `fn`; empty after an exception, with the last error set. Touches no member, as
  /// the texts below, so a caller that wakes late may outlive the executor.
  template <typename F>
  static std::optional<std::invoke_result_t<F&>> Reported(const std::string& owner, F& fn);

  /// The texts that go to the last error.
  static void SetTimedOut(const std::string& owner);
  static void SetFailed(const std::string& owner, const char* what);
  static void SetFailedUnknown(const std::string& owner);

  std::string name;
  std::chrono::milliseconds idleInterval;  ///< longest sleep while there is an idle task
  Mutex mutex;                             ///< a leaf: held for queue operations only
  std::condition_variable wake;
  std::deque<std::function<void()>> queue OSTREL_GUARDED_BY(mutex);
  std::unordered_set<std::string> coalescedKeys OSTREL_GUARDED_BY(mutex);  ///< queued or running
  std::function<void()> idleTask OSTREL_GUARDED_BY(mutex);
  bool stopping OSTREL_GUARDED_BY(mutex) = false;
  std::atomic<bool> shutdownStarted{false};  ///< makes the shutdown run once
  std::thread worker;                        ///< last: it uses all of the above
};

template <typename F>
std::optional<std::invoke_result_t<std::decay_t<F>&>> VendorSdkExecutor::Invoke(
    F&& fn, std::chrono::milliseconds timeout) {
  using Result = std::invoke_result_t<std::decay_t<F>&>;
  const std::string owner = name;
  const auto task = std::make_shared<std::packaged_task<Result()>>(std::forward<F>(fn));
  std::future<Result> future = task->get_future();
  if (!Enqueue([task] { (*task)(); })) {
    SetLastError(owner + " SDK worker is shutting down");
    return std::nullopt;
  }
  if (future.wait_for(timeout) != std::future_status::ready) {
    SetTimedOut(owner);
    return std::nullopt;
  }
  const auto result = [&future] { return future.get(); };
  return Reported(owner, result);
}

template <typename F>
std::optional<std::invoke_result_t<F&>> VendorSdkExecutor::Reported(const std::string& owner,
                                                                    F& fn) {
  try {
    return fn();
  } catch (const std::exception& error) {
    SetFailed(owner, error.what());
  } catch (...) {
    SetFailedUnknown(owner);
  }
  return std::nullopt;
}

template <typename F>
bool VendorSdkExecutor::InvokeVoid(F&& fn, std::chrono::milliseconds timeout) {
  return Invoke(
             [task = std::forward<F>(fn)]() mutable {
               task();
               return true;
             },
             timeout)
      .has_value();
}

}  // namespace ostrel_native

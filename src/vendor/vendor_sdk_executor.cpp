#include "vendor/vendor_sdk_executor.h"

#include <pthread.h>

#include <algorithm>
#include <cstddef>

#include "vendor/vendor_timeouts.h"

namespace ostrel_native {

namespace {

// A caller of Invoke has the exception already; no other caller asks for one.
void RunQuietly(const std::function<void()>& task) {
  try {
    task();
  } catch (...) {
  }
}

// Longest name of a thread, without its terminator.
constexpr std::size_t kLongestThreadName = 15;

// For debuggers and profilers, which show nothing else of whose thread it is.
void NameThisThread(std::string name) {
  for (char& letter : name) {
    letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  }
  name += ' ';
  name += "sdk";
  name.resize(std::min(name.size(), kLongestThreadName));
  pthread_setname_np(pthread_self(), name.c_str());
}

}  // namespace

VendorSdkExecutor::VendorSdkExecutor(std::string executorName,
                                     std::chrono::milliseconds longestSleep)
    : name(std::move(executorName)), idleInterval(longestSleep) {
  worker = std::thread(&VendorSdkExecutor::Run, this);
}

VendorSdkExecutor::~VendorSdkExecutor() {
  Shutdown({});
}

void VendorSdkExecutor::Run() {
  NameThisThread(name);
  for (;;) {
    // What a task captured must die with its turn, not when the next one comes.
    std::function<void()> task;
    std::function<void()> idle;
    {
      ConditionLock lock(mutex);
      if (!stopping) {
        const auto hasWork = [this]() OSTREL_REQUIRES(mutex) { return !queue.empty() || stopping; };
        // With nothing to do at its end, an interval need not end.
        wake.wait(lock.held, [&]() OSTREL_REQUIRES(mutex) { return hasWork() || idleTask; });
        const auto deadline = std::chrono::steady_clock::now() + idleInterval;
        wake.wait_until(lock.held, deadline, hasWork);
      }
      if (!queue.empty()) {
        task = std::move(queue.front());
        queue.pop_front();
      } else if (stopping) {
        return;
      } else {
        idle = idleTask;
      }
    }
    if (task) {
      RunQuietly(task);
    } else if (idle) {
      RunQuietly(idle);
    }
  }
}

bool VendorSdkExecutor::Enqueue(std::function<void()> task) {
  const MutexLock lock(mutex);
  if (stopping) {
    return false;
  }
  queue.push_back(std::move(task));
  wake.notify_one();
  return true;
}

void VendorSdkExecutor::PostCoalesced(const std::string& key, std::function<void()> task) {
  Post(key, std::move(task), nullptr);
}

void VendorSdkExecutor::Post(const std::string& key, std::function<void()> task,
                             std::atomic<bool>* inFlight) {
  const MutexLock lock(mutex);
  if (stopping || coalescedKeys.contains(key)) {
    return;
  }
  queue.emplace_back([this, key, task = std::move(task), inFlight] {
    RunQuietly(task);
    const MutexLock keyLock(mutex);
    coalescedKeys.erase(key);
    if (inFlight != nullptr) {
      *inFlight = false;
    }
  });
  try {
    coalescedKeys.insert(key);
  } catch (...) {
    queue.pop_back();
    throw;
  }
  if (inFlight != nullptr) {
    *inFlight = true;
  }
  wake.notify_one();
}

void VendorSdkExecutor::SetIdleTask(std::function<void()> task) {
  const MutexLock lock(mutex);
  idleTask = std::move(task);
  wake.notify_one();
}

void VendorSdkExecutor::Shutdown(const std::function<void()>& lastTask) {
  if (!shutdownStarted.exchange(true)) {
    if (lastTask) {
      InvokeVoid(lastTask, kOrdinaryCallTimeout);
    }
    {
      const MutexLock lock(mutex);
      stopping = true;
    }
    wake.notify_all();
    worker.join();
  }
}

void VendorSdkExecutor::SetTimedOut(const std::string& owner) {
  SetLastError(owner + " SDK call timed out");
}

void VendorSdkExecutor::SetFailed(const std::string& owner, const char* what) {
  SetLastError(owner + " SDK call failed: " + what);
}

void VendorSdkExecutor::SetFailedUnknown(const std::string& owner) {
  SetLastError(owner + " SDK call failed with an unknown error");
}

}  // namespace ostrel_native

// Counts the threads that a test starts, and lets the starting of one fail.
#pragma once

namespace ostrel_native::test {

/// The number of threads started so far, with success, in this process.
int StartedThreads();

/// While it lives, the `n`th start of a thread from now on fails as if there were no more threads.
struct FailingThreadStart {
  explicit FailingThreadStart(int n);
  ~FailingThreadStart();
  FailingThreadStart(const FailingThreadStart&) = delete;
  FailingThreadStart& operator=(const FailingThreadStart&) = delete;
};

}  // namespace ostrel_native::test

// Operations that are timed in processes of their own.
#pragma once

#include <sys/types.h>

#include <functional>

namespace ostrel_native::bench {

/// Runs an operation in a process of its own, split off from this one: what an operation leaves in
/// its heap makes its own next turn faster, but no other contender's.
/// The operation may not use threads that were started before.
class OwnProcess {
 public:
  struct Seconds {
    double wall;
    double processor;  ///< of all threads
  };

  explicit OwnProcess(const std::function<void(int threads)>& operation);
  ~OwnProcess();
  OwnProcess(const OwnProcess&) = delete;
  OwnProcess& operator=(const OwnProcess&) = delete;

  /// Waits for one call. Ends the program if the process fails.
  Seconds Run(int threads) const;

 private:
  pid_t child;
  int toChild;
  int fromChild;
};

}  // namespace ostrel_native::bench

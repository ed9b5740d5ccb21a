// Whether a thread waits for something.
#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

namespace ostrel_native {

/// Whether the system has put the thread of this process to sleep, as a lock does that another
/// thread holds.
inline bool IsAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string stat;
  std::getline(file, stat);
  // The state stands behind the name, which is in brackets and may hold anything.
  const std::size_t end = stat.rfind(')');
  return end != std::string::npos && stat.substr(end, 3) == ") S";
}

}  // namespace ostrel_native

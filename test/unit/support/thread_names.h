// The names that the system keeps of this process's threads.
#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace ostrel_native {

/// How many threads have each name now.
inline std::map<std::string, int> ThreadNames() {
  std::map<std::string, int> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(task.path() / "comm");
    // A thread that has just ended has no name to read.
    if (std::string name; std::getline(file, name)) {
      ++names[name];
    }
  }
  return names;
}

}  // namespace ostrel_native

// What the tests of both microscope bindings need.
#pragma once

#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/fake_library.h"

namespace ostrel_native {

inline constexpr char kEarlierError[] = "an earlier error";

/// The same text in the binding's store and in the addon's.
inline std::vector<std::string> Both(const std::string& text) {
  return {text, text};
}

/// Sends a command whose last word is a float, which the fakes take as its bits.
inline void SendFloat(const FakeLibrary& library, std::string command, float value) {
  library.Send(command.append(" ").append(std::to_string(std::bit_cast<std::int32_t>(value))));
}

/// Whether the process has the library at `path` open.
inline bool IsMapped(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  const std::string file = std::filesystem::canonical(path).string();
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with(file)) {
      return true;
    }
  }
  return false;
}

}  // namespace ostrel_native

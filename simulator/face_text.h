// Texts that a library writes into its caller's memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace ostrel_simulator {

/// Writes a terminated text, cut to the capacity in bytes; nothing where there is no room at all.
inline void WriteText(const std::string& text, void* buffer, std::size_t capacity) {
  if (buffer == nullptr || capacity < 1) {
    return;
  }
  const std::size_t length = std::min(text.size(), capacity - 1);
  std::memcpy(buffer, text.data(), length);
  static_cast<char*>(buffer)[length] = '\0';
}

}  // namespace ostrel_simulator

// The error text that a device binding keeps beside the addon's last error.
#pragma once

#include <mutex>
#include <string>

#include "addon/common.h"

namespace ostrel_native {

/// Writes `text` into a binding's own `error`, which `mutex` guards, and then into the addon's last
/// error. Success clears both with an empty text.
/// Thread: any.
inline void StoreBindingError(std::mutex& mutex, std::string& error, const std::string& text) {
  {
    const std::lock_guard lock(mutex);
    error = text;
  }
  SetLastError(text);
}

/// A copy of a binding's own error.
/// Thread: any.
inline std::string CopyBindingError(std::mutex& mutex, const std::string& error) {
  const std::lock_guard lock(mutex);
  return error;
}

}  // namespace ostrel_native

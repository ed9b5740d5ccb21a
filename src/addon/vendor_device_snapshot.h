// The record of one attached device, as a device binding hands it to script code.
#pragma once

#include <cstdint>
#include <string>

namespace ostrel_native {

/// Owns its texts: a library's pointers end with the task that read them.
struct VendorDeviceSnapshot {
  std::int32_t index = 0;  ///< the library's index, from 0; what a selection takes
  std::string uniqueId;    ///< UTF-8; empty if the library gave none
  std::string name;        ///< UTF-8; empty if the library gave none
};

}  // namespace ostrel_native

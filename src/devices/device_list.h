// Reading the list of attached devices from a library that tells a count and two texts for each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "addon/vendor_device_snapshot.h"

namespace ostrel_native {

/// A library that counts more of anything than this counts nonsense: neither a bus nor a device has
/// as many, and millions of entries would end the process for want of memory.
inline constexpr int kMostListed = 65'536;

/// What the last error says of a list that is not read because it is too long; `library` begins
/// the text, `entries` names what there are too many of.
/// Thread: any.
inline std::string TooManyToListText(const std::string& library, int count, const char* entries) {
  return library + " SDK reported " + std::to_string(count) + " " + entries + "; at most " +
         std::to_string(kMostListed) + " can be listed";
}

/// One record per index below `count`, in order. For a count that is nonsense there are none, and
/// `refuse`, `void()`, is called. Each text is read by its callable, `std::string(int index)`, the
/// identifier first, and copied before the library is called again, which may reuse its memory.
/// Thread: owner.
template <typename ReadIdentifier, typename ReadName, typename Refuse>
std::vector<VendorDeviceSnapshot> ListDevices(int count, ReadIdentifier readIdentifier,
                                              ReadName readName, Refuse refuse) {
  std::vector<VendorDeviceSnapshot> devices;
  if (count > kMostListed) {
    refuse();
    return devices;
  }
  for (std::int32_t index = 0; index < count; ++index) {
    // Braces evaluate from left to right.
    devices.push_back({.index = index, .uniqueId = readIdentifier(index), .name = readName(index)});
  }
  return devices;
}

}  // namespace ostrel_native

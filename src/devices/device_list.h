// Reading the list of attached devices from a library that tells a count and two texts for each.
#pragma once

#include <cstdint>
#include <vector>

#include "addon/vendor_device_snapshot.h"

namespace ostrel_native {

/// A library that counts more of anything than this counts nonsense: neither a bus nor a device has
/// as many, and millions of entries would end the process for want of memory.
inline constexpr int kMostListed = 4096;

/// One record per index below `count`, in order; none for a count that is nonsense. Each text is
/// read by its callable, `std::string(int index)`, the identifier first, and copied before the
/// library is called again, which may reuse its memory.
/// Thread: owner.
template <typename ReadIdentifier, typename ReadName>
std::vector<VendorDeviceSnapshot> ListDevices(int count, ReadIdentifier readIdentifier,
                                              ReadName readName) {
  std::vector<VendorDeviceSnapshot> devices;
  if (count > kMostListed) {
    return devices;
  }
  for (std::int32_t index = 0; index < count; ++index) {
    // Braces evaluate from left to right.
    devices.push_back({.index = index, .uniqueId = readIdentifier(index), .name = readName(index)});
  }
  return devices;
}

}  // namespace ostrel_native

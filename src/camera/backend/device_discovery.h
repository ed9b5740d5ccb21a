// The list of cameras and of their capture formats, asked of the backend anew at each call and
// passed on in its order: nothing is sorted, filtered or remembered.
#pragma once

#include <cstdint>
#include <string>

#include "camera/backend/avf_format.h"

namespace ostrel_native {

/// A capture format as script code sees it.
struct DeviceFormat {
  std::int32_t width = 0;      ///< pixels
  std::int32_t height = 0;     ///< pixels
  std::int32_t frameRate = 0;  ///< frames a second
  std::string type;            ///< the backend's own name of the format
};

/// Counts beyond this are taken for garbage: listing them would end the process for want of
/// memory.
inline constexpr int kMaxListedFormats = 1 << 20;

/// The backend's count as it is, also a negative one; 0 without a backend or an entry.
/// Thread: any environment.
int DevicesCount();

/// The backend's texts on a device, at most 1023 bytes; empty without a backend or an entry.
/// `device` is not checked: what an unknown one is called is the backend's business.
/// Thread: any environment.
std::string DeviceUniqueId(int device);
std::string DeviceModelId(int device);
std::string DeviceName(int device);
std::string DeviceType(int device);

/// Fetches one text of an AVFoundation device through `entry`, which may be null.
/// Thread: any environment.
std::string ReadAvfDeviceString(int device, void (*entry)(int device, void* buffer, int capacity));

/// How many formats `DeviceFormatAt` can be asked for; 0 without a backend or an entry, and for
/// a count that is negative or beyond `kMaxListedFormats`.
/// Thread: any environment.
int DeviceFormatsCount(int device);

/// The format at `index`; zeros and an empty type where the backend has no entry. An AVFoundation
/// backend is asked for its descriptor once for each of the four fields.
/// Thread: any environment.
DeviceFormat DeviceFormatAt(int device, int index);

/// Asks an AVFoundation backend for a format's descriptor and reads it; the default record
/// without such an entry.
/// Thread: any environment.
AvfFormat ParseAvfFormat(int device, int format);

}  // namespace ostrel_native

// Numbers and small records that every part of the camera subsystem shares.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace ostrel_native {

/// The camera library behind the binding.
enum class BackendKind : std::int32_t {
  None = 0,          ///< nothing loaded
  Linux = 1,         ///< the `cnokhwa_*` table
  DirectShow = 2,    ///< the `cdshow_*` table; nothing fills it on Linux
  AvFoundation = 3,  ///< the `avf_*` table; nothing fills it on Linux
};

// Result codes. Script code receives them as plain numbers; a backend's own negative codes
// pass through unchanged.
inline constexpr int kResultOk = 0;
inline constexpr int kResultNotYet = -256;        ///< not yet, or nothing new
inline constexpr int kResultNoPreview = -1;       ///< no preview for this device, or no such slot
inline constexpr int kResultPreviewStopped = -5;  ///< preview not running
inline constexpr int kResultNoBackend = -6;       ///< no backend, or its entry is missing
inline constexpr int kResultBadSlot = -7;  ///< wrong buffer type, or a release that does not match
inline constexpr int kResultFrameFailed = -8;   ///< a grab or a JPEG decode failed
inline constexpr int kResultNoControl = -9;     ///< the image control is not available
inline constexpr int kResultNoGeometry = -10;   ///< frame size unknown or not positive
inline constexpr int kResultNoRoom = -11;       ///< buffer too small, or a frame that does not fit
inline constexpr int kResultUnsupported = -13;  ///< backend or pixel format cannot do this

/// The size that `cameraStartCapture` was given for a device, each side at least 0.
struct CaptureDimensions {
  std::int32_t width = 0;   ///< pixels
  std::int32_t height = 0;  ///< pixels
};

/// `count * size` where it fits int32 and both are positive; otherwise nothing.
/// Backends count bytes in int32, so a product beyond it is refused, never wrapped.
constexpr std::optional<std::int32_t> ByteProduct(std::int32_t count, std::int32_t size) {
  const std::int64_t product = std::int64_t{count} * size;
  if (count < 1 || size < 1 || product > std::numeric_limits<std::int32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(product);
}

}  // namespace ostrel_native

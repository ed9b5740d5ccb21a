#include "camera/camera_binding.h"

#include <algorithm>
#include <cstddef>

#include "addon/common.h"
#include "addon/native_library.h"

namespace ostrel_native {

namespace {

// A device index is a place in a short list of cameras. Script code may name any int32, which
// must not turn into gigabytes of remembered sizes.
constexpr int kMaxRememberedDevices = 4096;

constexpr int kCnokhwaSymbolCount = 0
#define REQUIRED(name, result, parameters) +1
#define OPTIONAL(name, result, parameters) +1
#include "camera/cnokhwa_symbols.h"
    ;
static_assert(kCnokhwaSymbolCount == 20);

// In the order of the table. False, with the last error set, at the first missing symbol.
bool LoadCnokhwaTable(CameraBinding& binding) {
#define REQUIRED(name, result, parameters)                         \
  if (!LoadRequiredSymbol(binding.handle, #name, &binding.name)) { \
    return false;                                                  \
  }
#define OPTIONAL(name, result, parameters) \
  binding.name = reinterpret_cast<decltype(binding.name)>(LoadSymbol(binding.handle, #name));
#include "camera/cnokhwa_symbols.h"
  return true;
}

// The entries of a refused library point into code that is about to be unmapped.
void ClearCnokhwaTable(CameraBinding& binding) {
#define REQUIRED(name, result, parameters) binding.name = nullptr;
#define OPTIONAL(name, result, parameters) binding.name = nullptr;
#include "camera/cnokhwa_symbols.h"
}

bool IsRemembered(int device) {
  return device >= 0 && device < kMaxRememberedDevices;
}

}  // namespace

const char* BackendName(BackendKind kind) {
  switch (kind) {
    case BackendKind::Linux:
      return "linux-v4l2";
    case BackendKind::DirectShow:
      return "directshow";
    case BackendKind::AvFoundation:
      return "avfoundation";
    case BackendKind::None:
      break;
  }
  return "none";
}

bool CameraBinding::Load(const std::string& explicitPath) {
  if (loaded) {
    return true;
  }
  for (const std::string& candidate :
       BuildLoadCandidates(explicitPath, {"libcnokhwa.so", "cnokhwa"})) {
    handle = OpenLibrary(candidate);
    if (handle == nullptr) {
      continue;
    }
    if (!LoadCnokhwaTable(*this)) {
      ClearCnokhwaTable(*this);
      CloseLibrary(handle);
      handle = nullptr;
      continue;
    }
    path = candidate;
    loaded = true;
    SetLastError("");
    // Last: a preview that was started before the load may be asking for it already.
    kind.store(BackendKind::Linux, std::memory_order_release);
    return true;
  }
  SetLastError(
      "Could not load Linux camera backend library (libcnokhwa). Set OSTREL_NATIVE_DIR or pass "
      "explicit path.");
  return false;
}

void CameraBinding::RememberDimensions(int device, std::int32_t width, std::int32_t height) {
  if (!IsRemembered(device)) {
    return;
  }
  const auto index = static_cast<std::size_t>(device);
  const std::lock_guard<std::mutex> lock(dimensionsMutex);
  if (captureDimensions.size() <= index) {
    captureDimensions.resize(index + 1);
  }
  captureDimensions[index] = {.width = std::max(width, 0), .height = std::max(height, 0)};
}

CaptureDimensions CameraBinding::RememberedDimensions(int device) const {
  if (!IsRemembered(device)) {
    return {};
  }
  const auto index = static_cast<std::size_t>(device);
  const std::lock_guard<std::mutex> lock(dimensionsMutex);
  return index < captureDimensions.size() ? captureDimensions[index] : CaptureDimensions{};
}

}  // namespace ostrel_native

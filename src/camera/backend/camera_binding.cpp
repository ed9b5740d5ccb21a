#include "camera/backend/camera_binding.h"

#include <algorithm>
#include <cstddef>
#include <utility>

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
#include "camera/backend/cnokhwa_symbols.h"
    ;
static_assert(kCnokhwaSymbolCount == 20);

// A library on its way into the binding.
struct CnokhwaTable {
#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "camera/backend/cnokhwa_symbols.h"
};

// In the order of the table. False, with the last error set, at the first missing symbol.
bool FindSymbols(void* library, CnokhwaTable& table) {
#define REQUIRED(name, result, parameters)                \
  if (!LoadRequiredSymbol(library, #name, &table.name)) { \
    return false;                                         \
  }
#define OPTIONAL(name, result, parameters) \
  table.name = reinterpret_cast<decltype(table.name)>(LoadSymbol(library, #name));
#include "camera/backend/cnokhwa_symbols.h"
  return true;
}

// Opens the first candidate that has the table. Null, with the last error set, if none has.
void* OpenCnokhwa(const std::string& explicitPath, CnokhwaTable& table, std::string& path) {
  for (const std::string& candidate :
       BuildLoadCandidates(explicitPath, {"libcnokhwa.so", "cnokhwa"})) {
    void* const library = OpenLibrary(candidate);
    if (library == nullptr) {
      continue;
    }
    if (FindSymbols(library, table)) {
      path = candidate;
      return library;
    }
    CloseLibrary(library);
  }
  return nullptr;
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
  {
    const MutexLock lock(loadMutex);
    if (loaded) {
      return true;
    }
  }
  // Opened without the lock: a library's own initialisers run meanwhile, for as long as they like.
  CnokhwaTable table;
  std::string candidate;
  void* const library = OpenCnokhwa(explicitPath, table, candidate);
  if (library == nullptr) {
    SetLastError(
        "Could not load Linux camera backend library (libcnokhwa). Set OSTREL_NATIVE_DIR or pass "
        "explicit path.");
    return false;
  }
  bool isInstalled = false;
  {
    const MutexLock lock(loadMutex);
    if (!loaded) {
#define REQUIRED(name, result, parameters) name = table.name;
#define OPTIONAL(name, result, parameters) name = table.name;
#include "camera/backend/cnokhwa_symbols.h"
      handle = library;
      path = std::move(candidate);
      loaded = true;
      // Last: a preview that was started before the load may be asking for it already.
      kind.store(BackendKind::Linux, std::memory_order_release);
      isInstalled = true;
    }
  }
  if (isInstalled) {
    SetLastError("");
  } else {
    CloseLibrary(library);  // another thread's is in use by now
  }
  return true;
}

std::string CameraBinding::LoadPath() const {
  return kind.load(std::memory_order_acquire) == BackendKind::None ? std::string() : path;
}

void CameraBinding::RememberDimensions(int device, std::int32_t width, std::int32_t height) {
  if (!IsRemembered(device)) {
    return;
  }
  const auto index = static_cast<std::size_t>(device);
  const MutexLock lock(dimensionsMutex);
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
  const MutexLock lock(dimensionsMutex);
  return index < captureDimensions.size() ? captureDimensions[index] : CaptureDimensions{};
}

}  // namespace ostrel_native

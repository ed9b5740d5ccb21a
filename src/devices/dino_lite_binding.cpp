#include "devices/dino_lite_binding.h"

#include <cassert>

#include "addon/native_library.h"

namespace ostrel_native {

namespace {

constexpr int kSymbolCount = 0
#define REQUIRED(name, result, parameters) +1
#define OPTIONAL(name, result, parameters) +1
#include "devices/dino_lite_symbols.h"
    ;
static_assert(kSymbolCount == 19);

// The required entries in the order of the list. Empty, or, with the last error set as well, what
// to say of the first missing one.
std::string LoadRequiredTable(void* handle, DinoLiteBinding& binding) {
#define REQUIRED(name, result, parameters)                 \
  if (!LoadRequiredSymbol(handle, #name, &binding.name)) { \
    return MissingSymbolText(#name);                       \
  }
#define OPTIONAL(name, result, parameters)
#include "devices/dino_lite_symbols.h"
  return "";
}

// In an order of their own, the light before all else.
void LoadOptionalTable(void* handle, DinoLiteBinding& binding) {
  const auto take = [handle]<typename Fn>(const char* name, Fn& entry) {
    entry = reinterpret_cast<Fn>(LoadSymbol(handle, name));
  };
  take("dl_led_mode_count", binding.dl_led_mode_count);
  take("dl_led_mode", binding.dl_led_mode);
  take("dl_set_led_state", binding.dl_set_led_state);
  take("dl_unselect_device", binding.dl_unselect_device);
  take("dl_get_amr_update_count", binding.dl_get_amr_update_count);
  take("dl_get_fovx", binding.dl_get_fovx);
  take("dl_supports_amr", binding.dl_supports_amr);
  take("dl_initialize_selected_device", binding.dl_initialize_selected_device);
  take("dl_get_last_error", binding.dl_get_last_error);
}

void ClearTable(DinoLiteBinding& binding) {
#define REQUIRED(name, result, parameters) binding.name = nullptr;
#define OPTIONAL(name, result, parameters) binding.name = nullptr;
#include "devices/dino_lite_symbols.h"
}

}  // namespace

const char* DinoBackendText(DinoBackendKind kind) {
  switch (kind) {
    case DinoBackendKind::LibDinoLite:
      return "mac-libdinolite";
    case DinoBackendKind::Dnx:
      return "windows-dnx";
    case DinoBackendKind::None:
      break;
  }
  return "none";
}

bool DinoLiteBinding::Load(const std::string& explicitPath) {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  if (loaded) {
    return true;
  }
  std::string firstFailure;
  for (const std::string& candidate :
       BuildLoadCandidates(explicitPath, {"libdinolite.so", "libdinolite.dylib"})) {
    // Not read back from the last error, which another thread may have written by then.
    std::string failure;
    handle = OpenLibrary(candidate, failure);
    if (handle != nullptr) {
      failure = LoadRequiredTable(handle, *this);
      if (failure.empty()) {
        LoadOptionalTable(handle, *this);
        backendKind = DinoBackendKind::LibDinoLite;
        loaded = true;
        path = candidate;
        resolvedPath = candidate;
        SetBindingError("");
        return true;
      }
      // The entries of a refused library point into code that is about to be unmapped.
      ClearTable(*this);
      CloseLibrary(handle);
      handle = nullptr;
    }
    if (firstFailure.empty()) {
      firstFailure = failure;
    }
  }
  SetBindingError(firstFailure.empty() ? "Could not load Dino-Lite native library" : firstFailure);
  return false;
}

void DinoLiteBinding::SetBindingError(const std::string& text) {
  {
    const MutexLock lock(mutex);
    error = text;
  }
  SetLastError(text);
}

std::string DinoLiteBinding::ErrorText() const {
  const MutexLock lock(mutex);
  return error;
}

bool DinoLiteBinding::CanStartOnOwnerThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  if (dl_initialize != nullptr && dl_devices_count != nullptr) {
    return true;
  }
  SetBindingError("Dino-Lite SDK initialization functions are unavailable");
  return false;
}

void DinoLiteBinding::StartOnOwnerThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  dl_initialize();
  deviceCount = dl_devices_count();
  initialized = true;
}

void DinoLiteBinding::ClearDeviceStateOnOwnerThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  supportsAmr = false;
  supportsMicrotouch = false;
  ledModes.clear();
  ledState = 0;
  controllableLedsCount = 0;
  amrRead = false;
  amrAccepted = false;
  amrRaw = -1.0;
}

void DinoLiteBinding::DropSelectionOnOwnerThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  // The library is asked only where the binding itself has not selected anything.
  const auto librarySelected = [this] {
    return dl_get_selected_device != nullptr && dl_get_selected_device() >= 0;
  };
  if (dl_unselect_device != nullptr && (selectedDeviceIndex >= 0 || librarySelected())) {
    dl_unselect_device();
  }
  ClearDeviceStateOnOwnerThread();
  microtouchEnabled = false;
  selectedDeviceIndex = -1;
}

}  // namespace ostrel_native

#include "devices/dino_lite_binding.h"

#include "addon/native_library.h"
#include "devices/binding_error.h"

namespace ostrel_native {

namespace {

constexpr int kSymbolCount = 0
#define REQUIRED(name, result, parameters) +1
#define OPTIONAL(name, result, parameters) +1
#include "devices/dino_lite_symbols.h"
    ;
static_assert(kSymbolCount == 19);

// The required entries first, each kind in the order of the list. Empty, or, with the last error
// set as well, what to say of the first missing one.
std::string LoadTable(void* handle, DinoLiteBinding& binding) {
#define REQUIRED(name, result, parameters)                 \
  if (!LoadRequiredSymbol(handle, #name, &binding.name)) { \
    return MissingSymbolText(#name);                       \
  }
#define OPTIONAL(name, result, parameters)
#include "devices/dino_lite_symbols.h"
#define REQUIRED(name, result, parameters)
#define OPTIONAL(name, result, parameters) \
  binding.name = reinterpret_cast<decltype(binding.name)>(LoadSymbol(handle, #name));
#include "devices/dino_lite_symbols.h"
  return "";
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
      failure = LoadTable(handle, *this);
      if (failure.empty()) {
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
  StoreBindingError(mutex, error, text);
}

bool DinoLiteBinding::CanStart() {
  if (dl_initialize != nullptr && dl_devices_count != nullptr) {
    return true;
  }
  SetBindingError("Dino-Lite SDK initialization functions are unavailable");
  return false;
}

void DinoLiteBinding::Start() {
  dl_initialize();
  deviceCount = dl_devices_count();
  initialized = true;
}

void DinoLiteBinding::ClearDeviceState() {
  supportsAmr = false;
  supportsMicrotouch = false;
  ledModes.clear();
  ledState = 0;
  controllableLedsCount = 0;
  amrRead = false;
  amrAccepted = false;
  amrRaw = -1.0;
}

void DinoLiteBinding::DropSelection() {
  // The library is asked only where the binding itself has not selected anything.
  const auto librarySelected = [this] {
    return dl_get_selected_device != nullptr && dl_get_selected_device() >= 0;
  };
  if (dl_unselect_device != nullptr && (selectedDeviceIndex >= 0 || librarySelected())) {
    dl_unselect_device();
  }
  ClearDeviceState();
  microtouchEnabled = false;
  selectedDeviceIndex = -1;
}

}  // namespace ostrel_native

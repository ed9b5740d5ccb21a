#include "simulator/reference_loader.h"

#include "addon/common.h"
#include "addon/native_library.h"

namespace ostrel_native {

namespace {

// Every entry may be missing: each use of one tests it.
#define OPTIONAL(name, result, parameters) \
  binding.name = reinterpret_cast<decltype(binding.name)>(LoadSymbol(library, #name));

void LoadDshowTable(CameraBinding& binding, void* library) {
#include "camera/dshow_symbols.h"
}

#define OPTIONAL(name, result, parameters) \
  binding.name = reinterpret_cast<decltype(binding.name)>(LoadSymbol(library, #name));

void LoadAvfTable(CameraBinding& binding, void* library) {
#include "camera/avf_symbols.h"
}

}  // namespace

bool LoadReferenceBackend(CameraBinding& binding, const std::string& path) {
  if (binding.loaded) {
    return true;
  }
  void* const library = path.empty() ? nullptr : OpenLibrary(path);
  if (library == nullptr) {
    return false;
  }
  BackendKind kind = BackendKind::None;
  if (LoadSymbol(library, "cdshow_initialize") != nullptr) {
    LoadDshowTable(binding, library);
    kind = BackendKind::DirectShow;
  } else if (LoadSymbol(library, "avf_initialize") != nullptr) {
    LoadAvfTable(binding, library);
    kind = BackendKind::AvFoundation;
  } else {
    CloseLibrary(library);
    return false;
  }
  binding.handle = library;
  binding.path = path;
  binding.loaded = true;
  SetLastError("");
  // Last of all: whoever sees the kind must see the table.
  binding.kind.store(kind, std::memory_order_release);
  return true;
}

}  // namespace ostrel_native

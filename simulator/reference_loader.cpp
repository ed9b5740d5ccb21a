#include "simulator/reference_loader.h"

#include "addon/common.h"
#include "addon/mutex.h"
#include "addon/native_library.h"

namespace ostrel_native {

namespace {

// Every entry may be missing: each use of one tests it.
#define OPTIONAL(name, result, parameters) \
  binding.name = reinterpret_cast<decltype(binding.name)>(LoadSymbol(library, #name));

void LoadDshowTable(CameraBinding& binding, void* library) {
#include "camera/backend/dshow_symbols.h"
}

#define OPTIONAL(name, result, parameters) \
  binding.name = reinterpret_cast<decltype(binding.name)>(LoadSymbol(library, #name));

void LoadAvfTable(CameraBinding& binding, void* library){
#include "camera/backend/avf_symbols.h"
}

// By the function that each kind begins with; `None` for a null handle.
BackendKind KindOf(void* library) {
  if (LoadSymbol(library, "cdshow_initialize") != nullptr) {
    return BackendKind::DirectShow;
  }
  return LoadSymbol(library, "avf_initialize") != nullptr ? BackendKind::AvFoundation
                                                          : BackendKind::None;
}

}  // namespace

bool LoadReferenceBackend(CameraBinding& binding, const std::string& path) {
  if (binding.kind.load(std::memory_order_acquire) != BackendKind::None) {
    return true;
  }
  // Opened without the lock: a library's own initialisers run meanwhile, for as long as they like.
  void* const library = path.empty() ? nullptr : OpenLibrary(path);
  const BackendKind kind = KindOf(library);
  if (kind == BackendKind::None) {
    CloseLibrary(library);
    return false;
  }
  bool isInstalled = false;
  {
    const MutexLock lock(binding.loadMutex);
    if (!binding.loaded) {
      kind == BackendKind::DirectShow ? LoadDshowTable(binding, library)
                                      : LoadAvfTable(binding, library);
      binding.handle = library;
      binding.path = path;
      binding.loaded = true;
      // Last of all: whoever sees the kind must see the table.
      binding.kind.store(kind, std::memory_order_release);
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

}  // namespace ostrel_native

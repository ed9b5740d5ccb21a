#include "devices/ostrel_binding.h"

#include "addon/common.h"
#include "addon/native_library.h"
#include "devices/binding_error.h"

namespace ostrel_native {

namespace {

constexpr int kSymbolCount = 0
#define REQUIRED(name, result, parameters) +1
#define OPTIONAL(name, result, parameters) +1
#include "devices/ostrel_symbols.h"
    ;
static_assert(kSymbolCount == 22);

static_assert(std::atomic<bool>::is_always_lock_free);
static_assert(std::atomic<std::int32_t>::is_always_lock_free);

// In the order of the table, the required entries first. False, with the last error set, at the
// first missing one.
bool LoadTable(void* handle, OstrelApi& api) {
#define REQUIRED(name, result, parameters)             \
  if (!LoadRequiredSymbol(handle, #name, &api.name)) { \
    return false;                                      \
  }
#define OPTIONAL(name, result, parameters)
#include "devices/ostrel_symbols.h"
#define REQUIRED(name, result, parameters)
#define OPTIONAL(name, result, parameters) \
  api.name = reinterpret_cast<decltype(api.name)>(LoadSymbol(handle, #name));
#include "devices/ostrel_symbols.h"
  return true;
}

}  // namespace

bool OstrelBinding::Load(const std::string& explicitPath) {
  if (loaded) {
    return true;
  }
  for (const std::string& candidate :
       BuildLoadCandidates(explicitPath, {"libostrel.so", "ostrel.so"})) {
    handle = OpenLibrary(candidate);
    if (handle == nullptr) {
      continue;
    }
    if (!LoadTable(handle, api)) {
      // The entries of a refused library point into code that is about to be unmapped.
      api = {};
      CloseLibrary(handle);
      handle = nullptr;
      continue;
    }
    initialized = false;
    path = candidate;
    loaded.store(true, std::memory_order_release);
    SetBindingError("");
    return true;
  }
  SetBindingError("Could not load Ostrel native library");
  return false;
}

bool OstrelBinding::Init(bool force) {
  if (LoadedApi() == nullptr || api.Init == nullptr) {
    return false;
  }
  if (initialized && !force) {
    return true;
  }
  std::unique_lock lock(startMutex);
  return StartAndUnlock(lock, force);
}

bool OstrelBinding::InitUnlessBusy() {
  if (LoadedApi() == nullptr || api.Init == nullptr) {
    return false;
  }
  if (initialized) {
    return true;
  }
  std::unique_lock lock(startMutex, std::try_to_lock);
  return lock.owns_lock() && StartAndUnlock(lock, false);
}

bool OstrelBinding::StartAndUnlock(std::unique_lock<std::mutex>& lock, bool force) {
  if (initialized && !force) {
    return true;
  }
  if (initialized) {
    if (api.Destroy != nullptr) {
      api.Destroy();
    }
    initialized = false;
    selectedDevice = -1;
  }
  const bool started = api.Init() != 0;
  initialized = started;
  lock.unlock();
  SetBindingError(started ? "" : "Ostrel SDK initialization failed");
  return started;
}

void OstrelBinding::Dispose() {
  const std::lock_guard lock(startMutex);
  if (initialized && api.Destroy != nullptr) {
    api.Destroy();
    initialized = false;
    selectedDevice = -1;
  }
}

void OstrelBinding::SetBindingError(const std::string& text) {
  StoreBindingError(errorMutex, lastError, text);
}

std::string OstrelBinding::LastErrorText() const {
  std::string own = CopyBindingError(errorMutex, lastError);
  if (!own.empty()) {
    return own;
  }
  const OstrelApi* const table = LoadedApi();
  if (table == nullptr || table->GetLastErrorString == nullptr) {
    return "";
  }
  const std::lock_guard lock(libraryTextMutex);
  return SafeCString(table->GetLastErrorString());
}

}  // namespace ostrel_native

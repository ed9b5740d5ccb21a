#include "devices/ostrel_binding.h"

#include <cassert>

#include "addon/common.h"
#include "addon/native_library.h"

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

// In the order of the list. False, with the last error set, at the first missing one.
bool LoadRequiredTable(void* handle, OstrelApi& api) {
#define REQUIRED(name, result, parameters)             \
  if (!LoadRequiredSymbol(handle, #name, &api.name)) { \
    return false;                                      \
  }
#define OPTIONAL(name, result, parameters)
#include "devices/ostrel_symbols.h"
  return true;
}

// In an order of their own, the versions before all else.
void LoadOptionalTable(void* handle, OstrelApi& api) {
  const auto take = [handle]<typename Fn>(const char* name, Fn& entry) {
    entry = reinterpret_cast<Fn>(LoadSymbol(handle, name));
  };
  take("GetVersionInfo", api.GetVersionInfo);
  take("GetProtocolVersionInfo", api.GetProtocolVersionInfo);
  take("GetApiVersion", api.GetApiVersion);
  take("GetPixelSizeInfo", api.GetPixelSizeInfo);
  take("GetLensGroupInfo", api.GetLensGroupInfo);
  take("TriggerAutoFocus", api.TriggerAutoFocus);
  take("GetFocusPosition", api.GetFocusPosition);
  take("SetFocusPosition", api.SetFocusPosition);
  take("FocusNearStep", api.FocusNearStep);
  take("FocusFarStep", api.FocusFarStep);
  take("GetLedState", api.GetLedState);
  take("SetLedState", api.SetLedState);
  take("GetLastErrorString", api.GetLastErrorString);
}

}  // namespace

bool OstrelBinding::Load(const std::string& explicitPath) {
  assert(g_ostrelExecutor.IsOwnerThread());
  if (loaded) {
    return true;
  }
  for (const std::string& candidate :
       BuildLoadCandidates(explicitPath, {"libostrel.so", "ostrel.so"})) {
    handle = OpenLibrary(candidate);
    if (handle == nullptr) {
      continue;
    }
    if (!LoadRequiredTable(handle, api)) {
      // The entries of a refused library point into code that is about to be unmapped.
      api = {};
      CloseLibrary(handle);
      handle = nullptr;
      continue;
    }
    LoadOptionalTable(handle, api);
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
  std::optional<bool> started;
  {
    const MutexLock lock(startMutex);
    started = StartUnlessStarted(force);
  }
  return ReportStart(started);
}

bool OstrelBinding::InitUnlessBusy() {
  if (LoadedApi() == nullptr || api.Init == nullptr) {
    return false;
  }
  if (initialized) {
    return true;
  }
  std::unique_lock<std::mutex> lock(startMutex, std::try_to_lock);
  if (!lock.owns_lock()) {
    return false;
  }
  startMutex.AssertHeld();
  const std::optional<bool> started = StartUnlessStarted(false);
  lock.unlock();
  return ReportStart(started);
}

std::optional<bool> OstrelBinding::StartUnlessStarted(bool force) {
  if (initialized && !force) {
    return std::nullopt;
  }
  if (initialized) {
    if (api.Destroy != nullptr) {
      api.Destroy();
    }
    initialized = false;
    selectedDevice = -1;
  }
  initialized = api.Init() != 0;
  return initialized;
}

bool OstrelBinding::ReportStart(std::optional<bool> started) {
  if (started) {
    SetBindingError(*started ? "" : "Ostrel SDK initialization failed");
  }
  return started.value_or(true);
}

void OstrelBinding::Dispose() {
  const MutexLock lock(startMutex);
  if (initialized && api.Destroy != nullptr) {
    api.Destroy();
    initialized = false;
    selectedDevice = -1;
  }
}

void OstrelBinding::SetBindingError(const std::string& text) {
  {
    const MutexLock lock(errorMutex);
    lastError = text;
  }
  SetLastError(text);
}

std::string OstrelBinding::OwnErrorText() const {
  const MutexLock lock(errorMutex);
  return lastError;
}

std::string OstrelBinding::LastErrorText() const {
  std::string own = OwnErrorText();
  if (!own.empty()) {
    return own;
  }
  const OstrelApi* const table = LoadedApi();
  if (table == nullptr || table->GetLastErrorString == nullptr) {
    return "";
  }
  const auto read = [this, table] {
    const MutexLock lock(libraryTextMutex);
    return SafeCString(table->GetLastErrorString());
  };
  return g_ostrelExecutor.CallHere(read).value_or("");
}

}  // namespace ostrel_native

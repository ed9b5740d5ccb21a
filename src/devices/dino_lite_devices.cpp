#include "devices/dino_lite_devices.h"

#include <array>
#include <cassert>

#include "devices/device_list.h"
#include "devices/dino_lite_telemetry.h"

namespace ostrel_native {

namespace {

constexpr std::size_t kTextCapacity = 1024;

using ReadTextFn = decltype(DinoLiteBinding::dl_get_device_name);

std::string ReadDeviceTextOnOwnerThread(ReadTextFn DinoLiteBinding::*entry, int index) {
  if (!g_dinoLite.IsServed() || g_dinoLite.*entry == nullptr || index < 0) {
    return "";
  }
  std::array<char, kTextCapacity> buffer{};
  (g_dinoLite.*entry)(static_cast<unsigned int>(index), buffer.data(), kTextCapacity);
  buffer.back() = '\0';
  return buffer.data();
}

std::string ReadDeviceIdentifierOnOwnerThread(int index) {
  return ReadDeviceTextOnOwnerThread(&DinoLiteBinding::dl_get_device_unique_id, index);
}

std::string ReadDeviceNameOnOwnerThread(int index) {
  return ReadDeviceTextOnOwnerThread(&DinoLiteBinding::dl_get_device_name, index);
}

DinoLoadResult LoadOnOwnerThread(const std::string& path) {
  const bool ok = g_dinoLite.Load(path);
  UpdateDinoSnapshotOnOwnerThread();
  return {.ok = ok, .backend = DinoBackendText(g_dinoLite.backendKind), .path = g_dinoLite.path};
}

bool StartLibraryOnOwnerThread(bool force) {
  if (!g_dinoLite.IsServed() || !g_dinoLite.CanStartOnOwnerThread()) {
    return false;
  }
  if (g_dinoLite.initialized && !force) {
    return true;
  }
  if (force) {
    g_dinoLite.DropSelectionOnOwnerThread();
  }
  g_dinoLite.StartOnOwnerThread();
  g_dinoLite.SetBindingError("");
  return true;
}

bool InitOnOwnerThread(bool force) {
  const bool ok = StartLibraryOnOwnerThread(force);
  UpdateDinoSnapshotOnOwnerThread();
  ResetDinoTelemetry(-1);
  return ok;
}

void DisposeOnOwnerThread() {
  if (g_dinoLite.backendKind == DinoBackendKind::LibDinoLite) {
    g_dinoLite.DropSelectionOnOwnerThread();
    g_dinoLite.initialized = false;
    g_dinoLite.deviceCount = 0;
  }
  // What a device of any backend leaves behind.
  g_dinoLite.selectedDeviceIndex = -1;
  g_dinoLite.ledState = 0;
  g_dinoLite.controllableLedsCount = 0;
  g_dinoLite.ledModes.clear();
  UpdateDinoSnapshotOnOwnerThread();
  ResetDinoTelemetry(-1);
}

DinoLiteBinding::BackendSelection SelectBackendOnOwnerThread() {
  const bool ok = g_dinoLite.IsServed();
  DinoLiteBinding::BackendSelection selection{.ok = ok,
                                              .supportsAmr = ok,
                                              .dnxLoadAttempted = false,
                                              .backend = DinoBackendText(g_dinoLite.backendKind),
                                              .path = g_dinoLite.path,
                                              .reason = ok ? "" : "libdinolite is not loaded"};
  UpdateDinoSnapshotOnOwnerThread();
  ResetDinoTelemetry(-1);
  return selection;
}

bool SelectDeviceOnOwnerThread(int index) {
  const bool ok = g_dinoLite.SelectDevice(index);
  ResetDinoTelemetry(ok ? index : -1);
  if (ok) {
    ReadDinoAmrOnOwnerThread();
  }
  UpdateDinoSnapshotOnOwnerThread();
  return ok;
}

}  // namespace

std::vector<VendorDeviceSnapshot> ReadDinoDevicesOnCurrentThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  const std::int32_t count = g_dinoLite.IsServed() ? g_dinoLite.deviceCount : 0;
  return ListDevices(
      count, ReadDeviceIdentifierOnOwnerThread, ReadDeviceNameOnOwnerThread, [count] {
        g_dinoLite.SetBindingError(TooManyToListText(g_dinoLiteExecutor.name, count, "devices"));
      });
}

DinoLoadResult LoadDinoLibrary(const std::string& path, std::chrono::milliseconds timeout) {
  // The library needs no regular service.
  g_dinoLiteExecutor.SetIdleTask([] {});
  return g_dinoLiteExecutor.Invoke([path] { return LoadOnOwnerThread(path); }, timeout)
      .value_or(DinoLoadResult{});
}

bool InitDino(bool force, std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor.Invoke([force] { return InitOnOwnerThread(force); }, timeout)
      .value_or(false);
}

bool DisposeDino(std::chrono::milliseconds timeout) {
  const bool ran = g_dinoLiteExecutor.InvokeVoid(DisposeOnOwnerThread, timeout);
  if (!ran) {
    ResetDinoSnapshot();
  }
  return ran;
}

DinoLiteBinding::BackendSelection SelectDinoBackend(std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor.Invoke(SelectBackendOnOwnerThread, timeout)
      .value_or(DinoLiteBinding::BackendSelection{});
}

std::int32_t CountDinoDevices(std::chrono::milliseconds timeout) {
  const auto count = [] { return g_dinoLite.IsServed() ? g_dinoLite.deviceCount : 0; };
  return g_dinoLiteExecutor.Invoke(count, timeout).value_or(0);
}

std::string DinoDeviceIdentifier(int index, std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor
      .Invoke([index] { return ReadDeviceIdentifierOnOwnerThread(index); }, timeout)
      .value_or("");
}

std::string DinoDeviceName(int index, std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor.Invoke([index] { return ReadDeviceNameOnOwnerThread(index); }, timeout)
      .value_or("");
}

std::vector<VendorDeviceSnapshot> ListDinoDevices(std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor.Invoke(ReadDinoDevicesOnCurrentThread, timeout)
      .value_or(std::vector<VendorDeviceSnapshot>());
}

bool SelectDinoDevice(int index, std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor.Invoke([index] { return SelectDeviceOnOwnerThread(index); }, timeout)
      .value_or(false);
}

std::int32_t SelectedDinoDevice(std::chrono::milliseconds timeout) {
  return g_dinoLiteExecutor.Invoke([] { return g_dinoLite.selectedDeviceIndex; }, timeout)
      .value_or(-1);
}

bool DinoSupportsAmr(std::chrono::milliseconds timeout) {
  const auto supports = [] { return g_dinoLite.IsServed() && g_dinoLite.supportsAmr; };
  return g_dinoLiteExecutor.Invoke(supports, timeout).value_or(false);
}

}  // namespace ostrel_native

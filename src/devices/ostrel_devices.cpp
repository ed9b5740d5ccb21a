#include "devices/ostrel_devices.h"

#include <cassert>

#include "addon/common.h"
#include "devices/device_list.h"
#include "devices/ostrel_binding.h"
#include "devices/ostrel_telemetry.h"

namespace ostrel_native {

namespace {

using ReadTextFn = decltype(OstrelApi::GetDeviceUniqueId);

std::string ReadDeviceTextOnOwnerThread(ReadTextFn OstrelApi::*entry, int index) {
  assert(g_ostrelExecutor.IsOwnerThread());
  if (!g_ostrel.Init(false) || g_ostrel.api.*entry == nullptr) {
    return "";
  }
  return WCharPtrToUtf8((g_ostrel.api.*entry)(index));
}

bool IsAvailableOnOwnerThread(int index) {
  return index >= 0 && g_ostrel.Init(false) && g_ostrel.initialized &&
         index < g_ostrel.api.GetDevicesCount();
}

}  // namespace

int CountOstrelDevicesOnOwnerThread() {
  assert(g_ostrelExecutor.IsOwnerThread());
  return g_ostrel.Init(false) && g_ostrel.initialized ? g_ostrel.api.GetDevicesCount() : 0;
}

std::string ReadOstrelDeviceIdentifierOnOwnerThread(int index) {
  return ReadDeviceTextOnOwnerThread(&OstrelApi::GetDeviceUniqueId, index);
}

std::string ReadOstrelDeviceNameOnOwnerThread(int index) {
  return ReadDeviceTextOnOwnerThread(&OstrelApi::GetDeviceFriendlyName, index);
}

std::vector<VendorDeviceSnapshot> ListOstrelDevicesOnOwnerThread() {
  const int count = CountOstrelDevicesOnOwnerThread();
  return ListDevices(
      count, ReadOstrelDeviceIdentifierOnOwnerThread, ReadOstrelDeviceNameOnOwnerThread, [count] {
        g_ostrel.SetBindingError(TooManyToListText(g_ostrelExecutor.name, count, "devices"));
      });
}

bool SelectOstrelDeviceOnOwnerThread(int index) {
  assert(g_ostrelExecutor.IsOwnerThread());
  if (!g_ostrel.Init(false) || g_ostrel.api.SelectDeviceNumber == nullptr) {
    return false;
  }
  if (!IsAvailableOnOwnerThread(index)) {
    g_ostrel.SetBindingError("Ostrel SDK device selection received an unavailable device index");
    return false;
  }
  if (g_ostrel.api.SelectDeviceNumber(static_cast<unsigned int>(index)) == 0) {
    g_ostrel.SetBindingError("Ostrel SDK device selection failed");
    return false;
  }
  g_ostrel.selectedDevice = index;
  g_ostrel.SetBindingError("");
  UpdateOstrelVersionSnapshotsOnOwnerThread();
  PrimeOstrelTelemetryOnOwnerThread();
  return true;
}

void DisposeOstrelOnOwnerThread() {
  assert(g_ostrelExecutor.IsOwnerThread());
  g_ostrel.Dispose();
}

OstrelLoadResult LoadOstrelLibrary(const std::string& path, std::chrono::milliseconds timeout) {
  const auto load = [path] {
    const bool ok = g_ostrel.Load(path);
    return OstrelLoadResult{.ok = ok, .path = g_ostrel.path};
  };
  return g_ostrelExecutor.Invoke(load, timeout).value_or(OstrelLoadResult{});
}

bool InitOstrel(bool force, std::chrono::milliseconds timeout) {
  const bool ok =
      g_ostrelExecutor.Invoke([force] { return g_ostrel.Init(force); }, timeout).value_or(false);
  ResetOstrelTelemetry();
  ClearOstrelVersionSnapshots();
  return ok;
}

bool DisposeOstrel(std::chrono::milliseconds timeout) {
  const bool ran = g_ostrelExecutor.InvokeVoid(DisposeOstrelOnOwnerThread, timeout);
  ResetOstrelTelemetry();
  ClearOstrelVersionSnapshots();
  return ran;
}

int CountOstrelDevices(std::chrono::milliseconds timeout) {
  return g_ostrelExecutor.Invoke(CountOstrelDevicesOnOwnerThread, timeout).value_or(0);
}

std::string OstrelDeviceIdentifier(int index, std::chrono::milliseconds timeout) {
  const auto read = [index] { return ReadOstrelDeviceIdentifierOnOwnerThread(index); };
  return g_ostrelExecutor.Invoke(read, timeout).value_or("");
}

std::string OstrelDeviceName(int index, std::chrono::milliseconds timeout) {
  const auto read = [index] { return ReadOstrelDeviceNameOnOwnerThread(index); };
  return g_ostrelExecutor.Invoke(read, timeout).value_or("");
}

std::vector<VendorDeviceSnapshot> ListOstrelDevices(std::chrono::milliseconds timeout) {
  return g_ostrelExecutor.Invoke(ListOstrelDevicesOnOwnerThread, timeout)
      .value_or(std::vector<VendorDeviceSnapshot>());
}

bool SelectOstrelDevice(int index, std::chrono::milliseconds timeout) {
  const auto select = [index] { return SelectOstrelDeviceOnOwnerThread(index); };
  return g_ostrelExecutor.Invoke(select, timeout).value_or(false);
}

std::int32_t SelectedOstrelDevice(std::chrono::milliseconds timeout) {
  return g_ostrelExecutor.Invoke([] { return g_ostrel.selectedDevice.load(); }, timeout)
      .value_or(-1);
}

}  // namespace ostrel_native

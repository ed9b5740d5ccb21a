#include "devices/dino_lite_module.h"

#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "addon/common.h"
#include "addon/promise_workers.h"
#include "addon/script_arguments.h"
#include "addon/script_exports.h"
#include "devices/dino_lite_binding.h"
#include "devices/dino_lite_devices.h"
#include "devices/dino_lite_operations.h"
#include "devices/dino_lite_telemetry.h"

namespace ostrel_native {

namespace {

Napi::Value NumberOrNull(Napi::Env env, std::optional<double> value) {
  return value ? Napi::Number::New(env, *value) : env.Null();
}

/// `loadDinoLite(libraryPath)`: { ok, backend, path }. Waits up to 20 s.
Napi::Value LoadDinoLite(const Napi::CallbackInfo& info) {
  const DinoLoadResult loaded = LoadDinoLibrary(ReadStringArg(info, 0));
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", loaded.ok);
  result.Set("backend", loaded.backend);
  result.Set("path", loaded.path);
  return result;
}

/// `dinoLiteInit(force = false)`: boolean. Waits up to 20 s.
Napi::Value DinoLiteInit(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), InitDino(ReadBoolArg(info, 0, false)));
}

/// `dinoLiteLastError()`: string, the binding's own.
Napi::Value DinoLiteLastError(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), g_dinoLite.ErrorText());
}

/// `dinoLiteSelectBackendForProductId(productId, text)`: { ok, supportsAmr, dnxLoadAttempted,
/// backend, path, reason }, the same for every product. Waits up to 20 s.
Napi::Value DinoLiteSelectBackendForProductId(const Napi::CallbackInfo& info) {
  const DinoLiteBinding::BackendSelection selection = SelectDinoBackend();
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", selection.ok);
  result.Set("supportsAmr", selection.supportsAmr);
  result.Set("dnxLoadAttempted", selection.dnxLoadAttempted);
  result.Set("backend", selection.backend);
  result.Set("path", selection.path);
  result.Set("reason", selection.reason);
  return result;
}

/// `dinoLiteInitAsync(force = false)`: promise of a boolean.
Napi::Value DinoLiteInitAsync(const Napi::CallbackInfo& info) {
  const bool force = ReadBoolArg(info, 0, false);
  return RunBooleanAsync(info.Env(), "DinoLiteInit", [force] { return InitDino(force); });
}

/// `dinoLiteDeviceCount()`: number. Waits up to 5 s.
Napi::Value DinoLiteDeviceCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), CountDinoDevices());
}

/// `dinoLiteDevicesAsync()`: promise of an array of { index, uniqueId, name }.
Napi::Value DinoLiteDevicesAsync(const Napi::CallbackInfo& info) {
  return RunVendorDeviceListAsync(info.Env(), "DinoLiteDevices", [] { return ListDinoDevices(); });
}

/// `dinoLiteDeviceId(index = -1)`: string. Waits up to 5 s.
Napi::Value DinoLiteDeviceId(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), DinoDeviceIdentifier(ReadIntArg(info, 0, -1)));
}

/// `dinoLiteDeviceName(index = -1)`: string. Waits up to 5 s.
Napi::Value DinoLiteDeviceName(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), DinoDeviceName(ReadIntArg(info, 0, -1)));
}

/// `dinoLiteSelectDevice(index = -1)`: boolean. Waits up to 10 s.
Napi::Value DinoLiteSelectDevice(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), SelectDinoDevice(ReadIntArg(info, 0, -1)));
}

/// `dinoLiteSelectDeviceAsync(index = -1)`: promise of a boolean.
Napi::Value DinoLiteSelectDeviceAsync(const Napi::CallbackInfo& info) {
  const int index = ReadIntArg(info, 0, -1);
  return RunBooleanAsync(info.Env(), "DinoLiteSelectDevice",
                         [index] { return SelectDinoDevice(index); });
}

/// `dinoLiteGetSelectedDevice()`: number, -1 if none. Waits up to 5 s.
Napi::Value DinoLiteGetSelectedDevice(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), SelectedDinoDevice());
}

/// `dinoLiteSupportsAmr()`: boolean, of the selected device. Waits up to 5 s.
Napi::Value DinoLiteSupportsAmr(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), DinoSupportsAmr());
}

/// `dinoLiteGetAmr(deviceIndex = -1)`: number, the magnification; null if unknown.
Napi::Value DinoLiteGetAmr(const Napi::CallbackInfo& info) {
  return NumberOrNull(info.Env(), PollDinoAmr(ReadIntArg(info, 0, -1)));
}

/// `dinoLiteGetFovx(deviceIndex = -1, amr = -1, selector = 0)`: number, the field of view; null if
/// unknown. The index makes no difference.
Napi::Value DinoLiteGetFovx(const Napi::CallbackInfo& info) {
  return NumberOrNull(info.Env(),
                      PollDinoFov(ReadDoubleArg(info, 1, -1.0), ReadIntArg(info, 2, 0)));
}

/// `dinoLiteEnableMicrotouch(enabled = true)`: boolean. Waits up to 5 s.
Napi::Value DinoLiteEnableMicrotouch(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), EnableDinoMicrotouch(ReadBoolArg(info, 0, true)));
}

/// `dinoLiteEnableMicrotouchAsync(enabled = true)`: promise of a boolean.
Napi::Value DinoLiteEnableMicrotouchAsync(const Napi::CallbackInfo& info) {
  const bool enabled = ReadBoolArg(info, 0, true);
  return RunBooleanAsync(info.Env(), "DinoLiteEnableMicrotouch",
                         [enabled] { return EnableDinoMicrotouch(enabled); });
}

/// `dinoLiteMicrotouchPressed()`: boolean; each press is told once.
Napi::Value DinoLiteMicrotouchPressed(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), PollDinoMicrotouch());
}

/// `dinoLiteToggleLed()`: number, the new mode, or -1. Waits up to 5 s.
Napi::Value DinoLiteToggleLed(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), ToggleDinoLed());
}

/// `dinoLiteToggleLedAsync()`: promise of a number, the new mode, or -1.
Napi::Value DinoLiteToggleLedAsync(const Napi::CallbackInfo& info) {
  return RunIntegerAsync(info.Env(), "DinoLiteToggleLed", [] { return ToggleDinoLed(); });
}

Napi::Value ToScript(Napi::Env env, const std::vector<std::int32_t>& numbers) {
  Napi::Array list = Napi::Array::New(env, numbers.size());
  for (std::uint32_t i = 0; i < numbers.size(); ++i) {
    list.Set(i, numbers[i]);
  }
  return list;
}

/// `dinoLiteDebugState()`: the state after the last task, and the last magnification however old;
/// with `error`, the addon's last error, while no library is loaded.
Napi::Value DinoLiteDebugState(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const DinoDebugState state = CopyDinoDebugState();
  const DinoLiteBinding::DebugSnapshot& snapshot = state.snapshot;
  Napi::Object result = Napi::Object::New(env);
  result.Set("loaded", snapshot.loaded);
  result.Set("backend", snapshot.backend);
  result.Set("path", snapshot.path);
  result.Set("selectedDeviceIndex", snapshot.selectedDeviceIndex);
  result.Set("ledState", snapshot.ledState);
  result.Set("controllableLedsCount", snapshot.controllableLedsCount);
  result.Set("initialized", snapshot.initialized);
  result.Set("supportsAmr", snapshot.supportsAmr);
  result.Set("supportsMicrotouch", snapshot.supportsMicrotouch);
  result.Set("supportsLedControl", snapshot.supportsLedControl);
  result.Set("amrRead", snapshot.amrRead);
  result.Set("amrRaw", snapshot.amrRaw);
  result.Set("amrAccepted", snapshot.amrAccepted);
  result.Set("amrUpdates", static_cast<double>(snapshot.amrUpdates));
  result.Set("ledModes", ToScript(env, snapshot.ledModes));
  result.Set("cachedAmr", NumberOrNull(env, state.cachedAmr));
  result.Set("cachedAmrAgeMs", NumberOrNull(env, state.cachedAmrAgeMs));
  if (!snapshot.loaded) {
    result.Set("error", GetLastErrorString());
  }
  return result;
}

/// `dinoLiteDispose()`: boolean. Waits up to 5 s.
Napi::Value DinoLiteDispose(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), DisposeDino());
}

/// `dinoLiteDisposeAsync()`: promise of a boolean.
Napi::Value DinoLiteDisposeAsync(const Napi::CallbackInfo& info) {
  return RunBooleanAsync(info.Env(), "DinoLiteDispose", [] { return DisposeDino(); });
}

constexpr ScriptFunction kFunctions[] = {
    {"loadDinoLite", LoadDinoLite},
    {"dinoLiteInit", DinoLiteInit},
    {"dinoLiteLastError", DinoLiteLastError},
    {"dinoLiteSelectBackendForProductId", DinoLiteSelectBackendForProductId},
    {"dinoLiteInitAsync", DinoLiteInitAsync},
    {"dinoLiteDeviceCount", DinoLiteDeviceCount},
    {"dinoLiteDevicesAsync", DinoLiteDevicesAsync},
    {"dinoLiteDeviceId", DinoLiteDeviceId},
    {"dinoLiteDeviceName", DinoLiteDeviceName},
    {"dinoLiteSelectDevice", DinoLiteSelectDevice},
    {"dinoLiteSelectDeviceAsync", DinoLiteSelectDeviceAsync},
    {"dinoLiteGetSelectedDevice", DinoLiteGetSelectedDevice},
    {"dinoLiteSupportsAmr", DinoLiteSupportsAmr},
    {"dinoLiteGetAmr", DinoLiteGetAmr},
    {"dinoLiteGetFovx", DinoLiteGetFovx},
    {"dinoLiteEnableMicrotouch", DinoLiteEnableMicrotouch},
    {"dinoLiteEnableMicrotouchAsync", DinoLiteEnableMicrotouchAsync},
    {"dinoLiteMicrotouchPressed", DinoLiteMicrotouchPressed},
    {"dinoLiteToggleLed", DinoLiteToggleLed},
    {"dinoLiteToggleLedAsync", DinoLiteToggleLedAsync},
    {"dinoLiteDebugState", DinoLiteDebugState},
    {"dinoLiteDispose", DinoLiteDispose},
    {"dinoLiteDisposeAsync", DinoLiteDisposeAsync},
};
static_assert(std::size(kFunctions) == 23);

}  // namespace

void RegisterDinoLite(Napi::Env env, Napi::Object exports) {
  SetScriptFunctions(env, exports, kFunctions);
}

}  // namespace ostrel_native

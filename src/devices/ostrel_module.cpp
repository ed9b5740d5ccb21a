#include "devices/ostrel_module.h"

#include <iterator>
#include <string>

#include "addon/promise_workers.h"
#include "addon/script_arguments.h"
#include "addon/script_exports.h"
#include "devices/ostrel_binding.h"
#include "devices/ostrel_devices.h"
#include "devices/ostrel_operations.h"
#include "devices/ostrel_telemetry.h"

namespace ostrel_native {

namespace {

/// `loadOstrel(libraryPath)`: { ok, path }. Waits up to 5 s.
Napi::Value LoadOstrel(const Napi::CallbackInfo& info) {
  const OstrelLoadResult loaded = LoadOstrelLibrary(ReadStringArg(info, 0));
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", loaded.ok);
  result.Set("path", loaded.path);
  return result;
}

/// `ostrelInit(force = false)`: boolean. Waits up to 20 s.
Napi::Value OstrelInit(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), InitOstrel(ReadBoolArg(info, 0, false)));
}

/// `ostrelLastError()`: string; the library's own text where the binding has none.
Napi::Value OstrelLastError(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), g_ostrel.LastErrorText());
}

/// `ostrelInitAsync(force = false)`: promise of a boolean.
Napi::Value OstrelInitAsync(const Napi::CallbackInfo& info) {
  const bool force = ReadBoolArg(info, 0, false);
  return RunBooleanAsync(info.Env(), "OstrelInit", [force] { return InitOstrel(force); });
}

/// `ostrelDeviceCount()`: number. Waits up to 5 s.
Napi::Value OstrelDeviceCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), CountOstrelDevices());
}

/// `ostrelDevicesAsync()`: promise of an array of { index, uniqueId, name }.
Napi::Value OstrelDevicesAsync(const Napi::CallbackInfo& info) {
  return RunVendorDeviceListAsync(info.Env(), "OstrelDevices", [] { return ListOstrelDevices(); });
}

/// `ostrelDeviceUniqueId(index = -1)`: string. Waits up to 5 s.
Napi::Value OstrelDeviceUniqueId(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), OstrelDeviceIdentifier(ReadIntArg(info, 0, -1)));
}

/// `ostrelDeviceFriendlyName(index = -1)`: string. Waits up to 5 s.
Napi::Value OstrelDeviceFriendlyName(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), OstrelDeviceName(ReadIntArg(info, 0, -1)));
}

/// `ostrelSelectDevice(index = -1)`: boolean. Waits up to 10 s.
Napi::Value OstrelSelectDevice(const Napi::CallbackInfo& info) {
  const int index = ReadIntArg(info, 0, -1);
  ResetOstrelTelemetry();
  return Napi::Boolean::New(info.Env(), SelectOstrelDevice(index));
}

/// `ostrelSelectDeviceAsync(index = -1)`: promise of a boolean. What was polled of the former
/// device is gone when this returns, not only when the promise settles.
Napi::Value OstrelSelectDeviceAsync(const Napi::CallbackInfo& info) {
  const int index = ReadIntArg(info, 0, -1);
  ResetOstrelTelemetry();
  return RunBooleanAsync(info.Env(), "OstrelSelectDevice",
                         [index] { return SelectOstrelDevice(index); });
}

/// `ostrelGetSelectedDevice()`: number, -1 if none. Waits up to 5 s.
Napi::Value OstrelGetSelectedDevice(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), SelectedOstrelDevice());
}

/// `ostrelGetScopeStatus()`: number, -1 if unknown.
Napi::Value OstrelScopeStatus(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), PollOstrelStatus());
}

/// `ostrelGetPixelSizeMicrons()`: number, -1 if unknown.
Napi::Value OstrelPixelSizeMicrons(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), PollOstrelPixelSizeMicrons());
}

/// `ostrelGetPixelSizeInfo()`: { ok, micronsPerPixel, width, height }.
Napi::Value OstrelPixelSizeInfo(const Napi::CallbackInfo& info) {
  const OstrelPixelSize size = PollOstrelPixelSize();
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", size.ok);
  result.Set("micronsPerPixel", size.micronsPerPixel);
  result.Set("width", size.width);
  result.Set("height", size.height);
  return result;
}

/// `ostrelGetLensGroupInfo()`: { ok, lensDriver, lensGroup }.
Napi::Value OstrelLensGroupInfo(const Napi::CallbackInfo& info) {
  const OstrelLensGroup lens = PollOstrelLensGroup();
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", lens.ok);
  result.Set("lensDriver", lens.lensDriver);
  result.Set("lensGroup", lens.lensGroup);
  return result;
}

/// `ostrelCapabilities()`: { apiVersion, focus, led, pixelSizeInfo, lensGroupInfo }.
Napi::Value OstrelCapabilities(const Napi::CallbackInfo& info) {
  const OstrelFeatures features = ReadOstrelFeatures();
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("apiVersion", features.apiVersion);
  result.Set("focus", features.focus);
  result.Set("led", features.led);
  result.Set("pixelSizeInfo", features.pixelSizeInfo);
  result.Set("lensGroupInfo", features.lensGroupInfo);
  return result;
}

/// `ostrelGetFocusPosition()`: number, -1 if unknown.
Napi::Value OstrelGetFocusPosition(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), CachedOstrelFocusPosition());
}

/// `ostrelGetLedState()`: 1 on, 0 off, -1 unknown.
Napi::Value OstrelGetLedState(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), ReadOstrelLedState());
}

/// `ostrelTriggerAutoFocusAsync()`: promise of a boolean.
Napi::Value OstrelTriggerAutoFocusAsync(const Napi::CallbackInfo& info) {
  return RunBooleanAsync(info.Env(), "OstrelTriggerAutoFocus",
                         [] { return TriggerOstrelAutoFocus(); });
}

/// `ostrelSetFocusPositionAsync(position = -1)`: promise of a boolean; false outside 0 to 255.
Napi::Value OstrelSetFocusPositionAsync(const Napi::CallbackInfo& info) {
  const int position = ReadIntArg(info, 0, -1);
  return RunBooleanAsync(info.Env(), "OstrelSetFocusPosition",
                         [position] { return MoveOstrelFocus(position); });
}

/// `ostrelFocusNearAsync()`: promise of a boolean.
Napi::Value OstrelFocusNearAsync(const Napi::CallbackInfo& info) {
  return RunBooleanAsync(info.Env(), "OstrelFocusNear", [] { return StepOstrelFocusNear(); });
}

/// `ostrelFocusFarAsync()`: promise of a boolean.
Napi::Value OstrelFocusFarAsync(const Napi::CallbackInfo& info) {
  return RunBooleanAsync(info.Env(), "OstrelFocusFar", [] { return StepOstrelFocusFar(); });
}

/// `ostrelSetLedStateAsync(on)`: promise of a boolean. Any value is taken for its truth.
Napi::Value OstrelSetLedStateAsync(const Napi::CallbackInfo& info) {
  const bool on = info[0].ToBoolean();
  return RunBooleanAsync(info.Env(), "OstrelSetLedState", [on] { return SwitchOstrelLed(on); });
}

/// `ostrelIsCapturePressed()`: boolean; each press is told once.
Napi::Value OstrelIsCapturePressed(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), PollOstrelCapturePressed());
}

/// `ostrelVersionInfo()`: { productId, hardwareMajorVersion, hardwareMinorVersion,
/// softwareMajorVersion, softwareMinorVersion, softwarePatchVersion } of the selected device, or
/// null.
Napi::Value OstrelVersionInfo(const Napi::CallbackInfo& info) {
  const std::optional<OstrelVersion> version = CachedOstrelVersion();
  if (!version) {
    return info.Env().Null();
  }
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("productId", version->productId);
  result.Set("hardwareMajorVersion", version->hardwareMajorVersion);
  result.Set("hardwareMinorVersion", version->hardwareMinorVersion);
  result.Set("softwareMajorVersion", version->softwareMajorVersion);
  result.Set("softwareMinorVersion", version->softwareMinorVersion);
  result.Set("softwarePatchVersion", version->softwarePatchVersion);
  return result;
}

/// `ostrelProtocolVersionInfo()`: { majorVersion, minorVersion, patchVersion } of the selected
/// device, or null.
Napi::Value OstrelProtocolVersionInfo(const Napi::CallbackInfo& info) {
  const std::optional<OstrelProtocolVersion> version = CachedOstrelProtocolVersion();
  if (!version) {
    return info.Env().Null();
  }
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("majorVersion", version->majorVersion);
  result.Set("minorVersion", version->minorVersion);
  result.Set("patchVersion", version->patchVersion);
  return result;
}

/// `ostrelDispose()`: boolean. Waits up to 5 s.
Napi::Value OstrelDispose(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), DisposeOstrel());
}

/// `ostrelDisposeAsync()`: promise of a boolean.
Napi::Value OstrelDisposeAsync(const Napi::CallbackInfo& info) {
  return RunBooleanAsync(info.Env(), "OstrelDispose", [] { return DisposeOstrel(); });
}

constexpr ScriptFunction kFunctions[] = {
    {"loadOstrel", LoadOstrel},
    {"ostrelInit", OstrelInit},
    {"ostrelLastError", OstrelLastError},
    {"ostrelInitAsync", OstrelInitAsync},
    {"ostrelDeviceCount", OstrelDeviceCount},
    {"ostrelDevicesAsync", OstrelDevicesAsync},
    {"ostrelDeviceUniqueId", OstrelDeviceUniqueId},
    {"ostrelDeviceFriendlyName", OstrelDeviceFriendlyName},
    {"ostrelSelectDevice", OstrelSelectDevice},
    {"ostrelSelectDeviceAsync", OstrelSelectDeviceAsync},
    {"ostrelGetSelectedDevice", OstrelGetSelectedDevice},
    {"ostrelGetScopeStatus", OstrelScopeStatus},
    {"ostrelGetPixelSizeMicrons", OstrelPixelSizeMicrons},
    {"ostrelGetPixelSizeInfo", OstrelPixelSizeInfo},
    {"ostrelGetLensGroupInfo", OstrelLensGroupInfo},
    {"ostrelCapabilities", OstrelCapabilities},
    {"ostrelGetFocusPosition", OstrelGetFocusPosition},
    {"ostrelGetLedState", OstrelGetLedState},
    {"ostrelTriggerAutoFocusAsync", OstrelTriggerAutoFocusAsync},
    {"ostrelSetFocusPositionAsync", OstrelSetFocusPositionAsync},
    {"ostrelFocusNearAsync", OstrelFocusNearAsync},
    {"ostrelFocusFarAsync", OstrelFocusFarAsync},
    {"ostrelSetLedStateAsync", OstrelSetLedStateAsync},
    {"ostrelIsCapturePressed", OstrelIsCapturePressed},
    {"ostrelVersionInfo", OstrelVersionInfo},
    {"ostrelProtocolVersionInfo", OstrelProtocolVersionInfo},
    {"ostrelDispose", OstrelDispose},
    {"ostrelDisposeAsync", OstrelDisposeAsync},
};
static_assert(std::size(kFunctions) == 28);

}  // namespace

void RegisterOstrel(Napi::Env env, Napi::Object exports) {
  SetScriptFunctions(env, exports, kFunctions);
}

}  // namespace ostrel_native

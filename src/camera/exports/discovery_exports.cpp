// What script code sees of the libraries, of permission to capture, and of the list of cameras.
#include <napi.h>

#include "addon/script_arguments.h"
#include "camera/backend/camera_binding.h"
#include "camera/backend/device_discovery.h"
#include "camera/capture.h"
#include "camera/exports/camera_exports.h"
#include "camera/frames/turbojpeg_runtime.h"

namespace ostrel_native {

/// `loadCameraBackend(libraryPath)`: boolean. True if a library is loaded, also by an earlier
/// call; otherwise the last error is set. Further arguments are accepted and mean nothing.
Napi::Value LoadCameraBackend(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_camera.Load(ReadStringArg(info, 0)));
}

/// `loadTurboJpeg(libraryPath)`: boolean, in the same way.
Napi::Value LoadTurboJpeg(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_turboJpeg.Load(ReadStringArg(info, 0)));
}

/// `turboJpegAvailable()`: boolean.
Napi::Value TurboJpegAvailable(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_turboJpeg.Available());
}

/// `turboJpegLoadPath()`: string, empty before a load.
Napi::Value TurboJpegLoadPath(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), g_turboJpeg.LoadPath());
}

/// `cameraLoadPath()`: string, the name that loaded; empty before a load.
Napi::Value CameraLoadPath(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), g_camera.LoadPath());
}

/// `cameraBackend()`: "none", "linux-v4l2", "directshow" or "avfoundation".
Napi::Value CameraBackend(const Napi::CallbackInfo& info) {
  const BackendKind kind = g_camera.kind.load(std::memory_order_acquire);
  return Napi::String::New(info.Env(), BackendName(kind));
}

/// `cameraInitialize()`: 0 or the backend's code; -6 without a backend.
Napi::Value CameraInitialize(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), InitializeBackend());
}

/// `cameraHasVideoCaptureAuth()`: 0 when authorised, or the backend's code; -6 without a backend.
Napi::Value CameraHasVideoCaptureAuth(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), CaptureAuthStatus());
}

/// `cameraAskVideoCaptureAuth()`: undefined.
Napi::Value CameraAskVideoCaptureAuth(const Napi::CallbackInfo& info) {
  AskCaptureAuth();
  return info.Env().Undefined();
}

/// `cameraDevicesCount()`: number; 0 without a backend.
Napi::Value CameraDevicesCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), DevicesCount());
}

/// `cameraDeviceUniqueId(deviceIndex = -1)`: string; empty without a backend. Likewise the other
/// texts.
Napi::Value CameraDeviceUniqueId(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), DeviceUniqueId(ReadIntArg(info, 0, -1)));
}

Napi::Value CameraDeviceModelId(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), DeviceModelId(ReadIntArg(info, 0, -1)));
}

Napi::Value CameraDeviceName(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), DeviceName(ReadIntArg(info, 0, -1)));
}

Napi::Value CameraDeviceType(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), DeviceType(ReadIntArg(info, 0, -1)));
}

/// `cameraDeviceFormats(deviceIndex = -1)`: array of { width, height, frameRate, type }, in the
/// backend's order; empty without a backend.
Napi::Value CameraDeviceFormats(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const int device = ReadIntArg(info, 0, -1);
  const int count = DeviceFormatsCount(device);
  Napi::Array formats = Napi::Array::New(env);
  for (int index = 0; index < count; ++index) {
    // A backend may claim a million of them: their handles must not pile up.
    const Napi::HandleScope scope(env);
    const DeviceFormat format = DeviceFormatAt(device, index);
    Napi::Object entry = Napi::Object::New(env);
    entry.Set("width", format.width);
    entry.Set("height", format.height);
    entry.Set("frameRate", format.frameRate);
    entry.Set("type", format.type);
    formats.Set(static_cast<std::uint32_t>(index), entry);
  }
  return formats;
}

}  // namespace ostrel_native

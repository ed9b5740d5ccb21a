// The image controls of a camera, which only the DirectShow kind has: elsewhere each call answers
// -9. Property numbers and flags pass to the backend unchecked.
#include <napi.h>

#include "camera/backend/camera_binding.h"
#include "camera/exports/camera_exports.h"

namespace ostrel_native {

namespace {

// Unlike the other calls, these demand their numbers: another type throws.
std::int32_t RequireInt(const Napi::CallbackInfo& info, std::size_t index) {
  return info[index].As<Napi::Number>().Int32Value();
}

void RequireLength(const Napi::CallbackInfo& info, std::size_t length, const char* message) {
  if (info.Length() < length) {
    throw Napi::TypeError::New(info.Env(), message);
  }
}

}  // namespace

/// `cameraHasVideoProcAmp()`: whether controls can be read.
Napi::Value CameraHasVideoProcAmp(const Napi::CallbackInfo& info) {
  const bool hasRange =
      g_camera.Entry(nullptr, &CameraBinding::cdshow_proc_amp_range, nullptr) != nullptr;
  const bool hasGet =
      g_camera.Entry(nullptr, &CameraBinding::cdshow_proc_amp_get, nullptr) != nullptr;
  return Napi::Boolean::New(info.Env(), hasRange && hasGet);
}

/// `cameraVideoProcAmpRange(deviceIndex, property)`: object; "result" 0, -9, or the backend's code.
/// Throws for missing or non-numeric arguments.
Napi::Value CameraVideoProcAmpRange(const Napi::CallbackInfo& info) {
  RequireLength(info, 2, "Expected (deviceIndex, property)");
  const int device = RequireInt(info, 0);
  const int property = RequireInt(info, 1);
  int result = kResultNoControl;
  int min = 0;
  int max = 0;
  int step = 0;
  int defaultValue = 0;
  int caps = 0;
  if (const auto range = g_camera.Entry(nullptr, &CameraBinding::cdshow_proc_amp_range, nullptr)) {
    result = range(device, property, &min, &max, &step, &defaultValue, &caps);
  }
  Napi::Object answer = Napi::Object::New(info.Env());
  answer.Set("result", result);
  answer.Set("min", min);
  answer.Set("max", max);
  answer.Set("step", step);
  answer.Set("default", defaultValue);
  answer.Set("caps", caps);
  return answer;
}

/// `cameraVideoProcAmpGet(deviceIndex, property)`: object; "result" 0, -9, or the backend's code.
/// Throws for missing or non-numeric arguments.
Napi::Value CameraVideoProcAmpGet(const Napi::CallbackInfo& info) {
  RequireLength(info, 2, "Expected (deviceIndex, property)");
  const int device = RequireInt(info, 0);
  const int property = RequireInt(info, 1);
  int result = kResultNoControl;
  int value = 0;
  int flags = 0;
  if (const auto get = g_camera.Entry(nullptr, &CameraBinding::cdshow_proc_amp_get, nullptr)) {
    result = get(device, property, &value, &flags);
  }
  Napi::Object answer = Napi::Object::New(info.Env());
  answer.Set("result", result);
  answer.Set("value", value);
  answer.Set("flags", flags);
  return answer;
}

/// `cameraVideoProcAmpSet(deviceIndex, property, value, flags)`: object; "result" 0, -9, or the
/// backend's code. Throws for missing or non-numeric arguments.
Napi::Value CameraVideoProcAmpSet(const Napi::CallbackInfo& info) {
  RequireLength(info, 4, "Expected (deviceIndex, property, value, flags)");
  const int device = RequireInt(info, 0);
  const int property = RequireInt(info, 1);
  const int value = RequireInt(info, 2);
  const int flags = RequireInt(info, 3);
  const auto set = g_camera.Entry(nullptr, &CameraBinding::cdshow_proc_amp_set, nullptr);
  Napi::Object answer = Napi::Object::New(info.Env());
  answer.Set("result", set == nullptr ? kResultNoControl : set(device, property, value, flags));
  return answer;
}

}  // namespace ostrel_native

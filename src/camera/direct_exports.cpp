// The calls of direct frame delivery, which needs a backend with a frame callback. No backend of
// this platform has one, so each call answers as without a direct preview.
#include "camera/camera_exports.h"
#include "camera/camera_types.h"

namespace ostrel_native {

/// `cameraGrabEncodedFrame(deviceIndex)`: object with "result" -256 and "data" null.
Napi::Value CameraGrabEncodedFrame(const Napi::CallbackInfo& info) {
  Napi::Object answer = Napi::Object::New(info.Env());
  answer.Set("result", kResultNotYet);
  answer.Set("data", info.Env().Null());
  return answer;
}

/// `cameraPreviewIsDirect()`: false.
Napi::Value CameraPreviewIsDirect(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), false);
}

/// `cameraPreviewReleaseDirectSlot(deviceIndex, slot, sequence)`: -1, there is no such slot.
Napi::Value CameraPreviewReleaseDirectSlot(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), kResultNoPreview);
}

/// `cameraPreviewReleaseAllDirectSlots(deviceIndex)`: always 0.
Napi::Value CameraPreviewReleaseAllDirectSlots(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), kResultOk);
}

}  // namespace ostrel_native

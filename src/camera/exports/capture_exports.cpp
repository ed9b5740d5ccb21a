// What script code sees of capture and of the frames that it grabs by itself.
#include <napi.h>

#include <cstring>

#include "addon/script_arguments.h"
#include "addon/script_memory.h"
#include "camera/backend/camera_binding.h"
#include "camera/capture.h"
#include "camera/exports/camera_exports.h"
#include "camera/exports/direct_exports.h"
#include "camera/exports/number_array.h"
#include "camera/frames/frame_clock.h"
#include "camera/frames/frame_grab.h"

namespace ostrel_native {

namespace {

constexpr int kDefaultMaxWidth = 960;
constexpr int kDefaultMaxHeight = 540;

// Zeroed: a grab that fails still hands its buffer to script code.
Napi::Uint8Array NewZeroedBuffer(Napi::Env env, std::int32_t size) {
  Napi::Uint8Array buffer = NewBuffer(env, static_cast<std::size_t>(size));
  if (size != 0) {
    std::memset(buffer.Data(), 0, buffer.ByteLength());
  }
  return buffer;
}

void SetTimestamp(Napi::Object answer) {
  answer.Set("timestampMs", static_cast<double>(WallClockMs()));
}

}  // namespace

/// `cameraStartCapture(deviceIndex = -1, width = 0, height = 0, formatIndex = -1, encoded)`: the
/// backend's number, 0 or more on success; -6 without a backend, -13 if it cannot start that way.
Napi::Value CameraStartCapture(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const int width = ReadIntArg(info, 1, 0);
  const int height = ReadIntArg(info, 2, 0);
  const int formatIndex = ReadIntArg(info, 3, -1);
  const bool encoded = ReadBoolArg(info, 4, false);
  return Napi::Number::New(info.Env(), StartCapture(device, width, height, formatIndex, encoded));
}

/// `cameraStopCapture(deviceIndex = -1)`: the backend's number; -6 without a backend. Ends any
/// recording, and the device's preview; blocks until both have ended.
Napi::Value CameraStopCapture(const Napi::CallbackInfo& info) {
  const int result = StopCapture(ReadIntArg(info, 0, -1));
  ReleaseUnlentArrays(info.Env());
  return Napi::Number::New(info.Env(), result);
}

/// `cameraHasFirstFrame(deviceIndex = -1)`: 0 yes, -256 not yet, -6 without a backend, or the
/// backend's error.
Napi::Value CameraHasFirstFrame(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), g_camera.FirstFrameResult(ReadIntArg(info, 0, -1)));
}

/// `cameraFrameInfo(deviceIndex = -1)`: object; sizes are -1 if unknown.
Napi::Value CameraFrameInfo(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const FrameInfo frame = ReadFrameInfo(ReadIntArg(info, 0, -1));
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("width", frame.width);
  answer.Set("height", frame.height);
  answer.Set("bytesPerRow", frame.bytesPerRow);
  answer.Set("dataSize", frame.dataSize);
  answer.Set("pixelFormat", frame.pixelFormat);
  answer.Set("planeOffsets", NumberArray(env, frame.planeOffsets, frame.planeCount));
  answer.Set("planeStrides", NumberArray(env, frame.planeStrides, frame.planeCount));
  return answer;
}

/// `cameraButtonPressed(deviceIndex = -1)` and `cameraButtonTimestamp(deviceIndex = -1)`: number;
/// 0 where the backend knows no button.
Napi::Value CameraButtonPressed(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), ButtonPressed(ReadIntArg(info, 0, -1)));
}

Napi::Value CameraButtonTimestamp(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), ButtonTimestamp(ReadIntArg(info, 0, -1)));
}

/// `cameraGrabFrame(deviceIndex = -1)`: object with the frame as it is, rows tight. "data" is
/// null if no grab could be tried, and then there is no "timestampMs".
Napi::Value CameraGrabFrame(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const int device = ReadIntArg(info, 0, -1);
  const FrameGrabPlan plan = PlanFrameGrab(device);
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("width", plan.width);
  answer.Set("height", plan.height);
  answer.Set("bytesPerRow", plan.bytesPerRow);
  answer.Set("pixelFormat", plan.isBgra ? "bgra" : "rgb");
  if (plan.result != kResultOk) {
    answer.Set("result", plan.result);
    answer.Set("data", env.Null());
    return answer;
  }
  Napi::Uint8Array buffer = NewZeroedBuffer(env, plan.size);
  answer.Set("result", GrabFrame(device, buffer.Data(), plan.size));
  answer.Set("data", buffer);
  SetTimestamp(answer);
  return answer;
}

/// `cameraGrabFrameRgba(deviceIndex = -1, maxWidth = 960, maxHeight = 540)`: object with the
/// frame reduced to RGBA; "data" is null unless "result" is 0.
Napi::Value CameraGrabFrameRgba(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const int device = ReadIntArg(info, 0, -1);
  const int maxWidth = ReadIntArg(info, 1, kDefaultMaxWidth);
  const int maxHeight = ReadIntArg(info, 2, kDefaultMaxHeight);
  const RgbaGrab grab = GrabForRgba(device, maxWidth, maxHeight);
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("sourceWidth", grab.sourceWidth);
  answer.Set("sourceHeight", grab.sourceHeight);
  answer.Set("sourceBytesPerRow", grab.sourceBytesPerRow);
  answer.Set("result", grab.result);
  if (grab.result != kResultOk) {
    answer.Set("data", env.Null());
    return answer;
  }
  Napi::Uint8Array buffer = NewBuffer(env, static_cast<std::size_t>(grab.size));
  WriteRgba(grab, buffer.Data());
  answer.Set("width", grab.width);
  answer.Set("height", grab.height);
  answer.Set("bytesPerRow", grab.bytesPerRow);
  answer.Set("data", buffer);
  SetTimestamp(answer);
  return answer;
}

}  // namespace ostrel_native

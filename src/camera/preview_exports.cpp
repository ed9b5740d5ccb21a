// What script code sees of the live preview.
#include <napi.h>

#include <cstring>
#include <optional>

#include "addon/script_arguments.h"
#include "camera/camera_exports.h"
#include "camera/camera_preview.h"
#include "camera/direct_exports.h"
#include "camera/lent_array.h"
#include "camera/preview_answers.h"

namespace ostrel_native {

namespace {

constexpr int kDefaultWidth = 960;
constexpr int kDefaultHeight = 540;
constexpr int kDefaultFrameRate = 30;

// Copies the frame to where the caller wants it and gives the preview's buffer back.
Napi::Value TakeData(Napi::Env env, LatestFrame& frame, const Napi::Value& target) {
  const auto size = static_cast<std::size_t>(frame.meta.dataSize);
  const LentArray lent = ReadLentArray(target);
  Napi::Value data;
  if (lent.isByteArray && lent.bytes >= size) {
    std::memcpy(lent.data, frame.data, size);
    data = lent.View(size);
  } else {
    data = Napi::Buffer<std::uint8_t>::Copy(env, frame.data, size);
  }
  frame.Release();
  return data;
}

}  // namespace

/// `cameraPreviewStart(deviceIndex, width = 960, height = 540, frameRate = 30, directBuffers)`:
/// 0, or -1 for a negative device. An array of buffers asks for direct delivery into them, which
/// has refusals of its own. Throws if there is no memory for the preview's own buffers. Blocks
/// until an earlier preview's worker has ended.
Napi::Value CameraPreviewStart(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const int width = ReadIntArg(info, 1, kDefaultWidth);
  const int height = ReadIntArg(info, 2, kDefaultHeight);
  const int frameRate = ReadIntArg(info, 3, kDefaultFrameRate);
  const int result =
      info[4].IsArray()
          ? StartDirectPreview(info[4].As<Napi::Array>(), device, width, height, frameRate)
          : g_cameraPreview.StartPolling(device, width, height, frameRate);
  return Napi::Number::New(info.Env(), result);
}

/// `cameraPreviewStop(deviceIndex = -1)`: 0. Stops the preview of this device, or any for a
/// negative index. Blocks until the worker has ended: its pace, and its current backend call.
Napi::Value CameraPreviewStop(const Napi::CallbackInfo& info) {
  g_cameraPreview.Stop(ReadIntArg(info, 0, -1));
  return Napi::Number::New(info.Env(), kResultOk);
}

/// `cameraPreviewIsRunning()`: boolean.
Napi::Value CameraPreviewIsRunning(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_cameraPreview.running);
}

/// `cameraPreviewGetLatest(deviceIndex, lastSequence = 0, target)`: object with the newest frame,
/// copied into `target` if that is a `Uint8Array` with room for it, else into a new `Buffer`; from
/// a direct preview as a view of a lent buffer. "result" 0, -1 (not this device's preview), -256
/// (nothing newer) or -11; all but 0 with "data" null. Never waits for the camera.
Napi::Value CameraPreviewGetLatest(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const std::uint64_t lastSequence = ReadUint64Arg(info, 1);
  if (g_cameraPreview.direct) {
    return LatestDirectFrame(info.Env(), device, lastSequence);
  }
  LatestFrame frame(g_cameraPreview, device, lastSequence);
  if (frame.result != kResultOk) {
    return AnswerWithoutFrame(info.Env(), frame.result, frame.sequence, true);
  }
  const Napi::Value data = TakeData(info.Env(), frame, info[2]);
  return AnswerWithFrame(info.Env(), frame.meta, data, std::nullopt);
}

/// `cameraPreviewGetLatestQualityFrame(deviceIndex, lastSequence = 0)`: object with the newest
/// full-resolution picture, refreshed at most twice a second; "result" 0 or -256.
Napi::Value CameraPreviewGetLatestQualityFrame(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const std::uint64_t lastSequence = ReadUint64Arg(info, 1);
  const QualityFrame frame = g_cameraPreview.LatestQualityFrame(device, lastSequence);
  Napi::Object answer = Napi::Object::New(info.Env());
  answer.Set("result", frame.isNew ? kResultOk : kResultNotYet);
  SetCount(answer, "sequence", frame.sequence);
  if (!frame.isNew) {
    answer.Set("data", info.Env().Null());
    return answer;
  }
  answer.Set("width", frame.width);
  answer.Set("height", frame.height);
  answer.Set("bytesPerRow", frame.bytesPerRow);
  answer.Set("pixelFormat", frame.isBgra ? "bgra" : "rgb");
  answer.Set("timestampMs", static_cast<double>(frame.timestampMs));
  answer.Set("data",
             Napi::Buffer<std::uint8_t>::Copy(info.Env(), frame.data.data(), frame.data.size()));
  return answer;
}

}  // namespace ostrel_native

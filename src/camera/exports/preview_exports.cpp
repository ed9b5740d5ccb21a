// What script code sees of the live preview.
#include <napi.h>

#include <cstring>
#include <optional>

#include "addon/script_arguments.h"
#include "addon/script_memory.h"
#include "camera/exports/camera_exports.h"
#include "camera/exports/direct_exports.h"
#include "camera/exports/lent_array.h"
#include "camera/exports/preview_answers.h"
#include "camera/preview/camera_preview.h"

namespace ostrel_native {

namespace {

constexpr int kDefaultWidth = 960;
constexpr int kDefaultHeight = 540;
constexpr int kDefaultFrameRate = 30;

// More than one is needed only if the preview was restarted with another size between two looks.
constexpr int kCopyAttempts = 4;

// Where a poll copies its frame to.
struct Destination {
  std::uint8_t* data = nullptr;
  std::size_t bytes = 0;
  Napi::Value value;
};

// The target if it has room, otherwise a new Buffer.
Destination DestinationFor(Napi::Env env, std::size_t size, const Napi::Value& target) {
  const LentArray lent = ReadLentArray(target);
  if (lent.isByteArray && lent.bytes >= size) {
    return {.data = lent.data, .bytes = size, .value = lent.View(size)};
  }
  Napi::Uint8Array buffer = NewBuffer(env, size);
  return {.data = buffer.Data(), .bytes = size, .value = buffer};
}

// A frame is held for its copy alone, since another environment's start waits for that: the first
// look tells the size, Node-API provides the memory with no frame held, the second look copies.
Napi::Value LatestPollingFrame(Napi::Env env, int device, std::uint64_t lastSequence,
                               const Napi::Value& target) {
  Destination destination;
  std::uint64_t sequence = 0;
  for (int attempt = 0; attempt <= kCopyAttempts; ++attempt) {
    LatestFrame frame(g_cameraPreview, device, lastSequence);
    const auto size = static_cast<std::size_t>(frame.meta.dataSize);
    if (frame.result != kResultOk) {
      return AnswerWithoutFrame(env, frame.result, frame.sequence, true);
    }
    if (destination.data != nullptr && destination.bytes == size) {
      std::memcpy(destination.data, frame.data, size);
      frame.Release();
      return AnswerWithFrame(env, frame.meta, destination.value, std::nullopt);
    }
    sequence = frame.sequence;
    frame.Release();
    destination = DestinationFor(env, size, target);
  }
  return AnswerWithoutFrame(env, kResultNotYet, sequence, true);
}

}  // namespace

/// `cameraPreviewStart(deviceIndex, width = 960, height = 540, frameRate = 30, directBuffers)`:
/// 0, or -1 for a negative device. An array of buffers asks for direct delivery into them, which
/// has refusals of its own. Throws if there is no memory for the preview's own buffers. Blocks
/// until an earlier preview's worker has ended, and for another environment's start or stop.
Napi::Value CameraPreviewStart(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const int width = ReadIntArg(info, 1, kDefaultWidth);
  const int height = ReadIntArg(info, 2, kDefaultHeight);
  const int frameRate = ReadIntArg(info, 3, kDefaultFrameRate);
  int result = kResultOk;
  try {
    result = info[4].IsArray()
                 ? StartDirectPreview(info[4].As<Napi::Array>(), device, width, height, frameRate)
                 : g_cameraPreview.StartPolling(device, width, height, frameRate);
  } catch (...) {
    ReleaseUnlentArrays(info.Env());
    throw;
  }
  ReleaseUnlentArrays(info.Env());
  return Napi::Number::New(info.Env(), result);
}

/// `cameraPreviewStop(deviceIndex = -1)`: 0. Stops the preview of this device, or any for a
/// negative index. Blocks until the worker has ended its current backend call.
Napi::Value CameraPreviewStop(const Napi::CallbackInfo& info) {
  g_cameraPreview.Stop(ReadIntArg(info, 0, -1));
  ReleaseUnlentArrays(info.Env());
  return Napi::Number::New(info.Env(), kResultOk);
}

/// `cameraPreviewIsRunning()`: boolean.
Napi::Value CameraPreviewIsRunning(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_cameraPreview.running);
}

/// `cameraPreviewGetLatest(deviceIndex, lastSequence = 0, target)`: object with the newest frame,
/// copied into `target` if that is a `Uint8Array` with room for it, else into a new `Buffer`; from
/// a direct preview as a view of a lent buffer. "result" 0, -1 (not this device's preview), -256
/// (nothing newer, or another environment is at it) or -11; all but 0 with "data" null. Never
/// waits.
Napi::Value CameraPreviewGetLatest(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const std::uint64_t lastSequence = ReadUint64Arg(info, 1);
  if (g_cameraPreview.direct) {
    return LatestDirectFrame(info.Env(), device, lastSequence);
  }
  return LatestPollingFrame(info.Env(), device, lastSequence, info[2]);
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
  answer.Set("data", CopyToBuffer(info.Env(), frame.data.data(), frame.data.size()));
  return answer;
}

}  // namespace ostrel_native

// What script code sees of the live preview.
#include <napi.h>

#include <cstring>

#include "addon/number_conversion.h"
#include "addon/script_arguments.h"
#include "camera/camera_exports.h"
#include "camera/camera_preview.h"
#include "camera/number_array.h"

namespace ostrel_native {

namespace {

constexpr int kDefaultWidth = 960;
constexpr int kDefaultHeight = 540;
constexpr int kDefaultFrameRate = 30;

const char* PixelFormatText(std::int32_t format) {
  switch (static_cast<CameraPixelFormat>(format)) {
    case CameraPixelFormat::Rgb:
      return "rgb";
    case CameraPixelFormat::Bgra:
      return "bgra";
    case CameraPixelFormat::Nv12:
      return "nv12";
    case CameraPixelFormat::Yuy2:
      return "yuy2";
    case CameraPixelFormat::I420:
      return "i420";
    case CameraPixelFormat::Uyvy:
      return "uyvy";
    default:
      return "rgba";
  }
}

void SetCount(Napi::Object answer, const char* key, std::uint64_t count) {
  answer.Set(key, Napi::Number::New(answer.Env(), static_cast<double>(count)));
}

double ProducerFps() {
  return g_cameraPreview.producerFpsTenths / 10.0;
}

// An array that the caller lends for the frame: a uint8 array over a plain ArrayBuffer. Node-API
// makes no view of a SharedArrayBuffer, so such an array is ignored like any other value.
struct LentArray {
  std::uint8_t* data = nullptr;
  std::size_t bytes = 0;
  Napi::Value arrayBuffer;
  std::size_t byteOffset = 0;
};

LentArray ReadLentArray(const Napi::Value& value) {
  LentArray lent;
  if (!value.IsTypedArray()) {
    return lent;
  }
  napi_typedarray_type type = napi_int8_array;
  std::size_t length = 0;
  std::size_t byteOffset = 0;
  void* data = nullptr;
  napi_value arrayBuffer = nullptr;
  const napi_status status = napi_get_typedarray_info(value.Env(), value, &type, &length, &data,
                                                      &arrayBuffer, &byteOffset);
  NAPI_THROW_IF_FAILED(value.Env(), status, lent);
  if (type != napi_uint8_array || !Napi::Value(value.Env(), arrayBuffer).IsArrayBuffer()) {
    return lent;
  }
  lent.data = static_cast<std::uint8_t*>(data);
  lent.bytes = length;  // one byte an element
  lent.arrayBuffer = Napi::Value(value.Env(), arrayBuffer);
  lent.byteOffset = byteOffset;
  return lent;
}

// Copies the frame to where the caller wants it and gives the preview's buffer back.
Napi::Value TakeData(Napi::Env env, LatestFrame& frame, const Napi::Value& target) {
  const auto size = static_cast<std::size_t>(frame.meta.dataSize);
  const LentArray lent = ReadLentArray(target);
  Napi::Value data;
  if (lent.data != nullptr && lent.bytes >= size) {
    std::memcpy(lent.data, frame.data, size);
    data =
        Napi::Uint8Array::New(env, size, lent.arrayBuffer.As<Napi::ArrayBuffer>(), lent.byteOffset);
  } else {
    data = Napi::Buffer<std::uint8_t>::Copy(env, frame.data, size);
  }
  frame.Release();
  return data;
}

Napi::Object AnswerWithoutFrame(Napi::Env env, const LatestFrame& frame) {
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("result", frame.result);
  answer.Set("data", env.Null());
  SetCount(answer, "sequence", frame.sequence);
  answer.Set("droppedFrames", g_cameraPreview.droppedFrames.load());
  answer.Set("lastResult", g_cameraPreview.lastResult.load());
  answer.Set("producerFps", ProducerFps());
  SetCount(answer, "producedFrames", g_cameraPreview.producedFrames);
  return answer;
}

Napi::Object AnswerWithFrame(Napi::Env env, const PreviewMeta& meta, const Napi::Value& data) {
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("result", kResultOk);
  SetCount(answer, "sequence", meta.sequence);
  answer.Set("width", meta.width);
  answer.Set("height", meta.height);
  answer.Set("bytesPerRow", meta.bytesPerRow);
  answer.Set("pixelFormat", PixelFormatText(meta.pixelFormat));
  answer.Set("planeOffsets", NumberArray(env, meta.planeOffsets, meta.planeCount));
  answer.Set("planeStrides", NumberArray(env, meta.planeStrides, meta.planeCount));
  answer.Set("sourceWidth", meta.sourceWidth);
  answer.Set("sourceHeight", meta.sourceHeight);
  answer.Set("sourceBytesPerRow", meta.sourceBytesPerRow);
  answer.Set("timestampMs", static_cast<double>(meta.timestampMs));
  answer.Set("droppedFrames", g_cameraPreview.droppedFrames.load());
  answer.Set("producerFps", ProducerFps());
  answer.Set("producerMode", "polling");
  answer.Set("deliveryMode", "copy");
  SetCount(answer, "producedFrames", g_cameraPreview.producedFrames);
  answer.Set("lastResult", g_cameraPreview.lastResult.load());
  answer.Set("data", data);
  return answer;
}

std::uint64_t ReadSequenceArg(const Napi::CallbackInfo& info, std::size_t index) {
  return SaturatingUint64(ReadDoubleArg(info, index, 0.0));
}

}  // namespace

/// `cameraPreviewStart(deviceIndex, width = 960, height = 540, frameRate = 30, directBuffers)`:
/// 0, or -1 for a negative device. An array of buffers asks for direct delivery, which no backend
/// of this platform can do: -13, and what runs goes on. Throws if there is no memory for the
/// buffers. Blocks until an earlier preview's worker has ended.
Napi::Value CameraPreviewStart(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const int width = ReadIntArg(info, 1, kDefaultWidth);
  const int height = ReadIntArg(info, 2, kDefaultHeight);
  const int frameRate = ReadIntArg(info, 3, kDefaultFrameRate);
  const int result = info[4].IsArray()
                         ? kResultUnsupported
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
/// copied into `target` if that is a `Uint8Array` with room for it, else into a new `Buffer`.
/// "result" 0, -1 (not this device's preview), -256 (nothing newer) or -11; all but 0 with "data"
/// null. Never waits for the camera.
Napi::Value CameraPreviewGetLatest(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const std::uint64_t lastSequence = ReadSequenceArg(info, 1);
  LatestFrame frame(g_cameraPreview, device, lastSequence);
  if (frame.result != kResultOk) {
    return AnswerWithoutFrame(info.Env(), frame);
  }
  const Napi::Value data = TakeData(info.Env(), frame, info[2]);
  return AnswerWithFrame(info.Env(), frame.meta, data);
}

/// `cameraPreviewGetLatestQualityFrame(deviceIndex, lastSequence = 0)`: object with the newest
/// full-resolution picture, refreshed at most twice a second; "result" 0 or -256.
Napi::Value CameraPreviewGetLatestQualityFrame(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const std::uint64_t lastSequence = ReadSequenceArg(info, 1);
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

#include "camera/exports/preview_answers.h"

#include "camera/camera_pixel_format.h"
#include "camera/exports/number_array.h"

namespace ostrel_native {

namespace {

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

double ProducerFps() {
  return g_cameraPreview.producerFpsTenths / 10.0;
}

}  // namespace

void SetCount(Napi::Object answer, const char* key, std::uint64_t count) {
  answer.Set(key, Napi::Number::New(answer.Env(), static_cast<double>(count)));
}

Napi::Object AnswerWithoutFrame(Napi::Env env, int result, std::uint64_t sequence, bool counters) {
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("result", result);
  answer.Set("data", env.Null());
  SetCount(answer, "sequence", sequence);
  answer.Set("droppedFrames", g_cameraPreview.droppedFrames.load());
  if (counters) {
    answer.Set("lastResult", g_cameraPreview.lastResult.load());
    answer.Set("producerFps", ProducerFps());
    SetCount(answer, "producedFrames", g_cameraPreview.producedFrames);
  }
  return answer;
}

Napi::Object AnswerWithFrame(Napi::Env env, const PreviewMeta& meta, const Napi::Value& data,
                             std::optional<int> directSlot) {
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("result", kResultOk);
  SetCount(answer, "sequence", meta.sequence);
  answer.Set("width", meta.width);
  answer.Set("height", meta.height);
  answer.Set("bytesPerRow", meta.bytesPerRow);
  if (directSlot) {
    answer.Set("dataLength", meta.dataSize);
  }
  answer.Set("pixelFormat", PixelFormatText(meta.pixelFormat));
  answer.Set("planeOffsets", NumberArray(env, meta.planeOffsets, meta.planeCount));
  answer.Set("planeStrides", NumberArray(env, meta.planeStrides, meta.planeCount));
  answer.Set("sourceWidth", meta.sourceWidth);
  answer.Set("sourceHeight", meta.sourceHeight);
  answer.Set("sourceBytesPerRow", meta.sourceBytesPerRow);
  answer.Set("timestampMs", static_cast<double>(meta.timestampMs));
  answer.Set("droppedFrames", g_cameraPreview.droppedFrames.load());
  answer.Set("producerFps", ProducerFps());
  answer.Set("producerMode", directSlot ? "callback" : "polling");
  answer.Set("deliveryMode", "copy");
  SetCount(answer, "producedFrames", g_cameraPreview.producedFrames);
  answer.Set("lastResult", g_cameraPreview.lastResult.load());
  if (directSlot) {
    answer.Set("directSlot", *directSlot);
  }
  answer.Set("data", data);
  return answer;
}

}  // namespace ostrel_native

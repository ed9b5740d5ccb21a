// What script code sees of recording.
#include <napi.h>

#include "addon/common.h"
#include "addon/script_arguments.h"
#include "camera/exports/camera_exports.h"
#include "camera/preview/camera_preview.h"
#include "recording/video_recorder.h"

namespace ostrel_native {

namespace {

constexpr int kDefaultFrameRate = 30;
constexpr int kDefaultBitrate = 4'000'000;

// A failed recorder call says why in the last error; its code goes to script code as it is.
Napi::Value RecorderResult(Napi::Env env, int result, const char* fallbackText) {
  if (result < 0) {
    const std::string error = g_videoRecorder.GetStatus().error;
    SetLastError(error.empty() ? fallbackText : error);
  }
  return Napi::Number::New(env, result);
}

}  // namespace

/// `cameraRecordingAvailable()`: whether recording can be attempted. The first call may load
/// FFmpeg, which takes some milliseconds.
Napi::Value CameraRecordingAvailable(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_videoRecorder.Available());
}

/// `cameraRecordingStart(outputPath, width, height, frameRate, bitrate)`: 0, -5 without a running
/// preview, or the recorder's negative code; the reason is the last error. Width and height must
/// be the preview's: frames of another size are not recorded. Throws a `TypeError` for missing
/// arguments or a path that is no string. Blocks up to 10 s while the encoder opens.
Napi::Value CameraRecordingStart(const Napi::CallbackInfo& info) {
  constexpr std::size_t kArguments = 5;
  if (info.Length() < kArguments || !info[0].IsString()) {
    throw Napi::TypeError::New(info.Env(),
                               "Expected (outputPath, width, height, frameRate, bitrate)");
  }
  if (!g_cameraPreview.running) {
    SetLastError("Cannot start video recording without an active camera preview");
    return Napi::Number::New(info.Env(), kResultPreviewStopped);
  }
  const int bitrate = ReadIntArg(info, 4, kDefaultBitrate);
  const int frameRate = ReadIntArg(info, 3, kDefaultFrameRate);
  const int height = ReadIntArg(info, 2, 0);
  const int width = ReadIntArg(info, 1, 0);
  const int result =
      g_videoRecorder.Start(ReadStringArg(info, 0), width, height, frameRate, bitrate);
  return RecorderResult(info.Env(), result, "Could not start video recording");
}

/// `cameraRecordingStop()`: 0, or -3 with the reason as last error. Blocks until what is queued
/// is written and the file is finished.
Napi::Value CameraRecordingStop(const Napi::CallbackInfo& info) {
  return RecorderResult(info.Env(), g_videoRecorder.Stop(), "Could not finalize video recording");
}

/// `cameraRecordingStatus()`: object, a snapshot of the recorder.
Napi::Value CameraRecordingStatus(const Napi::CallbackInfo& info) {
  const VideoRecorder::Status status = g_videoRecorder.GetStatus();
  Napi::Object answer = Napi::Object::New(info.Env());
  answer.Set("available", status.available);
  answer.Set("recording", status.recording);
  answer.Set("outputPath", status.outputPath);
  answer.Set("error", status.error);
  answer.Set("framesWritten", static_cast<double>(status.framesWritten));
  answer.Set("framesDropped", static_cast<double>(status.framesDropped));
  answer.Set("durationMs", static_cast<double>(status.durationMs));
  answer.Set("width", status.width);
  answer.Set("height", status.height);
  answer.Set("frameRate", status.frameRate);
  answer.Set("bitrate", status.bitrate);
  return answer;
}

}  // namespace ostrel_native

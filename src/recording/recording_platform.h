// What the recorder needs of the platform's writer, without the writer's own headers.
#pragma once

#include <memory>

#include "recording/video_recorder.h"

namespace ostrel_native {

/// Whether recording can be attempted: FFmpeg is there, knows an H.264 encoder and the MP4
/// format. The first call loads FFmpeg; no encoder is opened and no file made.
/// Thread: any.
bool LinuxVideoRecordingAvailable();

/// A fresh writer. Never fails, and loads nothing.
/// Thread: recorder worker.
std::unique_ptr<VideoRecorder::Backend> CreateLinuxBackend();

}  // namespace ostrel_native

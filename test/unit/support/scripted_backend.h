// A recording backend whose every step a test decides, in the place of the real one.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "recording/video_recorder.h"

namespace ostrel_native::test {

/// What the backend does and what it saw. The recorder worker writes the log; a test reads it
/// after `Stop` or after a latch of its own.
struct BackendScript {
  struct Written {
    std::int64_t timestamp;
    std::int64_t pts;
    std::int64_t duration;
    VideoRecorder::Frame frame;
  };

  std::function<void()> onCreate = [] {};
  std::function<std::string()> onStart = [] { return std::string(); };
  std::function<std::string(const VideoRecorder::Frame&)> onEncode =
      [](const VideoRecorder::Frame&) { return std::string(); };
  std::function<std::string()> onFinalize = [] { return std::string(); };
  bool missing = false;  ///< no backend on this platform

  std::vector<Written> written;  ///< frames that `onEncode` accepted
  std::string outputPath;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t frameRate = 0;
  std::int32_t bitrate = 0;
  int startCalls = 0;
  int encodeCalls = 0;
  int finalizeCalls = 0;
  int destroyed = 0;
};

struct ScriptedBackend : VideoRecorder::Backend {
  explicit ScriptedBackend(BackendScript& theScript) : script(theScript) {}
  ~ScriptedBackend() override { ++script.destroyed; }

  std::string Start(const std::string& outputPath, std::int32_t width, std::int32_t height,
                    std::int32_t frameRate, std::int32_t bitrate) override {
    ++script.startCalls;
    script.outputPath = outputPath;
    script.width = width;
    script.height = height;
    script.frameRate = frameRate;
    script.bitrate = bitrate;
    return script.onStart();
  }

  std::string EncodeFrame(const VideoRecorder::Frame& frame, std::int64_t pts,
                          std::int64_t duration) override {
    ++script.encodeCalls;
    std::string error = script.onEncode(frame);
    if (error.empty()) {
      script.written.push_back({frame.timestamp, pts, duration, frame});
    }
    return error;
  }

  std::string Finalize() override {
    ++script.finalizeCalls;
    return script.onFinalize();
  }

  BackendScript& script;
};

/// Answers of the platform. `g_script` is set while no worker runs.
inline BackendScript* g_script = nullptr;
inline std::atomic<bool> g_available = true;  ///< written by the test, read by any thread

}  // namespace ostrel_native::test

// A recorder with a scripted backend, for the tests of a recording session.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recording/video_recorder.h"
#include "unit/support/scripted_backend.h"

namespace ostrel_native::test {

inline constexpr int kWidth = 4;
inline constexpr int kHeight = 2;

struct VideoRecorderSession : testing::Test {
  VideoRecorderSession() {
    g_script = &script;
    g_available = true;
  }

  int Start() { return recorder->Start("/videos/one.mp4", kWidth, kHeight, 30, 4000000); }

  bool Offer(std::int64_t timestamp) {
    const std::uint8_t pixels[] = {1, 2, 3};
    return recorder->TryEnqueue(pixels, sizeof pixels, kWidth, kHeight, 2, 1, nullptr, nullptr,
                                timestamp);
  }

  // Waits until another thread has brought the recorder into `state`.
  void AwaitState(VideoRecorder::State state) {
    ConditionLock lock(recorder->mutex);
    recorder->condition.wait(lock.held, [&] { return recorder->state == state; });
  }

  std::string LastError() const { return recorder->GetStatus().error; }

  std::vector<std::int64_t> WrittenTimestamps() const {
    std::vector<std::int64_t> timestamps;
    for (const BackendScript::Written& frame : script.written) {
      timestamps.push_back(frame.timestamp);
    }
    return timestamps;
  }

  BackendScript script;
  std::unique_ptr<VideoRecorder> recorder = std::make_unique<VideoRecorder>();
};

// Blocks the first `EncodeFrame` until released; the latch `entered` tells that it was reached,
// so that the worker then holds one frame in the call and has taken its successor.
struct BlockedEncoder {
  explicit BlockedEncoder(BackendScript& script) {
    script.onEncode = [this](const VideoRecorder::Frame&) {
      if (first) {
        first = false;
        entered.count_down();
        released.wait();
      }
      return std::string();
    };
  }

  std::latch entered{1};
  std::latch released{1};
  bool first = true;  // recorder worker only
};

}  // namespace ostrel_native::test

// Recording from direct frames: what the recorder gets of each layout, and that it can convert it.
#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "recording/nv12_conversion.h"
#include "recording/video_recorder.h"
#include "unit/support/allocation_spy.h"
#include "unit/support/direct_preview.h"
#include "unit/support/eventually.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {
namespace {

// A recording whose frames stay in the queue: nobody writes them.
struct DirectRecording : DirectPreviewTest {
  DirectRecording() { SetState(VideoRecorder::State::Recording); }
  ~DirectRecording() override {
    producer->Stop(-1);
    SetState(VideoRecorder::State::Idle);
    g_videoRecorder.queue.clear();
    UnloadTurboJpeg();
  }

  static void SetState(VideoRecorder::State state) {
    const std::lock_guard<std::mutex> lock(g_videoRecorder.mutex);
    g_videoRecorder.state = state;
    g_videoRecorder.width = 4;
    g_videoRecorder.height = 2;
  }

  static std::size_t Queued() {
    const std::lock_guard<std::mutex> lock(g_videoRecorder.mutex);
    return g_videoRecorder.queue.size();
  }

  // The one frame in the queue must be that of the slot, and convertible.
  void ExpectRecorded(std::size_t slot) {
    ASSERT_EQ(Queued(), 1U);
    const VideoRecorder::Frame& frame = g_videoRecorder.queue.front();
    const PreviewMeta& meta = producer->metas[slot];
    EXPECT_EQ(frame.data, memory[slot]->Content(static_cast<std::size_t>(meta.dataSize)));
    EXPECT_EQ(frame.width, 4);
    EXPECT_EQ(frame.height, 2);
    EXPECT_EQ(frame.format, meta.pixelFormat);
    EXPECT_EQ(frame.planeCount, meta.planeCount);
    EXPECT_EQ(frame.timestamp, meta.monotonicTicks);
    for (int plane = 0; plane < 3; ++plane) {
      EXPECT_EQ(frame.planeOffsets[plane], meta.planeOffsets[plane]);
      EXPECT_EQ(frame.planeStrides[plane], meta.planeStrides[plane]);
    }
    EXPECT_TRUE(Converts());
  }

  static bool Converts() {
    std::uint8_t y[8];
    std::uint8_t uv[4];
    return ConvertFrameToNv12Planar(g_videoRecorder.queue.front(), y, 4, uv, 4);
  }
};

TEST_F(DirectRecording, TakesEveryUncompressedLayoutAsItIs) {
  using enum CameraPixelFormat;
  for (const BackendFrame& frame : {
           BackendFrame{.format = Bgra, .bytesPerRow = 20, .dataSize = 40, .strides = {20, 0}},
           BackendFrame{.format = Yuy2, .bytesPerRow = 10, .dataSize = 20, .strides = {10, 0}},
           BackendFrame{.format = Uyvy, .bytesPerRow = 8, .dataSize = 16, .strides = {8, 0}},
           BackendFrame{.format = Nv12,
           .bytesPerRow = 6,
           .dataSize = 20,
           .planeCount = 2,
           .offsets = {0, 14},
           .strides = {6, 5}},
       }) {
    UseDirectShow(frame);
    ASSERT_EQ(Start(), 0);
    Fire(FrameBytes(static_cast<std::size_t>(frame.dataSize)));
    ExpectRecorded(0);
    producer->Stop(-1);
    g_videoRecorder.queue.clear();
  }
}

TEST_F(DirectRecording, TakesDecodedJpegInThreePlanes) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  UseDirectShow({.format = CameraPixelFormat::Mjpeg, .bytesPerRow = 0, .dataSize = 1});
  ASSERT_EQ(Start(), 0);
  Fire(SampleJpeg(4, 2, TJSAMP_420));
  ASSERT_TRUE(Eventually([] { return Queued() == 1; }));
  ASSERT_TRUE(Eventually([this] { return producer->slotStates[0] == kReady; }));
  EXPECT_EQ(g_videoRecorder.queue.front().planeCount, 3);
  ExpectRecorded(0);
}

TEST_F(DirectRecording, GivesTheBackendsClockToTheRecording) {
  UseAvFoundation({});
  ASSERT_EQ(Start(), 0);
  const Bytes pixels = FrameBytes(32);
  avfCallback(kDevice, 1, 4, 2, 1, pixels.data(), 32, 16, nullptr, 0, 0, 12'345'678'900,
              callbackContext);
  ASSERT_EQ(Queued(), 1U);
  EXPECT_EQ(g_videoRecorder.queue.front().timestamp, 123'456'789);
}

TEST_F(DirectRecording, HandsOnAFrameThatIsShorterThanItsRowsWhichTheConversionRefuses) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(31));
  ASSERT_EQ(Queued(), 1U);
  EXPECT_EQ(g_videoRecorder.queue.front().data.size(), 31U);
  EXPECT_FALSE(Converts());
}

TEST_F(DirectRecording, DeliversAFrameThatTheRecorderHasNoMemoryFor) {
  UseDirectShow({.dataSize = 4096});
  ASSERT_EQ(Start(), 0);
  const Bytes frame = FrameBytes(4096);
  {
    const test::FailingAllocations failure(4096);
    Fire(frame);
  }
  EXPECT_EQ(Queued(), 0U);
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
  EXPECT_EQ(memory[0]->Content(), frame);
  ExpectDropped(0, 0);
}

TEST_F(DirectRecording, IsOfferedAFrameBeforeScriptCodeCanHaveIt) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  std::unique_lock<std::mutex> lock(g_videoRecorder.mutex);
  const Bytes frame = FrameBytes(32);
  std::thread callback([this, &frame] { Fire(frame); });
  ASSERT_TRUE(Eventually([this] { return producer->publishedSequence == 1; }));
  EXPECT_EQ(States(), (std::vector{kWriting, kFree, kFree}));
  lock.unlock();
  callback.join();
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
}

}  // namespace
}  // namespace ostrel_native

// Starting, stopping and reading the preview, and the protocol of its three buffers.
#include "camera/preview/camera_preview.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "recording/video_recorder.h"
#include "unit/support/eventually.h"
#include "unit/support/hammer_seconds.h"
#include "unit/support/scripted_camera.h"
#include "unit/support/thread_spy.h"

namespace ostrel_native {
namespace {

constexpr int kIntMax = std::numeric_limits<int>::max();

int FillWithNine(std::uint8_t* buffer, int capacity) {
  std::fill(buffer, buffer + capacity, std::uint8_t{9});
  return 0;
}

class CameraPreviewTest : public testing::Test {
 protected:
  void SetUp() override {
    TheCamera().needsPermits = false;
    TheCamera().grab = FillWithNine;
    TheCamera().SetSize(4, 2, 12);
  }
  void TearDown() override { g_cameraPreview.Stop(-1); }
};

TEST_F(CameraPreviewTest, IsStoppedAtFirst) {
  EXPECT_FALSE(g_cameraPreview.running);
  EXPECT_EQ(g_cameraPreview.deviceIndex, -1);
  EXPECT_EQ(g_cameraPreview.lastResult, -5);
  EXPECT_EQ(g_cameraPreview.frameInterval, 33'000'000);
  EXPECT_EQ(LatestFrame(g_cameraPreview, 0, 0).result, -1);
  EXPECT_EQ(LatestFrame(g_cameraPreview, -1, 0).result, -1);
}

TEST_F(CameraPreviewTest, PacesByWholeNanosecondsAndAtMost120TimesASecond) {
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 960, 540, 30), 0);
  EXPECT_EQ(g_cameraPreview.frameInterval, 33'333'333);
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 960, 540, 500), 0);
  EXPECT_EQ(g_cameraPreview.frameInterval, 8'333'333);
}

TEST_F(CameraPreviewTest, RaisesEachNumberToOne) {
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 0, -5, 0), 0);
  EXPECT_EQ(g_cameraPreview.targetWidth, 1);
  EXPECT_EQ(g_cameraPreview.targetHeight, 1);
  EXPECT_EQ(g_cameraPreview.frameInterval, 1'000'000'000);
  EXPECT_EQ(g_cameraPreview.bufferBytes, 4U);
}

TEST_F(CameraPreviewTest, RefusesANegativeDeviceAndLeavesARunningPreviewAlone) {
  ASSERT_EQ(g_cameraPreview.StartPolling(3, 16, 8, 120), 0);
  const std::uint64_t generation = g_cameraPreview.generation;
  EXPECT_EQ(g_cameraPreview.StartPolling(-1, 960, 540, 30), -1);
  EXPECT_TRUE(g_cameraPreview.running);
  EXPECT_EQ(g_cameraPreview.deviceIndex, 3);
  EXPECT_EQ(g_cameraPreview.targetWidth, 16);
  EXPECT_EQ(g_cameraPreview.generation, generation);
}

TEST_F(CameraPreviewTest, HasNothingBeforeTheFirstFrame) {
  TheCamera().firstFrame = -256;
  InstallLinuxCamera();
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 960, 540, 30), 0);
  const LatestFrame frame(g_cameraPreview, 0, 0);
  EXPECT_EQ(frame.result, -256);
  EXPECT_EQ(frame.sequence, 0U);
  EXPECT_EQ(frame.data, nullptr);
  EXPECT_EQ(g_cameraPreview.lastResult, -256);
}

// What `start` throws, as text.
template <typename Start>
std::string ThrownBy(const Start& start) {
  try {
    start();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing";
}

TEST_F(CameraPreviewTest, ThrowsWithoutMemoryAndIsStoppedThenOnTheNewDevice) {
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
  EXPECT_EQ(ThrownBy([] { g_cameraPreview.StartPolling(7, kIntMax, kIntMax, 30); }),
            "Not enough memory for a preview of 2147483647 by 2147483647 pixels");
  EXPECT_FALSE(g_cameraPreview.running);
  EXPECT_FALSE(g_cameraPreview.worker.joinable());
  EXPECT_EQ(g_cameraPreview.bufferBytes, 0U);
  EXPECT_EQ(g_cameraPreview.deviceIndex, 7);
  EXPECT_EQ(g_cameraPreview.lastResult, -5);
  EXPECT_EQ(LatestFrame(g_cameraPreview, 7, 0).result, -256);
  EXPECT_EQ(LatestFrame(g_cameraPreview, 0, 0).result, -1);
  for (const auto& buffer : g_cameraPreview.buffers) {
    EXPECT_EQ(buffer.capacity(), 0U);  // a failure holds on to nothing
  }
  EXPECT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
  EXPECT_EQ(g_cameraPreview.bufferBytes, 32U);
}

TEST_F(CameraPreviewTest, SaysThatThereIsNoThreadAndIsStoppedThenOnTheNewDevice) {
  {
    const test::FailingThreadStart failure(1);
    EXPECT_EQ(ThrownBy([] { g_cameraPreview.StartPolling(7, 4, 2, 120); }),
              "Could not start the preview's thread: Resource temporarily unavailable");
  }
  EXPECT_FALSE(g_cameraPreview.running);
  EXPECT_EQ(g_cameraPreview.deviceIndex, 7);
  EXPECT_EQ(g_cameraPreview.lastResult, -5);
  EXPECT_EQ(LatestFrame(g_cameraPreview, 7, 0).result, -256);
  EXPECT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
}

TEST_F(CameraPreviewTest, StopsForItsOwnDeviceOrAnyNegativeOne) {
  for (const int device : {-1, -7, 2}) {
    ASSERT_EQ(g_cameraPreview.StartPolling(2, 4, 2, 120), 0);
    g_cameraPreview.Stop(1);
    EXPECT_TRUE(g_cameraPreview.running);
    g_cameraPreview.Stop(device);
    EXPECT_FALSE(g_cameraPreview.running);
    EXPECT_FALSE(g_cameraPreview.worker.joinable());
  }
}

TEST_F(CameraPreviewTest, KeepsTheDropCountAfterAStopAndClearsTheRest) {
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);  // no backend: every cycle is a drop
  ASSERT_TRUE(Eventually([] { return g_cameraPreview.droppedFrames >= 2; }));
  g_cameraPreview.Stop(0);
  EXPECT_GE(g_cameraPreview.droppedFrames, 2);
  EXPECT_EQ(g_cameraPreview.lastResult, -5);
  EXPECT_EQ(g_cameraPreview.deviceIndex, -1);
  EXPECT_EQ(g_cameraPreview.publishedIndex, -1);
  EXPECT_EQ(g_cameraPreview.readingIndex, -1);
  EXPECT_EQ(g_cameraPreview.publishedSequence, 0U);
  EXPECT_EQ(g_cameraPreview.producedFrames, 0U);
  EXPECT_EQ(g_cameraPreview.producerFpsTenths, 0);
  EXPECT_FALSE(g_cameraPreview.firstFrameSeen);
  EXPECT_EQ(LatestFrame(g_cameraPreview, 0, 0).result, -1);
  InstallLinuxCamera();
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
  EXPECT_EQ(g_cameraPreview.droppedFrames, 0);
}

TEST_F(CameraPreviewTest, ClearsTheStillAndTheOldPictureAtAStart) {
  InstallLinuxCamera();
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
  ASSERT_TRUE(Eventually([] { return g_cameraPreview.LatestQualityFrame(0, 0).isNew; }));
  TheCamera().firstFrame = -256;
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
  EXPECT_FALSE(g_cameraPreview.LatestQualityFrame(0, 0).isNew);
  EXPECT_EQ(g_cameraPreview.LatestQualityFrame(0, 0).sequence, 0U);
  for (const auto& buffer : g_cameraPreview.buffers) {
    EXPECT_EQ(buffer, std::vector<std::uint8_t>(32, 0));
  }
}

TEST_F(CameraPreviewTest, GivesEachFrameOnceAndThenNothingNew) {
  InstallLinuxCamera();
  TheCamera().needsPermits = true;
  ASSERT_EQ(g_cameraPreview.StartPolling(0, 4, 2, 120), 0);
  TheCamera().permits.release();
  ASSERT_TRUE(Eventually([] { return LatestFrame(g_cameraPreview, 0, 0).result == 0; }));
  {
    LatestFrame frame(g_cameraPreview, 0, 0);
    EXPECT_EQ(frame.sequence, 1U);
    EXPECT_EQ(g_cameraPreview.readingIndex, g_cameraPreview.publishedIndex);
    frame.Release();
    EXPECT_EQ(g_cameraPreview.readingIndex, -1);
    EXPECT_EQ(frame.data, nullptr);
  }
  const LatestFrame again(g_cameraPreview, 0, 1);
  EXPECT_EQ(again.result, -256);
  EXPECT_EQ(again.sequence, 1U);
  EXPECT_EQ(g_cameraPreview.readingIndex, -1);
  EXPECT_EQ(LatestFrame(g_cameraPreview, 1, 0).result, -1);
  TheCamera().Free();
}

TEST_F(CameraPreviewTest, RefusesAFrameThatExceedsItsBuffer) {
  CameraPreviewProducer producer;
  producer.deviceIndex = 0;
  producer.bufferBytes = 16;
  producer.publishedIndex = 1;
  producer.metas[1].sequence = 5;
  producer.metas[1].dataSize = 17;
  const LatestFrame frame(producer, 0, 4);
  EXPECT_EQ(frame.result, -11);
  EXPECT_EQ(frame.sequence, 5U);
  EXPECT_EQ(producer.readingIndex, -1);
}

TEST_F(CameraPreviewTest, TakesAnEmptyRecordOrAnImpossibleIndexAsNothing) {
  CameraPreviewProducer producer;
  producer.deviceIndex = 0;
  producer.publishedSequence = 8;
  producer.publishedIndex = 3;
  EXPECT_EQ(LatestFrame(producer, 0, 0).result, -256);
  EXPECT_EQ(LatestFrame(producer, 0, 0).sequence, 8U);
  producer.publishedIndex = 0;
  producer.metas[0].sequence = 2;
  EXPECT_EQ(LatestFrame(producer, 0, 0).result, -256);
  EXPECT_EQ(LatestFrame(producer, 0, 0).sequence, 2U);
}

TEST_F(CameraPreviewTest, HandsTheWallClockToTheRecorderWithoutASteadyOne) {
  g_videoRecorder.state = VideoRecorder::State::Recording;
  g_videoRecorder.width = 2;
  g_videoRecorder.height = 1;
  PreviewMeta meta;
  meta.width = 2;
  meta.height = 1;
  meta.dataSize = 8;
  meta.timestampMs = 123;
  const std::uint8_t bytes[8] = {};
  g_cameraPreview.EnqueueRecordingFrame(nullptr, meta);
  g_cameraPreview.EnqueueRecordingFrame(bytes, PreviewMeta{});
  EXPECT_TRUE(g_videoRecorder.queue.empty());
  g_cameraPreview.EnqueueRecordingFrame(bytes, meta);
  ASSERT_EQ(g_videoRecorder.queue.size(), 1U);
  EXPECT_EQ(g_videoRecorder.queue.front().timestamp, 1'230'000);
  g_videoRecorder.state = VideoRecorder::State::Idle;
}

TEST_F(CameraPreviewTest, JoinsItsWorkerWhenItIsDestroyed) {
  InstallLinuxCamera();
  {
    CameraPreviewProducer producer;
    ASSERT_EQ(producer.StartPolling(0, 4, 2, 120), 0);
    ASSERT_TRUE(Eventually([&producer] { return producer.producedFrames > 0; }));
  }
  const int grabs = TheCamera().grabs;
  std::this_thread::yield();
  EXPECT_EQ(TheCamera().grabs, grabs);
}

TEST_F(CameraPreviewTest, NeverTearsAFrameUnderAReaderThatPollsAsFastAsItCan) {
  // Every byte of a frame is its number, so a byte of another frame shows.
  static std::atomic<std::uint32_t> frameNumber;
  frameNumber = 0;
  TheCamera().grab = [](std::uint8_t* buffer, int capacity) {
    std::fill(buffer, buffer + capacity, static_cast<std::uint8_t>(++frameNumber));
    return 0;
  };
  TheCamera().SetSize(64, 48, 192);
  InstallLinuxCamera();

  CameraPreviewProducer producer;
  producer.deviceIndex = 0;
  producer.bufferBytes = 64 * 48 * 4;
  for (auto& buffer : producer.buffers) {
    buffer.assign(producer.bufferBytes, 0);
  }
  producer.running = true;
  // No pace: the worker publishes as fast as the reader reads.
  producer.worker = std::thread(&CameraPreviewProducer::RunLoop, &producer, 0, 0, 64, 48, 0,
                                producer.bufferBytes);

  constexpr std::uint64_t kEnoughFrames = 10;
  const auto end = std::chrono::steady_clock::now() + HammerSeconds();
  const auto latest = end + std::chrono::minutes(1);
  std::vector<std::uint8_t> copy(producer.bufferBytes);
  std::uint64_t last = 0;
  std::uint64_t frames = 0;
  std::uint64_t torn = 0;
  const auto goesOn = [&] {
    const auto now = std::chrono::steady_clock::now();
    return now < end || (frames <= kEnoughFrames && now < latest);
  };
  while (goesOn()) {
    LatestFrame frame(producer, 0, last);
    if (frame.result != 0) {
      continue;
    }
    std::copy(frame.data, frame.data + frame.meta.dataSize, copy.begin());
    const PreviewMeta meta = frame.meta;
    frame.Release();
    ASSERT_GT(meta.sequence, last);
    last = meta.sequence;
    ++frames;
    const auto number = static_cast<std::uint8_t>(meta.sequence);
    for (std::size_t i = 0; i < copy.size(); ++i) {
      torn += copy[i] == (i % 4 == 3 ? 255 : number) ? 0U : 1U;
    }
  }
  producer.RequestStop();
  producer.JoinAndReset();
  EXPECT_EQ(torn, 0U);
  EXPECT_GT(frames, kEnoughFrames);
}

}  // namespace
}  // namespace ostrel_native

// The preview under several threads at once: what starts and stops it, and what polls it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <iterator>
#include <latch>
#include <mutex>
#include <semaphore>
#include <thread>
#include <utility>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/capture.h"
#include "camera/preview/camera_preview.h"
#include "unit/support/eventually.h"
#include "unit/support/hammer_seconds.h"
#include "unit/support/scripted_camera.h"

namespace ostrel_native {
namespace {

constexpr int kDevice = kScriptedDevice;
constexpr int kFastest = 120;

// Far beyond what any of them takes; what waits for a camera here would wait for ever.
constexpr std::chrono::minutes kFarTooLong{1};

// A camera of 64 by 48 pixels whose frames are all 9, so that a whole preview pixel is 9, 9, 9,
// 255.
class PreviewThreads : public testing::Test {
 protected:
  static constexpr int kWidth = 64;
  static constexpr int kHeight = 48;

  PreviewThreads() {
    camera.needsPermits = false;
    camera.grab = [](std::uint8_t* buffer, int capacity) {
      std::fill(buffer, buffer + capacity, std::uint8_t{9});
      return 0;
    };
    camera.SetSize(kWidth, kHeight, kWidth * 3);
    InstallLinuxCamera();
  }
  ~PreviewThreads() override {
    camera.Free();
    g_cameraPreview.Stop(-1);
  }

  // Polls until the end, and looks at every pixel of each frame.
  void Poll(std::chrono::steady_clock::time_point end) {
    while (std::chrono::steady_clock::now() < end) {
      LatestFrame frame(g_cameraPreview, kDevice, 0);
      if (frame.result != 0) {
        ++otherAnswers;
        continue;
      }
      const PreviewMeta meta = frame.meta;
      const std::vector<std::uint8_t> copy(frame.data, frame.data + meta.dataSize);
      frame.Release();
      ++frames;
      const bool fits = meta.bytesPerRow == meta.width * 4 && meta.width <= kWidth &&
                        meta.height <= kHeight && meta.dataSize == meta.bytesPerRow * meta.height;
      wrong += fits ? 0 : 1;
      for (std::size_t i = 0; i < copy.size(); ++i) {
        wrong += copy[i] == (i % 4 == 3 ? 255 : 9) ? 0 : 1;
      }
    }
  }

  // Starts previews of small, large and far larger sizes in turn, each for one frame or none.
  void Restart(std::chrono::steady_clock::time_point end, int firstRound) {
    constexpr int kSizes[][2] = {{64, 48}, {8, 6}, {640, 480}, {16, 12}, {1280, 960}, {1, 1}};
    for (int round = firstRound; std::chrono::steady_clock::now() < end; ++round) {
      const auto& size = kSizes[static_cast<std::size_t>(round) % std::size(kSizes)];
      ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, size[0], size[1], kFastest), 0);
      ++starts;
      if (round % 2 == 0) {
        const auto patience = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
        while (g_cameraPreview.producedFrames < 1 && std::chrono::steady_clock::now() < patience) {
          std::this_thread::yield();
        }
      }
      if (round % 7 == 0) {
        g_cameraPreview.Stop(round % 2 == 0 ? -1 : kDevice);
      }
    }
  }

  ScriptedCamera& camera = TheCamera();
  std::atomic<std::uint64_t> frames{0};
  std::atomic<std::uint64_t> otherAnswers{0};
  std::atomic<std::uint64_t> starts{0};
  std::atomic<std::uint64_t> wrong{0};
};

TEST_F(PreviewThreads, AFrameIsWholeHoweverOftenThePreviewIsRestartedWithOtherSizes) {
  const auto end = std::chrono::steady_clock::now() + HammerSeconds();
  std::thread poller([&] { Poll(end); });
  Restart(end, 0);
  poller.join();
  EXPECT_EQ(wrong, 0U);
  EXPECT_GT(frames, 0U);
  EXPECT_GT(starts, 5U);
}

TEST_F(PreviewThreads, SeveralThreadsMayStartStopAndPollAtOnce) {
  const auto end = std::chrono::steady_clock::now() + HammerSeconds();
  std::vector<std::thread> threads;
  threads.emplace_back([&] { Poll(end); });
  threads.emplace_back([&] { Poll(end); });
  threads.emplace_back([&] { Restart(end, 1); });
  threads.emplace_back([&] {
    while (std::chrono::steady_clock::now() < end) {
      StopCapture(kDevice);
      g_cameraPreview.LatestQualityFrame(kDevice, 0);
    }
  });
  Restart(end, 4);
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0U);
  EXPECT_GT(starts, 5U);
  g_cameraPreview.Stop(-1);
  EXPECT_FALSE(g_cameraPreview.running);
  EXPECT_FALSE(g_cameraPreview.worker.joinable());
}

TEST_F(PreviewThreads, APollFindsNothingNewWhileAnotherOneCopies) {
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, kWidth, kHeight, kFastest), 0);
  ASSERT_TRUE(Eventually([] { return LatestFrame(g_cameraPreview, kDevice, 0).result == 0; }));
  LatestFrame held(g_cameraPreview, kDevice, 0);
  ASSERT_EQ(held.result, 0);
  std::thread([&] {
    const LatestFrame other(g_cameraPreview, kDevice, 0);
    EXPECT_EQ(other.result, -256);
    EXPECT_GE(other.sequence, held.sequence);
    EXPECT_EQ(other.data, nullptr);
    EXPECT_EQ(LatestFrame(g_cameraPreview, -1, 0).result, -1);
  }).join();
  EXPECT_GE(g_cameraPreview.readingIndex, 0);
  held.Release();
  std::thread([] { EXPECT_EQ(LatestFrame(g_cameraPreview, kDevice, 0).result, 0); }).join();
}

TEST_F(PreviewThreads, APollDoesNotWaitWhileAStopWaitsForTheCamera) {
  camera.needsPermits = true;
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, kWidth, kHeight, kFastest), 0);
  ASSERT_TRUE(camera.Step());  // the worker has published one frame and stands in its next grab
  ASSERT_EQ(LatestFrame(g_cameraPreview, kDevice, 0).result, 0);
  std::thread stopper([] { g_cameraPreview.Stop(kDevice); });
  ASSERT_TRUE(Eventually([] { return !g_cameraPreview.running; }));
  auto poll = std::async(std::launch::async, [] {
    const LatestFrame frame(g_cameraPreview, kDevice, 0);
    return std::pair(frame.result, frame.sequence);
  });
  EXPECT_EQ(poll.wait_for(kFarTooLong), std::future_status::ready);
  EXPECT_TRUE(g_cameraPreview.worker.joinable());
  camera.Free();
  stopper.join();
  EXPECT_EQ(poll.get(), (std::pair<int, std::uint64_t>(-256, 1)));
  EXPECT_EQ(LatestFrame(g_cameraPreview, kDevice, 0).result, -1);
}

TEST_F(PreviewThreads, AStopOfTheCaptureFreesAStartThatWaitsForAGrab) {
  // The worker's grab ends when the capture does, as that of an unplugged camera may.
  static std::binary_semaphore captureEnd(0);
  camera.grab = [](std::uint8_t*, int) {
    captureEnd.acquire();
    return -5;
  };
  g_camera.cnokhwa_stop_capture = [](int) {
    captureEnd.release();
    return 0;
  };
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, kWidth, kHeight, kFastest), 0);
  ASSERT_TRUE(Eventually([this] { return camera.finishedGrabs == 1; }));
  camera.firstFrame = -256;  // the next preview waits for its first frame
  auto start = std::async(std::launch::async,
                          [] { return g_cameraPreview.StartPolling(kDevice, 8, 6, kFastest); });
  ASSERT_TRUE(Eventually([] { return !g_cameraPreview.running; }));
  auto stop = std::async(std::launch::async, [] { return StopCapture(kDevice); });
  const bool hasStopped = stop.wait_for(kFarTooLong) == std::future_status::ready;
  EXPECT_TRUE(hasStopped);
  if (!hasStopped) {
    captureEnd.release();
  }
  EXPECT_EQ(start.get(), 0);
  EXPECT_EQ(stop.get(), 0);
  EXPECT_TRUE(g_cameraPreview.running);  // the start came to its end last
}

TEST_F(PreviewThreads, AStopWakesAWorkerThatWaitsForItsPace) {
  CameraPreviewProducer producer;
  producer.deviceIndex = kDevice;
  producer.bufferBytes = kWidth * kHeight * 4;
  for (auto& buffer : producer.buffers) {
    buffer.assign(producer.bufferBytes, 0);
  }
  producer.running = true;
  constexpr std::int64_t kOneHour = 3'600'000'000'000;
  producer.worker = std::thread(&CameraPreviewProducer::RunLoop, &producer, 0, kDevice, kWidth,
                                kHeight, kOneHour, producer.bufferBytes);
  ASSERT_TRUE(Eventually([&] { return producer.publishedIndex >= 0; }));
  auto stop = std::async(std::launch::async, [&] { producer.Stop(kDevice); });
  ASSERT_EQ(stop.wait_for(kFarTooLong), std::future_status::ready);
}

TEST_F(PreviewThreads, TheMemoryOfALargePreviewGoesBackAtTheStartOfAMuchSmallerOne) {
  const auto capacity = [] { return g_cameraPreview.buffers[2].capacity(); };
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, 100, 100, kFastest), 0);
  EXPECT_EQ(capacity(), 40'000U);
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, 50, 50, kFastest), 0);
  EXPECT_EQ(capacity(), 40'000U);  // four times what is needed is kept, for the next large one
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, 50, 49, kFastest), 0);
  EXPECT_EQ(capacity(), 9'800U);
  for (const auto& buffer : g_cameraPreview.buffers) {
    EXPECT_EQ(buffer.size(), 9'800U);
  }
}

TEST_F(PreviewThreads, TheMemoryOfALargeStillGoesBackWithAMuchSmallerCamera) {
  camera.SetSize(100, 100, 300);
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, 8, 8, kFastest), 0);
  const auto hasStill = [] { return g_cameraPreview.LatestQualityFrame(kDevice, 0).isNew; };
  ASSERT_TRUE(Eventually(hasStill));
  g_cameraPreview.Stop(-1);
  EXPECT_EQ(g_cameraPreview.qualityBuffer.capacity(), 30'000U);
  camera.SetSize(10, 10, 30);
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, 8, 8, kFastest), 0);
  ASSERT_TRUE(Eventually(hasStill));
  g_cameraPreview.Stop(-1);
  EXPECT_EQ(g_cameraPreview.qualityBuffer.capacity(), 300U);
}

TEST_F(PreviewThreads, NoLockIsHeldWhileAStillIsGrabbedAnew) {
  camera.pixelFormat = static_cast<int>(CameraPixelFormat::Yuy2);
  camera.SetSize(kWidth, kHeight, kWidth * 2);
  static std::latch inGrab(1);
  static std::binary_semaphore goOn(0);
  camera.grabRgb = [](std::uint8_t* buffer, int capacity) {
    inGrab.count_down();
    goOn.acquire();
    std::fill(buffer, buffer + capacity, std::uint8_t{5});
    return 0;
  };
  InstallAvfCamera();
  ASSERT_EQ(g_cameraPreview.StartPolling(kDevice, kWidth, kHeight, kFastest), 0);
  inGrab.wait();
  auto poll = std::async(std::launch::async,
                         [] { return g_cameraPreview.LatestQualityFrame(kDevice, 0).isNew; });
  EXPECT_EQ(poll.wait_for(kFarTooLong), std::future_status::ready);
  EXPECT_TRUE(g_cameraPreview.qualityMutex.try_lock());
  g_cameraPreview.qualityMutex.unlock();
  goOn.release();
  EXPECT_FALSE(poll.get());
  ASSERT_TRUE(Eventually([] { return g_cameraPreview.LatestQualityFrame(kDevice, 0).isNew; }));
  camera.grabRgb = [](std::uint8_t*, int) { return 0; };
}

}  // namespace
}  // namespace ostrel_native

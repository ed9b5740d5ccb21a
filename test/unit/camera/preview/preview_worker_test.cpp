// The producer worker, cycle by cycle, against a scripted camera.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/preview/camera_preview.h"
#include "recording/video_recorder.h"
#include "unit/support/eventually.h"
#include "unit/support/scripted_camera.h"

namespace ostrel_native {
namespace {

constexpr int kFastest = 120;

// A byte that differs by frame, row and column, so that a misplaced pixel shows.
std::uint8_t TexelByte(int frame, std::size_t offset) {
  return static_cast<std::uint8_t>(static_cast<std::size_t>(frame) * 31 + offset * 7 +
                                   offset / 251);
}

int FillFrame(std::uint8_t* buffer, int capacity) {
  const int frame = TheCamera().grabs;
  for (int i = 0; i < capacity; ++i) {
    buffer[i] = TexelByte(frame, static_cast<std::size_t>(i));
  }
  return 0;
}

class PreviewWorkerTest : public testing::Test {
 protected:
  void SetUp() override {
    camera.grab = FillFrame;
    camera.grabRgb = FillFrame;
    camera.SetSize(4, 2, 12);
  }
  void TearDown() override {
    camera.Free();
    g_cameraPreview.Stop(-1);
  }

  void Start(int width = 960, int height = 540) {
    ASSERT_EQ(g_cameraPreview.StartPolling(kScriptedDevice, width, height, kFastest), 0);
  }

  // One published frame; the worker then waits for the next permit.
  PreviewMeta NextFrame(std::vector<std::uint8_t>* bytes = nullptr) {
    const std::uint64_t before = g_cameraPreview.publishedSequence;
    camera.permits.release();
    EXPECT_TRUE(Eventually([this, before] { return HasPublished(before + 1); }));
    LatestFrame frame(g_cameraPreview, kScriptedDevice, before);
    EXPECT_EQ(frame.result, 0);
    if (bytes != nullptr && frame.result == 0) {
      bytes->assign(frame.data, frame.data + frame.meta.dataSize);
    }
    return frame.meta;
  }

  bool HasPublished(std::uint64_t sequence) {
    const int index = g_cameraPreview.publishedIndex;
    return index >= 0 && LatestFrame(g_cameraPreview, kScriptedDevice, sequence - 1).result == 0;
  }

  bool EventuallyDropped(int count, int result) {
    return Eventually([count, result] {
      return g_cameraPreview.droppedFrames >= count && g_cameraPreview.lastResult == result;
    });
  }

  ScriptedCamera& camera = TheCamera();
  // What scripted grabs share with their test: the worker may grab until the fixture is torn down.
  std::atomic<int> grabResult{0};
  std::atomic<int> toldCapacity{0};
  std::atomic<int> stillAttempts{0};
};

TEST_F(PreviewWorkerTest, WaitsForAFirstFrameWithoutCountingAnything) {
  InstallLinuxCamera();
  camera.firstFrame = -256;
  Start();
  ASSERT_TRUE(Eventually([this] { return camera.firstFrameQueries > 3; }));
  EXPECT_EQ(g_cameraPreview.droppedFrames, 0);
  EXPECT_EQ(g_cameraPreview.lastResult, -256);
  EXPECT_FALSE(g_cameraPreview.firstFrameSeen);
  EXPECT_EQ(camera.grabs, 0);
}

TEST_F(PreviewWorkerTest, CountsAFirstFrameQueryThatFails) {
  InstallLinuxCamera();
  camera.firstFrame = -42;
  Start();
  EXPECT_TRUE(EventuallyDropped(2, -42));
  camera.firstFrame = 7;  // only 0 means yes
  EXPECT_TRUE(EventuallyDropped(3, 7));
  camera.firstFrame = 0;
  EXPECT_TRUE(Eventually([this] { return camera.grabs == 1; }));
  EXPECT_TRUE(g_cameraPreview.firstFrameSeen);
}

TEST_F(PreviewWorkerTest, CountsABackendThatIsMissing) {
  Start();
  EXPECT_TRUE(EventuallyDropped(2, -6));
}

TEST_F(PreviewWorkerTest, TakesUpABackendThatIsLoadedAfterTheStart) {
  Start();
  ASSERT_TRUE(EventuallyDropped(1, -6));
  InstallLinuxCamera();
  EXPECT_EQ(NextFrame().sequence, 1U);
}

TEST_F(PreviewWorkerTest, AsksAgainForAFirstFrameAfterEachStart) {
  InstallLinuxCamera();
  Start();
  NextFrame();
  EXPECT_EQ(camera.firstFrameQueries, 1);
  camera.Free();
  g_cameraPreview.Stop(-1);
  Start();
  EXPECT_TRUE(Eventually([this] { return camera.firstFrameQueries == 2; }));
}

TEST_F(PreviewWorkerTest, PublishesRgbAsOpaqueRgba) {
  InstallLinuxCamera();
  camera.SetSize(4, 2, 14);  // two bytes of padding behind each row
  Start();
  std::vector<std::uint8_t> bytes;
  const PreviewMeta meta = NextFrame(&bytes);
  EXPECT_EQ(meta.sequence, 1U);
  EXPECT_EQ(meta.width, 4);
  EXPECT_EQ(meta.height, 2);
  EXPECT_EQ(meta.bytesPerRow, 16);
  EXPECT_EQ(meta.dataSize, 32);
  EXPECT_EQ(meta.sourceWidth, 4);
  EXPECT_EQ(meta.sourceHeight, 2);
  EXPECT_EQ(meta.sourceBytesPerRow, 14);
  EXPECT_EQ(meta.pixelFormat, 5);
  EXPECT_EQ(meta.planeCount, 1);
  EXPECT_EQ(meta.planeOffsets[0], 0);
  EXPECT_EQ(meta.planeStrides[0], 16);
  EXPECT_GT(meta.timestampMs, 1'600'000'000'000);
  EXPECT_GT(meta.monotonicTicks, 0);
  for (std::size_t y = 0; y < 2; ++y) {
    for (std::size_t x = 0; x < 4; ++x) {
      for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_EQ(bytes[y * 16 + x * 4 + c], TexelByte(1, y * 14 + x * 3 + c));
      }
      EXPECT_EQ(bytes[y * 16 + x * 4 + 3], 255);
    }
  }
}

TEST_F(PreviewWorkerTest, ReducesByTheTopLeftPixelOfEachStep) {
  InstallLinuxCamera();
  camera.SetSize(7, 5, 21);
  Start(3, 2);
  std::vector<std::uint8_t> bytes;
  const PreviewMeta meta = NextFrame(&bytes);
  EXPECT_EQ(meta.width, 2);
  EXPECT_EQ(meta.height, 1);
  ASSERT_EQ(bytes.size(), 8U);
  for (std::size_t x = 0; x < 2; ++x) {
    for (std::size_t c = 0; c < 3; ++c) {
      EXPECT_EQ(bytes[x * 4 + c], TexelByte(1, x * 3 * 3 + c));
    }
  }
}

TEST_F(PreviewWorkerTest, HalvesFullHdAndNeverEnlarges) {
  InstallLinuxCamera();
  camera.SetSize(1920, 1080, 5760);
  Start();
  const PreviewMeta meta = NextFrame();
  EXPECT_EQ(meta.width, 960);
  EXPECT_EQ(meta.height, 540);
  EXPECT_EQ(meta.bytesPerRow, 3840);
  EXPECT_EQ(meta.sourceWidth, 1920);
  EXPECT_EQ(meta.sourceBytesPerRow, 5760);
  camera.Free();
  g_cameraPreview.Stop(-1);
  camera.needsPermits = true;
  camera.SetSize(640, 480, 1920);
  Start();
  const PreviewMeta small = NextFrame();
  EXPECT_EQ(small.width, 640);
  EXPECT_EQ(small.height, 480);
}

TEST_F(PreviewWorkerTest, NumbersItsFramesFromOne) {
  InstallLinuxCamera();
  Start();
  for (std::uint64_t sequence = 1; sequence <= 5; ++sequence) {
    EXPECT_EQ(NextFrame().sequence, sequence);
    EXPECT_EQ(g_cameraPreview.producedFrames, sequence);
  }
  EXPECT_EQ(g_cameraPreview.droppedFrames, 0);
  EXPECT_EQ(g_cameraPreview.lastResult, 0);
}

TEST_F(PreviewWorkerTest, RefusesABadGeometryAndReadsItAgainEachCycle) {
  InstallLinuxCamera();
  camera.SetSize(0, 2, 12);
  Start();
  ASSERT_TRUE(EventuallyDropped(2, -10));
  camera.SetSize(4, 2, 11);
  ASSERT_TRUE(EventuallyDropped(4, -10));
  EXPECT_EQ(camera.grabs, 0);
  camera.SetSize(4, 2, 12);
  EXPECT_EQ(NextFrame().width, 4);
}

TEST_F(PreviewWorkerTest, RefusesAFrameWhoseByteSizeDoesNotFit) {
  InstallLinuxCamera();
  camera.SetSize(4, 65536, 65536);  // their product is 2^32
  Start();
  EXPECT_TRUE(EventuallyDropped(2, -11));
  EXPECT_EQ(camera.grabs, 0);
}

TEST_F(PreviewWorkerTest, RefusesAFrameBeyondItsBuffer) {
  InstallDshowCamera();
  camera.pixelFormat = 2;
  camera.SetSize(8, 8, 8);
  camera.planeCount = 2;
  camera.planeOffsets[1] = 64;
  camera.planeStrides[1] = 8;
  camera.dataSize = 96;
  Start(4, 4);
  EXPECT_TRUE(EventuallyDropped(2, -11));
  EXPECT_EQ(camera.grabs, 0);
}

TEST_F(PreviewWorkerTest, ReadsTheGeometryAgainAfterThreeResultsAndNoOther) {
  InstallLinuxCamera();
  Start();
  NextFrame();
  int queries = camera.widthQueries;
  camera.grab = [this](std::uint8_t*, int) { return grabResult.load(); };
  int dropped = 0;
  for (const int code : {-8, -1, 5, -9, -13}) {
    grabResult = code;
    ASSERT_TRUE(camera.Step());
    EXPECT_EQ(g_cameraPreview.droppedFrames, ++dropped) << code;
    EXPECT_EQ(g_cameraPreview.lastResult, code);
    EXPECT_EQ(camera.widthQueries, queries) << code;
  }
  for (const int code : {-7, -10, -11}) {
    grabResult = code;
    ASSERT_TRUE(camera.Step());
    EXPECT_EQ(g_cameraPreview.droppedFrames, ++dropped) << code;
    EXPECT_EQ(g_cameraPreview.lastResult, code);
    EXPECT_GT(camera.widthQueries, queries) << code;
    queries = camera.widthQueries;
  }
}

TEST_F(PreviewWorkerTest, FollowsACameraThatChangesItsSize) {
  InstallLinuxCamera();
  Start();
  EXPECT_EQ(NextFrame().width, 4);
  camera.grab = [this](std::uint8_t*, int) {
    camera.SetSize(6, 3, 18);
    return -7;
  };
  ASSERT_TRUE(camera.Step());
  camera.grab = FillFrame;
  const PreviewMeta meta = NextFrame();
  EXPECT_EQ(meta.width, 6);
  EXPECT_EQ(meta.height, 3);
  EXPECT_EQ(meta.sequence, 2U);
}

TEST_F(PreviewWorkerTest, GoesOnAfterAnExceptionAsAfterALostFrame) {
  InstallLinuxCamera();
  Start();
  NextFrame();
  camera.grab = [](std::uint8_t*, int) -> int { throw std::bad_alloc(); };
  ASSERT_TRUE(camera.Step());
  EXPECT_EQ(g_cameraPreview.droppedFrames, 1);
  EXPECT_EQ(g_cameraPreview.lastResult, -11);
  camera.grab = FillFrame;
  EXPECT_EQ(NextFrame().sequence, 2U);
}

TEST_F(PreviewWorkerTest, ReadsNothingBehindAFrameThatIsSmallerThanItsRows) {
  InstallDshowCamera();
  camera.pixelFormat = 0;
  camera.SetSize(64, 32, 200);
  camera.dataSize = 500;  // rows alone need 31 * 200 + 192
  camera.grab = [this](std::uint8_t* buffer, int bytes) {
    toldCapacity = bytes;
    std::fill(buffer, buffer + bytes, std::uint8_t{9});
    return 0;
  };
  Start();
  std::vector<std::uint8_t> bytes;
  NextFrame(&bytes);
  EXPECT_EQ(toldCapacity, 500);
  EXPECT_EQ(bytes[0], 9);
  EXPECT_EQ(bytes[bytes.size() - 2], 0);  // what the camera did not deliver is black
}

TEST_F(PreviewWorkerTest, GrabsBgraOfTheWantedSizeInPlace) {
  InstallDshowCamera();
  camera.pixelFormat = 1;
  camera.SetSize(4, 2, 16);
  Start();
  std::vector<std::uint8_t> bytes;
  const PreviewMeta meta = NextFrame(&bytes);
  EXPECT_EQ(meta.pixelFormat, 1);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    EXPECT_EQ(bytes[i], TexelByte(1, i));  // alpha as delivered
  }
  const QualityFrame quality = g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0);
  ASSERT_TRUE(quality.isNew);
  EXPECT_TRUE(quality.isBgra);
  EXPECT_EQ(quality.bytesPerRow, 16);
  EXPECT_EQ(quality.data, bytes);
}

TEST_F(PreviewWorkerTest, TakesADshowCameraWithoutAFormatAsBgra) {
  InstallDshowCamera();
  g_camera.cdshow_frame_pixel_format = nullptr;
  camera.SetSize(4, 2, 20);
  Start();
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(NextFrame(&bytes).pixelFormat, 1);
  EXPECT_EQ(bytes[16], TexelByte(1, 20));
}

TEST_F(PreviewWorkerTest, TakesAnAvfCameraWithoutAFormatAsRgb) {
  InstallAvfCamera();
  g_camera.avf_frame_pixel_format = nullptr;
  Start();
  EXPECT_EQ(NextFrame().pixelFormat, 5);
}

TEST_F(PreviewWorkerTest, PublishesNv12AsItIsWithAnExtraGrabForTheStill) {
  InstallAvfCamera();
  camera.pixelFormat = 2;
  camera.SetSize(4, 2, 6);
  camera.planeCount = 2;
  camera.planeOffsets[0] = 0;
  camera.planeOffsets[1] = 12;
  camera.planeStrides[1] = 6;
  camera.dataSize = 18;
  // AVFoundation delivers its RGB rows at its own row size, which is shorter than 3 * 4 here.
  camera.grabRgb = [](std::uint8_t* buffer, int capacity) {
    std::fill(buffer, buffer + capacity, std::uint8_t{77});
    return 0;
  };
  Start();
  std::vector<std::uint8_t> bytes;
  const PreviewMeta meta = NextFrame(&bytes);
  EXPECT_EQ(meta.pixelFormat, 2);
  EXPECT_EQ(meta.width, 4);
  EXPECT_EQ(meta.height, 2);
  EXPECT_EQ(meta.bytesPerRow, 6);
  EXPECT_EQ(meta.dataSize, 18);
  EXPECT_EQ(meta.planeCount, 2);
  EXPECT_EQ(meta.planeOffsets[1], 12);
  EXPECT_EQ(meta.planeStrides[1], 6);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    EXPECT_EQ(bytes[i], TexelByte(1, i));
  }
  const QualityFrame quality = g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0);
  ASSERT_TRUE(quality.isNew);
  EXPECT_FALSE(quality.isBgra);
  EXPECT_EQ(quality.bytesPerRow, 12);
  EXPECT_EQ(quality.data, std::vector<std::uint8_t>(24, 77));
}

TEST_F(PreviewWorkerTest, TriesTheStillAgainWithTheNextFrameWhenItsGrabFails) {
  InstallAvfCamera();
  camera.pixelFormat = 3;
  camera.SetSize(4, 2, 8);
  camera.grabRgb = [this](std::uint8_t* buffer, int bytes) {
    std::fill(buffer, buffer + bytes, std::uint8_t{5});
    return ++stillAttempts < 3 ? -1 : 0;
  };
  Start();
  NextFrame();
  EXPECT_FALSE(g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0).isNew);
  EXPECT_EQ(g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0).sequence, 0U);
  NextFrame();
  NextFrame();
  EXPECT_TRUE(g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0).isNew);
  EXPECT_EQ(stillAttempts, 3);
  NextFrame();
  EXPECT_EQ(stillAttempts, 3);  // half a second has not passed
}

TEST_F(PreviewWorkerTest, AnswersAvfGrabsByTheEntriesThatExist) {
  InstallAvfCamera();
  camera.grab = [](std::uint8_t*, int) { return -1; };
  Start();
  ASSERT_TRUE(camera.Step());
  EXPECT_EQ(g_cameraPreview.lastResult, -8);
  camera.Free();
  g_cameraPreview.Stop(-1);
  g_camera.avf_grab_native = nullptr;
  Start();
  EXPECT_TRUE(Eventually([] { return g_cameraPreview.publishedSequence >= 1; }));
  g_cameraPreview.Stop(-1);
  g_camera.avf_grab_rgb = nullptr;
  Start();
  EXPECT_TRUE(EventuallyDropped(1, -6));
}

TEST_F(PreviewWorkerTest, CountsADshowBackendWithoutAGrab) {
  InstallDshowCamera();
  camera.pixelFormat = 1;
  camera.SetSize(4, 2, 16);
  g_camera.cdshow_grab_frame = nullptr;
  Start();
  EXPECT_TRUE(EventuallyDropped(2, -6));
}

TEST_F(PreviewWorkerTest, GivesTheStillWithTheFirstFrameAtFullSizeAndTight) {
  InstallLinuxCamera();
  camera.SetSize(8, 4, 30);
  Start(4, 2);
  NextFrame();
  const QualityFrame quality = g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0);
  ASSERT_TRUE(quality.isNew);
  EXPECT_EQ(quality.sequence, 1U);
  EXPECT_EQ(quality.width, 8);
  EXPECT_EQ(quality.height, 4);
  EXPECT_EQ(quality.bytesPerRow, 24);
  EXPECT_FALSE(quality.isBgra);
  EXPECT_GT(quality.timestampMs, 1'600'000'000'000);
  ASSERT_EQ(quality.data.size(), 96U);
  for (std::size_t y = 0; y < 4; ++y) {
    for (std::size_t i = 0; i < 24; ++i) {
      EXPECT_EQ(quality.data[y * 24 + i], TexelByte(1, y * 30 + i));
    }
  }
  EXPECT_FALSE(g_cameraPreview.LatestQualityFrame(kScriptedDevice, 1).isNew);
  EXPECT_EQ(g_cameraPreview.LatestQualityFrame(kScriptedDevice, 1).sequence, 1U);
  EXPECT_FALSE(g_cameraPreview.LatestQualityFrame(kScriptedDevice + 1, 0).isNew);
  EXPECT_FALSE(g_cameraPreview.LatestQualityFrame(-1, 0).isNew);
}

TEST_F(PreviewWorkerTest, RefreshesTheStillAtMostTwiceASecond) {
  InstallLinuxCamera();
  camera.needsPermits = false;
  const auto begin = std::chrono::steady_clock::now();
  Start();
  ASSERT_TRUE(Eventually(
      [] { return g_cameraPreview.LatestQualityFrame(kScriptedDevice, 0).sequence >= 3; }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(999));
}

TEST_F(PreviewWorkerTest, MeasuresItsRateInTenths) {
  InstallLinuxCamera();
  camera.needsPermits = false;
  Start();
  ASSERT_TRUE(Eventually([] { return g_cameraPreview.producerFpsTenths > 0; }));
  EXPECT_LE(g_cameraPreview.producerFpsTenths, kFastest * 10 + 20);
}

TEST_F(PreviewWorkerTest, NeverCatchesUpOnLostTime) {
  InstallLinuxCamera();
  camera.needsPermits = false;
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(g_cameraPreview.StartPolling(kScriptedDevice, 4, 2, 50), 0);
  ASSERT_TRUE(Eventually([] { return g_cameraPreview.producedFrames >= 11; }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
}

TEST_F(PreviewWorkerTest, StoresNothingOnceItIsToldToStopDuringAGrab) {
  InstallLinuxCamera();
  Start();
  NextFrame();
  ASSERT_TRUE(Eventually([this] { return camera.grabs == 2; }));
  camera.grab = [](std::uint8_t*, int) { return -8; };
  g_cameraPreview.RequestStop();
  camera.Free();
  g_cameraPreview.worker.join();
  EXPECT_EQ(g_cameraPreview.droppedFrames, 0);
  EXPECT_EQ(g_cameraPreview.lastResult, 0);
  EXPECT_EQ(camera.grabs, 2);
}

TEST_F(PreviewWorkerTest, OffersEachFrameToTheRecorderBeforeItPublishesIt) {
  InstallLinuxCamera();
  {
    const std::lock_guard<std::mutex> lock(g_videoRecorder.mutex);
    g_videoRecorder.state = VideoRecorder::State::Recording;
    g_videoRecorder.width = 4;
    g_videoRecorder.height = 2;
  }
  Start();
  std::vector<std::uint8_t> bytes;
  const PreviewMeta meta = NextFrame(&bytes);
  const std::lock_guard<std::mutex> lock(g_videoRecorder.mutex);
  ASSERT_EQ(g_videoRecorder.queue.size(), 1U);
  const VideoRecorder::Frame& frame = g_videoRecorder.queue.front();
  EXPECT_EQ(frame.data, bytes);
  EXPECT_EQ(frame.width, 4);
  EXPECT_EQ(frame.height, 2);
  EXPECT_EQ(frame.format, 5);
  EXPECT_EQ(frame.planeCount, 1);
  EXPECT_EQ(frame.planeStrides[0], 16);
  EXPECT_EQ(frame.timestamp, meta.monotonicTicks);
  g_videoRecorder.state = VideoRecorder::State::Idle;
}

}  // namespace
}  // namespace ostrel_native

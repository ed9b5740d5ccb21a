// The worker of a direct preview of uncompressed frames: stills, and nothing else.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <latch>
#include <new>
#include <semaphore>

#include "unit/support/allocation_spy.h"
#include "unit/support/direct_preview.h"
#include "unit/support/eventually.h"

namespace ostrel_native {
namespace {

struct DirectStill : DirectPreviewTest {
  DirectStill() {
    UseDirectShow({});
    FAKE_ENTRY(cdshow_grab_frame, [this](int, void* buffer, int capacity) {
      ++grabs;
      return grab(static_cast<std::uint8_t*>(buffer), capacity);
    });
  }
  ~DirectStill() override { producer->Stop(-1); }

  QualityFrame Still() { return producer->LatestQualityFrame(kDevice, 0); }
  bool EventuallyStill(std::uint64_t sequence) {
    return Eventually([this, sequence] { return Still().sequence >= sequence; });
  }
  void FireFrame() { Fire(FrameBytes(32)); }

  std::atomic<int> grabs{0};
  std::function<int(std::uint8_t*, int)> grab = [](std::uint8_t* buffer, int capacity) {
    const Bytes bytes = FrameBytes(static_cast<std::size_t>(capacity));
    std::copy(bytes.begin(), bytes.end(), buffer);
    return 0;
  };
};

TEST_F(DirectStill, ComesWithTheFirstFrameAndNotBefore) {
  ASSERT_EQ(Start(), 0);
  // The worker looks for a first frame every 10 ms; 3 looks prove that it waits.
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(Eventually([begin] {
    return std::chrono::steady_clock::now() - begin > std::chrono::milliseconds(30);
  }));
  EXPECT_EQ(grabs, 0);
  EXPECT_EQ(producer->droppedFrames, 0);
  FireFrame();
  ASSERT_TRUE(EventuallyStill(1));
  const QualityFrame still = Still();
  EXPECT_EQ(still.width, 4);
  EXPECT_EQ(still.height, 2);
  EXPECT_EQ(still.bytesPerRow, 12);
  EXPECT_FALSE(still.isBgra);
  EXPECT_GT(still.timestampMs, 1'600'000'000'000);
  const Bytes bgra = FrameBytes(32);
  ASSERT_EQ(still.data.size(), 24U);
  for (std::size_t pixel = 0; pixel < 8; ++pixel) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      EXPECT_EQ(still.data[pixel * 3 + channel], bgra[pixel * 4 + 2 - channel]);
    }
  }
}

TEST_F(DirectStill, IsRefreshedTwiceASecondAtMost) {
  ASSERT_EQ(Start(), 0);
  const auto begin = std::chrono::steady_clock::now();
  FireFrame();
  ASSERT_TRUE(EventuallyStill(3));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
}

TEST_F(DirectStill, IsGrabbedAsBgraFromAvfThatCan) {
  UseAvFoundation({.bytesPerRow = 99});
  FAKE_ENTRY(avf_grab_bgra, [this](int, void* buffer, int capacity) {
    ++grabs;
    return grab(static_cast<std::uint8_t*>(buffer), capacity) == 0;
  });
  ASSERT_EQ(Start(), 0);
  const Bytes pixels = FrameBytes(32);
  avfCallback(kDevice, 1, 4, 2, 1, pixels.data(), 32, 16, nullptr, 0, 0, 0, callbackContext);
  ASSERT_TRUE(EventuallyStill(1));
  EXPECT_TRUE(Still().isBgra);
  EXPECT_EQ(Still().bytesPerRow, 16);
  EXPECT_EQ(Still().data, FrameBytes(32));
}

TEST_F(DirectStill, IsGrabbedAsRgbFromOtherAvf) {
  UseAvFoundation({});
  FAKE_ENTRY(avf_grab_rgb, [this](int, void* buffer, int capacity) {
    return grab(static_cast<std::uint8_t*>(buffer), capacity) == 0;
  });
  ASSERT_EQ(Start(), 0);
  const Bytes pixels = FrameBytes(32);
  avfCallback(kDevice, 1, 4, 2, 1, pixels.data(), 32, 16, nullptr, 0, 0, 0, callbackContext);
  ASSERT_TRUE(EventuallyStill(1));
  EXPECT_FALSE(Still().isBgra);
  EXPECT_EQ(Still().bytesPerRow, 12);
}

TEST_F(DirectStill, IsTriedAgainAfterAFailureThatNobodyCounts) {
  grab = [this](std::uint8_t*, int) { return grabs < 2 ? -8 : 0; };
  ASSERT_EQ(Start(), 0);
  FireFrame();
  ASSERT_TRUE(EventuallyStill(1));
  EXPECT_EQ(grabs, 2);
  EXPECT_EQ(Still().sequence, 1U);
  ExpectDropped(0, 0);
}

TEST_F(DirectStill, IsNotGrabbedWhileTheSizeIsUnknown) {
  ASSERT_EQ(Start(), 0);
  FAKE_NUMBER(cdshow_frame_width, 0);
  FireFrame();
  ASSERT_TRUE(Eventually([] {
    const auto calls = Calls();
    return std::count(calls.begin(), calls.end(), "cdshow_frame_width(3)") >= 2;
  }));
  EXPECT_EQ(grabs, 0);
  ExpectDropped(0, 0);
}

TEST_F(DirectStill, SurvivesAnExceptionAndALackOfMemory) {
  grab = [this](std::uint8_t*, int) -> int {
    if (grabs == 1) {
      throw std::bad_alloc();
    }
    return 0;
  };
  ASSERT_EQ(Start(), 0);
  FireFrame();
  ASSERT_TRUE(EventuallyStill(1));
  EXPECT_EQ(grabs, 2);
}

TEST_F(DirectStill, IsThrownAwayIfThePreviewEndsDuringItsGrab) {
  std::latch entered(1);
  std::binary_semaphore goOn(0);
  grab = [&](std::uint8_t*, int) {
    entered.count_down();
    goOn.acquire();
    return 0;
  };
  ASSERT_EQ(Start(), 0);
  FireFrame();
  entered.wait();
  producer->RequestStop();
  goOn.release();
  producer->worker.join();
  EXPECT_EQ(producer->qualitySequence, 0U);
  EXPECT_TRUE(producer->qualityBuffer.empty());
}

}  // namespace
}  // namespace ostrel_native

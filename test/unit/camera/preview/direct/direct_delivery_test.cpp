// The callback of a DirectShow backend: what it copies where, what it refuses, and what it counts.
#include "camera/preview/direct/direct_delivery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "camera/frames/frame_clock.h"
#include "unit/support/direct_preview.h"

namespace ostrel_native {
namespace {

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t kUint64Max = std::numeric_limits<std::uint64_t>::max();

struct DirectDelivery : DirectPreviewTest {
  DirectDelivery() { UseDirectShow({}); }

  void ExpectNothingHappened() const {
    EXPECT_EQ(producer->droppedFrames, 0);
    EXPECT_EQ(producer->producedFrames, 0U);
    EXPECT_EQ(producer->lastResult, -256);
    EXPECT_EQ(producer->directCursor, 0U);
  }
};

TEST_F(DirectDelivery, CopiesAFrameAndStampsItsRecord) {
  UseDirectShow({.bytesPerRow = 20, .dataSize = 44, .offsets = {4, 0}, .strides = {20, 0}});
  ASSERT_EQ(Start(), 0);
  const std::int64_t wallBefore = WallClockMs();
  const std::int64_t ticksBefore = SteadyTicks();
  Fire(FrameBytes(44));
  EXPECT_EQ(memory[0]->Content(), FrameBytes(44));
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
  const PreviewMeta& meta = producer->metas[0];
  EXPECT_EQ(meta.sequence, 1U);
  EXPECT_EQ(meta.width, 4);
  EXPECT_EQ(meta.height, 2);
  EXPECT_EQ(meta.bytesPerRow, 20);
  EXPECT_EQ(meta.dataSize, 44);
  EXPECT_EQ(meta.sourceWidth, 4);
  EXPECT_EQ(meta.sourceHeight, 2);
  EXPECT_EQ(meta.sourceBytesPerRow, 20);
  EXPECT_EQ(meta.pixelFormat, 1);
  EXPECT_EQ(meta.planeCount, 1);
  EXPECT_EQ(meta.planeOffsets[0], 4);
  EXPECT_EQ(meta.planeStrides[0], 20);
  EXPECT_GE(meta.timestampMs, wallBefore);
  EXPECT_LE(meta.timestampMs, WallClockMs());
  EXPECT_GE(meta.monotonicTicks, ticksBefore);
  EXPECT_LE(meta.monotonicTicks, SteadyTicks());
  EXPECT_EQ(producer->publishedSequence, 1U);
  EXPECT_EQ(producer->producedFrames, 1U);
  EXPECT_EQ(producer->fpsPeriodFrames, 1U);
  EXPECT_TRUE(producer->firstFrameSeen);
  ExpectDropped(0, 0);
}

TEST_F(DirectDelivery, TakesAFrameOfAnotherSizeAsLongAsItFits) {
  ASSERT_EQ(Start(40), 0);
  for (const std::size_t size : {1U, 31U, 40U}) {
    Fire(FrameBytes(size, size));
    const auto slot = static_cast<std::size_t>(producer->producedFrames - 1);
    EXPECT_EQ(producer->metas[slot].dataSize, static_cast<int>(size));
    EXPECT_EQ(producer->metas[slot].bytesPerRow, 16);  // of the plan, whatever came
    EXPECT_EQ(memory[slot]->Content(size), FrameBytes(size, size));
    EXPECT_EQ(memory[slot]->Content().back() == LentMemory::kUntouched, size < 40);
  }
}

TEST_F(DirectDelivery, DropsAFrameThatExceedsItsSlot) {
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(33));
  ExpectDropped(1, -11);
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
  EXPECT_EQ(memory[0]->Content(), Bytes(32, LentMemory::kUntouched));
  const Bytes bytes(32);
  for (const std::uint64_t size : {std::uint64_t{1} << 32, std::uint64_t{1} << 63, kUint64Max}) {
    dshowCallback(kDevice, bytes.data(), size, 0, callbackContext);
    dshowCallback(kDevice, bytes.data(), size, 1, callbackContext);
  }
  ExpectDropped(7, -11);
  EXPECT_EQ(producer->producedFrames, 0U);
}

TEST_F(DirectDelivery, DropsAFrameWhoseSizeExceedsInt32WhateverTheSlot) {
  ASSERT_EQ(Start(), 0);
  const Bytes bytes(32);
  for (auto& length : producer->slotBytes) {
    length = kUint64Max;
  }
  dshowCallback(kDevice, bytes.data(), std::uint64_t{kIntMax} + 1, 0, callbackContext);
  ExpectDropped(1, -11);
}

TEST_F(DirectDelivery, DropsAFrameForASlotWithoutMemory) {
  ASSERT_EQ(Start(), 0);
  producer->slotData[0] = nullptr;
  Fire(FrameBytes(32));
  ExpectDropped(1, -11);
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
  Fire(FrameBytes(32));
  EXPECT_EQ(States(), (std::vector{kFree, kReady, kFree}));
}

TEST_F(DirectDelivery, IgnoresCallsThatAreNotForThisPreview) {
  ASSERT_EQ(Start(), 0);
  const Bytes frame = FrameBytes(32);
  DirectFrameCallback(kDevice, frame.data(), 32, 0, nullptr);
  dshowCallback(kDevice, nullptr, 32, 0, callbackContext);
  dshowCallback(kDevice, frame.data(), 0, 0, callbackContext);
  dshowCallback(kDevice + 1, frame.data(), 32, 0, callbackContext);
  dshowCallback(-1, frame.data(), 32, 0, callbackContext);
  producer->direct = false;
  Fire(frame);
  producer->direct = true;
  producer->running = false;
  Fire(frame);
  ExpectNothingHappened();
}

TEST_F(DirectDelivery, TurnsFlippedRowsAround) {
  ASSERT_EQ(Start(36), 0);
  const Bytes frame = FrameBytes(35);
  Fire(frame, 1);
  // What lies behind the rows comes as it is; what lies behind the frame is not the preview's.
  Bytes expected(36, LentMemory::kUntouched);
  std::copy_n(frame.begin(), 35, expected.begin());
  std::copy_n(frame.begin() + 16, 16, expected.begin());
  std::copy_n(frame.begin(), 16, expected.begin() + 16);
  EXPECT_EQ(memory[0]->Content(), expected);
  EXPECT_EQ(producer->metas[0].dataSize, 35);
  Fire(frame, -1);
  EXPECT_EQ(memory[1]->Content(), expected);
}

// 4 by 4 pixels: rows of 5 bytes, two of them chroma at 24, and a byte behind the last.
BackendFrame SmallNv12() {
  return {.format = CameraPixelFormat::Nv12,
          .width = 4,
          .height = 4,
          .bytesPerRow = 5,
          .dataSize = 35,
          .planeCount = 2,
          .offsets = {0, 24},
          .strides = {5, 5}};
}

TEST_F(DirectDelivery, TurnsBothPlanesOfAFlippedFrameAround) {
  UseDirectShow(SmallNv12());
  ASSERT_EQ(Start(36), 0);
  const Bytes frame = FrameBytes(35);
  Fire(frame, 1);
  Bytes expected(36, LentMemory::kUntouched);
  std::copy_n(frame.begin(), 35, expected.begin());
  for (std::ptrdiff_t row = 0; row < 4; ++row) {
    std::copy_n(frame.begin() + 5 * (3 - row), 5, expected.begin() + 5 * row);
  }
  std::copy_n(frame.begin() + 29, 5, expected.begin() + 24);
  std::copy_n(frame.begin() + 24, 5, expected.begin() + 29);
  EXPECT_EQ(memory[0]->Content(), expected);
  EXPECT_EQ(producer->metas[0].dataSize, 35);
}

TEST_F(DirectDelivery, DropsAFlippedFrameWhosePlanesCannotBeTurnedAround) {
  const auto altered = [](auto alter) {
    BackendFrame frame = SmallNv12();
    alter(frame);
    return frame;
  };
  const BackendFrame frames[] = {
      altered([](BackendFrame& frame) { frame.planeCount = 1; }),
      altered([](BackendFrame& frame) { frame.offsets[0] = 1; }),
      altered([](BackendFrame& frame) { frame.strides[0] = 4; }),
      altered([](BackendFrame& frame) { frame.offsets[1] = 19; }),  // within the luma
      altered([](BackendFrame& frame) { frame.offsets[1] = -1; }),
      altered([](BackendFrame& frame) { frame.offsets[1] = 26; }),  // beyond the frame
      altered([](BackendFrame& frame) { frame.offsets[1] = kIntMax; }),
      altered([](BackendFrame& frame) { frame.strides[1] = 3; }),
      altered([](BackendFrame& frame) { frame.strides[1] = 0; }),
      altered([](BackendFrame& frame) { frame.strides[1] = -5; }),
      altered([](BackendFrame& frame) { frame.strides[1] = kIntMax; }),
      altered([](BackendFrame& frame) { frame.height = 3; }),
      {.planeCount = 2, .offsets = {0, 24}, .strides = {16, 8}},
  };
  for (const BackendFrame& frame : frames) {
    UseDirectShow(frame);
    ASSERT_EQ(Start(36), 0);
    const Bytes bytes = FrameBytes(35);
    Fire(bytes, 1);
    ExpectDropped(1, -11);
    EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
    EXPECT_EQ(memory[0]->Content(), Bytes(36, LentMemory::kUntouched));
    // Upright it is delivered as the backend describes it.
    Fire(bytes);
    EXPECT_EQ(memory[0]->Content(35), bytes);
    producer->Stop(-1);
  }
}

TEST_F(DirectDelivery, CopiesAFlippedFrameAsItCameIfItIsTooShortForItsRows) {
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(31), 1);
  EXPECT_EQ(memory[0]->Content(31), FrameBytes(31));
}

TEST_F(DirectDelivery, CopiesAFlippedFrameAsItCameIfItsShapeExceedsItsSize) {
  UseDirectShow({.height = kIntMax, .bytesPerRow = kIntMax, .dataSize = 32});
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(32), 1);
  EXPECT_EQ(memory[0]->Content(), FrameBytes(32));
}

TEST_F(DirectDelivery, TakesTheSlotsInTurnAndLosesTheNewestFrameWhenNoneIsFree) {
  ASSERT_EQ(Start(), 0);
  for (std::uint64_t frame = 1; frame <= 3; ++frame) {
    Fire(FrameBytes(32, frame));
  }
  EXPECT_EQ(States(), (std::vector{kReady, kReady, kReady}));
  ExpectDropped(0, 0);
  Fire(FrameBytes(32, 4));
  ExpectDropped(1, -11);
  for (std::size_t slot = 0; slot < 3; ++slot) {
    EXPECT_EQ(producer->metas[slot].sequence, slot + 1);
    EXPECT_EQ(memory[slot]->Content(), FrameBytes(32, slot + 1));
  }
  EXPECT_EQ(producer->publishedSequence, 3U);
}

TEST_F(DirectDelivery, NeverTouchesASlotThatIsWrittenReadyOrHeld) {
  ASSERT_EQ(Start(), 0);
  for (const SlotState busy : {kWriting, kReady, kHeld}) {
    producer->slotStates[0] = busy;
    producer->slotStates[1] = busy;
    producer->slotStates[2] = kFree;
    for (int i = 0; i < 3; ++i) {  // wherever the search begins
      Fire(FrameBytes(32));
      EXPECT_EQ(States(), (std::vector{busy, busy, kReady}));
      producer->slotStates[2] = kFree;
    }
    EXPECT_EQ(memory[0]->Content(), Bytes(32, LentMemory::kUntouched));
    EXPECT_EQ(memory[1]->Content(), Bytes(32, LentMemory::kUntouched));
  }
}

TEST_F(DirectDelivery, BeginsEachSearchOneSlotFurtherAlsoWhereTheCursorWraps) {
  ASSERT_EQ(Start(), 0);
  producer->directCursor = 0xFFFFFFFF;  // 0 modulo 3, and 0 comes next
  Fire(FrameBytes(32));
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
  EXPECT_EQ(producer->directCursor, 0U);
  producer->directCursor = 2;
  Fire(FrameBytes(32));
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kReady}));
  producer->directCursor = 0xFFFFFFFE;  // 2 modulo 3, whose sum with a step must not wrap
  producer->slotStates[2] = kHeld;
  Fire(FrameBytes(32));
  EXPECT_EQ(States(), (std::vector{kReady, kReady, kHeld}));
}

TEST_F(DirectDelivery, MeasuresTheRateOverASecondAtLeast) {
  ASSERT_EQ(Start(), 0);
  producer->fpsPeriodStart = SteadyNs() - 2'000'000'000;
  producer->fpsPeriodFrames = 59;
  Fire(FrameBytes(32));
  // 60 frames in 2 s and a little, however slow this machine is.
  EXPECT_LE(producer->producerFpsTenths, 300);
  EXPECT_GT(producer->producerFpsTenths, 0);
  EXPECT_EQ(producer->fpsPeriodFrames, 0U);
  const std::int32_t measured = producer->producerFpsTenths;
  producer->fpsPeriodStart = SteadyNs() + 500'000'000;  // the period has hardly begun
  Fire(FrameBytes(32));
  EXPECT_EQ(producer->producerFpsTenths, measured);
  EXPECT_EQ(producer->fpsPeriodFrames, 1U);
}

}  // namespace
}  // namespace ostrel_native

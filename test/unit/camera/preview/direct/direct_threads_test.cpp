// A direct preview under several threads at once: whose preview it is, and who holds its slots.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "camera/preview/direct/direct_frame.h"
#include "unit/support/direct_preview.h"
#include "unit/support/hammer_seconds.h"

namespace ostrel_native {
namespace {

struct DirectThreads : DirectPreviewTest {
  DirectThreads() {
    UseDirectShow({});
    FAKE_NUMBER(cdshow_has_first_frame, -256);  // of the polling previews: none has a frame
  }

  // On a thread that has no part in the test otherwise.
  template <typename Act>
  static void Elsewhere(const Act& act) {
    std::thread(act).join();
  }
};

TEST_F(DirectThreads, MayWriteIntoTheLentArraysUntilItHasStopped) {
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(plan.generation, producer->generation);
  EXPECT_TRUE(producer->MayWrite(plan.generation));
  bool whileTakingTheCallbackBack = false;
  onRegister = [&](bool) {
    whileTakingTheCallbackBack = producer->MayWrite(plan.generation);
    return 0;
  };
  producer->Stop(-1);
  EXPECT_TRUE(whileTakingTheCallbackBack);
  EXPECT_FALSE(producer->MayWrite(plan.generation));
}

TEST_F(DirectThreads, EndsWithItsLenderAndNotWithAnEarlierOne) {
  ASSERT_EQ(Start(), 0);
  const std::uint64_t earlier = plan.generation;
  ASSERT_EQ(Start(), 0);
  producer->StopGeneration(earlier);
  EXPECT_TRUE(producer->direct);
  producer->StopGeneration(plan.generation);
  EXPECT_FALSE(producer->direct);
  EXPECT_FALSE(producer->running);
  ASSERT_EQ(producer->StartPolling(kDevice, 4, 2, 120), 0);
  producer->StopGeneration(plan.generation);
  EXPECT_TRUE(producer->running);
}

TEST_F(DirectThreads, PlansAnewIfAnotherPreviewWasStartedSinceItWasPrepared) {
  ASSERT_EQ(producer->PrepareDirect(kDevice, 4, 2, 30, plan), 0);
  Elsewhere([&] { ASSERT_EQ(producer->StartPolling(1, 16, 8, 120), 0); });
  std::uint8_t bytes[32] = {};
  const LentSlot slot = {.isByteArray = true, .data = bytes, .bytes = sizeof bytes};
  ASSERT_EQ(producer->StartDirect(plan, {slot, slot, slot}), 0);
  EXPECT_TRUE(producer->direct);
  EXPECT_EQ(producer->deviceIndex, kDevice);
  EXPECT_EQ(producer->targetWidth, 4);
  EXPECT_EQ(plan.generation, producer->generation);
  producer->Stop(-1);
}

TEST_F(DirectThreads, MeasuresTheArraysByTheFramesOfTheNewPlan) {
  ASSERT_EQ(producer->PrepareDirect(kDevice, 4, 2, 30, plan), 0);
  producer->Stop(-1);
  FAKE_NUMBER(cdshow_frame_data_size, 33);
  std::uint8_t bytes[32] = {};
  const LentSlot slot = {.isByteArray = true, .data = bytes, .bytes = sizeof bytes};
  EXPECT_EQ(producer->StartDirect(plan, {slot, slot, slot}), -11);
  EXPECT_FALSE(producer->running);
  EXPECT_EQ(producer->deviceIndex, kDevice);
}

TEST_F(DirectThreads, APollFindsNothingNewWhileTheMutexOrTheTurnIsTaken) {
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(32));
  const auto poll = [this] {
    const DirectFrame frame(*producer, kDevice, 0);
    EXPECT_EQ(frame.result, -256);
    EXPECT_EQ(frame.sequence, 1U);
    EXPECT_TRUE(frame.reportsCounters);
    EXPECT_EQ(DirectFrame(*producer, -1, 0).result, -1);
  };
  {
    const std::lock_guard<std::mutex> lock(producer->previewMutex);
    Elsewhere(poll);
  }
  producer->changing = true;
  poll();
  producer->changing = false;
  EXPECT_EQ(DirectFrame(*producer, kDevice, 0).result, 0);
}

TEST_F(DirectThreads, AFrameThatIsThrownAwayFreesNoSlotThatIsAnothersByThen) {
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(32));
  {
    const DirectFrame thrownAway(*producer, kDevice, 0);
    ASSERT_EQ(thrownAway.slot, 0);
    // Another environment gives all slots back; the next frame comes and is taken.
    Elsewhere([&] { producer->ReleaseAllDirectSlots(-1); });
    producer->directCursor = 0;
    Fire(FrameBytes(32, 2));
    DirectFrame next(*producer, kDevice, 1);
    ASSERT_EQ(next.slot, 0);
    next.Keep();
  }
  EXPECT_EQ(producer->slotStates[0], kHeld);
  EXPECT_EQ(producer->ReleaseDirectSlot(kDevice, 0, 2), 0);
}

TEST_F(DirectThreads, AFrameThatIsThrownAwayLeavesTheNextPreviewAlone) {
  ASSERT_EQ(Start(), 0);
  Fire(FrameBytes(32));
  {
    const DirectFrame thrownAway(*producer, kDevice, 0);
    ASSERT_EQ(thrownAway.slot, 0);
    ASSERT_EQ(Start(), 0);
    Fire(FrameBytes(32));
    DirectFrame next(*producer, kDevice, 0);
    ASSERT_EQ(next.slot, 0);
    ASSERT_EQ(next.sequence, thrownAway.sequence);
    next.Keep();
  }
  EXPECT_EQ(producer->slotStates[0], kHeld);
}

TEST_F(DirectThreads, OneOfSeveralReleasesOfAFrameCounts) {
  ASSERT_EQ(Start(), 0);
  std::atomic<std::uint64_t> held{0};  // the number of the frame in `slot`; 0 for none
  std::atomic<int> slot{-1};
  std::atomic<int> released{0};
  std::atomic<bool> isOver{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!isOver) {
        const std::uint64_t number = held;
        if (number != 0 && producer->ReleaseDirectSlot(kDevice, slot, number) == 0) {
          ++released;
          held = 0;
        }
      }
    });
  }
  const auto end = std::chrono::steady_clock::now() + HammerSeconds();
  int taken = 0;
  while (std::chrono::steady_clock::now() < end) {
    Fire(FrameBytes(32));
    DirectFrame frame(*producer, kDevice, 0);
    if (frame.result != 0) {
      continue;
    }
    frame.Keep();
    ++taken;
    slot = frame.slot;
    held = frame.sequence;
    while (held != 0) {
      std::this_thread::yield();
    }
  }
  isOver = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_GT(taken, 0);
  EXPECT_EQ(released, taken);
}

}  // namespace
}  // namespace ostrel_native

// Frames on their way to script code and back: which slot is claimed, which are freed.
#include "camera/preview/direct/direct_frame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "unit/support/direct_preview.h"

namespace ostrel_native {
namespace {

struct DirectFrameTest : DirectPreviewTest {
  DirectFrameTest() {
    UseDirectShow({});
    EXPECT_EQ(Start(), 0);
  }

  void FireMany(int count) {
    for (int i = 0; i < count; ++i) {
      Fire(FrameBytes(32, producer->publishedSequence + 1));
    }
  }

  // Takes the newest frame as script code does; its slot, or the negative result.
  int Take(std::uint64_t lastSequence = 0) {
    DirectFrame frame(*producer, kDevice, lastSequence);
    frame.Keep();
    return frame.result == 0 ? frame.slot : frame.result;
  }

  int Release(int slot, std::uint64_t sequence) {
    return producer->ReleaseDirectSlot(kDevice, slot, sequence);
  }
};

TEST_F(DirectFrameTest, HasNothingForAnotherDevice) {
  FireMany(1);
  for (const int device : {-1, kDevice + 1, -kDevice}) {
    const DirectFrame frame(*producer, device, 0);
    EXPECT_EQ(frame.result, -1);
    EXPECT_EQ(frame.sequence, 0U);
    EXPECT_FALSE(frame.reportsCounters);
  }
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
}

TEST_F(DirectFrameTest, TellsTheNumberOfFramesWhileThereIsNothingNew) {
  const DirectFrame early(*producer, kDevice, 0);
  EXPECT_EQ(early.result, -256);
  EXPECT_EQ(early.sequence, 0U);
  EXPECT_TRUE(early.reportsCounters);
  FireMany(2);
  const DirectFrame late(*producer, kDevice, 2);
  EXPECT_EQ(late.result, -256);
  EXPECT_EQ(late.sequence, 2U);
  EXPECT_TRUE(late.reportsCounters);
  const DirectFrame far(*producer, kDevice, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(far.result, -256);
  EXPECT_EQ(States(), (std::vector{kReady, kReady, kFree}));
}

TEST_F(DirectFrameTest, ClaimsTheNewestAndFreesTheOlder) {
  FireMany(3);
  DirectFrame frame(*producer, kDevice, 0);
  EXPECT_EQ(frame.result, 0);
  EXPECT_EQ(frame.sequence, 3U);
  EXPECT_EQ(frame.slot, 2);
  EXPECT_EQ(frame.meta.sequence, 3U);
  EXPECT_EQ(frame.meta.dataSize, 32);
  EXPECT_FALSE(frame.reportsCounters);
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kHeld}));
  EXPECT_EQ(producer->droppedFrames, 0);
}

TEST_F(DirectFrameTest, GivesTheSlotBackUnlessItIsKept) {
  FireMany(1);
  { const DirectFrame frame(*producer, kDevice, 0); }
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
  FireMany(1);
  EXPECT_EQ(Take(), 1);
  EXPECT_EQ(States(), (std::vector{kFree, kHeld, kFree}));
}

TEST_F(DirectFrameTest, KeepsEverySlotThatScriptCodeHolds) {
  FireMany(1);
  ASSERT_EQ(Take(), 0);
  FireMany(2);
  ASSERT_EQ(Take(1), 2);  // frame 3; frame 2 was never asked for
  EXPECT_EQ(States(), (std::vector{kHeld, kFree, kHeld}));
  FireMany(1);
  ASSERT_EQ(Take(3), 1);
  EXPECT_EQ(States(), (std::vector{kHeld, kHeld, kHeld}));
  FireMany(4);
  ExpectDropped(4, -11);
  EXPECT_EQ(Take(4), -256);
  EXPECT_EQ(memory[0]->Content(), FrameBytes(32, 1));
  EXPECT_EQ(Release(1, 4), 0);
  FireMany(1);
  EXPECT_EQ(Take(4), 1);
  EXPECT_EQ(memory[1]->Content(), FrameBytes(32, 5));
}

TEST_F(DirectFrameTest, DoesNotFreeAFrameThatIsNewerThanTheClaimed) {
  FireMany(3);
  DirectFrame frame(*producer, kDevice, 3);
  ASSERT_EQ(frame.result, -256);
  frame.Claim(1, 2);  // frame 2, while frame 3 is ready
  EXPECT_EQ(frame.result, 0);
  EXPECT_EQ(States(), (std::vector{kFree, kHeld, kReady}));
}

TEST_F(DirectFrameTest, LosesAClaimOnASlotThatIsNotReadyAnyMore) {
  for (const SlotState state : {kFree, kWriting, kHeld}) {
    FireMany(2);
    DirectFrame frame(*producer, kDevice, 100);
    producer->slotStates[0] = state;
    frame.reportsCounters = false;
    frame.Claim(0, 7);
    EXPECT_EQ(frame.result, -256);
    EXPECT_EQ(frame.sequence, 7U);
    EXPECT_EQ(frame.slot, -1);
    EXPECT_EQ(producer->slotStates[0], state);
    EXPECT_EQ(producer->slotStates[1], kReady);  // a lost claim frees nothing
    producer->slotStates[0] = kFree;
    producer->slotStates[1] = kFree;
    producer->directCursor = 0;
  }
}

TEST_F(DirectFrameTest, IgnoresSlotsThatAreNotReadyWhateverTheirRecordsSay) {
  FireMany(3);
  producer->metas[0].sequence = 50;
  producer->slotStates[0] = kWriting;
  producer->metas[2].sequence = 60;
  producer->slotStates[2] = kHeld;
  EXPECT_EQ(Take(), 1);
  EXPECT_EQ(States(), (std::vector{kWriting, kHeld, kHeld}));
}

TEST_F(DirectFrameTest, ReleasesTheFrameThatIsNamedAndNoOther) {
  FireMany(1);
  EXPECT_EQ(Release(0, 1), -7);  // ready, not held
  ASSERT_EQ(Take(), 0);
  EXPECT_EQ(Release(0, 2), -7);
  EXPECT_EQ(Release(0, 0), -7);
  EXPECT_EQ(Release(1, 1), -7);
  EXPECT_EQ(States(), (std::vector{kHeld, kFree, kFree}));
  EXPECT_EQ(Release(0, 1), 0);
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
  EXPECT_EQ(Release(0, 1), -7);
  producer->slotStates[0] = kWriting;
  EXPECT_EQ(Release(0, 1), -7);
  EXPECT_EQ(producer->slotStates[0], kWriting);
}

TEST_F(DirectFrameTest, KnowsOnlyItsThreeSlotsAndItsDevice) {
  FireMany(1);
  ASSERT_EQ(Take(), 0);
  for (const int slot : {-1, 3, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    EXPECT_EQ(Release(slot, 1), -1);
  }
  EXPECT_EQ(producer->ReleaseDirectSlot(kDevice + 1, 0, 1), -1);
  EXPECT_EQ(producer->ReleaseDirectSlot(-1, 0, 1), -1);
  producer->Stop(kDevice);
  EXPECT_EQ(Release(0, 1), -1);
}

TEST_F(DirectFrameTest, ReleasesAllReadyAndHeldSlotsButNoneThatIsWritten) {
  const auto set = [this] {
    producer->slotStates[0] = kReady;
    producer->slotStates[1] = kHeld;
    producer->slotStates[2] = kWriting;
  };
  for (const int device : {-1, -100, kDevice}) {
    set();
    producer->ReleaseAllDirectSlots(device);
    EXPECT_EQ(States(), (std::vector{kFree, kFree, kWriting}));
  }
  set();
  producer->ReleaseAllDirectSlots(kDevice + 1);
  EXPECT_EQ(States(), (std::vector{kReady, kHeld, kWriting}));
  producer->direct = false;
  producer->ReleaseAllDirectSlots(-1);
  EXPECT_EQ(States(), (std::vector{kReady, kHeld, kWriting}));
}

TEST_F(DirectFrameTest, HasNoJpegWhileThePreviewIsNotOneOfJpeg) {
  producer->encodedLatest = {1, 2, 3};
  producer->encodedLatestSequence = 1;
  EXPECT_FALSE(producer->LatestEncodedFrame(kDevice).isThere);
}

}  // namespace
}  // namespace ostrel_native

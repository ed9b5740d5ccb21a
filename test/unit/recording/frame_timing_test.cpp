#include "recording/frame_timing.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace ostrel_native {

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

TEST(FrameTiming, NominalIsTheWholeTicksOfOneFrame) {
  EXPECT_EQ(FrameTiming(30).nominal, 333333);
  EXPECT_EQ(FrameTiming(120).nominal, 83333);
  EXPECT_EQ(FrameTiming(1).nominal, 10000000);
}

TEST(FrameTiming, AFrameRateBelowOneCountsAsOne) {
  EXPECT_EQ(FrameTiming(0).nominal, 10000000);
  EXPECT_EQ(FrameTiming(std::numeric_limits<std::int32_t>::min()).nominal, 10000000);
}

TEST(FrameTiming, TheFirstStampedFrameStandsAtZeroAndLastsNominal) {
  FrameTiming timing(30);
  EXPECT_EQ(timing.NextPts(987654321), 0);
  EXPECT_EQ(timing.Duration(), 333333);
}

TEST(FrameTiming, StampedFramesKeepTheirDistances) {
  FrameTiming timing(30);
  timing.NextPts(1000000);
  EXPECT_EQ(timing.NextPts(1400000), 400000);
  EXPECT_EQ(timing.Duration(), 400000);
  EXPECT_EQ(timing.NextPts(1400007), 400007);
  EXPECT_EQ(timing.Duration(), 7);
}

TEST(FrameTiming, FramesWithoutAStampAreSpacedByNominalFromZero) {
  FrameTiming timing(30);
  EXPECT_EQ(timing.NextPts(0), 0);
  EXPECT_EQ(timing.Duration(), 333333);
  EXPECT_EQ(timing.NextPts(-5), 333333);
  EXPECT_EQ(timing.NextPts(kMin), 666666);
  EXPECT_EQ(timing.Duration(), 333333);
}

TEST(FrameTiming, AFrameWithoutAStampFollowsAStampedOneByNominal) {
  FrameTiming timing(30);
  timing.NextPts(1000000);
  timing.NextPts(1500000);
  EXPECT_EQ(timing.NextPts(0), 833333);
}

TEST(FrameTiming, ARepeatedStampIsMovedByTheLastDistance) {
  FrameTiming timing(30);
  timing.NextPts(1000000);
  EXPECT_EQ(timing.NextPts(1500000), 500000);
  EXPECT_EQ(timing.NextPts(1500000), 1000000);
  EXPECT_EQ(timing.Duration(), 500000);
}

TEST(FrameTiming, ASecondFrameWithTheFirstStampIsMovedByNominal) {
  FrameTiming timing(30);
  timing.NextPts(1000000);
  EXPECT_EQ(timing.NextPts(1000000), 333333);
}

TEST(FrameTiming, AStampThatRunsBackwardsIsMovedBehindThePreviousFrame) {
  FrameTiming timing(30);
  timing.NextPts(1000000);
  timing.NextPts(1000100);
  EXPECT_EQ(timing.NextPts(1), 200);
  EXPECT_EQ(timing.NextPts(2), 300);
}

// The stamp that becomes the base counts as zero, however many frames came before it.
TEST(FrameTiming, TheFirstStampAfterUnstampedFramesIsMovedAndLaterOnesStayMoved) {
  FrameTiming timing(30);
  timing.NextPts(0);
  timing.NextPts(0);
  EXPECT_EQ(timing.NextPts(5000000), 666666);
  EXPECT_EQ(timing.NextPts(5100000), 999999);
  EXPECT_EQ(timing.NextPts(5900000), 1333332) << "the stamps are still behind the moved times";
  EXPECT_EQ(timing.NextPts(7000000), 2000000) << "the stamps have caught up";
}

TEST(FrameTiming, StampsAtTheEndOfInt64DoNotOverflow) {
  FrameTiming timing(30);
  timing.NextPts(1);
  EXPECT_EQ(timing.NextPts(kMax), kMax - 1);
  EXPECT_EQ(timing.Duration(), kMax - 1);
  EXPECT_EQ(timing.NextPts(kMax), kMax);
  EXPECT_EQ(timing.Duration(), 1);
  EXPECT_EQ(timing.NextPts(0), kMax);
  EXPECT_EQ(timing.Duration(), 1) << "a duration is never below 1";
  EXPECT_EQ(timing.NextPts(kMin), kMax);
}

TEST(FrameTiming, TheLargestStampMayBeTheFirst) {
  FrameTiming timing(30);
  EXPECT_EQ(timing.NextPts(kMax), 0);
  EXPECT_EQ(timing.NextPts(1), 333333);
}

}  // namespace

}  // namespace ostrel_native

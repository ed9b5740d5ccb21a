#include "simulator/frame_schedule.h"

#include <gtest/gtest.h>

namespace ostrel_simulator {
namespace {

constexpr FrameSchedule kSteady{100, 0, 0};
constexpr FrameSchedule kStuttering{100, 10, 350};

TEST(FrameSchedule, DeliversFrameNAfterNPeriods) {
  EXPECT_EQ(FrameDueNs(kSteady, 1), 100);
  EXPECT_EQ(FrameDueNs(kSteady, 10), 1000);
  // Ten days at 30 frames a second.
  EXPECT_EQ(FrameDueNs({33333333, 0, 0}, 25920000), 863999991360000);
}

TEST(FrameSchedule, GoesOnWithTheNextFrameWhileItIsOnTime) {
  EXPECT_EQ(NextFrameNumber(kSteady, 0, 0), 1);
  EXPECT_EQ(NextFrameNumber(kSteady, 4, 401), 5);
  EXPECT_EQ(NextFrameNumber(kSteady, 4, 599), 5);
}

TEST(FrameSchedule, LosesTheFramesThatItIsTooLateFor) {
  EXPECT_EQ(NextFrameNumber(kSteady, 4, 600), 6);
  EXPECT_EQ(NextFrameNumber(kSteady, 4, 1050), 10);
}

TEST(FrameSchedule, HoldsBackEveryFrameOfTheStutter) {
  EXPECT_EQ(FrameDueNs(kStuttering, 9), 900);
  EXPECT_EQ(FrameDueNs(kStuttering, 10), 1350);
  EXPECT_EQ(FrameDueNs(kStuttering, 11), 1100);
  EXPECT_EQ(FrameDueNs(kStuttering, 20), 2350);
}

TEST(FrameSchedule, LosesTheFramesBehindALateOne) {
  EXPECT_EQ(NextFrameNumber(kStuttering, 10, 1351), 13);
}

}  // namespace
}  // namespace ostrel_simulator

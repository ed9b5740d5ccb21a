#include "simulator/focus_drive.h"

#include <gtest/gtest.h>

namespace ostrel_simulator {
namespace {

TEST(FocusDrive, StandsWhereItIsPut) {
  const FocusDrive drive(77);
  EXPECT_EQ(drive.PositionAt(0), 77);
  EXPECT_EQ(drive.PositionAt(1000000), 77);
  EXPECT_FALSE(drive.IsMovingAt(0));
  EXPECT_FALSE(drive.IsScanningAt(0));
}

TEST(FocusDrive, MovesAtItsSpeedAndStops) {
  FocusDrive drive(100);
  drive.MoveTo(120, 1000);
  EXPECT_EQ(drive.PositionAt(1000), 100);
  EXPECT_EQ(drive.PositionAt(1003), 106);
  EXPECT_TRUE(drive.IsMovingAt(1009));
  EXPECT_EQ(drive.PositionAt(1010), 120);
  EXPECT_FALSE(drive.IsMovingAt(1010));
  EXPECT_EQ(drive.PositionAt(5000), 120);
}

TEST(FocusDrive, MovesDownAsWell) {
  FocusDrive drive(10);
  drive.MoveTo(3, 0);
  EXPECT_EQ(drive.PositionAt(2), 6);
  EXPECT_EQ(drive.PositionAt(4), 3);
}

// The longest way is done within the pause that a program leaves after a command.
TEST(FocusDrive, CrossesTheWholeTravelInLessThanAHundredAndFiftyMs) {
  FocusDrive drive(0);
  drive.MoveTo(255, 0);
  EXPECT_EQ(drive.PositionAt(128), 255);
}

TEST(FocusDrive, TurnsRoundFromWhereItIs) {
  FocusDrive drive(0);
  drive.MoveTo(100, 0);
  drive.MoveTo(0, 10);
  EXPECT_EQ(drive.PositionAt(10), 20);
  EXPECT_EQ(drive.PositionAt(15), 10);
}

TEST(FocusDrive, LooksAtEachPositionOfAScan) {
  FocusDrive drive(50);
  drive.Scan({0, 16, 8}, 100);
  EXPECT_EQ(drive.PositionAt(100), 0);
  EXPECT_EQ(drive.PositionAt(129), 0);
  EXPECT_EQ(drive.PositionAt(130), 16);
  EXPECT_EQ(drive.PositionAt(160), 8);
  EXPECT_TRUE(drive.IsScanningAt(189));
  EXPECT_TRUE(drive.IsMovingAt(189));
  EXPECT_FALSE(drive.IsScanningAt(190));
  EXPECT_FALSE(drive.IsMovingAt(190));
  EXPECT_EQ(drive.PositionAt(100000), 8);
}

TEST(FocusDrive, GivesUpAScanForAMove) {
  FocusDrive drive(50);
  drive.Scan({0, 16, 8}, 0);
  drive.MoveTo(20, 30);
  EXPECT_FALSE(drive.IsScanningAt(30));
  EXPECT_EQ(drive.PositionAt(30), 16);
  EXPECT_EQ(drive.PositionAt(32), 20);
}

}  // namespace
}  // namespace ostrel_simulator

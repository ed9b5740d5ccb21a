#include "devices/dino_lite_led_modes.h"

#include <gtest/gtest.h>

#include <climits>

namespace ostrel_native {
namespace {

using Modes = std::vector<std::int32_t>;

TEST(CountControllableLeds, IsTheGreatestOfWhatTheModesStandFor) {
  EXPECT_EQ(CountControllableLeds({}), 0);
  EXPECT_EQ(CountControllableLeds({17}), 1);
  EXPECT_EQ(CountControllableLeds({34}), 1);
  EXPECT_EQ(CountControllableLeds({16}), 2);
  EXPECT_EQ(CountControllableLeds({1}), 2);
  EXPECT_EQ(CountControllableLeds({17, 34}), 1);
  EXPECT_EQ(CountControllableLeds({1, 17}), 2);
  EXPECT_EQ(CountControllableLeds({17, 1, 0}), 2);
  EXPECT_EQ(CountControllableLeds({5, 9, 0, -1, INT_MIN, INT_MAX}), 0);
}

TEST(FindStartLedMode, PrefersTheKnownModesInTheirOwnOrder) {
  EXPECT_EQ(FindStartLedMode({1, 16, 34, 17}), 17);
  EXPECT_EQ(FindStartLedMode({1, 16, 34}), 34);
  EXPECT_EQ(FindStartLedMode({1, 16}), 16);
  EXPECT_EQ(FindStartLedMode({16, 1}), 16);
  EXPECT_EQ(FindStartLedMode({5, 1}), 1);
}

TEST(FindStartLedMode, TakesTheFirstOtherOneThatIsNotZero) {
  EXPECT_EQ(FindStartLedMode({5, 9}), 5);
  EXPECT_EQ(FindStartLedMode({0, -3, 5}), -3);
  EXPECT_EQ(FindStartLedMode({0, 0}), std::nullopt);
  EXPECT_EQ(FindStartLedMode({}), std::nullopt);
}

TEST(FindNextLedMode, GoesRound) {
  EXPECT_EQ(FindNextLedMode({17, 34}, 17), 34);
  EXPECT_EQ(FindNextLedMode({17, 34}, 34), 17);
  EXPECT_EQ(FindNextLedMode({16}, 16), 16);
  EXPECT_EQ(FindNextLedMode({16, 0, 1}, 16), 0);
  EXPECT_EQ(FindNextLedMode({16, 0, 1}, 0), 1);
}

TEST(FindNextLedMode, BeginsAtTheHeadFromAModeThatIsNotThere) {
  EXPECT_EQ(FindNextLedMode({16, 1, 17}, 0), 16);
  EXPECT_EQ(FindNextLedMode({16, 1, 17}, 99), 16);
}

TEST(FindNextLedMode, NeverComesPastAModeThatIsThereTwice) {
  const Modes modes = {17, 34, 17, 1};
  Modes seen;
  std::int32_t mode = 0;
  for (int i = 0; i < 6; ++i) {
    mode = FindNextLedMode(modes, mode);
    seen.push_back(mode);
  }
  EXPECT_EQ(seen, (Modes{17, 34, 17, 34, 17, 34}));
}

}  // namespace
}  // namespace ostrel_native

#include "recording/encoder_ticks.h"

#include <gtest/gtest.h>

namespace ostrel_native {
namespace {

constexpr std::int64_t kGap = EncoderTicks::kLongestGap;

TEST(EncoderTicks, TicksThatRiseByWhatTheFileCanHoldStayAsTheyAre) {
  EncoderTicks ticks;
  for (const std::int64_t tick : {std::int64_t{0}, std::int64_t{1}, std::int64_t{3000},
                                  std::int64_t{90'000}, 90'000 + kGap, 90'001 + kGap}) {
    EXPECT_EQ(ticks.Place(tick), tick);
  }
}

TEST(EncoderTicks, TheFirstTickMayBeAnyOne) {
  EncoderTicks ticks;
  EXPECT_EQ(ticks.Place(3 * kGap), 3 * kGap);
}

TEST(EncoderTicks, ATickThatIsTakenBecomesTheNextFreeOneUntilTheFramesCatchUp) {
  EncoderTicks ticks;
  EXPECT_EQ(ticks.Place(0), 0);
  EXPECT_EQ(ticks.Place(0), 1);
  EXPECT_EQ(ticks.Place(0), 2);
  EXPECT_EQ(ticks.Place(1), 3);
  EXPECT_EQ(ticks.Place(3), 4);
  EXPECT_EQ(ticks.Place(9), 9);
}

TEST(EncoderTicks, AGapThatNoFileCanHoldIsShortenedOnceAndLaterFramesFollowIt) {
  EncoderTicks ticks;
  EXPECT_EQ(ticks.Place(100), 100);
  EXPECT_EQ(ticks.Place(101 + kGap), 100 + kGap);
  EXPECT_EQ(ticks.Place(3101 + kGap), 3100 + kGap);
  // The second is far longer than the first.
  const std::int64_t second = std::numeric_limits<std::int64_t>::max() / 2;
  EXPECT_EQ(ticks.Place(second), 3100 + 2 * kGap);
  EXPECT_EQ(ticks.Place(second), 3101 + 2 * kGap);
  EXPECT_EQ(ticks.Place(second + 3000), 6100 + 2 * kGap);
}

TEST(EncoderTicks, TheLargestTickCanComeAgain) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  EncoderTicks ticks;
  EXPECT_EQ(ticks.Place(0), 0);
  EXPECT_EQ(ticks.Place(kLargest), kGap);
  EXPECT_EQ(ticks.Place(kLargest), kGap + 1);
}

}  // namespace
}  // namespace ostrel_native

#include "devices/cache_age.h"

#include <gtest/gtest.h>

namespace ostrel_native {
namespace {

TEST(IsFresh, ServesAValueForTwoSecondsToTheMillisecond) {
  EXPECT_TRUE(IsFresh(1, 1));
  EXPECT_TRUE(IsFresh(1, 2001));
  EXPECT_FALSE(IsFresh(1, 2002));
  EXPECT_TRUE(IsFresh(1'000'000, 1'002'000));
  EXPECT_FALSE(IsFresh(1'000'000, 1'002'001));
}

TEST(IsFresh, TakesAStampOfZeroOrLessForNone) {
  EXPECT_FALSE(IsFresh(0, 0));
  EXPECT_FALSE(IsFresh(0, 1));
  EXPECT_FALSE(IsFresh(-1, 0));
}

// The owner thread may stamp between a reader's two looks.
TEST(IsFresh, ServesAValueThatIsNewerThanTheReadersTime) {
  EXPECT_TRUE(IsFresh(5000, 4999));
}

// Never a value of more than two seconds, and never none of less: between a clock before and a
// clock behind the question lies the moment that it was answered for.
TEST(IsFreshNow, AgreesWithTheExactClockAlsoNearTheLimit) {
  EXPECT_FALSE(IsFreshNow(0));
  EXPECT_TRUE(IsFreshNow(SteadyMs()));
  EXPECT_TRUE(IsFreshNow(SteadyMs() + 50));
  EXPECT_FALSE(IsFreshNow(SteadyMs() - 10'000));
  for (std::int64_t age = 1'880; age < 2'120; ++age) {
    const std::int64_t stamp = SteadyMs() - age;
    const bool freshBefore = IsFresh(stamp, SteadyMs());
    const bool fresh = IsFreshNow(stamp);
    const bool freshBehind = IsFresh(stamp, SteadyMs());
    EXPECT_TRUE(fresh == freshBefore || fresh == freshBehind) << age;
  }
}

TEST(CoarseSteadyMs, IsTheSteadyClockALittleBehind) {
  const std::int64_t coarse = CoarseSteadyMs();
  const std::int64_t exact = SteadyMs();
  EXPECT_LE(coarse, exact);
  EXPECT_GT(coarse, exact - 60'000);
}

TEST(SteadyMs, CountsTheSteadyClockInWholeMilliseconds) {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto now = [] {
    return duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
  };
  const auto before = now();
  const std::int64_t stamp = SteadyMs();
  EXPECT_LE(before, stamp);
  EXPECT_LE(stamp, now());
}

}  // namespace
}  // namespace ostrel_native

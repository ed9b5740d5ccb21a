#include "edof/worker_limit.h"

#include <gtest/gtest.h>

#include <limits>

namespace ostrel_native {

namespace {

TEST(DefaultWorkerLimit, IsHalfOfTheProcessorsRoundedUp) {
  EXPECT_EQ(DefaultWorkerLimit(2), 1);
  EXPECT_EQ(DefaultWorkerLimit(3), 2);
  EXPECT_EQ(DefaultWorkerLimit(4), 2);
  EXPECT_EQ(DefaultWorkerLimit(16), 8);
}

TEST(DefaultWorkerLimit, IsOneWhereTheNumberIsUnknown) {
  EXPECT_EQ(DefaultWorkerLimit(0), 1);
  EXPECT_EQ(DefaultWorkerLimit(1), 1);
}

TEST(ClampedWorkerLimit, IsOneToEight) {
  EXPECT_EQ(ClampedWorkerLimit(1), 1);
  EXPECT_EQ(ClampedWorkerLimit(8), 8);
  EXPECT_EQ(ClampedWorkerLimit(9), 8);
  EXPECT_EQ(ClampedWorkerLimit(100), 8);
  EXPECT_EQ(ClampedWorkerLimit(0), 1);
  EXPECT_EQ(ClampedWorkerLimit(-3), 1);
  EXPECT_EQ(ClampedWorkerLimit(std::numeric_limits<std::int32_t>::min()), 1);
  EXPECT_EQ(ClampedWorkerLimit(std::numeric_limits<std::int32_t>::max()), 8);
}

}  // namespace

}  // namespace ostrel_native

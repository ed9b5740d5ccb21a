#include "addon/number_conversion.h"

#include <gtest/gtest.h>

#include <cmath>

namespace ostrel_native {
namespace {

TEST(SaturatingUint64, CutsToAWholeNumber) {
  EXPECT_EQ(SaturatingUint64(1.0), 1U);
  EXPECT_EQ(SaturatingUint64(2.9), 2U);
  EXPECT_EQ(SaturatingUint64(0.9), 0U);
  EXPECT_EQ(SaturatingUint64(9007199254740993.0), 9007199254740992U);
}

TEST(SaturatingUint64, TakesZeroNegativeNumbersAndNanAsZero) {
  EXPECT_EQ(SaturatingUint64(0.0), 0U);
  EXPECT_EQ(SaturatingUint64(-0.0), 0U);
  EXPECT_EQ(SaturatingUint64(-1.0), 0U);
  EXPECT_EQ(SaturatingUint64(-INFINITY), 0U);
  EXPECT_EQ(SaturatingUint64(NAN), 0U);
}

TEST(SaturatingUint64, StopsAtTheLargestNumber) {
  EXPECT_EQ(SaturatingUint64(18446744073709549568.0), 18446744073709549568U);
  EXPECT_EQ(SaturatingUint64(18446744073709551616.0), UINT64_MAX);
  EXPECT_EQ(SaturatingUint64(INFINITY), UINT64_MAX);
}

TEST(TruncatedInt32, CutsTowardZero) {
  EXPECT_EQ(TruncatedInt32(3.9), 3);
  EXPECT_EQ(TruncatedInt32(-3.9), -3);
  EXPECT_EQ(TruncatedInt32(-0.5), 0);
}

TEST(TruncatedInt32, HoldsEveryInt32) {
  EXPECT_EQ(TruncatedInt32(2147483647.9), INT32_MAX);
  EXPECT_EQ(TruncatedInt32(-2147483648.9), INT32_MIN);
  EXPECT_EQ(TruncatedInt32(-2147483647.0), -2147483647);
}

TEST(TruncatedInt32, GivesTheMostNegativeNumberForWhatDoesNotFit) {
  for (const double value : {2147483648.0, -2147483649.0, 1e12, -1e300, double{INFINITY},
                             -double{INFINITY}, double{NAN}}) {
    EXPECT_EQ(TruncatedInt32(value), INT32_MIN) << value;
  }
}

}  // namespace
}  // namespace ostrel_native

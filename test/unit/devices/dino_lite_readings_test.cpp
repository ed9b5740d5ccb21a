#include "devices/dino_lite_readings.h"

#include <gtest/gtest.h>

#include <limits>

namespace ostrel_native {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(IsAcceptedAmr, TakesTenToAThousandAndNoOtherNumber) {
  EXPECT_TRUE(IsAcceptedAmr(10.0));
  EXPECT_TRUE(IsAcceptedAmr(1000.0));
  EXPECT_TRUE(IsAcceptedAmr(55.5));
  for (const double refused : {std::nextafter(10.0, 0.0), std::nextafter(1000.0, 2000.0), 0.0,
                               -50.0, kInfinity, -kInfinity, double{9.9F}}) {
    EXPECT_FALSE(IsAcceptedAmr(refused)) << refused;
  }
}

TEST(IsAcceptedAmr, TakesNaNWhichIsNeitherTooSmallNorTooLarge) {
  EXPECT_TRUE(IsAcceptedAmr(kNaN));
  EXPECT_TRUE(IsAcceptedAmr(-kNaN));
}

TEST(FovFromLibrary, IsAThousandthOfWhatIsAboveZero) {
  EXPECT_EQ(FovFromLibrary(6540.0), 6.54);
  EXPECT_EQ(FovFromLibrary(1.0), 0.001);
  EXPECT_EQ(FovFromLibrary(kInfinity), kInfinity);
}

TEST(FovFromLibrary, IsNoneForWhatIsNotAboveZero) {
  for (const double none : {0.0, -0.0, -1.0, -kInfinity, kNaN}) {
    EXPECT_EQ(FovFromLibrary(none), -1.0) << none;
  }
}

TEST(IsForOtherAmr, TellsMagnificationsApartBeyondAThousandth) {
  EXPECT_FALSE(IsForOtherAmr(50.0, 50.0));
  EXPECT_FALSE(IsForOtherAmr(50.0005, 50.0));
  EXPECT_FALSE(IsForOtherAmr(50.0, 50.0005));
  EXPECT_TRUE(IsForOtherAmr(50.002, 50.0));
  EXPECT_TRUE(IsForOtherAmr(50.0, 50.002));
  EXPECT_TRUE(IsForOtherAmr(-1.0, 50.0));
  EXPECT_TRUE(IsForOtherAmr(kInfinity, 50.0));
  EXPECT_TRUE(IsForOtherAmr(-1e308, 1e308));
}

TEST(IsForOtherAmr, TakesNaNForTheSame) {
  EXPECT_FALSE(IsForOtherAmr(kNaN, 50.0));
  EXPECT_FALSE(IsForOtherAmr(50.0, kNaN));
  EXPECT_FALSE(IsForOtherAmr(kInfinity, kInfinity));
}

TEST(ReadingOrNothing, TakesZeroAndLessForNothing) {
  EXPECT_EQ(ReadingOrNothing(0.001), 0.001);
  EXPECT_EQ(ReadingOrNothing(kInfinity), kInfinity);
  for (const double none : {0.0, -0.0, -1.0, -kInfinity}) {
    EXPECT_EQ(ReadingOrNothing(none), std::nullopt) << none;
  }
  ASSERT_TRUE(ReadingOrNothing(kNaN).has_value());
  EXPECT_TRUE(std::isnan(*ReadingOrNothing(kNaN)));
}

}  // namespace
}  // namespace ostrel_native

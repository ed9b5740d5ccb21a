#include "simulator/sensor_noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ostrel_simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes NoisyRow(const SensorNoise& noise, std::uint32_t frame, int row, std::uint8_t value,
               std::size_t count) {
  const Bytes source(count, value);
  Bytes target(count);
  noise.CopyRow(frame, row, 0, source.data(), count, target.data());
  return target;
}

TEST(SensorNoise, HasTheStrengthThatIsAskedFor) {
  for (const int tenths : {5, 12, 40, 100}) {
    const SensorNoise noise(1, tenths);
    double sum = 0;
    double squares = 0;
    for (const std::uint8_t value : NoisyRow(noise, 1, 1, 128, 16384)) {
      sum += value - 128;
      squares += (value - 128) * (value - 128);
    }
    // Rounding to whole steps adds a twelfth.
    EXPECT_NEAR(sum / 16384, 0, 0.05 * tenths / 10) << tenths;
    EXPECT_NEAR(std::sqrt(squares / 16384 - 1.0 / 12), tenths / 10.0, 0.06 * tenths / 10) << tenths;
  }
}

TEST(SensorNoise, IsTheSameForTheSameRowOfTheSameFrameAlone) {
  const SensorNoise noise(1, 12);
  const Bytes row = NoisyRow(noise, 3, 4, 100, 1000);
  EXPECT_TRUE(NoisyRow(SensorNoise(1, 12), 3, 4, 100, 1000) == row);
  EXPECT_FALSE(NoisyRow(SensorNoise(2, 12), 3, 4, 100, 1000) == row);
  EXPECT_FALSE(NoisyRow(noise, 4, 4, 100, 1000) == row);
  EXPECT_FALSE(NoisyRow(noise, 3, 5, 100, 1000) == row);
}

TEST(SensorNoise, StaysWithinBlackAndWhite) {
  const SensorNoise noise(1, 100);
  for (const std::uint8_t value : NoisyRow(noise, 1, 1, 2, 5003)) {
    ASSERT_LT(value, 128);
  }
  for (const std::uint8_t value : NoisyRow(noise, 1, 1, 253, 5003)) {
    ASSERT_GT(value, 128);
  }
}

TEST(SensorNoise, DoesNotDependOnHowARowIsCut) {
  const SensorNoise noise(1, 30);
  const Bytes source(1000, 90);
  const Bytes whole = NoisyRow(noise, 2, 7, 90, 1000);
  for (const std::size_t cut : {0U, 1U, 15U, 16U, 333U, 1000U}) {
    Bytes parts(1000);
    noise.CopyRow(2, 7, 0, source.data(), cut, parts.data());
    noise.CopyRow(2, 7, cut, source.data() + cut, 1000 - cut, parts.data() + cut);
    EXPECT_TRUE(parts == whole) << cut;
  }
}

TEST(SensorNoise, LeavesEveryByteAloneWithoutStrength) {
  EXPECT_TRUE(NoisyRow(SensorNoise(1, 0), 1, 1, 90, 100) == Bytes(100, 90));
}

}  // namespace
}  // namespace ostrel_simulator

#include "edof/add_array.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace ostrel_native {

namespace {

struct Form {
  const char* name;
  void (*add)(float* target, const float* source, std::size_t count);
  bool needsAvx2;
};

constexpr Form kForms[] = {{"Sse2", AddArraySse2, false}, {"Avx2", AddArrayAvx2, true}};
constexpr float kSentinel = -12345.5F;

struct AddArrayOf : testing::TestWithParam<Form> {
  void SetUp() override {
    if (GetParam().needsAvx2 && !__builtin_cpu_supports("avx2")) {
      GTEST_SKIP() << "this processor has no AVX2";
    }
  }
};

TEST_P(AddArrayOf, AddsEveryElementAndTouchesNoOther) {
  constexpr unsigned kSeed = 11;
  std::mt19937 engine(kSeed);
  std::uniform_real_distribution<float> values(-1e6F, 1e6F);
  for (std::size_t count = 0; count <= 40; ++count) {
    for (std::size_t offset = 0; offset <= 7; ++offset) {
      std::vector<float> target(count + 16, kSentinel);
      std::vector<float> source(count + 16, kSentinel);
      for (std::size_t i = 0; i < count; ++i) {
        target[offset + i] = values(engine);
        source[7 - offset + i] = values(engine);
      }
      std::vector<float> expected = target;
      for (std::size_t i = 0; i < count; ++i) {
        expected[offset + i] = target[offset + i] + source[7 - offset + i];
      }
      GetParam().add(target.data() + offset, source.data() + 7 - offset, count);
      EXPECT_EQ(std::memcmp(target.data(), expected.data(), 4 * target.size()), 0)
          << count << " elements at offset " << offset << ", seed " << kSeed;
    }
  }
}

TEST_P(AddArrayOf, KeepsInfinitiesDenormalsAndNegativeZero) {
  const std::vector<float> numbers = {INFINITY, -INFINITY, 1e-45F, -1e-45F, -0.0F, 0.0F, 3.4e38F};
  for (const float a : numbers) {
    std::vector<float> target(numbers.size(), a);
    GetParam().add(target.data(), numbers.data(), numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      const float sum = a + numbers[i];
      if (sum == sum) {
        EXPECT_EQ(std::memcmp(&target[i], &sum, sizeof sum), 0) << a << " + " << numbers[i];
      } else {
        EXPECT_NE(target[i], target[i]);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, AddArrayOf, testing::ValuesIn(kForms),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace

}  // namespace ostrel_native

#include "unit/edof/random_stack.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>

namespace ostrel_native::test {

namespace {

using Engine = std::mt19937;

int Between(Engine& engine, int low, int high) {
  return std::uniform_int_distribution<int>(low, high)(engine);
}

bool OneIn(Engine& engine, int n) {
  return Between(engine, 1, n) == 1;
}

float Uniform(Engine& engine, float low, float high) {
  return std::uniform_real_distribution<float>(low, high)(engine);
}

template <typename T, std::size_t kCount>
T Choose(Engine& engine, const T (&values)[kCount]) {
  return values[static_cast<std::size_t>(Between(engine, 0, static_cast<int>(kCount) - 1))];
}

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kHuge = std::numeric_limits<float>::max();
constexpr float kDenormal = std::numeric_limits<float>::denorm_min();

constexpr float kOddNumbers[] = {kNan,       kInfinity, -kInfinity, kHuge,  -kHuge,   kDenormal,
                                 -kDenormal, -0.0F,     1e30F,      -1e30F, 16384.0F, -1.0F};

std::pair<int, int> ChooseMapSize(Engine& engine, int width, int height) {
  switch (Between(engine, 0, 6)) {
    case 0:
      return {1, 1};
    case 1:
      return {Between(engine, 1, 3), Between(engine, 1, 3)};
    case 2:
      return {width, height};
    case 3:
      return {std::min(2 * width + Between(engine, 0, 3), 200),
              std::min(2 * height + Between(engine, 0, 3), 200)};
    case 4:
      return {Between(engine, 1, 40), 1};
    default:
      return {Between(engine, 2, std::max(2, width / 3)),
              Between(engine, 2, std::max(2, height / 3))};
  }
}

// Positions around the cell itself, sometimes with odd numbers thrown in.
void FillPositions(Engine& engine, float* map, int mapWidth, int mapHeight, bool vertical) {
  const float spread = Choose(engine, {0.0F, 0.001F, 0.3F, 2.0F});
  const int oddRate = Choose(engine, {0, 0, 0, 4, 40});
  for (int row = 0; row < mapHeight; ++row) {
    for (int column = 0; column < mapWidth; ++column) {
      float& value = map[row * mapWidth + column];
      value = static_cast<float>(vertical ? row : column) + Uniform(engine, -spread, spread);
      if (oddRate != 0 && OneIn(engine, oddRate)) {
        value = Choose(engine, kOddNumbers);
      }
    }
  }
}

void FillConfidences(Engine& engine, float* map, int count) {
  const float threshold = 0.02F;
  const float beside[] = {threshold, std::nextafter(threshold, 0.0F),
                          std::nextafter(threshold, 1.0F), 0.0F, 0.04F};
  const int kind = Between(engine, 0, 4);
  const float constant = Choose(engine, beside);
  for (int i = 0; i < count; ++i) {
    switch (kind) {
      case 0:
        map[i] = constant;
        break;
      case 1:
        map[i] = Choose(engine, beside);
        break;
      case 2:
        map[i] = OneIn(engine, 10) ? Choose(engine, kOddNumbers) : Uniform(engine, 0.0F, 1.0F);
        break;
      default:
        map[i] = Uniform(engine, 0.01F, 1.0F);
        break;
    }
  }
}

// The kind is the stack's: sums of like weights are what the tests of a sum are about.
float ChooseWeight(Engine& engine, int kind, int frameCount) {
  switch (kind) {
    case 0:
      return 0.0F;
    case 1: {
      const float share = 1e-8F / static_cast<float>(frameCount);
      return OneIn(engine, 3) ? share : share * Uniform(engine, 0.9F, 1.1F);
    }
    case 2:
      return Uniform(engine, -1.0F, 1.0F);
    case 3:
      return OneIn(engine, 2) ? kHuge : -kHuge;
    case 4:
      return OneIn(engine, 6) ? Choose(engine, kOddNumbers) : Uniform(engine, 0.0F, 1.0F);
    case 5:
      return OneIn(engine, 2) ? 0.0F : Uniform(engine, 0.0F, 1e-7F);
    default:
      return Uniform(engine, 0.0F, 1.0F);
  }
}

double ChooseScale(Engine& engine) {
  const double scales[] = {1.0,    1.0,   1.0,   1.0009765625, 0.5, 1.7, std::nextafter(1.0, 2.0),
                           1e-300, 1e300, 5e-324};
  return OneIn(engine, 3) ? 1.0 + Uniform(engine, -0.05F, 0.05F) : Choose(engine, scales);
}

float* Floats(GuardedBuffer& buffer) {
  return reinterpret_cast<float*>(buffer.data());
}

}  // namespace

RandomStack::RandomStack(std::uint32_t stackSeed, const Sizes& sizes) : seed(stackSeed) {
  Engine engine(seed);
  const auto choice =
      static_cast<std::size_t>(Between(engine, 0, static_cast<int>(sizes.size()) - 1));
  width = sizes[choice].first;
  height = sizes[choice].second;
  const int count = Between(engine, 3, 11);
  referenceIndex = Between(engine, 0, count - 1);
  const int weightKind = Between(engine, 0, 11);
  const int rejectRate = Choose(engine, {1, 2, 4, 1000});
  const bool oneMapSize = OneIn(engine, 2);
  const bool smooth = OneIn(engine, 4);
  std::pair<int, int> mapSize = ChooseMapSize(engine, width, height);
  for (int i = 0; i < count; ++i) {
    GuardedBuffer& rgba = storage.emplace_back(4 * static_cast<std::size_t>(width) *
                                               static_cast<std::size_t>(height));
    const int base = Between(engine, 0, 220);
    std::generate(rgba.begin(), rgba.end(), [&engine, smooth, base] {
      const auto value = static_cast<unsigned>(engine());
      return static_cast<std::uint8_t>(smooth ? static_cast<unsigned>(base) + value % 32 : value);
    });
    frames.push_back({rgba.data(), ChooseScale(engine)});

    if (!oneMapSize) {
      mapSize = ChooseMapSize(engine, width, height);
    }
    const int cells = mapSize.first * mapSize.second;
    const auto bytes = sizeof(float) * static_cast<std::size_t>(cells);
    float* const x = Floats(storage.emplace_back(bytes));
    float* const y = Floats(storage.emplace_back(bytes));
    float* const confidence = Floats(storage.emplace_back(bytes));
    float* const weight = Floats(storage.emplace_back(bytes));
    FillPositions(engine, x, mapSize.first, mapSize.second, false);
    FillPositions(engine, y, mapSize.first, mapSize.second, true);
    FillConfidences(engine, confidence, cells);
    std::generate(weight, weight + cells,
                  [&engine, weightKind, count] { return ChooseWeight(engine, weightKind, count); });
    fields.push_back({mapSize.first, mapSize.second, x, y, confidence, !OneIn(engine, rejectRate)});
    weights.push_back(weight);
  }
}

std::ostream& operator<<(std::ostream& out, const RandomStack& stack) {
  out << "seed " << stack.seed << ": " << stack.width << " x " << stack.height << ", "
      << stack.frames.size() << " frames, reference " << stack.referenceIndex << ", accepted ";
  for (const FieldView& field : stack.fields) {
    out << (field.accepted ? '1' : '0');
  }
  return out;
}

int TestVolume(int few) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  few = std::max(1, few / 10);
#endif
  const char* const factor = std::getenv("OSTREL_TEST_VOLUME");
  return factor == nullptr ? few : few * std::max(1, std::atoi(factor));
}

bool SameFloat(float a, float b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

std::vector<float> Interleaved(const Level& level) {
  std::vector<float> rgb;
  rgb.reserve(level.rgb.size());
  for (int y = 0; y < level.height; ++y) {
    for (int x = 0; x < level.width; ++x) {
      for (int channel = 0; channel < 3; ++channel) {
        rgb.push_back(level.RgbRow(y)[channel * level.width + x]);
      }
    }
  }
  return rgb;
}

std::string FirstDifference(const std::vector<float>& actual, const std::vector<float>& expected) {
  if (actual.size() != expected.size()) {
    return "lengths differ";
  }
  for (std::size_t i = 0; i < actual.size(); ++i) {
    if (!SameFloat(actual[i], expected[i])) {
      std::ostringstream text;
      text.precision(std::numeric_limits<float>::max_digits10);
      text << "at " << i << ": " << actual[i] << " instead of " << expected[i];
      return text.str();
    }
  }
  return {};
}

}  // namespace ostrel_native::test

#include "focus_stack.h"

#include <cmath>
#include <cstring>
#include <random>

namespace ostrel_native::bench {

namespace {

constexpr int kPixelsPerCell = 8;

std::vector<std::uint8_t> RandomPixels(std::mt19937& random, std::size_t count) {
  std::vector<std::uint8_t> rgba(4 * count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto pixel = static_cast<std::uint32_t>(random());
    std::memcpy(rgba.data() + 4 * i, &pixel, sizeof pixel);
  }
  return rgba;
}

}  // namespace

FocusStack::FocusStack(int stackWidth, int stackHeight, int count)
    : width(stackWidth), height(stackHeight) {
  std::mt19937 random(1);
  const int mapWidth = width / kPixelsPerCell;
  const int mapHeight = height / kPixelsPerCell;
  for (int i = 0; i < count; ++i) {
    pixels.push_back(RandomPixels(random, static_cast<std::size_t>(Pixels())));
    std::vector<float>& x = maps.emplace_back();
    std::vector<float>& y = maps.emplace_back();
    std::vector<float>& confidence = maps.emplace_back();
    std::vector<float>& weight = maps.emplace_back();
    for (int row = 0; row < mapHeight; ++row) {
      for (int column = 0; column < mapWidth; ++column) {
        x.push_back(static_cast<float>(column + 0.05 * std::sin(row + i)));
        y.push_back(static_cast<float>(row + 0.05 * std::cos(column + i)));
        confidence.push_back(0.9F + static_cast<float>(random() % 100) / 1000.0F);
        weight.push_back(0.001F + static_cast<float>(random() % 1000) / 1000.0F);
      }
    }
    frames.push_back({pixels.back().data(), 1.0 + 0.0005 * i});
    fields.push_back({mapWidth, mapHeight, x.data(), y.data(), confidence.data(), true});
    weights.push_back(weight.data());
  }
}

std::vector<std::uint8_t> FocusStack::Fused(unsigned threads) const {
  return Fuse(width, height, Reference(), frames, fields, weights, threads,
              __builtin_cpu_supports("avx2") ? "avx2" : "sse2");
}

}  // namespace ostrel_native::bench

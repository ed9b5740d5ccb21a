#include "simulator/optics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "simulator/blur_layers.h"

namespace ostrel_simulator {

namespace {

constexpr std::int64_t kOneTexel = 65536;

// The pixel step at the magnification 1: 35 texels. At 50 it is 0.7, well away from any ratio of
// small numbers, with which the sampling would show as bands.
constexpr std::int64_t kUnmagnifiedStep = 35 * kOneTexel;

constexpr std::int64_t kSharpVariance256 = 64;

// What falls in from outside with the light off, in 1/256.
constexpr int kStrayGain = 8;
constexpr int kFullGain = 244;

}  // namespace

double MicronsPerPixel(double magnification) {
  return std::floor(static_cast<double>(kUnmagnifiedStep) / magnification) /
         static_cast<double>(kOneTexel);
}

std::int64_t PixelStep(const Optics& optics) {
  const std::int64_t step = kUnmagnifiedStep / optics.magnification;
  return step + step * (kMiddleFocus - optics.focus) / 16384;
}

std::int64_t BlurVariance256(const Optics& optics, int distance) {
  // Deviation in texels = magnification * distance / 16 / 500.
  const std::int64_t product = std::int64_t{optics.magnification} * distance;
  const std::int64_t defocus = product * product / 250000;
  const std::int64_t step = kUnmagnifiedStep / optics.magnification;
  const std::int64_t squaredStep = step * step / (kOneTexel * kOneTexel / 256);
  return kSharpVariance256 + defocus + std::max<std::int64_t>(0, squaredStep - 256) / 4;
}

std::vector<std::uint16_t> MakeLayerLookup(const Optics& optics) {
  std::vector<std::uint16_t> lookup(std::size_t{kFocusPositions} * kHeightUnit);
  std::size_t layer = 0;
  for (std::size_t distance = 0; distance < lookup.size(); ++distance) {
    const std::int64_t variance = BlurVariance256(optics, static_cast<int>(distance));
    while (layer + 2 < kLayers.size() && variance >= kLayers[layer + 1].variance256) {
      ++layer;
    }
    const std::int64_t from = kLayers[layer].variance256;
    const std::int64_t to = kLayers[layer + 1].variance256;
    const std::int64_t weight = std::min<std::int64_t>(255, (variance - from) * 256 / (to - from));
    lookup[distance] = static_cast<std::uint16_t>(layer * 256 + static_cast<std::size_t>(weight));
  }
  return lookup;
}

int LightGain(int light) {
  return kStrayGain + (kFullGain - kStrayGain) * light / 100;
}

}  // namespace ostrel_simulator

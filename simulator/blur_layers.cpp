#include "simulator/blur_layers.h"

#include <algorithm>

namespace ostrel_simulator {

namespace {

constexpr std::ptrdiff_t kChannels = 4;

BlurLayer MakeLayer(int width, int height) {
  return {width, height,
          std::vector<std::uint8_t>(static_cast<std::size_t>(width) *
                                    static_cast<std::size_t>(height) * kChannels)};
}

BlurLayer MakeSharpLayer(const std::vector<std::uint8_t>& pixels) {
  BlurLayer sharp = MakeLayer(kSpecimenWidth, kSpecimenHeight);
  std::uint8_t* target = sharp.bytes.data();
  for (std::size_t i = 0; i < pixels.size(); i += 3) {
    target[0] = pixels[i];
    target[1] = pixels[i + 1];
    target[2] = pixels[i + 2];
    target += kChannels;
  }
  return sharp;
}

// Averages of 2 by 2 pixels.
BlurLayer Halve(const BlurLayer& large) {
  BlurLayer small = MakeLayer(large.width / 2, large.height / 2);
  std::uint8_t* target = small.bytes.data();
  for (int y = 0; y < small.height; ++y) {
    const std::uint8_t* above = large.Row(2 * y);
    const std::uint8_t* below = large.Row(2 * y + 1);
    for (int x = 0; x < small.width; ++x) {
      for (int channel = 0; channel < kChannels; ++channel) {
        const int sum = above[channel] + above[channel + kChannels] + below[channel] +
                        below[channel + kChannels];
        *target++ = static_cast<std::uint8_t>((sum + 2) / 4);
      }
      above += 2 * kChannels;
      below += 2 * kChannels;
    }
  }
  return small;
}

// Binomial weights (1 2 1) / 4 with `reach` 1, (1 4 6 4 1) / 16 with 2, one pass down the columns
// and one along the rows.
BlurLayer Blur(const BlurLayer& sharp, int reach) {
  BlurLayer blurred = MakeLayer(sharp.width, sharp.height);
  const std::ptrdiff_t rowBytes = std::ptrdiff_t{sharp.width} * kChannels;
  const std::ptrdiff_t margin = std::ptrdiff_t{reach} * kChannels;
  // One row of sums down the columns, up to 255 * 16, with its neighbours around the torus.
  std::vector<std::uint16_t> sums(static_cast<std::size_t>(rowBytes + 2 * margin));
  std::uint16_t* const row = sums.data() + margin;
  for (int y = 0; y < sharp.height; ++y) {
    const std::uint8_t* const a = sharp.Row(y - reach);
    const std::uint8_t* const b = sharp.Row(y - 1);
    const std::uint8_t* const c = sharp.Row(y);
    const std::uint8_t* const d = sharp.Row(y + 1);
    const std::uint8_t* const e = sharp.Row(y + reach);
    if (reach == 1) {
      for (std::ptrdiff_t i = 0; i < rowBytes; ++i) {
        row[i] = static_cast<std::uint16_t>(b[i] + 2 * c[i] + d[i]);
      }
    } else {
      for (std::ptrdiff_t i = 0; i < rowBytes; ++i) {
        row[i] = static_cast<std::uint16_t>(a[i] + 4 * (b[i] + d[i]) + 6 * c[i] + e[i]);
      }
    }
    std::copy(row, row + margin, row + rowBytes);
    std::copy(row + rowBytes - margin, row + rowBytes, row - margin);
    std::uint8_t* const target = blurred.bytes.data() + y * rowBytes;
    if (reach == 1) {
      for (std::ptrdiff_t i = 0; i < rowBytes; ++i) {
        target[i] = static_cast<std::uint8_t>(
            (row[i - kChannels] + 2 * row[i] + row[i + kChannels] + 8) / 16);
      }
    } else {
      for (std::ptrdiff_t i = 0; i < rowBytes; ++i) {
        target[i] = static_cast<std::uint8_t>((row[i - 2 * kChannels] +
                                               4 * (row[i - kChannels] + row[i + kChannels]) +
                                               6 * row[i] + row[i + 2 * kChannels] + 128) /
                                              256);
      }
    }
  }
  return blurred;
}

}  // namespace

LayeredSpecimen MakeLayeredSpecimen(const Specimen& specimen) {
  LayeredSpecimen layered;
  layered.heights = specimen.heights;
  layered.layers.reserve(kLayers.size());
  layered.layers.push_back(MakeSharpLayer(specimen.pixels));
  for (std::size_t i = 1; i < kLayers.size(); ++i) {
    const BlurLayer& last = layered.layers.back();
    const int reach = i % 2 == 1 ? 1 : 2;
    const bool isReduced = kLayers[i].shift > kLayers[i - 1].shift;
    layered.layers.push_back(isReduced ? Blur(Halve(last), reach) : Blur(last, reach));
  }
  return layered;
}

}  // namespace ostrel_simulator

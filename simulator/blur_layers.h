// The specimen at growing amounts of blur, from which every view of it is mixed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/specimen.h"

namespace ostrel_simulator {

/// How much a layer is blurred, and at which reduction of the specimen it is kept.
struct LayerShape {
  int shift;        ///< one pixel of the layer is 2^shift texels
  int variance256;  ///< of its blur as a view samples it, in 1/256 of a squared texel
};

// Layers get smaller as they get softer: reduced so that a pixel of the layer is about the
// standard deviation of its blur, nothing is lost, and all of them together stay small.
// Each has the variance of the one before, a quarter of a squared pixel more for a reduction by
// two, and half of a squared pixel or a whole one for a pass with the binomial weights (1 2 1) or
// (1 4 6 4 1). Sampling between the pixels adds a sixth of a squared pixel at the mean.
inline constexpr std::array<LayerShape, 13> kLayers = {{{0, 43},
                                                        {0, 171},
                                                        {0, 427},
                                                        {1, 1131},
                                                        {1, 2155},
                                                        {2, 4971},
                                                        {2, 9067},
                                                        {3, 20331},
                                                        {3, 36715},
                                                        {4, 81771},
                                                        {4, 147307},
                                                        {5, 327531},
                                                        {5, 589675}}};

/// One layer: 4 bytes a pixel, RGB and one that says nothing, rows tight.
struct BlurLayer {
  int width;
  int height;
  std::vector<std::uint8_t> bytes;

  /// `y` may lie up to one height outside.
  const std::uint8_t* Row(int y) const {
    return bytes.data() + std::ptrdiff_t{4} * width * ((y + height) % height);
  }
};

/// What the microscope looks at; large, so it is shared and never copied.
struct LayeredSpecimen {
  std::vector<BlurLayer> layers;  ///< one for each of `kLayers`
  HeightField heights;
};

/// Blurs a specimen; the same bytes for the same specimen. `specimen.pixels` has the full size.
/// Thread: any.
LayeredSpecimen MakeLayeredSpecimen(const Specimen& specimen);

}  // namespace ostrel_simulator

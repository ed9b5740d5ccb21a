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
  int variance256;  ///< of its blur, in 1/256 of a squared texel
};

// Layers get smaller as they get softer: reduced so that a pixel of the layer is about the
// standard deviation of its blur, nothing is lost, and all of them together stay small.
// Each variance is the one before, a quarter of a squared pixel for a reduction by two, and half
// of a squared pixel or a whole one for a pass with binomial weights, (1 2 1) or (1 4 6 4 1).
inline constexpr std::array<LayerShape, 13> kLayers = {{{0, 0},
                                                        {0, 128},
                                                        {0, 384},
                                                        {1, 960},
                                                        {1, 1984},
                                                        {2, 4288},
                                                        {2, 8384},
                                                        {3, 17600},
                                                        {3, 33984},
                                                        {4, 70848},
                                                        {4, 136384},
                                                        {5, 283840},
                                                        {5, 545984}}};

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

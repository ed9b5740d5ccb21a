// Specimens whose every pixel a test knows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "simulator/blur_layers.h"
#include "simulator/specimen.h"

namespace ostrel_simulator {

/// A grey specimen at one height, a focus position, whose brightness at each texel `brightness`
/// gives.
inline Specimen MakeFlatSpecimen(int height, const std::function<int(int x, int y)>& brightness) {
  Specimen specimen;
  specimen.pixels.reserve(std::size_t{kSpecimenWidth} * kSpecimenHeight * 3);
  for (int y = 0; y < kSpecimenHeight; ++y) {
    for (int x = 0; x < kSpecimenWidth; ++x) {
      specimen.pixels.insert(specimen.pixels.end(), 3, static_cast<std::uint8_t>(brightness(x, y)));
    }
  }
  specimen.heights.sixteenths.assign(std::size_t{kHeightColumns} * kHeightRows,
                                     static_cast<std::int16_t>(height * kHeightUnit));
  return specimen;
}

/// Black to the left of the texel column `edge`, white from there on; black again from 1000
/// columns further.
inline Specimen MakeBar(int height, int edge) {
  return MakeFlatSpecimen(height,
                          [=](int x, int) { return x >= edge && x < edge + 1000 ? 255 : 0; });
}

}  // namespace ostrel_simulator

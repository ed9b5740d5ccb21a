// The picture that the lens makes of the specimen, without the camera's part in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/blur_layers.h"
#include "simulator/optics.h"

namespace ostrel_simulator {

/// A picture of the whole endless specimen, of which any part can be painted. Its pixel (0, 0)
/// shows the middle of the specimen at every focus and magnification, and lies on the optical
/// axis while the stage stands at (0, 0).
struct SpecimenView {
  /// `viewedSpecimen` must outlive the view.
  SpecimenView(const LayeredSpecimen& viewedSpecimen, const Optics& viewOptics);

  /// Paints the part of `width` by `height` RGB pixels whose first pixel is (left, top), rows
  /// `bytesPerRow` apart. A pixel has the same bytes in whichever part it is painted.
  /// Thread: any.
  void Paint(std::int64_t left, std::int64_t top, int width, int height, std::ptrdiff_t bytesPerRow,
             std::uint8_t* target) const;

  /// The pixel that lies closest to a point of the stage, a coordinate in 1/65536 texel.
  std::int64_t PixelAt(std::int64_t stage) const;

  const LayeredSpecimen& specimen;
  const Optics optics;
  const std::int64_t step;                  ///< PixelStep
  const std::vector<std::uint16_t> lookup;  ///< MakeLayerLookup
};

}  // namespace ostrel_simulator

// Smooth random fields that repeat beyond their edges without a seam.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/random.h"

namespace ostrel_simulator {

/// Values on a torus, rows tight.
struct TorusField {
  int width;
  int height;
  std::vector<std::int16_t> values;

  TorusField(int fieldWidth, int fieldHeight);

  /// The row `y`, which may lie up to one height outside.
  std::int16_t* Row(int y) { return values.data() + std::ptrdiff_t{(y + height) % height} * width; }
};

/// Noise of several octaves, `width` by `height` values: `amplitudes[0]` is added where the field
/// is still `2^(amplitudes.size() - 1)` times smaller, the last one where it has its full size.
/// Thread: any.
TorusField MakeSmoothNoise(int width, int height, const std::vector<int>& amplitudes,
                           Random& random);

}  // namespace ostrel_simulator

// The noise of the camera's sensor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ostrel_simulator {

/// Noise of one strength, from a seed. Each row of each frame takes it from another place.
struct SensorNoise {
  /// `tenths`: standard deviation in tenths of a brightness step, 0 to 100.
  SensorNoise(std::uint64_t noiseSeed, int tenths);

  /// Copies `count` bytes from `source` to `target` with noise added, held within 0 and 255;
  /// at most 16384. They begin `offset` bytes into the row `row` of frame `frame`.
  /// Thread: any.
  void CopyRow(std::uint32_t frame, int row, std::size_t offset, const std::uint8_t* source,
               std::size_t count, std::uint8_t* target) const;

  const std::uint64_t seed;
  const bool isSilent;
  std::vector<std::int8_t> samples;
};

}  // namespace ostrel_simulator

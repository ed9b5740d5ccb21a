// The specimen under the simulated microscope: a large stained tissue picture, made once from a
// seed, over which the camera pans.
#pragma once

#include <cstdint>
#include <vector>

namespace ostrel_simulator {

// As large as the largest frame at least; it repeats beyond its edges without a seam.
inline constexpr int kSpecimenWidth = 4096;
inline constexpr int kSpecimenHeight = 2304;

/// RGB pixels, 3 bytes each, rows tight.
struct Specimen {
  std::vector<std::uint8_t> pixels;
};

/// Makes the specimen of a seed: the same bytes for the same seed.
/// Thread: any.
Specimen MakeSpecimen(std::uint64_t seed);

/// Copies the part of the specimen that frame `number` shows: `height` rows of `width` pixels,
/// rows `bytesPerRow` apart, none larger than the specimen. The rest of a row is left alone.
/// Thread: any.
void CopyView(const Specimen& specimen, std::uint32_t number, int width, int height,
              int bytesPerRow, std::uint8_t* target);

}  // namespace ostrel_simulator

// The specimen under the simulated microscope: a large stained tissue with hills and valleys,
// made once from a seed.
#pragma once

#include <cstdint>
#include <vector>

namespace ostrel_simulator {

// In texels of a micrometre each. It repeats beyond its edges without a seam. Both are multiples
// of 32, so that it halves five times.
inline constexpr int kSpecimenWidth = 4096;
inline constexpr int kSpecimenHeight = 2304;

// The part of the travel of the focus, in its positions, within which all of the specimen lies.
inline constexpr int kLowestPoint = 48;
inline constexpr int kHighestPoint = 208;

inline constexpr int kHeightUnit = 16;  ///< heights are in sixteenths of a focus position

// Heights are known every so many texels, and lie on straight lines in between.
inline constexpr int kHeightSpacing = 8;
inline constexpr int kHeightColumns = kSpecimenWidth / kHeightSpacing;
inline constexpr int kHeightRows = kSpecimenHeight / kHeightSpacing;

/// At which focus each point of the specimen is sharp.
struct HeightField {
  std::vector<std::int16_t> sixteenths;  ///< kHeightRows rows of kHeightColumns values

  /// The height at a point on the torus, each coordinate in 1/65536 texel from 0 to the
  /// specimen's size; in sixteenths of a focus position.
  /// Thread: any.
  int At(std::uint32_t u, std::uint32_t v) const;
};

struct Specimen {
  std::vector<std::uint8_t> pixels;  ///< RGB, 3 bytes each, rows tight
  HeightField heights;
};

/// Makes the specimen of a seed: the same bytes for the same seed.
/// Thread: any.
Specimen MakeSpecimen(std::uint64_t seed);

}  // namespace ostrel_simulator

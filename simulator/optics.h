// What the lens does with the specimen, in numbers: scale, blur and light.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "simulator/specimen.h"

namespace ostrel_simulator {

inline constexpr int kFocusPositions = 256;
inline constexpr int kMiddleFocus = 128;
inline constexpr int kLeastMagnification = 20;
inline constexpr int kMostMagnification = 220;

/// What decides how the camera sees a point of the specimen.
struct Optics {
  int focus = kMiddleFocus;  ///< position, 0 to kFocusPositions - 1
  int magnification = 50;    ///< kLeastMagnification to kMostMagnification
  int light = 100;           ///< percent; 0 leaves what falls in from outside

  bool operator==(const Optics&) const = default;
};

/// The size of a pixel of the camera on the specimen at the middle focus, in micrometres. The
/// frames of all formats have pixels of this size: smaller formats show the middle of larger ones.
double MicronsPerPixel(double magnification);

/// The distance on the specimen between two pixels, in 1/65536 texel. The focus breathes: each
/// position farther makes the picture larger by 1/16384.
std::int64_t PixelStep(const Optics& optics);

/// The variance of the blur of a point, in 1/256 of a squared texel. `distance` is between the
/// point and the focal plane, in sixteenths of a focus position. The lens opens with its
/// magnification: its cone of light spreads by 2 * 0.002 * magnification for each unit of depth,
/// and the standard deviation of the blur is a quarter of that disc. A quarter of a squared texel
/// is always there, and more where several texels fall on a pixel.
std::int64_t BlurVariance256(const Optics& optics, int distance);

/// Where between two layers of the specimen a distance from the focal plane lies, for each
/// distance of the whole travel: layer * 256 + weight of the next layer, of 256.
std::vector<std::uint16_t> MakeLayerLookup(const Optics& optics);

/// The light makes value * gain / 256 + kBlackLevel of a brightness. White stays a little below
/// 255, so that noise has room there as well.
int LightGain(int light);
inline constexpr int kBlackLevel = 5;

}  // namespace ostrel_simulator

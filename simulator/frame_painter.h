// Makes the frames of one capture.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "simulator/sensor_noise.h"
#include "simulator/settings.h"
#include "simulator/specimen_view.h"

namespace ostrel_simulator {

/// The stage at a frame, in 1/65536 texel.
struct StagePoint {
  std::int64_t x;
  std::int64_t y;
};
StagePoint StageAt(const Stage& stage, std::uint32_t frame);

/// All that the next frame depends on, beside its number.
struct Scene {
  Optics optics;
  Stage stage;
  bool showsNumber = true;
};

/// Paints frames of one size. A frame depends on the scene and its number alone, not on the
/// frames before; but what they have in common is painted once only.
/// Thread: one at a time.
struct FramePainter {
  FramePainter(std::shared_ptr<const LayeredSpecimen> paintedSpecimen, SensorNoise painterNoise,
               int frameWidth, int frameHeight);

  /// Paints frame `number` into `height` rows of `width` RGB pixels, `bytesPerRow` apart. The
  /// rest of a row is left alone.
  void Paint(const Scene& scene, std::uint32_t number, int bytesPerRow, std::uint8_t* target);

  void MoveTo(std::int64_t newLeft, std::int64_t newTop);
  void Refresh(std::int64_t x, std::int64_t y, int columns, int rows);
  std::uint8_t* PixelAt(std::int64_t x, std::int64_t y);

  const std::shared_ptr<const LayeredSpecimen> specimen;
  const SensorNoise noise;
  const int width;
  const int height;

  std::optional<SpecimenView> view;
  /// The view's pixels from (left, top) on, the pixel (x, y) in column x modulo width and row y
  /// modulo height: while the stage moves, most of them stay where they are.
  std::vector<std::uint8_t> pixels;
  std::int64_t left = 0;
  std::int64_t top = 0;
};

}  // namespace ostrel_simulator

#include "simulator/frame_painter.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "simulator/frame_code.h"

namespace ostrel_simulator {

namespace {

std::int64_t Modulo(std::int64_t value, int size) {
  const std::int64_t rest = value % size;
  return rest < 0 ? rest + size : rest;
}

}  // namespace

StagePoint StageAt(const Stage& stage, std::uint32_t frame) {
  if (!stage.moves) {
    return {std::int64_t{stage.x} * 65536, std::int64_t{stage.y} * 65536};
  }
  // Whole pixels as the microscope starts, so that nothing flickers between two of them.
  const std::int64_t step = PixelStep(Optics{});
  return {2 * step * frame, step * frame};
}

FramePainter::FramePainter(std::shared_ptr<const LayeredSpecimen> paintedSpecimen,
                           SensorNoise painterNoise, int frameWidth, int frameHeight)
    : specimen(std::move(paintedSpecimen)),
      noise(std::move(painterNoise)),
      width(frameWidth),
      height(frameHeight),
      pixels(static_cast<std::size_t>(frameWidth) * static_cast<std::size_t>(frameHeight) * 3) {}

std::uint8_t* FramePainter::PixelAt(std::int64_t x, std::int64_t y) {
  return pixels.data() + (Modulo(y, height) * width + Modulo(x, width)) * 3;
}

// Paints a part of the view that is no larger than the frame, which the torus of pixels cuts into
// up to four.
void FramePainter::Refresh(std::int64_t x, std::int64_t y, int columns, int rows) {
  const int untilRight = std::min(columns, width - static_cast<int>(Modulo(x, width)));
  const int untilBottom = std::min(rows, height - static_cast<int>(Modulo(y, height)));
  const std::ptrdiff_t bytesPerRow = std::ptrdiff_t{width} * 3;
  const auto paint = [&](std::int64_t partX, std::int64_t partY, int partWidth, int partHeight) {
    view->Paint(partX, partY, partWidth, partHeight, bytesPerRow, PixelAt(partX, partY));
  };
  paint(x, y, untilRight, untilBottom);
  paint(x + untilRight, y, columns - untilRight, untilBottom);
  paint(x, y + untilBottom, untilRight, rows - untilBottom);
  paint(x + untilRight, y + untilBottom, columns - untilRight, rows - untilBottom);
}

// Paints what has come into sight.
void FramePainter::MoveTo(std::int64_t newLeft, std::int64_t newTop) {
  const std::int64_t movedX = newLeft - left;
  const std::int64_t movedY = newTop - top;
  left = newLeft;
  top = newTop;
  if (std::abs(movedX) >= width || std::abs(movedY) >= height) {
    Refresh(left, top, width, height);
    return;
  }
  const int columns = static_cast<int>(std::abs(movedX));
  const int rows = static_cast<int>(std::abs(movedY));
  if (columns > 0) {
    Refresh(movedX > 0 ? left + width - columns : left, top, columns, height);
  }
  if (rows > 0) {
    Refresh(left, movedY > 0 ? top + height - rows : top, width, rows);
  }
}

void FramePainter::Paint(const Scene& scene, std::uint32_t number, int bytesPerRow,
                         std::uint8_t* target) {
  const bool isSameView = view.has_value() && view->optics == scene.optics;
  if (!isSameView) {
    view.emplace(*specimen, scene.optics);
  }
  const StagePoint stage = StageAt(scene.stage, number);
  const std::int64_t newLeft = view->PixelAt(stage.x) - width / 2;
  const std::int64_t newTop = view->PixelAt(stage.y) - height / 2;
  if (isSameView) {
    MoveTo(newLeft, newTop);
  } else {
    left = newLeft;
    top = newTop;
    Refresh(left, top, width, height);
  }
  const std::int64_t right = left + width;
  const auto beforeSeam = static_cast<std::size_t>(width - Modulo(left, width)) * 3;
  const auto behindSeam = static_cast<std::size_t>(Modulo(right, width)) * 3;
  for (int y = 0; y < height; ++y) {
    std::uint8_t* const row = target + std::ptrdiff_t{y} * bytesPerRow;
    noise.CopyRow(number, y, 0, PixelAt(left, top + y), beforeSeam, row);
    noise.CopyRow(number, y, beforeSeam, PixelAt(right - Modulo(right, width), top + y), behindSeam,
                  row + beforeSeam);
  }
  if (scene.showsNumber) {
    PaintFrameCode(target, width, height, bytesPerRow, number);
  }
}

}  // namespace ostrel_simulator

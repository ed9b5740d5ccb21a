#include "simulator/specimen.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "simulator/random.h"
#include "simulator/torus_field.h"

namespace ostrel_simulator {

namespace {

using Color = std::array<std::uint8_t, 3>;

// A direction by square root alone: sine and cosine differ between libraries.
struct Direction {
  double x;
  double y;

  static Direction Any(Random& random) {
    Direction direction{0, 0};
    double square = 0;
    do {
      direction = {random.Uniform(-1, 1), random.Uniform(-1, 1)};
      square = direction.x * direction.x + direction.y * direction.y;
    } while (square < 0.01 || square > 1);
    return direction.Normal();
  }

  Direction Normal() const {
    const double length = std::sqrt(x * x + y * y);
    return {x / length, y / length};
  }
};

// Noise of eight octaves; most of the range of -1000 to 1000 is used.
TorusField MakeTone(Random& random) {
  return MakeSmoothNoise(kSpecimenWidth, kSpecimenHeight,
                         {900, 520, 330, 240, 170, 110, 80, 56, 36}, random);
}

// Hills some 500 pixels wide, spread over the whole range of heights.
HeightField MakeHeights(Random& random) {
  const TorusField relief =
      MakeSmoothNoise(kHeightColumns, kHeightRows, {1000, 420, 120, 0, 0, 0}, random);
  const auto [least, most] = std::minmax_element(relief.values.begin(), relief.values.end());
  const int low = *least;
  const int range = *most - low;
  HeightField heights;
  heights.sixteenths.reserve(relief.values.size());
  for (const std::int16_t value : relief.values) {
    const int scaled = (value - low) * (kHighestPoint - kLowestPoint) * kHeightUnit / range;
    heights.sixteenths.push_back(static_cast<std::int16_t>(kLowestPoint * kHeightUnit + scaled));
  }
  return heights;
}

struct ColorStop {
  double position;
  double red;
  double green;
  double blue;
};

// From the bright glass between the tissue to its densest stain.
constexpr std::array<ColorStop, 6> kStain = {{{0, 246, 243, 245},
                                              {260, 238, 222, 234},
                                              {460, 232, 182, 211},
                                              {620, 214, 133, 182},
                                              {800, 170, 92, 160},
                                              {1023, 104, 58, 128}}};

std::array<Color, 1024> MakePalette() {
  std::array<Color, 1024> palette;
  std::size_t stop = 0;
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const double position = static_cast<double>(i);
    while (stop + 2 < kStain.size() && position > kStain[stop + 1].position) {
      ++stop;
    }
    const ColorStop& from = kStain[stop];
    const ColorStop& to = kStain[stop + 1];
    const double part = (position - from.position) / (to.position - from.position);
    palette[i] = {static_cast<std::uint8_t>(from.red + (to.red - from.red) * part),
                  static_cast<std::uint8_t>(from.green + (to.green - from.green) * part),
                  static_cast<std::uint8_t>(from.blue + (to.blue - from.blue) * part)};
  }
  return palette;
}

struct Painter {
  Specimen& specimen;
  TorusField& tone;

  // Mixes `weight` / 256 of a colour into a pixel, wherever on the torus it lies.
  void Blend(int x, int y, const Color& color, int weight) {
    const int wrappedX = (x % kSpecimenWidth + kSpecimenWidth) % kSpecimenWidth;
    const int wrappedY = (y % kSpecimenHeight + kSpecimenHeight) % kSpecimenHeight;
    std::uint8_t* const pixel =
        specimen.pixels.data() + (std::ptrdiff_t{wrappedY} * kSpecimenWidth + wrappedX) * 3;
    for (std::size_t channel = 0; channel < 3; ++channel) {
      pixel[channel] = static_cast<std::uint8_t>(pixel[channel] +
                                                 (color[channel] - pixel[channel]) * weight / 256);
    }
  }

  // A cell: tinted plasma, a darker membrane, and a dense nucleus off its centre.
  void PaintCell(Random& random) {
    const int centerX = static_cast<int>(random.Uniform(0, kSpecimenWidth));
    const int centerY = static_cast<int>(random.Uniform(0, kSpecimenHeight));
    const Direction axis = Direction::Any(random);
    const double longRadius = random.Uniform(16, 58);
    const double shortRadius = longRadius * random.Uniform(0.6, 1);
    const double nucleus = random.Uniform(0.08, 0.2);
    const double nucleusX = random.Uniform(-0.25, 0.25);
    const double nucleusY = random.Uniform(-0.25, 0.25);
    const double stain = random.Uniform(0.55, 1);
    const int reach = static_cast<int>(longRadius * 1.3) + 1;
    for (int y = -reach; y <= reach; ++y) {
      const std::int16_t* const toneRow =
          tone.Row((centerY + y + kSpecimenHeight) % kSpecimenHeight);
      for (int x = -reach; x <= reach; ++x) {
        const double u = (x * axis.x + y * axis.y) / longRadius;
        const double v = (y * axis.x - x * axis.y) / shortRadius;
        // The tissue's own texture frays the outlines.
        const double fray = toneRow[(centerX + x + kSpecimenWidth) % kSpecimenWidth] * 0.0003;
        const double square = u * u + v * v + fray;
        if (square > 1.15) {
          continue;
        }
        const double fromNucleus =
            (u - nucleusX) * (u - nucleusX) + (v - nucleusY) * (v - nucleusY) + fray * 0.3;
        if (fromNucleus < nucleus) {
          const double edge = std::clamp((nucleus - fromNucleus) * 30, 0.0, 1.0);
          const double grain = 0.75 + fray * 0.9;
          Blend(centerX + x, centerY + y, {66, 38, 112},
                static_cast<int>(std::clamp(250 * stain * edge * grain, 0.0, 250.0)));
        } else if (square > 0.82) {
          const double ridge = 1 - std::fabs(square - 0.98) / 0.17;
          Blend(centerX + x, centerY + y, {132, 62, 138},
                static_cast<int>(std::clamp(190 * stain * ridge, 0.0, 190.0)));
        } else {
          Blend(centerX + x, centerY + y, {208, 148, 204}, static_cast<int>(90 * stain));
        }
      }
    }
  }

  // A fibre: a soft brush along a path that bends slowly.
  void PaintFiber(Random& random) {
    double x = random.Uniform(0, kSpecimenWidth);
    double y = random.Uniform(0, kSpecimenHeight);
    Direction direction = Direction::Any(random);
    const double radius = random.Uniform(1.2, 3.4);
    const int steps = static_cast<int>(random.Uniform(250, 1100));
    const Color color = random.Uniform(0, 1) < 0.7 ? Color{196, 76, 138} : Color{92, 104, 170};
    const int reach = static_cast<int>(radius) + 1;
    double bend = 0;
    for (int step = 0; step < steps; ++step) {
      bend = bend * 0.96 + random.Uniform(-0.004, 0.004);
      direction =
          Direction{direction.x - direction.y * bend, direction.y + direction.x * bend}.Normal();
      x += direction.x;
      y += direction.y;
      const int centerX = static_cast<int>(std::floor(x));
      const int centerY = static_cast<int>(std::floor(y));
      for (int offsetY = -reach; offsetY <= reach; ++offsetY) {
        for (int offsetX = -reach; offsetX <= reach; ++offsetX) {
          const double square = (offsetX * offsetX + offsetY * offsetY) / (radius * radius);
          if (square < 1) {
            Blend(centerX + offsetX, centerY + offsetY, color, static_cast<int>(46 * (1 - square)));
          }
        }
      }
    }
  }
};

}  // namespace

Specimen MakeSpecimen(std::uint64_t seed) {
  Random random{seed};
  TorusField tone = MakeTone(random);
  const std::array<Color, 1024> palette = MakePalette();
  Specimen specimen;
  specimen.pixels.resize(tone.values.size() * 3);
  std::uint8_t* pixel = specimen.pixels.data();
  for (const std::int16_t value : tone.values) {
    const Color& color = palette[static_cast<std::size_t>(std::clamp(value / 2 + 512, 0, 1023))];
    pixel[0] = color[0];
    pixel[1] = color[1];
    pixel[2] = color[2];
    pixel += 3;
  }
  constexpr int kFibers = 110;
  constexpr int kCells = 620;
  Painter painter{specimen, tone};
  for (int i = 0; i < kFibers; ++i) {
    painter.PaintFiber(random);
  }
  for (int i = 0; i < kCells; ++i) {
    painter.PaintCell(random);
  }
  specimen.heights = MakeHeights(random);
  return specimen;
}

}  // namespace ostrel_simulator

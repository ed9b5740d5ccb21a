#include "simulator/auto_focus.h"

#include <algorithm>
#include <cstddef>

namespace ostrel_simulator {

namespace {

constexpr int kPatchSize = 192;  // pixels a side

// One scan: positions this far apart, up to a reach to either side of the best so far.
struct Sweep {
  int spacing;
  int reach;
};
constexpr Sweep kSweeps[] = {{16, kFocusPositions}, {4, 12}, {1, 3}};

}  // namespace

std::int64_t CentreContrast(const LayeredSpecimen& specimen, const Optics& optics,
                            StagePoint point) {
  const SpecimenView view(specimen, optics);
  constexpr std::ptrdiff_t kRowBytes = std::ptrdiff_t{kPatchSize} * 3;
  std::vector<std::uint8_t> patch(std::size_t{kRowBytes} * kPatchSize);
  view.Paint(view.PixelAt(point.x) - kPatchSize / 2, view.PixelAt(point.y) - kPatchSize / 2,
             kPatchSize, kPatchSize, kRowBytes, patch.data());
  std::int64_t contrast = 0;
  for (int y = 0; y + 1 < kPatchSize; ++y) {
    const std::uint8_t* const row = patch.data() + y * kRowBytes;
    for (int x = 0; x + 1 < kPatchSize; ++x) {
      const int green = row[x * 3 + 1];
      const int across = row[x * 3 + 4] - green;
      const int down = row[x * 3 + 1 + kRowBytes] - green;
      contrast += across * across + down * down;
    }
  }
  return contrast;
}

std::vector<int> PlanAutoFocus(const LayeredSpecimen& specimen, const Optics& optics,
                               StagePoint point) {
  std::vector<int> stops;
  int best = optics.focus;
  std::int64_t bestContrast = -1;
  Optics tried = optics;
  for (const Sweep& sweep : kSweeps) {
    const int first = std::max(0, best - sweep.reach);
    const int last = std::min(kFocusPositions - 1, best + sweep.reach);
    for (int position = first - first % sweep.spacing; position <= last;
         position += sweep.spacing) {
      tried.focus = position;
      stops.push_back(position);
      const std::int64_t contrast = CentreContrast(specimen, tried, point);
      if (contrast > bestContrast) {
        bestContrast = contrast;
        best = position;
      }
    }
  }
  stops.push_back(optics.light == 0 ? optics.focus : best);
  return stops;
}

}  // namespace ostrel_simulator

// How the microscope finds the sharpest plane by itself.
#pragma once

#include <cstdint>
#include <vector>

#include "simulator/frame_painter.h"

namespace ostrel_simulator {

/// The contrast of the middle of the picture while the optical axis is at `point`: the larger,
/// the sharper.
/// Thread: any.
std::int64_t CentreContrast(const LayeredSpecimen& specimen, const Optics& optics,
                            StagePoint point);

/// The positions that an auto-focus looks at, one after the other: a wide scan of the whole
/// travel, two narrower ones around the best so far, and the best of all at the end. In the dark
/// there is nothing to see, and it ends where it began.
/// Thread: any.
std::vector<int> PlanAutoFocus(const LayeredSpecimen& specimen, const Optics& optics,
                               StagePoint point);

}  // namespace ostrel_simulator

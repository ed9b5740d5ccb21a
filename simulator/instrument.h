// The one simulated instrument of the process, behind the faces of all libraries that show it.
#pragma once

#include <memory>
#include <vector>

#include "simulator/settings.h"
#include "simulator/simulated_camera.h"

namespace ostrel_simulator {

struct Instrument {
  Settings settings;
  std::vector<std::unique_ptr<SimulatedCamera>> cameras;

  /// The camera of a device index, or null.
  /// Thread: any.
  SimulatedCamera* Camera(int device) const;
};

/// The instrument, made at the first call from the environment as it is then, and never
/// destroyed: whoever opened the library may call it until the process has ended, later than
/// any destructor here could run.
/// Thread: any.
Instrument& TheInstrument();

}  // namespace ostrel_simulator

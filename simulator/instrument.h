// The one simulated instrument of the process, behind the faces of all libraries that show it.
#pragma once

#include <memory>
#include <vector>

#include "simulator/microscope.h"
#include "simulator/settings.h"
#include "simulator/simulated_camera.h"
#include "simulator/simulated_clock.h"

namespace ostrel_simulator {

/// A microscope and the camera that looks through it: one device, one plug.
struct Device {
  Device(const Settings& settings, int index, SimulatedClock& clock)
      : microscope(settings, index, clock), camera(settings, microscope) {}

  /// Pulls the plug, which ends a capture, or puts it in again. What was set stays set.
  /// Thread: any.
  void SetPlugged(bool plugged);

  Microscope microscope;
  SimulatedCamera camera;
};

struct Instrument {
  explicit Instrument(const Settings& instrumentSettings);

  /// The camera of an index, or null where it is not there. The indices of cameras stay when
  /// another is unplugged.
  /// Thread: any.
  SimulatedCamera* Camera(int index);

  /// One more than the largest index of a camera that is there.
  /// Thread: any.
  int CameraCount();

  /// The microscopes that are plugged in, in order: their indices move up when one is unplugged.
  /// Thread: any.
  std::vector<Microscope*> PluggedMicroscopes();

  const Settings settings;
  SimulatedClock clock;
  std::vector<std::unique_ptr<Device>> devices;
};

/// The instrument, made at the first call from the environment as it is then, and never
/// destroyed: whoever opened the library may call it until the process has ended, later than
/// any destructor here could run.
/// Thread: any.
Instrument& TheInstrument();

}  // namespace ostrel_simulator

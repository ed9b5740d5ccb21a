#include "simulator/instrument.h"

#include <cstddef>
#include <cstdlib>

#include "simulator/control_socket.h"

namespace ostrel_simulator {

namespace {

Instrument* MakeInstrument() {
  Settings settings = ReadSettings([](const char* name) { return std::getenv(name); });
  const int listener = settings.controlPath.empty() ? -1 : OpenControlSocket(settings.controlPath);
  settings.valid = settings.valid && (settings.controlPath.empty() || listener >= 0);
  auto* const instrument = new Instrument(settings);
  if (listener >= 0) {
    ServeControlSocket(listener, *instrument);
  }
  return instrument;
}

}  // namespace

void Device::SetPlugged(bool plugged) {
  microscope.isPlugged = plugged;
  if (!plugged) {
    camera.Stop();
  }
}

Instrument::Instrument(const Settings& instrumentSettings) : settings(instrumentSettings) {
  for (int index = 0; index < settings.devices; ++index) {
    devices.push_back(std::make_unique<Device>(settings, index, clock));
  }
}

SimulatedCamera* Instrument::Camera(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= devices.size()) {
    return nullptr;
  }
  Device& device = *devices[static_cast<std::size_t>(index)];
  return device.microscope.isPlugged ? &device.camera : nullptr;
}

int Instrument::CameraCount() {
  for (int count = static_cast<int>(devices.size()); count > 0; --count) {
    if (Camera(count - 1) != nullptr) {
      return count;
    }
  }
  return 0;
}

std::vector<Microscope*> Instrument::PluggedMicroscopes() {
  std::vector<Microscope*> plugged;
  for (const std::unique_ptr<Device>& device : devices) {
    if (device->microscope.isPlugged) {
      plugged.push_back(&device->microscope);
    }
  }
  return plugged;
}

Instrument& TheInstrument() {
  static Instrument* const instrument = MakeInstrument();
  return *instrument;
}

}  // namespace ostrel_simulator

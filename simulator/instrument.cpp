#include "simulator/instrument.h"

#include <cstddef>
#include <cstdlib>

namespace ostrel_simulator {

namespace {

Instrument* MakeInstrument() {
  auto* const instrument = new Instrument;
  instrument->settings = ReadSettings([](const char* name) { return std::getenv(name); });
  for (int device = 0; device < instrument->settings.devices; ++device) {
    instrument->cameras.push_back(std::make_unique<SimulatedCamera>(instrument->settings, device));
  }
  return instrument;
}

}  // namespace

SimulatedCamera* Instrument::Camera(int device) const {
  if (device < 0 || static_cast<std::size_t>(device) >= cameras.size()) {
    return nullptr;
  }
  return cameras[static_cast<std::size_t>(device)].get();
}

Instrument& TheInstrument() {
  static Instrument* const instrument = MakeInstrument();
  return *instrument;
}

}  // namespace ostrel_simulator

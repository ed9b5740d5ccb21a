#include "simulator/face_state.h"

#include <cstddef>
#include <vector>

#include "simulator/instrument.h"

namespace ostrel_simulator {

bool FaceState::Fail(const char* text) {
  lastError = text;
  return false;
}

bool FaceState::Initialize() {
  if (!TheInstrument().settings.valid) {
    return Fail("A variable of the simulator could not be read");
  }
  isInitialized = true;
  return true;
}

int FaceState::DevicesCount() {
  return isInitialized ? static_cast<int>(TheInstrument().PluggedMicroscopes().size()) : 0;
}

Microscope* FaceState::Listed(std::int64_t index) {
  if (!isInitialized) {
    Fail("The library is not initialised");
    return nullptr;
  }
  const std::vector<Microscope*> plugged = TheInstrument().PluggedMicroscopes();
  if (index < 0 || index >= static_cast<std::int64_t>(plugged.size())) {
    Fail("There is no such microscope");
    return nullptr;
  }
  return plugged[static_cast<std::size_t>(index)];
}

bool FaceState::Select(std::int64_t index) {
  Microscope* const microscope = Listed(index);
  if (microscope == nullptr) {
    return false;
  }
  selected = microscope;
  return true;
}

Microscope* FaceState::Selected() {
  Microscope* const microscope = selected;
  if (microscope == nullptr) {
    Fail("No microscope is selected");
    return nullptr;
  }
  microscope->faults.Delay(DevicePart::Microscope);
  if (!microscope->isPlugged) {
    Fail("The selected microscope is unplugged");
    return nullptr;
  }
  return microscope;
}

Microscope* FaceState::Commanded() {
  Microscope* const microscope = Selected();
  if (microscope != nullptr && microscope->faults.refuses) {
    Fail("The microscope refuses commands");
    return nullptr;
  }
  return microscope;
}

}  // namespace ostrel_simulator

#include "simulator/camera_texts.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "simulator/face_text.h"
#include "simulator/instrument.h"

namespace ostrel_simulator {

namespace {

int WriteForCamera(int device, const std::string& text, void* buffer, int capacity) {
  const bool isThere = TheInstrument().Camera(device) != nullptr;
  WriteCameraText(isThere ? text.c_str() : "", buffer, capacity);
  return isThere ? kOk : kNoDevice;
}

}  // namespace

int WriteCameraUniqueId(int device, void* buffer, int capacity) {
  return WriteForCamera(device, "simulated-camera-" + std::to_string(std::int64_t{device} + 1),
                        buffer, capacity);
}

int WriteCameraModelId(int device, void* buffer, int capacity) {
  return WriteForCamera(device, "simulated-microscope-camera", buffer, capacity);
}

int WriteCameraName(int device, void* buffer, int capacity) {
  std::string name = "Simulated microscope camera";
  if (device != 0) {
    name.append(" ").append(std::to_string(std::int64_t{device} + 1));
  }
  return WriteForCamera(device, name, buffer, capacity);
}

void WriteCameraText(const char* text, void* buffer, int capacity) {
  WriteText(text, buffer, static_cast<std::size_t>(std::max(0, capacity)));
}

}  // namespace ostrel_simulator

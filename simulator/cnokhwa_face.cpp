// The camera library's face of the simulated instrument: `libcnokhwa.so`.
#include <cstddef>

#include "simulator/camera_texts.h"
#include "simulator/instrument.h"

// The table's own signatures, so that a function that drifts from them does not compile.
extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "camera/backend/cnokhwa_symbols.h"
}

namespace {

using ostrel_simulator::CaptureFormat;
using ostrel_simulator::CaptureFormats;
using ostrel_simulator::kBadSetting;
using ostrel_simulator::kNoDevice;
using ostrel_simulator::kOk;
using ostrel_simulator::SimulatedCamera;
using ostrel_simulator::TheInstrument;

SimulatedCamera* CameraOf(int device) {
  return TheInstrument().Camera(device);
}

const CaptureFormat* FormatOf(int device, int format) {
  const auto& formats = CaptureFormats();
  if (CameraOf(device) == nullptr || format < 0 ||
      static_cast<std::size_t>(format) >= formats.size()) {
    return nullptr;
  }
  return &formats[static_cast<std::size_t>(format)];
}

template <typename Operation>
int WithCamera(int device, Operation operation) {
  SimulatedCamera* const camera = CameraOf(device);
  return camera == nullptr ? kNoDevice : operation(*camera);
}

}  // namespace

int cnokhwa_initialize() {
  return TheInstrument().settings.valid ? kOk : kBadSetting;
}

int cnokhwa_has_videocapture_auth() {
  return kOk;
}

void cnokhwa_ask_videocapture_auth() {}

int cnokhwa_devices_count() {
  return TheInstrument().CameraCount();
}

int cnokhwa_device_unique_id(int device, void* buffer, int capacity) {
  return ostrel_simulator::WriteCameraUniqueId(device, buffer, capacity);
}

int cnokhwa_device_model_id(int device, void* buffer, int capacity) {
  return ostrel_simulator::WriteCameraModelId(device, buffer, capacity);
}

int cnokhwa_device_name(int device, void* buffer, int capacity) {
  return ostrel_simulator::WriteCameraName(device, buffer, capacity);
}

int cnokhwa_device_formats_count(int device) {
  return CameraOf(device) == nullptr ? 0 : static_cast<int>(CaptureFormats().size());
}

int cnokhwa_device_format_width(int device, int format) {
  const CaptureFormat* const found = FormatOf(device, format);
  return found == nullptr ? 0 : found->width;
}

int cnokhwa_device_format_height(int device, int format) {
  const CaptureFormat* const found = FormatOf(device, format);
  return found == nullptr ? 0 : found->height;
}

int cnokhwa_device_format_frame_rate(int device, int format) {
  const CaptureFormat* const found = FormatOf(device, format);
  return found == nullptr ? 0 : found->frameRate;
}

void cnokhwa_device_format_type(int device, int format, char* buffer, int capacity) {
  const char* const type = FormatOf(device, format) == nullptr ? "" : "RGB24";
  ostrel_simulator::WriteCameraText(type, buffer, capacity);
}

int cnokhwa_start_capture(int device, int width, int height) {
  return WithCamera(device, [&](SimulatedCamera& camera) {
    return camera.Start(ostrel_simulator::BestFormat(width, height));
  });
}

// A negative device stops all of them.
int cnokhwa_stop_capture(int device) {
  if (device < 0) {
    for (const auto& each : TheInstrument().devices) {
      each->camera.Stop();
    }
    return kOk;
  }
  return WithCamera(device, [](SimulatedCamera& camera) { return camera.Stop(); });
}

int cnokhwa_has_first_frame(int device) {
  return WithCamera(device, [](SimulatedCamera& camera) { return camera.HasFirstFrame(); });
}

int cnokhwa_frame_width(int device) {
  return WithCamera(device, [](SimulatedCamera& camera) { return camera.FrameWidth(); });
}

int cnokhwa_frame_height(int device) {
  return WithCamera(device, [](SimulatedCamera& camera) { return camera.FrameHeight(); });
}

int cnokhwa_frame_bytes_per_row(int device) {
  return WithCamera(device, [](SimulatedCamera& camera) { return camera.FrameBytesPerRow(); });
}

int cnokhwa_grab_frame(int device, void* buffer, int capacity) {
  return WithCamera(device, [&](SimulatedCamera& camera) { return camera.Grab(buffer, capacity); });
}

int cnokhwa_start_capture_with_format(int device, int format) {
  return WithCamera(device, [&](SimulatedCamera& camera) { return camera.Start(format); });
}

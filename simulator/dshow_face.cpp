// The simulated instrument behind a table of the DirectShow kind: `libreference_dshow.so`, a
// reference for whoever writes such a backend.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "simulator/camera_texts.h"
#include "simulator/delivering_camera.h"
#include "simulator/instrument.h"

// The table's own signatures, so that a function that drifts from them does not compile.
extern "C" {
using DirectFrameCallbackFn = void (*)(std::int32_t device, const std::uint8_t* data,
                                       std::uint64_t size, std::int32_t flipped, void* context);
#define OPTIONAL(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#include "camera/backend/dshow_symbols.h"
}

namespace {

using ostrel_simulator::CameraPixelFormat;
using ostrel_simulator::DeliveringCamera;
using ostrel_simulator::FrameLayout;
using ostrel_simulator::kBadSetting;
using ostrel_simulator::kNoDevice;
using ostrel_simulator::kOk;
using ostrel_simulator::kRefused;
using ostrel_simulator::Microscope;
using ostrel_simulator::Offer;
using ostrel_simulator::OfferedFormat;
using ostrel_simulator::OfferOf;
using ostrel_simulator::TheDeliveringCamera;
using ostrel_simulator::TheInstrument;

// The one image control that a microscope has: its lamp.
constexpr int kBrightness = 0;
constexpr int kManual = 2;

const Offer& TheOffer() {
  static const Offer& offer = *new Offer(OfferOf({{CameraPixelFormat::Nv12, "NV12"},
                                                  {CameraPixelFormat::Yuy2, "YUY2"},
                                                  {CameraPixelFormat::Bgra, "RGB32"},
                                                  {CameraPixelFormat::Mjpeg, "MJPG"}}));
  return offer;
}

const OfferedFormat* FormatOf(int device, int format) {
  return TheDeliveringCamera(device) == nullptr ? nullptr : TheOffer().At(format);
}

Microscope* MicroscopeOf(int device) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  return camera == nullptr ? nullptr : &camera->camera.microscope;
}

// The layout of the device's frames; without a size while it is not capturing.
FrameLayout LayoutOf(int device) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  return camera == nullptr ? FrameLayout{} : camera->Layout();
}

int Start(int device, const OfferedFormat* format, CameraPixelFormat layout) {
  return format == nullptr ? kNoDevice
                           : TheDeliveringCamera(device)->Start(format->sizeIndex, layout);
}

const auto g_loaded = std::chrono::steady_clock::now();

int MillisecondsSinceLoading() {
  const auto elapsed = std::chrono::steady_clock::now() - g_loaded;
  return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

std::atomic<int> g_lastPress{0};

}  // namespace

int cdshow_initialize() {
  return TheInstrument().settings.valid ? kOk : kBadSetting;
}

int cdshow_devices_count() {
  return TheInstrument().CameraCount();
}

void cdshow_device_unique_id(int device, void* buffer, int capacity) {
  ostrel_simulator::WriteCameraUniqueId(device, buffer, capacity);
}

void cdshow_device_model_id(int device, void* buffer, int capacity) {
  ostrel_simulator::WriteCameraModelId(device, buffer, capacity);
}

void cdshow_device_name(int device, void* buffer, int capacity) {
  ostrel_simulator::WriteCameraName(device, buffer, capacity);
}

int cdshow_formats_count(int device) {
  return TheDeliveringCamera(device) == nullptr ? 0 : TheOffer().Count();
}

int cdshow_format_width(int device, int format) {
  const OfferedFormat* const found = FormatOf(device, format);
  return found == nullptr ? 0 : found->size.width;
}

int cdshow_format_height(int device, int format) {
  const OfferedFormat* const found = FormatOf(device, format);
  return found == nullptr ? 0 : found->size.height;
}

int cdshow_format_frame_rate(int device, int format) {
  const OfferedFormat* const found = FormatOf(device, format);
  return found == nullptr ? 0 : found->size.frameRate;
}

void cdshow_format_type(int device, int format, char* buffer, int capacity) {
  const OfferedFormat* const found = FormatOf(device, format);
  ostrel_simulator::WriteCameraText(found == nullptr ? "" : found->layout.type, buffer, capacity);
}

int cdshow_start_capture(int device, int width, int height) {
  const int size = ostrel_simulator::BestFormat(width, height);
  return Start(device, FormatOf(device, size), CameraPixelFormat::Nv12);
}

int cdshow_start_capture_with_format(int device, int format) {
  return cdshow_start_capture_encoded(device, format, 0);
}

// JPEG comes as it is only where that is asked for, and decoded otherwise.
int cdshow_start_capture_encoded(int device, int format, int encoded) {
  const OfferedFormat* const found = FormatOf(device, format);
  const bool isJpeg = found != nullptr && found->layout.format == CameraPixelFormat::Mjpeg;
  if (found == nullptr || (encoded != 0 && !isJpeg)) {
    return kNoDevice;
  }
  return Start(device, found,
               isJpeg && encoded == 0 ? CameraPixelFormat::Bgra : found->layout.format);
}

int cdshow_stop_capture(int device) {
  return ostrel_simulator::StopDeliveringCamera(device);
}

int cdshow_has_first_frame(int device) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  const int result = camera == nullptr ? kNoDevice : camera->camera.HasFirstFrame();
  return result == kOk ? 1 : result == ostrel_simulator::kNotYet ? 0 : result;
}

int cdshow_frame_width(int device) {
  return LayoutOf(device).width;
}

int cdshow_frame_height(int device) {
  return LayoutOf(device).height;
}

int cdshow_frame_bytes_per_row(int device) {
  return LayoutOf(device).strides[0];
}

int cdshow_frame_data_size(int device) {
  return LayoutOf(device).dataSize;
}

int cdshow_frame_pixel_format(int device) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  const CameraPixelFormat format =
      camera == nullptr ? CameraPixelFormat::Bgra : camera->pixelFormat.load();
  return static_cast<int>(format);
}

int cdshow_frame_plane_count(int device) {
  return LayoutOf(device).planeCount;
}

int cdshow_frame_plane_offset(int device, int plane) {
  return plane == 0 || plane == 1 ? LayoutOf(device).offsets[plane] : 0;
}

int cdshow_frame_plane_stride(int device, int plane) {
  return plane == 0 || plane == 1 ? LayoutOf(device).strides[plane] : 0;
}

// Rows top down: a grab has no way to say otherwise.
int cdshow_grab_frame(int device, void* buffer, int capacity) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  return camera == nullptr ? kNoDevice : camera->Grab(camera->Layout(), buffer, capacity);
}

// The camera's own thread calls back, so a callback that is taken back waits there for the one that
// is running. JPEG is never bottom up.
int cdshow_set_frame_callback(int device, DirectFrameCallbackFn callback, void* context,
                              int enable) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  if (camera == nullptr) {
    return kNoDevice;
  }
  if (callback == nullptr || enable == 0) {
    camera->StopDelivering();
    return kOk;
  }
  const bool runsBottomUp = camera->camera.settings.runsBottomUp != 0;
  camera->Deliver(runsBottomUp, [=](const FrameLayout& layout, const std::uint8_t* bytes,
                                    std::size_t size, std::int64_t) {
    const bool isFlipped = runsBottomUp && layout.format != CameraPixelFormat::Mjpeg;
    callback(device, bytes, size, isFlipped ? 1 : 0, context);
  });
  return kOk;
}

int cdshow_button_pressed(int device) {
  Microscope* const microscope = MicroscopeOf(device);
  if (microscope == nullptr || !microscope->TakePress()) {
    return 0;
  }
  g_lastPress = MillisecondsSinceLoading();
  return 1;
}

// Of the last press that was seen, in milliseconds.
int cdshow_button_timestamp(int) {
  return g_lastPress;
}

int cdshow_proc_amp_range(int device, int property, int* min, int* max, int* step,
                          int* defaultValue, int* caps) {
  if (MicroscopeOf(device) == nullptr || property != kBrightness) {
    return kRefused;
  }
  *min = 0;
  *max = 100;
  *step = 1;
  *defaultValue = 100;
  *caps = kManual;
  return kOk;
}

int cdshow_proc_amp_get(int device, int property, int* value, int* flags) {
  Microscope* const microscope = MicroscopeOf(device);
  if (microscope == nullptr || property != kBrightness) {
    return kRefused;
  }
  *value = microscope->IsLightOn() ? microscope->LightLevel() : 0;
  *flags = kManual;
  return kOk;
}

int cdshow_proc_amp_set(int device, int property, int value, int flags) {
  Microscope* const microscope = MicroscopeOf(device);
  if (microscope == nullptr || property != kBrightness || flags != kManual || value < 0 ||
      value > 100) {
    return kRefused;
  }
  microscope->SetLight(value);
  return kOk;
}

// The simulated instrument behind a table of the AVFoundation kind: `libreference_avf.so`, a
// reference for whoever writes such a backend.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "simulator/camera_texts.h"
#include "simulator/delivering_camera.h"
#include "simulator/instrument.h"

// The table's own signatures, so that a function that drifts from them does not compile.
extern "C" {
using AvfDirectFrameCallbackFn = void (*)(std::int32_t device, std::int32_t format,
                                          std::int32_t width, std::int32_t height,
                                          std::int32_t planeCount, const std::uint8_t* plane0,
                                          std::uint64_t plane0Size, std::int32_t plane0Stride,
                                          const std::uint8_t* plane1, std::uint64_t plane1Size,
                                          std::int32_t plane1Stride, std::int64_t timestamp,
                                          void* context);
#define OPTIONAL(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#include "camera/backend/avf_symbols.h"
}

namespace {

using ostrel_simulator::CameraPixelFormat;
using ostrel_simulator::DeliveringCamera;
using ostrel_simulator::FrameLayout;
using ostrel_simulator::kNoDevice;
using ostrel_simulator::kOk;
using ostrel_simulator::LayOut;
using ostrel_simulator::Offer;
using ostrel_simulator::OfferedFormat;
using ostrel_simulator::OfferOf;
using ostrel_simulator::TheDeliveringCamera;
using ostrel_simulator::TheInstrument;

const Offer& TheOffer() {
  static const Offer& offer = *new Offer(OfferOf({{CameraPixelFormat::Nv12, "420v"},
                                                  {CameraPixelFormat::Uyvy, "2vuy"},
                                                  {CameraPixelFormat::Yuy2, "yuvs"},
                                                  {CameraPixelFormat::Bgra, "BGRA"},
                                                  {CameraPixelFormat::Mjpeg, "jpeg"}}));
  return offer;
}

const OfferedFormat* FormatOf(int device, int format) {
  return TheDeliveringCamera(device) == nullptr ? nullptr : TheOffer().At(format);
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

bool Grab(int device, const FrameLayout& layout, void* buffer, int capacity) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  return camera != nullptr && camera->Grab(layout, buffer, capacity) == kOk;
}

}  // namespace

bool avf_initialize() {
  return TheInstrument().settings.valid;
}

int avf_has_auth() {
  return kOk;
}

void avf_ask_auth() {}

int avf_devices_count() {
  return TheInstrument().CameraCount();
}

void avf_device_unique_id(int device, void* buffer, int capacity) {
  ostrel_simulator::WriteCameraUniqueId(device, buffer, capacity);
}

void avf_device_model_id(int device, void* buffer, int capacity) {
  ostrel_simulator::WriteCameraModelId(device, buffer, capacity);
}

void avf_device_name(int device, void* buffer, int capacity) {
  ostrel_simulator::WriteCameraName(device, buffer, capacity);
}

void avf_device_type(int device, void* buffer, int capacity) {
  const char* const type = TheDeliveringCamera(device) == nullptr ? "" : "simulated";
  ostrel_simulator::WriteCameraText(type, buffer, capacity);
}

int avf_formats_count(int device) {
  return TheDeliveringCamera(device) == nullptr ? 0 : TheOffer().Count();
}

// Such as "1920x1080; 420v; 30 fps".
void avf_format_descriptor(int device, int format, char* buffer, int capacity) {
  std::string text;
  if (const OfferedFormat* const found = FormatOf(device, format); found != nullptr) {
    text = std::to_string(found->size.width) + "x" + std::to_string(found->size.height) + "; " +
           found->layout.type + "; " + std::to_string(found->size.frameRate) + " fps";
  }
  ostrel_simulator::WriteCameraText(text.c_str(), buffer, capacity);
}

int avf_start_capture(int device, int width, int height) {
  const int size = ostrel_simulator::BestFormat(width, height);
  return Start(device, FormatOf(device, size), CameraPixelFormat::Nv12);
}

// JPEG comes as it is only where that is asked for, and decoded otherwise.
int avf_start_capture_with_format(int device, int format, int encoded) {
  const OfferedFormat* const found = FormatOf(device, format);
  const bool isJpeg = found != nullptr && found->layout.format == CameraPixelFormat::Mjpeg;
  if (found == nullptr || (encoded != 0 && !isJpeg)) {
    return kNoDevice;
  }
  return Start(device, found,
               isJpeg && encoded == 0 ? CameraPixelFormat::Bgra : found->layout.format);
}

int avf_stop_capture(int device) {
  return ostrel_simulator::StopDeliveringCamera(device);
}

bool avf_has_first_frame(int device) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  return camera != nullptr && camera->camera.HasFirstFrame() == kOk;
}

int avf_frame_width(int device) {
  return LayoutOf(device).width;
}

int avf_frame_height(int device) {
  return LayoutOf(device).height;
}

int avf_frame_bytes_per_row(int device) {
  return LayoutOf(device).strides[0];
}

int avf_frame_data_size(int device) {
  return LayoutOf(device).dataSize;
}

int avf_frame_pixel_format(int device) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  const CameraPixelFormat format =
      camera == nullptr ? CameraPixelFormat::Rgb : camera->pixelFormat.load();
  return static_cast<int>(format);
}

int avf_frame_plane_count(int device) {
  return LayoutOf(device).planeCount;
}

int avf_frame_plane_offset(int device, int plane) {
  return plane == 0 || plane == 1 ? LayoutOf(device).offsets[plane] : 0;
}

int avf_frame_plane_stride(int device, int plane) {
  return plane == 0 || plane == 1 ? LayoutOf(device).strides[plane] : 0;
}

// Rows as long as those of the frame, and no shorter than their own pixels.
bool avf_grab_rgb(int device, void* buffer, int capacity) {
  const FrameLayout own = LayoutOf(device);
  const int padding = std::max(own.strides[0] - 3 * own.width, 0);
  const FrameLayout rgb = LayOut(CameraPixelFormat::Rgb, own.width, own.height, padding);
  return Grab(device, rgb, buffer, capacity);
}

// The frame as avf_frame_... describe it.
bool avf_grab_native(int device, void* buffer, int capacity) {
  return Grab(device, LayoutOf(device), buffer, capacity);
}

// Tight rows, whatever the frame's own are.
bool avf_grab_bgra(int device, void* buffer, int capacity) {
  const FrameLayout own = LayoutOf(device);
  const FrameLayout bgra = LayOut(CameraPixelFormat::Bgra, own.width, own.height, 0);
  return Grab(device, bgra, buffer, capacity);
}

// The camera's own thread calls back, so a callback that is taken back waits there for the one that
// is running.
int avf_set_frame_callback(int device, AvfDirectFrameCallbackFn callback, void* context,
                           int enable) {
  DeliveringCamera* const camera = TheDeliveringCamera(device);
  if (camera == nullptr) {
    return kNoDevice;
  }
  if (callback == nullptr || enable == 0) {
    camera->StopDelivering();
    return kOk;
  }
  camera->Deliver(false, [=](const FrameLayout& layout, const std::uint8_t* bytes, std::size_t size,
                             std::int64_t timestampNs) {
    const bool hasChroma = layout.planeCount == 2;
    const auto chroma = static_cast<std::size_t>(hasChroma ? layout.offsets[1] : 0);
    callback(device, static_cast<std::int32_t>(layout.format), layout.width, layout.height,
             layout.planeCount, bytes, hasChroma ? chroma : size, layout.strides[0],
             hasChroma ? bytes + chroma : nullptr, hasChroma ? size - chroma : 0, layout.strides[1],
             timestampNs, context);
  });
  return kOk;
}

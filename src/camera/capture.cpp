#include "camera/capture.h"

#include <algorithm>
#include <type_traits>

#include "camera/backend/camera_binding.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/preview_turn.h"
#include "recording/video_recorder.h"

namespace ostrel_native {

namespace {

BackendKind CurrentKind() {
  return g_camera.kind.load(std::memory_order_acquire);
}

template <typename... Parameters>
int CallOr(int missing, int (*entry)(Parameters...),
           std::type_identity_t<Parameters>... arguments) {
  return entry == nullptr ? missing : entry(arguments...);
}

int StartLinux(int device, std::int32_t width, std::int32_t height, int formatIndex) {
  // A caller that chose a format gets that format or a refusal, never a size of the backend's
  // choice; the other kinds fall back.
  if (formatIndex >= 0) {
    return CallOr(kResultUnsupported, g_camera.cnokhwa_start_capture_with_format, device,
                  formatIndex);
  }
  return CallOr(kResultNoBackend, g_camera.cnokhwa_start_capture, device, width, height);
}

int StartDirectShow(int device, std::int32_t width, std::int32_t height, int formatIndex,
                    bool encoded) {
  const bool hasFormat = formatIndex >= 0;
  if (encoded) {
    return hasFormat ? CallOr(kResultUnsupported, g_camera.cdshow_start_capture_encoded, device,
                              formatIndex, 1)
                     : kResultUnsupported;
  }
  if (hasFormat && g_camera.cdshow_start_capture_with_format != nullptr) {
    return g_camera.cdshow_start_capture_with_format(device, formatIndex);
  }
  return CallOr(kResultNoBackend, g_camera.cdshow_start_capture, device, width, height);
}

int StartAvFoundation(int device, std::int32_t width, std::int32_t height, int formatIndex,
                      bool encoded) {
  const bool hasFormat = formatIndex >= 0;
  if (encoded) {
    return hasFormat ? CallOr(kResultUnsupported, g_camera.avf_start_capture_with_format, device,
                              formatIndex, 1)
                     : kResultUnsupported;
  }
  if (hasFormat && g_camera.avf_start_capture_with_format != nullptr) {
    return g_camera.avf_start_capture_with_format(device, formatIndex, 0);
  }
  return CallOr(kResultNoBackend, g_camera.avf_start_capture, device, width, height);
}

int StartBackend(int device, std::int32_t width, std::int32_t height, int formatIndex,
                 bool encoded) {
  switch (CurrentKind()) {
    case BackendKind::Linux:
      return StartLinux(device, width, height, formatIndex);
    case BackendKind::DirectShow:
      return StartDirectShow(device, width, height, formatIndex, encoded);
    case BackendKind::AvFoundation:
      return StartAvFoundation(device, width, height, formatIndex, encoded);
    case BackendKind::None:
      break;
  }
  return kResultNoBackend;
}

const char* FramePixelFormatName(CameraPixelFormat format) {
  switch (format) {
    case CameraPixelFormat::Bgra:
      return "bgra";
    case CameraPixelFormat::Nv12:
      return "nv12";
    case CameraPixelFormat::Yuy2:
      return "yuy2";
    case CameraPixelFormat::Mjpeg:
      return "mjpeg";
    case CameraPixelFormat::Uyvy:
      return "uyvy";
    default:
      return "rgb";
  }
}

}  // namespace

int InitializeBackend() {
  switch (CurrentKind()) {
    case BackendKind::Linux:
      return CallOr(kResultNoBackend, g_camera.cnokhwa_initialize);
    case BackendKind::DirectShow:
      return CallOr(kResultNoBackend, g_camera.cdshow_initialize);
    case BackendKind::AvFoundation:
      return g_camera.avf_initialize != nullptr && g_camera.avf_initialize() ? kResultOk
                                                                             : kResultNoBackend;
    case BackendKind::None:
      break;
  }
  return kResultNoBackend;
}

int CaptureAuthStatus() {
  switch (CurrentKind()) {
    case BackendKind::Linux:
      return CallOr(kResultNoBackend, g_camera.cnokhwa_has_videocapture_auth);
    case BackendKind::DirectShow:
      return kResultOk;  // the platform has no such permission
    case BackendKind::AvFoundation:
      return CallOr(kResultNoBackend, g_camera.avf_has_auth);
    case BackendKind::None:
      break;
  }
  return kResultNoBackend;
}

void AskCaptureAuth() {
  const auto entry = g_camera.Entry<void (*)()>(&CameraBinding::cnokhwa_ask_videocapture_auth,
                                                nullptr, &CameraBinding::avf_ask_auth);
  if (entry != nullptr) {
    entry();
  }
}

int StartCapture(int device, std::int32_t width, std::int32_t height, int formatIndex,
                 bool encoded) {
  const int result = StartBackend(device, width, height, formatIndex, encoded);
  if (result >= 0) {
    g_camera.RememberDimensions(device, width, height);
  }
  return result;
}

int StopCapture(int device) {
  g_videoRecorder.Stop();  // a recording never outlives a capture stop, whatever the device
  const PreviewStop preview(g_cameraPreview, device);
  const auto entry =
      g_camera.Entry(&CameraBinding::cnokhwa_stop_capture, &CameraBinding::cdshow_stop_capture,
                     &CameraBinding::avf_stop_capture);
  const int result = CallOr(kResultNoBackend, entry, device);
  g_camera.RememberDimensions(device, 0, 0);
  return result;
}

FrameInfo ReadFrameInfo(int device) {
  FrameInfo info;
  info.width = g_camera.FrameWidth(device);
  info.height = g_camera.FrameHeight(device);
  info.bytesPerRow = g_camera.PreviewFrameBytesPerRow(device);
  info.dataSize = g_camera.PreviewFrameDataSize(device);
  info.pixelFormat = FramePixelFormatName(g_camera.FramePixelFormat(device));
  info.planeCount = std::clamp(g_camera.PlaneCount(device), 0, FrameInfo::kMaxPlanes);
  for (int plane = 0; plane < info.planeCount; ++plane) {
    info.planeOffsets[plane] = g_camera.PlaneOffset(device, plane);
    info.planeStrides[plane] = g_camera.PlaneStride(device, plane, info.bytesPerRow);
  }
  return info;
}

int ButtonPressed(int device) {
  const auto entry = g_camera.Entry(nullptr, &CameraBinding::cdshow_button_pressed, nullptr);
  return CallOr(0, entry, device);
}

int ButtonTimestamp(int device) {
  const auto entry = g_camera.Entry(nullptr, &CameraBinding::cdshow_button_timestamp, nullptr);
  return CallOr(0, entry, device);
}

}  // namespace ostrel_native

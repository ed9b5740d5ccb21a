// A camera of any kind for tests of the preview: plain functions in the binding's tables, driven
// by fields that the test sets. Each grab waits for a permit, so a test sees single cycles.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <semaphore>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/preview/camera_preview.h"
#include "unit/support/eventually.h"

namespace ostrel_native {

/// The device that the scripted camera answers for; the tests start their previews on it.
inline constexpr int kScriptedDevice = 0;

/// What the backend answers. One per process, since C functions have no other place for it.
struct ScriptedCamera {
  std::atomic<int> firstFrame{0};
  std::atomic<int> width{0};
  std::atomic<int> height{0};
  std::atomic<int> bytesPerRow{0};
  std::atomic<int> dataSize{0};  ///< not asked by the Linux kind
  std::atomic<int> pixelFormat{0};
  std::atomic<int> planeCount{1};
  std::atomic<int> planeOffsets[2] = {0, 0};
  std::atomic<int> planeStrides[2] = {0, 0};
  /// Fills a frame; runs on the producer worker.
  std::function<int(std::uint8_t* buffer, int capacity)> grab;
  std::function<int(std::uint8_t* buffer, int capacity)> grabRgb;

  std::atomic<int> firstFrameQueries{0};
  std::atomic<int> widthQueries{0};
  std::atomic<int> grabs{0};          ///< entered
  std::atomic<int> finishedGrabs{0};  ///< past their permit
  std::counting_semaphore<> permits{0};
  std::atomic<bool> needsPermits{true};

  void SetSize(int newWidth, int newHeight, int newBytesPerRow) {
    width = newWidth;
    height = newHeight;
    bytesPerRow = newBytesPerRow;
    dataSize = ByteProduct(newBytesPerRow, newHeight).value_or(-1);
    planeStrides[0] = newBytesPerRow;
  }

  /// Lets one grab through, and waits until the worker stands in the next.
  bool Step() {
    if (!Eventually([this] { return grabs > finishedGrabs; })) {
      return false;
    }
    const int before = grabs;
    permits.release();
    return Eventually([this, before] { return grabs > before; });
  }

  /// Lets the worker run on, so that it can end.
  void Free() {
    needsPermits = false;
    permits.release();
  }
};

inline ScriptedCamera& TheCamera() {
  static ScriptedCamera camera;
  return camera;
}

namespace scripted {

inline int Grab(int, void* buffer, int capacity) {
  ScriptedCamera& camera = TheCamera();
  ++camera.grabs;
  if (camera.needsPermits) {
    camera.permits.acquire();
  }
  ++camera.finishedGrabs;
  return camera.grab(static_cast<std::uint8_t*>(buffer), capacity);
}
inline bool GrabBool(int device, void* buffer, int capacity) {
  return Grab(device, buffer, capacity) == 0;
}
inline bool GrabRgb(int, void* buffer, int capacity) {
  return TheCamera().grabRgb(static_cast<std::uint8_t*>(buffer), capacity) == 0;
}
inline int FirstFrame(int) {
  ++TheCamera().firstFrameQueries;
  return TheCamera().firstFrame;
}
inline bool FirstFrameBool(int device) {
  return FirstFrame(device) == 0;
}
inline int FirstFramePositive(int device) {
  return FirstFrame(device) == 0 ? 1 : 0;
}
inline int Width(int) {
  ++TheCamera().widthQueries;
  return TheCamera().width;
}
inline int Height(int) {
  return TheCamera().height;
}
inline int BytesPerRow(int) {
  return TheCamera().bytesPerRow;
}
inline int DataSize(int) {
  return TheCamera().dataSize;
}
inline int PixelFormat(int) {
  return TheCamera().pixelFormat;
}
inline int PlaneCount(int) {
  return TheCamera().planeCount;
}
inline int PlaneOffset(int, int plane) {
  return TheCamera().planeOffsets[plane];
}
inline int PlaneStride(int, int plane) {
  return TheCamera().planeStrides[plane];
}

}  // namespace scripted

inline void InstallLinuxCamera() {
  g_camera.cnokhwa_has_first_frame = scripted::FirstFrame;
  g_camera.cnokhwa_frame_width = scripted::Width;
  g_camera.cnokhwa_frame_height = scripted::Height;
  g_camera.cnokhwa_frame_bytes_per_row = scripted::BytesPerRow;
  g_camera.cnokhwa_grab_frame = scripted::Grab;
  g_camera.kind = BackendKind::Linux;
}

inline void InstallDshowCamera() {
  g_camera.cdshow_has_first_frame = scripted::FirstFramePositive;
  g_camera.cdshow_frame_width = scripted::Width;
  g_camera.cdshow_frame_height = scripted::Height;
  g_camera.cdshow_frame_bytes_per_row = scripted::BytesPerRow;
  g_camera.cdshow_frame_data_size = scripted::DataSize;
  g_camera.cdshow_frame_pixel_format = scripted::PixelFormat;
  g_camera.cdshow_frame_plane_count = scripted::PlaneCount;
  g_camera.cdshow_frame_plane_offset = scripted::PlaneOffset;
  g_camera.cdshow_frame_plane_stride = scripted::PlaneStride;
  g_camera.cdshow_grab_frame = scripted::Grab;
  g_camera.kind = BackendKind::DirectShow;
}

inline void InstallAvfCamera() {
  g_camera.avf_has_first_frame = scripted::FirstFrameBool;
  g_camera.avf_frame_width = scripted::Width;
  g_camera.avf_frame_height = scripted::Height;
  g_camera.avf_frame_bytes_per_row = scripted::BytesPerRow;
  g_camera.avf_frame_data_size = scripted::DataSize;
  g_camera.avf_frame_pixel_format = scripted::PixelFormat;
  g_camera.avf_frame_plane_count = scripted::PlaneCount;
  g_camera.avf_frame_plane_offset = scripted::PlaneOffset;
  g_camera.avf_frame_plane_stride = scripted::PlaneStride;
  g_camera.avf_grab_native = scripted::GrabBool;
  g_camera.avf_grab_rgb = scripted::GrabRgb;
  g_camera.kind = BackendKind::AvFoundation;
}

}  // namespace ostrel_native

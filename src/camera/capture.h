// Capture on a device: the backend's start, permission to capture, start and stop, and what
// script code may ask of the current frame.
#pragma once

#include <cstdint>

namespace ostrel_native {

/// What `cameraFrameInfo` answers. Sizes are -1 if unknown.
struct FrameInfo {
  /// Planes that a backend can describe.
  static constexpr int kMaxPlanes = 2;

  std::int32_t width = 0;   ///< pixels
  std::int32_t height = 0;  ///< pixels
  std::int32_t bytesPerRow = 0;
  std::int32_t dataSize = 0;                   ///< bytes
  const char* pixelFormat = nullptr;           ///< a literal, such as "rgb"
  int planeCount = 1;                          ///< 0 to 2; as many of the elements below are set
  std::int32_t planeOffsets[kMaxPlanes] = {};  ///< bytes from the start of the frame
  std::int32_t planeStrides[kMaxPlanes] = {};  ///< bytes a row
};

/// Initializes the backend: 0 or the backend's own code; -6 without a backend or an entry.
/// Thread: any environment.
int InitializeBackend();

/// 0 when capture is authorised, or the backend's own code; -6 without a backend or an entry.
/// Thread: any environment.
int CaptureAuthStatus();

/// Starts whatever the platform needs to authorise capture; nothing where there is no such step.
/// Thread: any environment.
void AskCaptureAuth();

/// Starts capture by size, or by the device's format if `formatIndex` is 0 or more. `encoded`
/// asks for compressed frames, which Linux ignores.
/// The backend's result, 0 or more on success; -6 without a backend or an entry; -13 if the
/// backend cannot start the asked way, and nothing is started.
/// Thread: any environment.
int StartCapture(int device, std::int32_t width, std::int32_t height, int formatIndex,
                 bool encoded);

/// Ends any recording, the preview if it is this device's, and capture. A negative device means
/// every one. Waits for the preview's worker, after the backend was told to stop.
/// The backend's result; -6 without a backend or an entry.
/// Thread: any environment.
int StopCapture(int device);

/// Thread: any environment.
FrameInfo ReadFrameInfo(int device);

/// The state and the time stamp of the camera's button; 0 where the backend knows none.
/// Thread: any environment.
int ButtonPressed(int device);
int ButtonTimestamp(int device);

}  // namespace ostrel_native

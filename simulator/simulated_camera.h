// One simulated camera: its formats, and a capture thread that delivers numbered frames.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "simulator/frame_listener.h"
#include "simulator/microscope.h"
#include "simulator/settings.h"

namespace ostrel_simulator {

// Result codes of the camera table.
inline constexpr int kOk = 0;
inline constexpr int kNotYet = -256;      ///< no frame so far
inline constexpr int kNoDevice = -1;      ///< no such device or format
inline constexpr int kNotCapturing = -2;  ///< the device is not capturing
inline constexpr int kBadSetting = -3;    ///< an environment variable could not be read
inline constexpr int kNoThread = -4;      ///< no memory or no thread for the capture
inline constexpr int kNoRoom = -11;       ///< the frame does not fit the buffer
inline constexpr int kRefused = -20;      ///< the device refuses to capture

struct CaptureFormat {
  int width;
  int height;
  int frameRate;
};

/// The formats of every simulated camera, in the order in which they are listed.
const std::vector<CaptureFormat>& CaptureFormats();

/// The format that comes closest to a size: the least sum of both sides' differences, the first
/// listed among equals. 1920 by 1080 at 30 frames a second where a side is below 1.
int BestFormat(int width, int height);

/// One capture: a thread that makes frames from its start to its stop.
struct Capture;

/// A camera. Start and stop join the capture thread; a grab may wait for its frame, the others
/// only hold a lock for a moment.
/// Thread: any, for all members.
struct SimulatedCamera {
  /// Looks through `cameraMicroscope`, which must outlive the camera.
  SimulatedCamera(const Settings& cameraSettings, Microscope& cameraMicroscope);

  /// Starts the format, after ending a capture that runs. 0, -1 no such format or the microscope
  /// is unplugged, -4, -20.
  int Start(int format);

  /// Ends the capture; 0 also without one.
  int Stop();

  /// 0, -256, or -2.
  int HasFirstFrame();

  /// Pixels, pixels, bytes; -2 without a capture.
  int FrameWidth();
  int FrameHeight();
  int FrameBytesPerRow();

  /// Copies the newest frame, all of its rows with their padding, into `buffer`. A thread that had
  /// that frame already waits for the next, at most a second and not beyond the capture's end.
  /// 0, -2, -11 where `capacity` bytes are too few or `buffer` is null, or -256, also where the
  /// camera is frozen and the thread had its last frame.
  int Grab(void* buffer, int capacity);

  std::shared_ptr<Capture> Current();
  void EndCapture();  ///< with `controlMutex` held

  const Settings settings;
  Microscope& microscope;
  FrameListener listener;            ///< of every capture; it delays the next frame
  std::mutex controlMutex;           ///< one start or stop at a time
  std::mutex mutex;                  ///< guards `capture`
  std::shared_ptr<Capture> capture;  ///< null while idle
};

}  // namespace ostrel_simulator

// The stand-in for a camera library with a frame callback, inside the test build of the addon: it
// fills the DirectShow or the AVFoundation table of `g_camera` with entries made of FakeCall (see
// fake_control.h) and calls the frame callback that the addon registers.
//
// Every entry is logged and answers what was scripted, 0 or false where nothing was. A grab that
// succeeds delivers the bytes set by `SetGrabBytes`, or the scripted frame content. Output
// parameters of the image controls, as `symbol.field`: min, max, step, default, caps; value, flags.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "unit/support/guarded_buffer.h"

namespace ostrel_native {

/// One plane as a callback gets it. Its bytes end at memory that nothing may touch.
struct FiredPlane {
  std::shared_ptr<test::GuardedBuffer> bytes;  ///< null: a null pointer
  std::uint64_t size = 0;                      ///< as told, whatever `bytes` holds
  std::int32_t stride = 0;
};

/// One frame as a backend hands it to the callback of either kind.
struct FiredFrame {
  std::int32_t device = 0;
  FiredPlane planes[2];
  std::int32_t flipped = 0;  ///< DirectShow
  std::int32_t format = 0;   ///< AVFoundation, as all that follow
  std::int32_t width = 0;    ///< pixels
  std::int32_t height = 0;   ///< pixels
  std::int32_t planeCount = 1;
  std::int64_t timestamp = 0;  ///< nanoseconds
  bool nullContext = false;
  bool late = false;  ///< to the last callback, even if it was taken back
};

/// What a hammer fires: `frame` again and again.
struct HammerPlan {
  FiredFrame frame;
  double framesPerSecond = 0;  ///< 0: without a pause
  /// Plane 0 of the frames, in turn. If empty, each four bytes of all planes are the frame's number
  /// from 1, little endian.
  std::vector<FiredPlane> contents;
};

/// The one backend of the process; never destroyed, as its threads may outlast everything.
class DirectBackend {
 public:
  static DirectBackend& Instance();

  /// Empties both tables, fills that of `kind` but for the entries named, and makes it the kind.
  /// Thread: script, with no preview running.
  void Use(BackendKind kind, const std::set<std::string>& without);

  /// What grabs deliver from now on; nothing set: the scripted content.
  void SetGrabBytes(std::optional<std::vector<std::uint8_t>> bytes);
  std::optional<std::vector<std::uint8_t>> GrabBytes();

  /// A frame to be delivered once, inside the next call that registers a callback.
  void FireWhileRegistering(FiredFrame frame);

  // What the set-frame-callback entries do.
  void Register(DirectFrameCallbackFn callback, void* context);
  void Register(AvfDirectFrameCallbackFn callback, void* context);
  /// Takes the callback back and returns when none is running any more.
  void Unregister();

  /// Calls the callback on the calling thread; false if there is none.
  bool Fire(const FiredFrame& frame);

  /// Fires on a thread of its own until `StopHammer`, which gives the number of frames whose
  /// callback was called. One hammer at a time.
  void StartHammer(HammerPlan plan);
  std::uint64_t StopHammer();

 private:
  struct Hammer;

  void Deliver(const FiredFrame& frame) const;
  void Registered();

  std::mutex mutex;  // guards the rest
  std::condition_variable idle;
  DirectFrameCallbackFn dshowCallback = nullptr;
  AvfDirectFrameCallbackFn avfCallback = nullptr;
  void* context = nullptr;
  bool registered = false;
  int running = 0;  // callbacks being called
  std::optional<FiredFrame> atRegistration;
  std::optional<std::vector<std::uint8_t>> grabBytes;
  Hammer* hammer = nullptr;  // script thread only
};

}  // namespace ostrel_native

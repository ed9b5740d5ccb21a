// Who wants each frame of a camera as soon as it is made.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>

namespace ostrel_simulator {

/// A frame as its camera made it; valid during the call that it is handed to.
struct CameraFrame {
  const std::uint8_t* rgb;  ///< `height` rows of `width` pixels, 3 bytes each
  int bytesPerRow;
  int width;
  int height;
  std::int64_t timestampNs;  ///< wall clock at the capture's start, and the steady clock since
};

/// Thread: any, for all members; but a listener changes no listener.
struct FrameListener {
  using Function = std::function<void(const CameraFrame& frame)>;

  /// Hands every frame from now on to `listener`, on the camera's thread; to nobody if it is
  /// empty. On return the listener before it is not running, and is never called again.
  void Set(Function listener) {
    const std::lock_guard lock(mutex);
    function = std::move(listener);
  }

  void Notify(const CameraFrame& frame) {
    const std::lock_guard lock(mutex);
    if (function) {
      function(frame);
    }
  }

  std::mutex mutex;  ///< held while the listener runs
  Function function;
};

}  // namespace ostrel_simulator

// Taking turns at the preview: what starts and stops it does so one thread at a time.
#pragma once

#include "camera/preview/camera_preview.h"

namespace ostrel_native {

/// The right to change the preview. The other environments' starts and stops wait for its end,
/// their polls find nothing new. No script code and no Node-API runs while it is held, so the
/// holder waits for nothing that a waiting environment would have to bring about.
/// Thread: any environment.
struct PreviewTurn {
  /// How long to wait for the turn of another thread.
  enum class Wait {
    ForItsEnd,
    OrForItsJoin,  ///< no longer than until it waits for the worker itself; the turn stays its own
  };

  /// Waits, then takes the turn if `device` is the preview's, or negative.
  explicit PreviewTurn(CameraPreviewProducer& producer, int device = -1,
                       Wait wait = Wait::ForItsEnd);
  PreviewTurn(const PreviewTurn&) = delete;
  PreviewTurn& operator=(const PreviewTurn&) = delete;
  ~PreviewTurn();

  bool taken = false;
  bool othersJoin = false;  ///< another thread is stopping the preview of this device

 private:
  CameraPreviewProducer& owner;
};

/// Ends the preview around the end of its camera's capture, if that is the preview's: the
/// constructor tells worker and callback to end, the destructor waits until the worker has. The
/// worker may stand in a grab that ends only when capture does, also where another thread is
/// already waiting for it: so the constructor waits for no worker.
/// Thread: any environment.
struct PreviewStop {
  PreviewStop(CameraPreviewProducer& producer, int device);
  PreviewStop(const PreviewStop&) = delete;
  PreviewStop& operator=(const PreviewStop&) = delete;
  ~PreviewStop();

 private:
  CameraPreviewProducer& owner;
  PreviewTurn turn;
};

}  // namespace ostrel_native

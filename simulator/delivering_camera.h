// A simulated camera as the libraries with a frame callback have it: its frames in the layouts that
// those libraries know, grabbed or handed over as they are made.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "simulator/frame_layout.h"
#include "simulator/simulated_camera.h"

namespace ostrel_simulator {

/// A layout in which a library offers every size of the cameras.
struct OfferedLayout {
  CameraPixelFormat format;
  const char* type;  ///< the library's name of it
};

/// One of a library's capture formats.
struct OfferedFormat {
  CaptureFormat size;
  int sizeIndex;  ///< in `CaptureFormats`
  OfferedLayout layout;
};

/// What a library offers: of each of its layouts all sizes, in order.
struct Offer {
  int Count() const;

  /// The format at an index, or null.
  const OfferedFormat* At(int index) const;

  std::vector<OfferedFormat> formats;
};
Offer OfferOf(const std::vector<OfferedLayout>& layouts);

/// Thread: any, for all members.
struct DeliveringCamera {
  explicit DeliveringCamera(SimulatedCamera& delivered) : camera(delivered) {}

  /// Starts a size of `CaptureFormats` in a layout; as `SimulatedCamera::Start`.
  int Start(int sizeIndex, CameraPixelFormat format);

  /// The layout of the frames now; without a size while there is no capture.
  FrameLayout Layout();

  /// Grabs the newest frame in any layout of its size, rows top down. As `SimulatedCamera::Grab`;
  /// -11 also where `capacity` is less than the layout's data size.
  int Grab(const FrameLayout& layout, void* buffer, int capacity);

  /// Hands over each frame from now on, on the camera's thread: its layout, its bytes and how many
  /// there are, and the time in nanoseconds. The bytes end with the call. Rows run bottom up with
  /// `runsBottomUp`.
  using Receiver = std::function<void(const FrameLayout& layout, const std::uint8_t* bytes,
                                      std::size_t size, std::int64_t timestampNs)>;
  void Deliver(bool runsBottomUp, Receiver receiver);

  /// Hands over no more frames. On return no receiver is running, and none runs later.
  void StopDelivering() { camera.listener.Set({}); }

  SimulatedCamera& camera;
  std::atomic<CameraPixelFormat> pixelFormat{CameraPixelFormat::Bgra};
};

/// The camera of an index, or null where it is not there.
/// Thread: any.
DeliveringCamera* TheDeliveringCamera(int device);

/// Ends the capture of a camera, or of all for a negative index. 0, or -1 for no such camera.
/// Thread: any.
int StopDeliveringCamera(int device);

}  // namespace ostrel_simulator

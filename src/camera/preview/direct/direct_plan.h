// What must hold before a direct preview can start, and what its frames will look like.
#pragma once

#include <cstdint>

#include "camera/preview/camera_preview.h"

namespace ostrel_native {

/// The frames of a direct preview.
struct DirectPlan {
  PreviewMeta frame;        ///< the record that each frame's starts from
  std::uint64_t bytes = 0;  ///< that a slot must have room for; 1 to INT32_MAX
  bool isMjpeg = false;     ///< frames arrive as JPEG and are decoded to I420

  // What `CameraPreviewProducer::PrepareDirect` was asked for.
  std::int32_t device = -1;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t frameRate = 0;
  std::uint64_t generation = 0;  ///< the producer's when this was planned; then the preview's own
};

/// An array that script code lends for a slot.
struct LentSlot {
  bool isByteArray = false;      ///< a `Uint8Array` that a view can be made of
  std::uint8_t* data = nullptr;  ///< script code's
  std::uint64_t bytes = 0;
};

/// Whether the backend can call back for each frame.
/// Thread: any.
bool HasFrameCallback();

/// Asks the backend for its frames and plans their delivery. Returns 0, or -11 if they can't be
/// delivered directly: unknown size or layout, or JPEG that can't be decoded to I420. `plan` is
/// then unspecified.
/// Thread: any.
int PlanDirect(int device, DirectPlan& plan);

/// Looks at the slots in order. Returns 0; -7 at one that is no byte array; -11 at one that is
/// shorter than `neededBytes`.
/// Thread: any.
int CheckLentSlots(const LentSlot (&lent)[CameraPreviewProducer::kBufferCount],
                   std::uint64_t neededBytes);

}  // namespace ostrel_native

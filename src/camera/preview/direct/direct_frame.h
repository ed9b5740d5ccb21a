// The newest frame of a direct preview, on its way to script code.
#pragma once

#include <cstdint>

#include "camera/preview/camera_preview.h"

namespace ostrel_native {

/// Claims the newest finished frame. The slot goes back unless it is kept: whoever can't hand the
/// frame to script code thus loses the frame, never the slot.
/// Thread: any environment; never waits.
struct DirectFrame {
  /// `result` becomes 0 with the fields below set; -1 if `device` is not the preview's; -256 if
  /// nothing newer than `lastSequence` is finished, or if a start, a stop or another poll is at
  /// work. A claim frees the finished slots with older frames.
  DirectFrame(CameraPreviewProducer& producer, int device, std::uint64_t lastSequence);
  DirectFrame(const DirectFrame&) = delete;
  DirectFrame& operator=(const DirectFrame&) = delete;
  ~DirectFrame();

  /// Claims `wanted`, which holds the frame `wantedSequence`; -256 without counters if it is not
  /// finished any more. With `previewMutex`.
  void Claim(int wanted, std::uint64_t wantedSequence);

  /// The slot is script code's from now on.
  void Keep() { isKept = true; }

  int result = kResultNotYet;
  bool reportsCounters = false;        ///< the answer tells of the preview's counters
  std::uint64_t sequence = 0;          ///< what the answer reports, also without a frame
  int slot = -1;                       ///< with a result of 0
  PreviewMeta meta;                    ///< of the frame, with a result of 0
  const std::uint8_t* data = nullptr;  ///< first byte of the slot's array when it was lent
  std::uint64_t generation = 0;        ///< of the preview that the slot belongs to

 private:
  void Look(int device, std::uint64_t lastSequence);

  CameraPreviewProducer& owner;
  bool isKept = false;
};

}  // namespace ostrel_native

// A slot of the direct mode on its way from a free one to a finished frame.
#pragma once

#include <cstdint>

#include "camera/preview/camera_preview.h"

namespace ostrel_native {

/// Takes a free slot for one frame. Whatever happens, the slot leaves the state of being written:
/// `Complete` makes it a finished frame, the destructor a free slot again.
/// Thread: producer worker, backend callback.
struct SlotWriter {
  explicit SlotWriter(CameraPreviewProducer& producer);
  SlotWriter(const SlotWriter&) = delete;
  SlotWriter& operator=(const SlotWriter&) = delete;
  ~SlotWriter();

  /// Whether a slot was free.
  bool HasSlot() const { return slot >= 0; }

  /// Whether the slot is there and has room for a frame of `bytes`, at most INT32_MAX.
  bool HasRoom(std::uint64_t bytes) const;

  /// The slot's first byte, or null.
  std::uint8_t* Data() const;

  /// Numbers the frame, stores its record, offers it to the recorder, counts it and makes it
  /// ready. A frame that the recorder has no memory for is delivered all the same.
  void Complete(const PreviewMeta& record) noexcept;

 private:
  CameraPreviewProducer& owner;
  int slot = -1;
};

}  // namespace ostrel_native

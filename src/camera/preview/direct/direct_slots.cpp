#include "camera/preview/direct/direct_slots.h"

#include <limits>

#include "camera/frames/frame_clock.h"
#include "camera/frames/frame_rates.h"

namespace ostrel_native {

namespace {

constexpr std::uint64_t kMaxBytes = std::numeric_limits<std::int32_t>::max();

// The callback and the worker may both come to the end of a period; one of them counts it.
void CountRate(CameraPreviewProducer& producer) {
  ++producer.fpsPeriodFrames;
  const std::int64_t now = SteadyNs();
  std::int64_t start = producer.fpsPeriodStart;
  const std::int64_t elapsed = now - start;
  if (elapsed >= kRatePeriodNs && producer.fpsPeriodStart.compare_exchange_strong(start, now)) {
    producer.producerFpsTenths = FpsTenths(producer.fpsPeriodFrames.exchange(0), elapsed);
  }
}

}  // namespace

SlotWriter::SlotWriter(CameraPreviewProducer& producer) : owner(producer) {
  constexpr std::uint32_t kSlots = CameraPreviewProducer::kBufferCount;
  const std::uint32_t cursor = producer.directCursor.fetch_add(1);
  for (std::uint32_t step = 0; step < kSlots; ++step) {
    const std::uint32_t candidate = (cursor % kSlots + step) % kSlots;
    SlotState expected = SlotState::Free;
    if (producer.slotStates[candidate].compare_exchange_strong(expected, SlotState::Writing)) {
      slot = static_cast<int>(candidate);
      return;
    }
  }
}

SlotWriter::~SlotWriter() {
  if (HasSlot()) {
    owner.slotStates[slot] = SlotState::Free;
  }
}

bool SlotWriter::HasRoom(std::uint64_t bytes) const {
  return Data() != nullptr && bytes <= owner.slotBytes[slot] && bytes <= kMaxBytes;
}

std::uint8_t* SlotWriter::Data() const {
  return HasSlot() ? owner.slotData[slot] : nullptr;
}

void SlotWriter::Complete(const PreviewMeta& record) noexcept {
  PreviewMeta& meta = owner.metas[slot];
  meta = record;
  meta.sequence = ++owner.publishedSequence;
  try {
    owner.EnqueueRecordingFrame(owner.slotData[slot], meta);
  } catch (...) {
    // No memory for the recorder's copy: the frame itself is whole.
  }
  ++owner.producedFrames;
  CountRate(owner);
  owner.firstFrameSeen = true;
  owner.lastResult = kResultOk;
  // Last of all, so that a poll finds a finished frame.
  owner.slotStates[slot] = SlotState::Ready;
  slot = -1;
}

}  // namespace ostrel_native

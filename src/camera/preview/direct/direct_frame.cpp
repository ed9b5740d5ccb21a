#include "camera/preview/direct/direct_frame.h"

namespace ostrel_native {

namespace {

bool MoveSlot(CameraPreviewProducer& producer, int slot, SlotState from, SlotState to) {
  return producer.slotStates[slot].compare_exchange_strong(from, to);
}

// The finished slot with the highest number above `lastSequence`; -1 if there is none.
int NewestReadySlot(const CameraPreviewProducer& producer, std::uint64_t lastSequence) {
  int newest = -1;
  std::uint64_t newestSequence = lastSequence;
  for (int slot = 0; slot < CameraPreviewProducer::kBufferCount; ++slot) {
    // The state first: it says whether the record may be read.
    if (producer.slotStates[slot] == SlotState::Ready &&
        producer.metas[slot].sequence > newestSequence) {
      newest = slot;
      newestSequence = producer.metas[slot].sequence;
    }
  }
  return newest;
}

// Frees the finished slots that script code will never ask for: it has a newer frame.
void FreeOlderSlots(CameraPreviewProducer& producer, std::uint64_t sequence) {
  for (int slot = 0; slot < CameraPreviewProducer::kBufferCount; ++slot) {
    if (producer.slotStates[slot] == SlotState::Ready &&
        producer.metas[slot].sequence <= sequence) {
      MoveSlot(producer, slot, SlotState::Ready, SlotState::Free);
    }
  }
}

// Frees a slot that holds this frame. The state first: the record of a slot that is not held may be
// changing.
bool ReleaseHeldSlot(CameraPreviewProducer& producer, int slot, std::uint64_t sequence) {
  return producer.slotStates[slot] == SlotState::Held &&
         producer.metas[slot].sequence == sequence &&
         MoveSlot(producer, slot, SlotState::Held, SlotState::Free);
}

}  // namespace

DirectFrame::DirectFrame(CameraPreviewProducer& producer, int device, std::uint64_t lastSequence)
    : owner(producer) {
  const std::unique_lock<std::mutex> lock(producer.previewMutex, std::try_to_lock);
  if (device < 0) {
    result = kResultNoPreview;
  } else if (!lock.owns_lock() || producer.changing) {
    sequence = producer.publishedSequence;
    reportsCounters = true;
  } else {
    Look(device, lastSequence);
  }
}

void DirectFrame::Look(int device, std::uint64_t lastSequence) {
  if (device != owner.deviceIndex) {
    result = kResultNoPreview;
    return;
  }
  const int newest = NewestReadySlot(owner, lastSequence);
  if (newest < 0) {
    sequence = owner.publishedSequence;
    reportsCounters = true;
    return;
  }
  Claim(newest, owner.metas[newest].sequence);
}

DirectFrame::~DirectFrame() {
  if (slot < 0 || isKept) {
    return;
  }
  const MutexLock lock(owner.previewMutex);
  // Meanwhile another environment may have given the slot back, or have ended the preview.
  if (owner.generation == generation) {
    ReleaseHeldSlot(owner, slot, meta.sequence);
  }
}

void DirectFrame::Claim(int wanted, std::uint64_t wantedSequence) {
  sequence = wantedSequence;
  if (!MoveSlot(owner, wanted, SlotState::Ready, SlotState::Held)) {
    return;
  }
  slot = wanted;
  meta = owner.metas[wanted];
  data = owner.slotData[wanted];
  generation = owner.generation;
  result = kResultOk;
  FreeOlderSlots(owner, wantedSequence);
}

int CameraPreviewProducer::ReleaseDirectSlot(int device, int slot, std::uint64_t sequence) {
  const MutexLock lock(previewMutex);
  if (!direct || device != deviceIndex || slot < 0 || slot >= kBufferCount) {
    return kResultNoPreview;
  }
  return ReleaseHeldSlot(*this, slot, sequence) ? kResultOk : kResultBadSlot;
}

void CameraPreviewProducer::ReleaseAllDirectSlots(int device) {
  const MutexLock lock(previewMutex);
  if (!direct || !IsPreviewDevice(device)) {
    return;
  }
  for (auto& state : slotStates) {
    SlotState current = state;
    while (current >= SlotState::Ready && !state.compare_exchange_weak(current, SlotState::Free)) {
    }
  }
}

EncodedFrame CameraPreviewProducer::LatestEncodedFrame(int device) {
  EncodedFrame frame;
  const MutexLock lock(sharedMutex);
  frame.isThere = direct && directMjpeg && device >= 0 && device == deviceIndex &&
                  !encodedLatest.empty() && encodedLatestSequence != 0;
  if (frame.isThere) {
    frame.sequence = encodedLatestSequence;
    frame.width = directTemplate.sourceWidth;
    frame.height = directTemplate.sourceHeight;
    frame.timestampMs = encodedLatestTimestampMs;
    frame.data = encodedLatest;
  }
  return frame;
}

}  // namespace ostrel_native

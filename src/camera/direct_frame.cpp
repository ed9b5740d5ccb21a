#include "camera/direct_frame.h"

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

}  // namespace

DirectFrame::DirectFrame(CameraPreviewProducer& producer, int device, std::uint64_t lastSequence)
    : owner(producer) {
  if (device < 0 || device != producer.deviceIndex) {
    result = kResultNoPreview;
    return;
  }
  const int newest = NewestReadySlot(producer, lastSequence);
  if (newest < 0) {
    sequence = producer.publishedSequence;
    reportsCounters = true;
    return;
  }
  Claim(newest, producer.metas[newest].sequence);
}

DirectFrame::~DirectFrame() {
  if (slot >= 0 && !isKept) {
    owner.slotStates[slot] = SlotState::Free;
  }
}

void DirectFrame::Claim(int wanted, std::uint64_t wantedSequence) {
  sequence = wantedSequence;
  if (!MoveSlot(owner, wanted, SlotState::Ready, SlotState::Held)) {
    return;
  }
  slot = wanted;
  meta = owner.metas[wanted];
  result = kResultOk;
  FreeOlderSlots(owner, wantedSequence);
}

int CameraPreviewProducer::ReleaseDirectSlot(int device, int slot, std::uint64_t sequence) {
  if (!direct || device != deviceIndex || slot < 0 || slot >= kBufferCount) {
    return kResultNoPreview;
  }
  // The state first: the record of a slot that is not held may be changing.
  const bool isThatFrame = slotStates[slot] == SlotState::Held && metas[slot].sequence == sequence;
  return isThatFrame && MoveSlot(*this, slot, SlotState::Held, SlotState::Free) ? kResultOk
                                                                                : kResultBadSlot;
}

void CameraPreviewProducer::ReleaseAllDirectSlots(int device) {
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
  const std::lock_guard<std::mutex> lock(sharedMutex);
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

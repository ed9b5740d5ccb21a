#include "camera/preview/preview_turn.h"

namespace ostrel_native {

PreviewTurn::PreviewTurn(CameraPreviewProducer& producer, int device, Wait wait) : owner(producer) {
  ConditionLock lock(owner.previewMutex);
  owner.turnCondition.wait(lock.held, [this, wait]() OSTREL_REQUIRES(owner.previewMutex) {
    return !owner.changing || (wait == Wait::OrForItsJoin && owner.joining);
  });
  const bool isItsDevice = owner.IsPreviewDevice(device);
  taken = isItsDevice && !owner.changing;
  othersJoin = isItsDevice && owner.changing;
  owner.changing = owner.changing || taken;
}

PreviewTurn::~PreviewTurn() {
  if (!taken) {
    return;
  }
  {
    const MutexLock lock(owner.previewMutex);
    owner.changing = false;
  }
  owner.turnCondition.notify_all();
}

PreviewStop::PreviewStop(CameraPreviewProducer& producer, int device)
    : owner(producer), turn(producer, device, PreviewTurn::Wait::OrForItsJoin) {
  if (turn.taken) {
    owner.RequestStop();
    owner.ClearDirectCallback();
  }
}

PreviewStop::~PreviewStop() {
  if (turn.taken) {
    owner.JoinAndReset();
  } else if (turn.othersJoin) {
    const PreviewTurn afterwards(owner);
  }
}

}  // namespace ostrel_native

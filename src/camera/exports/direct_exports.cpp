// What script code sees of direct delivery: the arrays that it lends, the frames in them, and the
// JPEG behind them.
#include "camera/exports/direct_exports.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "addon/script_arguments.h"
#include "addon/script_memory.h"
#include "camera/exports/camera_exports.h"
#include "camera/exports/lent_array.h"
#include "camera/exports/preview_answers.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/direct/direct_frame.h"
#include "camera/preview/direct/direct_plan.h"

namespace ostrel_native {

namespace {

constexpr int kSlots = CameraPreviewProducer::kBufferCount;

// What an environment lends, touched on its own thread alone: a reference to each array, and the
// preview that may write into them. An environment that ends frees the arrays of its script code,
// with no word to them and well before the process exits. So the preview ends with it.
struct LendingEnvironment {
  ~LendingEnvironment() { g_cameraPreview.StopGeneration(generation); }

  // Null until `Of` was called in the environment.
  static LendingEnvironment* OrNull(Napi::Env env) {
    return static_cast<LendingEnvironment*>(EnvironmentDataOf(env).directDelivery.get());
  }

  // Made by the first call in an environment.
  static LendingEnvironment& Of(Napi::Env env) {
    std::shared_ptr<void>& kept = EnvironmentDataOf(env).directDelivery;
    if (kept == nullptr) {
      kept = std::make_shared<LendingEnvironment>();
    }
    return *static_cast<LendingEnvironment*>(kept.get());
  }

  std::uint64_t generation = 0;  // of the preview that it lends to; the first one's is not 0
  Napi::Reference<Napi::Object> arrays[kSlots];
};

// The elements of `buffers` as they stand once no script runs any more.
void ReadSlots(const Napi::Value (&elements)[kSlots], LentSlot (&lent)[kSlots]) {
  for (int slot = 0; slot < kSlots; ++slot) {
    const LentArray array = ReadLentArray(elements[slot]);
    lent[slot] = {.isByteArray = array.isByteArray, .data = array.data, .bytes = array.bytes};
  }
}

int StartOnElements(const Napi::Value (&elements)[kSlots], DirectPlan& plan) {
  LendingEnvironment& environment = LendingEnvironment::Of(elements[0].Env());
  LentSlot lent[kSlots];
  ReadSlots(elements, lent);
  Napi::Reference<Napi::Object> arrays[kSlots];
  for (int slot = 0; slot < kSlots; ++slot) {
    if (lent[slot].isByteArray) {
      arrays[slot] = Napi::Persistent(elements[slot].As<Napi::Object>());
    }
  }
  const int result = g_cameraPreview.StartDirect(plan, lent);
  if (result == kResultOk) {
    // What the environment lent before is its own again: that preview has ended.
    environment.generation = plan.generation;
    std::swap(environment.arrays, arrays);
  }
  return result;
}

Napi::Value ViewOfSlot(Napi::Env env, const LendingEnvironment& environment,
                       const DirectFrame& frame) {
  const auto size = static_cast<std::size_t>(frame.meta.dataSize);
  const LentArray array = ReadLentArray(environment.arrays[frame.slot].Value());
  if (array.data != frame.data || array.bytes < size) {
    throw Napi::Error::New(env, "The buffer of slot " + std::to_string(frame.slot) +
                                    " was detached or resized while it was lent");
  }
  return array.View(size);
}

}  // namespace

int StartDirectPreview(const Napi::Array& buffers, int device, int width, int height,
                       int frameRate) {
  if (device < 0 || buffers.Length() < kSlots || !HasFrameCallback()) {
    return kResultUnsupported;
  }
  DirectPlan plan;
  const int refusal = g_cameraPreview.PrepareDirect(device, width, height, frameRate, plan);
  if (refusal != kResultOk) {
    return refusal;
  }
  // Reading an element may run script code, which may do anything: start or stop a preview, detach
  // an element that was read before. So all elements come first, and what they are only afterwards.
  const Napi::Value elements[kSlots] = {buffers[0U], buffers[1U], buffers[2U]};
  return StartOnElements(elements, plan);
}

void ReleaseUnlentArrays(Napi::Env env) {
  auto* const environment = LendingEnvironment::OrNull(env);
  if (environment != nullptr && !g_cameraPreview.MayWrite(environment->generation)) {
    for (auto& array : environment->arrays) {
      array.Reset();
    }
  }
}

Napi::Value LatestDirectFrame(Napi::Env env, int device, std::uint64_t lastSequence) {
  // No other environment than the lender's can have a view of the arrays: to it there is no frame.
  constexpr std::uint64_t kNoFrame = std::numeric_limits<std::uint64_t>::max();
  const auto* const environment = LendingEnvironment::OrNull(env);
  const bool isLender =
      environment != nullptr && environment->generation == g_cameraPreview.generation;
  DirectFrame frame(g_cameraPreview, device, isLender ? lastSequence : kNoFrame);
  if (frame.result != kResultOk) {
    return AnswerWithoutFrame(env, frame.result, frame.sequence, frame.reportsCounters);
  }
  if (frame.generation != environment->generation) {
    // Another environment has started a preview between the two looks.
    return AnswerWithoutFrame(env, kResultNotYet, frame.sequence, true);
  }
  const Napi::Value data = ViewOfSlot(env, *environment, frame);
  const Napi::Object answer = AnswerWithFrame(env, frame.meta, data, frame.slot);
  frame.Keep();
  return answer;
}

/// `cameraPreviewIsDirect()`: boolean, whether the preview delivers into lent buffers.
Napi::Value CameraPreviewIsDirect(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), g_cameraPreview.direct);
}

/// `cameraPreviewReleaseDirectSlot(deviceIndex = -1, slot = -1, sequence = 0)`: gives a frame's
/// buffer back. 0; -1 if there is no such slot; -7 if it does not hold this frame.
Napi::Value CameraPreviewReleaseDirectSlot(const Napi::CallbackInfo& info) {
  const int device = ReadIntArg(info, 0, -1);
  const int slot = ReadIntArg(info, 1, -1);
  const std::uint64_t sequence = ReadUint64Arg(info, 2);
  return Napi::Number::New(info.Env(), g_cameraPreview.ReleaseDirectSlot(device, slot, sequence));
}

/// `cameraPreviewReleaseAllDirectSlots(deviceIndex = -1)`: always 0. Gives all buffers back, also
/// those with frames that nobody has asked for.
Napi::Value CameraPreviewReleaseAllDirectSlots(const Napi::CallbackInfo& info) {
  g_cameraPreview.ReleaseAllDirectSlots(ReadIntArg(info, 0, -1));
  return Napi::Number::New(info.Env(), kResultOk);
}

/// `cameraGrabEncodedFrame(deviceIndex = -1)`: object with the JPEG that a direct preview decoded
/// last; "result" 0, or -256 with "data" null where there is none.
Napi::Value CameraGrabEncodedFrame(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const EncodedFrame frame = g_cameraPreview.LatestEncodedFrame(ReadIntArg(info, 0, -1));
  Napi::Object answer = Napi::Object::New(env);
  if (!frame.isThere) {
    answer.Set("result", kResultNotYet);
    answer.Set("data", env.Null());
    return answer;
  }
  answer.Set("result", kResultOk);
  SetCount(answer, "sequence", frame.sequence);
  answer.Set("width", frame.width);
  answer.Set("height", frame.height);
  answer.Set("mimeType", "image/jpeg");
  answer.Set("timestampMs", static_cast<double>(frame.timestampMs));
  answer.Set("data", CopyToBuffer(env, frame.data.data(), frame.data.size()));
  return answer;
}

}  // namespace ostrel_native

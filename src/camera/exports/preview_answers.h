// The objects that script code gets for a look at the preview, in either mode.
#pragma once

#include <napi.h>

#include <cstdint>
#include <optional>

#include "camera/preview/camera_preview.h"

namespace ostrel_native {

/// Sets a count as a number, which beyond 2^53 loses its last digits.
void SetCount(Napi::Object answer, const char* key, std::uint64_t count);

/// "result", "data" null, "sequence", "droppedFrames" and with `counters` "lastResult",
/// "producerFps" and "producedFrames".
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
Napi::Object AnswerWithoutFrame(Napi::Env env, int result, std::uint64_t sequence, bool counters);

/// The frame's record, the preview's counters and "data". `directSlot`: the slot that the data
/// lies in, of a direct preview.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
Napi::Object AnswerWithFrame(Napi::Env env, const PreviewMeta& meta, const Napi::Value& data,
                             std::optional<int> directSlot);

}  // namespace ostrel_native

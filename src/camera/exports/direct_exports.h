// The direct mode's part of the calls that both modes of the preview share.
#pragma once

#include <napi.h>

#include <cstdint>

namespace ostrel_native {

/// `cameraPreviewStart` with an array of buffers, which lends the first three of its elements.
/// 0; -13 if the device, the array or the backend can't do it, and then what runs goes on; -11 or
/// -7 for frames or elements that don't fit, and then the preview is stopped; or the backend's
/// negative code. Elements may be accessors: what they throw passes through, the preview stopped.
/// Thread: any environment.
int StartDirectPreview(const Napi::Array& buffers, int device, int width, int height,
                       int frameRate);

/// Lets go of the arrays that this environment has lent, if no preview may write into them any
/// more. After each call that may have ended one. Another environment's stop leaves them to the
/// lender's next such call, or to its end. Thread: any environment.
void ReleaseUnlentArrays(Napi::Env env);

/// `cameraPreviewGetLatest` of a direct preview: "data" is a view of a lent array, which is script
/// code's until it releases the slot. Throws if that array was detached or shrunk.
/// Thread: any environment.
Napi::Value LatestDirectFrame(Napi::Env env, int device, std::uint64_t lastSequence);

}  // namespace ostrel_native

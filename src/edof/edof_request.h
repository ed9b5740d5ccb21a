// Reads the request of a fusion out of a script object.
#pragma once

#include <napi.h>

#include <cstdint>
#include <vector>

#include "edof/fusion.h"

namespace ostrel_native {

/// A checked request. Its views point into typed arrays of script code, which stay where they are
/// as long as no script runs and the callback has not returned.
struct EdoFRequest {
  int width = 0;
  int height = 0;
  int referenceIndex = 0;
  std::vector<FrameView> frames;
  std::vector<FieldView> fields;
  std::vector<const float*> weights;
  std::int32_t workerLimit = 1;  ///< 1 to 8
};

/// The required number `key` of `object`, cut toward zero; the most negative int32 if that does
/// not fit. Throws `std::runtime_error` with the words for script code if there is no number or
/// one that is not finite. Sets no last error.
/// Thread: script; runs script code.
std::int32_t ReadRequiredInt(const Napi::Object& object, const char* key);

/// Reads and checks the first argument, key by key; the first failure ends it.
/// Throws `std::runtime_error` with the words for script code, and `Napi::Error` for what a getter
/// throws. Sets no last error.
/// Thread: script; runs script code.
EdoFRequest ReadEdoFRequest(const Napi::CallbackInfo& info);

}  // namespace ostrel_native

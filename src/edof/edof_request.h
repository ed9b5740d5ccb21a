// Reads and validates a fusion request from a script object.
#pragma once

#include <napi.h>

#include <cstdint>
#include <vector>

#include "edof/fusion.h"

namespace ostrel_native {

/// A validated request. Its views point into script-owned typed arrays; they stay valid while no
/// script runs and until the callback returns.
struct EdoFRequest {
  int width = 0;
  int height = 0;
  int referenceIndex = 0;
  std::vector<FrameView> frames;
  std::vector<FieldView> fields;
  std::vector<const float*> weights;
  std::int32_t workerLimit = 1;  ///< 1 to 8
};

/// Reads the required number `key` of `object`, truncated toward zero; INT32_MIN if it does not
/// fit int32. Throws `std::runtime_error` with the text for script code if it is missing, not a
/// number or not finite. Sets no last error.
/// Thread: any environment; runs script code.
std::int32_t ReadRequiredInt(const Napi::Object& object, const char* key);

/// Reads and validates the first argument, key by key; stops at the first failure.
/// Throws `std::runtime_error` with the text for script code, and `Napi::Error` if a getter
/// throws. Sets no last error.
/// Thread: any environment; runs script code.
EdoFRequest ReadEdoFRequest(const Napi::CallbackInfo& info);

}  // namespace ostrel_native

#include "edof/edof_module.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "addon/script_exports.h"
#include "addon/script_memory.h"
#include "edof/edof_request.h"
#include "edof/fusion.h"

namespace ostrel_native {

namespace {

constexpr ScriptFunction kFunctions[] = {
    {"edofMultibandFuse", EdoFMultibandFuse},
};

constexpr double kNanosecondsPerMillisecond = 1000000.0;

Napi::Value FuseRequest(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const EdoFRequest request = ReadEdoFRequest(info);
  const std::string simd = __builtin_cpu_supports("avx2") ? "avx2" : "sse2";

  const auto begin = std::chrono::steady_clock::now();
  const std::vector<std::uint8_t> rgba =
      Fuse(request.width, request.height, request.referenceIndex, request.frames, request.fields,
           request.weights, static_cast<unsigned>(request.workerLimit), simd);
  const std::chrono::nanoseconds duration = std::chrono::steady_clock::now() - begin;

  // Memory of the engine's own: it accepts no foreign memory everywhere.
  Napi::Uint8Array data = NewByteArray(env, rgba.size());
  std::memcpy(data.Data(), rgba.data(), rgba.size());
  Napi::Object result = Napi::Object::New(env);
  result.Set("data", data);
  result.Set("backend", "native-cpp");
  result.Set("simd", simd);
  result.Set("threads", request.workerLimit);
  result.Set("durationMs", static_cast<double>(duration.count()) / kNanosecondsPerMillisecond);
  return result;
}

}  // namespace

void RegisterEdoF(Napi::Env env, Napi::Object exports) {
  SetScriptFunctions(env, exports, kFunctions);
}

// A script exception that a getter threw is a `std::exception` too: it arrives as a plain error
// with the same message, like every other failure.
Napi::Value EdoFMultibandFuse(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  try {
    return FuseRequest(info);
  } catch (const std::exception& error) {
    Napi::Error::New(env, error.what()).ThrowAsJavaScriptException();
  } catch (...) {
    Napi::Error::New(env, "Native EDOF fusion failed").ThrowAsJavaScriptException();
  }
  return env.Undefined();
}

}  // namespace ostrel_native

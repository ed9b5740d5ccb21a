// Exported functions that do nothing but build the results of the polling getters: what those
// would cost without a cache, a clock and a queue behind them.
#include <napi.h>

#include "addon/script_exports.h"

namespace {

Napi::Value MakeNumber(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), -1);
}

Napi::Value MakeBoolean(const Napi::CallbackInfo& info) {
  return Napi::Boolean::New(info.Env(), false);
}

Napi::Value MakeNull(const Napi::CallbackInfo& info) {
  return info.Env().Null();
}

Napi::Value MakePixelSize(const Napi::CallbackInfo& info) {
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", false);
  result.Set("micronsPerPixel", -1.0F);
  result.Set("width", 0);
  result.Set("height", 0);
  return result;
}

Napi::Value MakeLensGroup(const Napi::CallbackInfo& info) {
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("ok", false);
  result.Set("lensDriver", 0);
  result.Set("lensGroup", 0);
  return result;
}

Napi::Value MakeDebugState(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  Napi::Object result = Napi::Object::New(env);
  result.Set("loaded", true);
  result.Set("backend", "mac-libdinolite");
  result.Set("path", "a path that is about as long as one is");
  result.Set("selectedDeviceIndex", 0);
  result.Set("ledState", 16);
  result.Set("controllableLedsCount", 2);
  result.Set("initialized", true);
  result.Set("supportsAmr", true);
  result.Set("supportsMicrotouch", true);
  result.Set("supportsLedControl", true);
  result.Set("amrRead", true);
  result.Set("amrRaw", 50.0);
  result.Set("amrAccepted", true);
  result.Set("amrUpdates", 0.0);
  Napi::Array modes = Napi::Array::New(env, 2);
  modes.Set(0U, 16);
  modes.Set(1U, 1);
  result.Set("ledModes", modes);
  result.Set("cachedAmr", 50.0);
  result.Set("cachedAmrAgeMs", 10.0);
  return result;
}

constexpr ostrel_native::ScriptFunction kFunctions[] = {
    {"number", MakeNumber},       {"boolean", MakeBoolean},     {"null", MakeNull},
    {"pixelSize", MakePixelSize}, {"lensGroup", MakeLensGroup}, {"debugState", MakeDebugState},
};

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  ostrel_native::SetScriptFunctions(env, exports, kFunctions);
  return exports;
}

}  // namespace

NODE_API_MODULE(devices_results, Init)

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

constexpr ostrel_native::ScriptFunction kFunctions[] = {
    {"number", MakeNumber},       {"boolean", MakeBoolean},     {"null", MakeNull},
    {"pixelSize", MakePixelSize}, {"lensGroup", MakeLensGroup},
};

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  ostrel_native::SetScriptFunctions(env, exports, kFunctions);
  return exports;
}

}  // namespace

NODE_API_MODULE(devices_results, Init)

// Lets script tests run callables of every outcome behind the promises of the device functions.
//
//   boolean(outcome), integer(outcome), devices(outcome): a promise; the outcomes are below
//   lastError(): string; "earlier" unless a promise touched it
//   release(): lets all callables with the outcome "held" go on, now and later
#include <napi.h>

#include <latch>
#include <stdexcept>
#include <string>

#include "addon/common.h"
#include "addon/promise_workers.h"

namespace {

using ostrel_native::VendorDeviceSnapshot;

std::latch g_released(1);

// "value": returns `value`. "initial": throws an exception without a text. "text", "number": throw
// such a thing. "none": no callable at all. "held", "held text": wait, then as "value" or "text".
template <typename Result>
std::function<Result()> MakeCallable(const std::string& outcome, Result value) {
  if (outcome == "none") {
    return {};
  }
  return [outcome, value] {
    if (outcome.starts_with("held")) {
      g_released.wait();
    }
    if (outcome == "initial") {
      throw std::runtime_error("");
    }
    if (outcome.ends_with("text")) {
      throw std::runtime_error("the lens is \xC2\xB5");
    }
    if (outcome == "number") {
      throw 5;
    }
    return value;
  };
}

Napi::Value RunBoolean(const Napi::CallbackInfo& info) {
  return ostrel_native::RunBooleanAsync(info.Env(), "ProbeBoolean",
                                        MakeCallable(info[0].ToString(), true));
}

Napi::Value RunInteger(const Napi::CallbackInfo& info) {
  return ostrel_native::RunIntegerAsync(info.Env(), "ProbeInteger",
                                        MakeCallable(info[0].ToString(), 2147483647));
}

Napi::Value RunDevices(const Napi::CallbackInfo& info) {
  const std::vector<VendorDeviceSnapshot> devices = {
      {.index = 7, .uniqueId = "id \xC2\xB5", .name = "first"},
      {.index = -2, .uniqueId = "", .name = ""},
  };
  return ostrel_native::RunVendorDeviceListAsync(info.Env(), "ProbeDevices",
                                                 MakeCallable(info[0].ToString(), devices));
}

Napi::Value LastError(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), ostrel_native::GetLastErrorString());
}

Napi::Value Release(const Napi::CallbackInfo& info) {
  g_released.count_down();
  return info.Env().Undefined();
}

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  ostrel_native::SetLastError("earlier");
  exports.Set("boolean", Napi::Function::New(env, RunBoolean));
  exports.Set("integer", Napi::Function::New(env, RunInteger));
  exports.Set("devices", Napi::Function::New(env, RunDevices));
  exports.Set("lastError", Napi::Function::New(env, LastError));
  exports.Set("release", Napi::Function::New(env, Release));
  return exports;
}

}  // namespace

NODE_API_MODULE(promise_probe, Init)

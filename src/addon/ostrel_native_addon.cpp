#include "addon/ostrel_native_addon.h"

#include "addon/common.h"
#include "addon/script_exports.h"
#include "camera/camera_module.h"
#include "edof/edof_module.h"

namespace ostrel_native {

namespace {

Napi::Value GetLastError(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), GetLastErrorString());
}

constexpr ScriptFunction kFrameFunctions[] = {
    {"getLastError", GetLastError},
};

}  // namespace

Napi::Object InitAddon(Napi::Env env, Napi::Object exports) {
  SetScriptFunctions(env, exports, kFrameFunctions);
  RegisterCamera(env, exports);
  RegisterEdoF(env, exports);
  return exports;
}

}  // namespace ostrel_native

// The entry macro takes a name without a namespace.
static Napi::Object InitAddon(Napi::Env env, Napi::Object exports) {
  return ostrel_native::InitAddon(env, exports);
}

NODE_API_MODULE(ostrel_native, InitAddon)

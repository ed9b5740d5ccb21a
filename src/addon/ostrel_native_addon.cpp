#include "addon/ostrel_native_addon.h"

#include "addon/common.h"
#include "addon/file_lock.h"
#include "addon/script_arguments.h"
#include "addon/script_exports.h"
#include "addon/script_memory.h"
#include "camera/camera_module.h"
#include "devices/dino_lite_module.h"
#include "devices/ostrel_module.h"
#include "edof/edof_module.h"

namespace ostrel_native {

namespace {

Napi::Value GetLastError(const Napi::CallbackInfo& info) {
  return Napi::String::New(info.Env(), GetLastErrorString());
}

/// `lockFile(path)`: number, the descriptor that stands for the lock. Throws an `Error` where the
/// lock cannot be had.
Napi::Value LockFile(const Napi::CallbackInfo& info) {
  const FileLock lock = AcquireFileLock(ReadStringArg(info, 0));
  if (lock.descriptor < 0) {
    throw Napi::Error::New(info.Env(), lock.error);
  }
  return Napi::Number::New(info.Env(), lock.descriptor);
}

/// `unlockFile(descriptor = 0)`: undefined. Descriptor 0 is the standard input of the process: the
/// number from `lockFile` is the one to pass.
Napi::Value UnlockFile(const Napi::CallbackInfo& info) {
  ReleaseFileLock(info[0].IsNumber() ? info[0].As<Napi::Number>().Int64Value() : 0);
  return info.Env().Undefined();
}

constexpr ScriptFunction kFrameFunctions[] = {
    {"getLastError", GetLastError},
    {"lockFile", LockFile},
    {"unlockFile", UnlockFile},
};

}  // namespace

Napi::Object InitAddon(Napi::Env env, Napi::Object exports) {
  KeepEnvironmentData(env);
  SetScriptFunctions(env, exports, kFrameFunctions);
  RegisterCamera(env, exports);
  RegisterEdoF(env, exports);
  RegisterDinoLite(env, exports);
  RegisterOstrel(env, exports);
  return exports;
}

}  // namespace ostrel_native

// The entry macro takes a name without a namespace.
static Napi::Object InitAddon(Napi::Env env, Napi::Object exports) {
  return ostrel_native::InitAddon(env, exports);
}

NODE_API_MODULE(ostrel_native, InitAddon)

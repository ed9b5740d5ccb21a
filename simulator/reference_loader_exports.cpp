// `loadCameraBackend` of the addon's demonstration build: it takes libraries of all three kinds,
// and is all in which that build differs.
#include <napi.h>

#include <string>

#include "addon/script_arguments.h"
#include "addon/script_exports.h"
#include "camera/backend/camera_binding.h"
#include "simulator/addon_extension.h"
#include "simulator/reference_loader.h"

namespace ostrel_native {

namespace {

Napi::Value LoadBackendOfAnyKind(const Napi::CallbackInfo& info) {
  const std::string path = ReadStringArg(info, 0);
  return Napi::Boolean::New(info.Env(),
                            LoadReferenceBackend(g_camera, path) || g_camera.Load(path));
}

constexpr ScriptFunction kFunctions[] = {{"loadCameraBackend", LoadBackendOfAnyKind}};

}  // namespace

void ExtendExports(Napi::Env env, Napi::Object exports) {
  SetScriptFunctions(env, exports, kFunctions);
}

}  // namespace ostrel_native

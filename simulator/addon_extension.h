// Where a build of the addon that is not shipped changes what script code sees of it.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Called at the end of every registration of the addon's exports; such a build defines it.
/// Throws `Napi::Error` if Node-API fails. Thread: script.
void ExtendExports(Napi::Env env, Napi::Object exports);

}  // namespace ostrel_native

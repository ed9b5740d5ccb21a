// Setting functions on the exports object from a table.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// One exported function: its name on the exports object and its native form.
struct ScriptFunction {
  const char* name;
  Napi::Value (*callback)(const Napi::CallbackInfo&);
};

/// Sets each function of `table` on `exports`, in order. The functions themselves carry no name.
/// Throws `Napi::Error` if Node-API fails, which stops the rest. Thread: any environment.
template <typename Table>
void SetScriptFunctions(Napi::Env env, Napi::Object exports, const Table& table) {
  for (const ScriptFunction& function : table) {
    exports.Set(function.name, Napi::Function::New(env, function.callback));
  }
}

}  // namespace ostrel_native

#include "simulator/addon_extension.h"

#include "devices/ostrel_module.h"

namespace ostrel_native {

// The linker hands the last of the addon's registrations to the second of these, and that one
// itself is reached as the first: the addon's own objects stay as they are.
void RegisterOstrelItself(Napi::Env env,
                          Napi::Object exports) asm("__real_" OSTREL_LAST_REGISTRATION);
void RegisterOstrelAndExtension(Napi::Env env,
                                Napi::Object exports) asm("__wrap_" OSTREL_LAST_REGISTRATION);

void RegisterOstrelAndExtension(Napi::Env env, Napi::Object exports) {
  RegisterOstrelItself(env, exports);
  ExtendExports(env, exports);
}

}  // namespace ostrel_native

#include "unit/support/napi_stub.h"

#include <cstdlib>

extern "C" napi_status napi_delete_reference(napi_env, napi_ref reference) {
  if (!ostrel_native::test::g_onDeleteReference) {
    std::abort();
  }
  ostrel_native::test::g_onDeleteReference(reference);
  return napi_ok;
}

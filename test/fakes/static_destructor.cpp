// Linked into one variant of a fake only: a library that tears itself down at process exit,
// before the statics of whoever opened it, as closed libraries do.
#include "fakes/fake_control.h"

namespace {

struct AtExit {
  ~AtExit() { ostrel_native::DestroyFakeLibrary(); }
} g_atExit;

}  // namespace

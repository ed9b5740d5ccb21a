// Leaks of libraries that are not ours, kept out of the leak check.
#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace ostrel_native {

/// What is allocated while one of these lives counts as no leak.
struct ForeignLeaks {
#ifdef __SANITIZE_ADDRESS__
  ForeignLeaks() {
    __lsan_disable();
  }
  ~ForeignLeaks() {
    __lsan_enable();
  }
#else
  ForeignLeaks() {}
  ~ForeignLeaks() {}
#endif
  ForeignLeaks(const ForeignLeaks&) = delete;
  ForeignLeaks& operator=(const ForeignLeaks&) = delete;
};

}  // namespace ostrel_native

// Preloaded by tests of lock files: every `flock` fails with the number in FAILING_FLOCK_ERRNO.
#include <cerrno>
#include <cstdlib>

extern "C" __attribute__((visibility("default"))) int flock(int /*descriptor*/,
                                                            int /*operation*/) noexcept {
  errno = std::atoi(std::getenv("FAILING_FLOCK_ERRNO"));
  return -1;
}

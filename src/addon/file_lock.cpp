#include "addon/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace ostrel_native {

namespace {

constexpr char kExists[] = "LOCK_FILE_EXISTS";

FileLock Refused(const char* what, const std::string& path, int error) {
  return {.descriptor = -1, .error = what + path + " (errno " + std::to_string(error) + ")"};
}

}  // namespace

FileLock AcquireFileLock(const std::string& path) {
  if (path.empty()) {
    return {.descriptor = -1, .error = "lockFile requires a path argument"};
  }
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  if (descriptor < 0) {
    const int error = errno;
    return error == EEXIST ? FileLock{.descriptor = -1, .error = kExists}
                           : Refused("Failed to open lock file: ", path, error);
  }
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    close(descriptor);
    return error == EWOULDBLOCK ? FileLock{.descriptor = -1, .error = kExists}
                                : Refused("Failed to flock lock file: ", path, error);
  }
  return {.descriptor = descriptor, .error = ""};
}

void ReleaseFileLock(std::int64_t descriptor) {
  if (descriptor < 0) {
    return;
  }
  const auto low = static_cast<int>(static_cast<std::uint32_t>(descriptor));
  flock(low, LOCK_UN);
  close(low);
}

}  // namespace ostrel_native

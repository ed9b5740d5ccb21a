// Exclusive lock files. A lock has two layers: the exclusive creation of the file, and an advisory
// lock on it. The open file descriptor is the token; nothing else is remembered.
//
// The file outlives its lock, also when the process dies: while it stands, it counts as locked,
// and removing it is up to script code. The descriptor passes on to programs that are started.
#pragma once

#include <cstdint>
#include <string>

namespace ostrel_native {

/// Either a descriptor, or -1 and the text that script code gets.
struct FileLock {
  int descriptor = -1;
  std::string error;
};

/// Creates and locks the file at `path`; never waits for another holder. An existing file gives
/// the text LOCK_FILE_EXISTS, which script code compares. After a failure no descriptor is open;
/// a file that was created before the lock failed stays. Sets no last error.
/// Thread: any.
FileLock AcquireFileLock(const std::string& path);

/// Unlocks and closes the descriptor in the low 32 bits of `descriptor`, whoever opened it; a
/// negative number does nothing. Failures are ignored, the file stays.
/// Thread: any.
void ReleaseFileLock(std::int64_t descriptor);

}  // namespace ostrel_native

// Everything that the process writes to its standard output and error while the object lives.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace ostrel_native {

/// Works on the file descriptors, so that libraries are seen as well.
struct OutputCapture {
  OutputCapture() : target(memfd_create("output", 0)), output(dup(1)), error(dup(2)) {
    std::fflush(nullptr);
    if (target < 0 || output < 0 || error < 0 || dup2(target, 1) < 0 || dup2(target, 2) < 0) {
      throw std::runtime_error("the output cannot be captured");
    }
  }
  ~OutputCapture() {
    Restore();
    close(target);
    close(output);
    close(error);
  }
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// Ends the capture; what was written so far.
  std::string Take() {
    Restore();
    std::string text(static_cast<std::size_t>(lseek(target, 0, SEEK_END)), '\0');
    const ssize_t count = pread(target, text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
  }

 private:
  void Restore() {
    std::fflush(nullptr);
    dup2(output, 1);
    dup2(error, 2);
  }

  int target;
  int output;
  int error;
};

}  // namespace ostrel_native

// A copy of a library of which the end is missing.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "unit/support/temporary_directory.h"

namespace ostrel_native {

/// Half of the library `original`, under the name `name` in a directory of its own.
struct CutOffFile {
  CutOffFile(const std::string& original, const std::string& name)
      : path(directory.File(name)), whole(std::filesystem::file_size(original)), size(whole / 2) {
    std::filesystem::copy_file(original, path);
    std::filesystem::resize_file(path, size);
  }

  /// What is said of it where it is found as `as`. Compilers write the table of sections last.
  std::string TextFor(const std::string& as) const {
    return as + ": file is cut off after " + std::to_string(size) + " of " + std::to_string(whole) +
           " bytes";
  }

  TemporaryDirectory directory;
  std::string path;
  std::uintmax_t whole;
  std::uintmax_t size;
};

}  // namespace ostrel_native

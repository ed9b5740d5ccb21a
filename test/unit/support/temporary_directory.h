// A directory for the files of one test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace ostrel_native {

/// Made empty, and removed with all it holds.
struct TemporaryDirectory {
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "ostrel-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no temporary directory");
    }
    path = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string File(const std::string& name) const { return path + "/" + name; }

  std::string path;
};

}  // namespace ostrel_native

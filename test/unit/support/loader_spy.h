// Sees, and can spoil, the calls that the program itself makes to the dynamic loader. The
// linker's --wrap option puts it in between, so libraries' own calls pass by.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ostrel_native {

struct OpenedLibrary {
  std::string path;
  int flags = 0;
  void* handle = nullptr;
};

/// One per process; not for two threads at a time.
struct LoaderSpy {
  std::vector<OpenedLibrary> opened;
  std::vector<void*> closed;
  std::vector<std::pair<std::string, std::string>> versionedLookups;  ///< symbol, version tag
  std::set<std::string> silentlyMissing;  ///< paths that open as null, without a loader text
  int opensBeforeMissing = 0;             ///< of such a path, that still work
  bool refuseLinkMap = false;             ///< dlinfo fails

  static LoaderSpy& Instance();
};

}  // namespace ostrel_native

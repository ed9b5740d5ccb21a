#include "addon/native_library.h"

#include <dlfcn.h>

#include "addon/library_file.h"

namespace ostrel_native {

void* OpenLibrary(const std::string& path) {
  std::string failure;
  return OpenLibrary(path, failure);
}

void* OpenLibrary(const std::string& path, std::string& failure) {
  dlerror();  // drops a pending message of an earlier failure
  std::string reason = CutOffText(path);
  if (reason.empty()) {
    void* const handle = dlopen(path.c_str(), RTLD_NOW);
    if (handle != nullptr) {
      return handle;
    }
    // Copied at once: the next dl call of this thread may clear it.
    reason = SafeCString(dlerror());
  }
  const std::string text = "Could not load native library '" + path + "'";
  failure = reason.empty() ? text : text + ": " + reason;
  SetLastError(failure);
  return nullptr;
}

void CloseLibrary(void* handle) {
  if (handle != nullptr) {
    dlclose(handle);
  }
}

void* LoadSymbol(void* handle, const char* name) {
  // dlsym itself crashes on a null name.
  return handle == nullptr || name == nullptr ? nullptr : dlsym(handle, name);
}

std::string MissingSymbolText(const char* name) {
  return "Required symbol not found: " + SafeCString(name);
}

void SetMissingSymbolError(const char* name) {
  SetLastError(MissingSymbolText(name));
}

std::vector<std::string> BuildLoadCandidates(const std::string& explicitPath,
                                             const std::vector<std::string>& defaults) {
  if (!explicitPath.empty()) {
    return {explicitPath};
  }
  return defaults;
}

}  // namespace ostrel_native

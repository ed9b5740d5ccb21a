// Opening closed libraries at run time and finding their functions by name.
//
// The layer knows no search path of its own: a name without a slash is the dynamic loader's to
// find, a private folder is reached by an explicit path.
#pragma once

#include <string>
#include <vector>

#include "addon/common.h"

namespace ostrel_native {

/// Opens the library at `path`, or, for a name without a slash, where the loader finds it. All
/// symbols are bound at once and stay local to the library. A file that has been cut off is refused
/// before the loader sees it; see `CutOffText`.
/// Returns the handle, or null with the last error set; success leaves the last error alone.
/// Thread: any; the loader's message is read on the calling thread.
void* OpenLibrary(const std::string& path);

/// The same, and on failure gives in `failure` the text that the last error was set to: another
/// thread may have replaced it by the time that it is read.
void* OpenLibrary(const std::string& path, std::string& failure);

/// Closes `handle`; null is allowed.
void CloseLibrary(void* handle);

/// Returns the address of `name`, or null for a missing symbol, a null handle or a null name.
/// Sets no error, so an optional symbol may simply be absent.
void* LoadSymbol(void* handle, const char* name);

/// What to say of a required symbol that a library lacks.
std::string MissingSymbolText(const char* name);

/// Sets the last error to that text.
void SetMissingSymbolError(const char* name);

/// Stores the address of `name` in `*out`. A missing symbol sets the last error, returns false
/// and leaves `*out` untouched.
template <typename Fn>
bool LoadRequiredSymbol(void* handle, const char* name, Fn* out) {
  void* const symbol = LoadSymbol(handle, name);
  if (symbol == nullptr) {
    SetMissingSymbolError(name);
    return false;
  }
  *out = reinterpret_cast<Fn>(symbol);
  return true;
}

/// Returns the names to try, in order: `explicitPath` alone if it is not empty, since a wrong
/// explicit path must fail and not fall back; otherwise `defaults`.
std::vector<std::string> BuildLoadCandidates(const std::string& explicitPath,
                                             const std::vector<std::string>& defaults);

}  // namespace ostrel_native

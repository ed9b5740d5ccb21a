// The FFmpeg libraries of one generation, found and bound at run time: the addon links none of
// them.
#pragma once

#include <dlfcn.h>

#include <mutex>
#include <string>
#include <vector>

#include "recording/ffmpeg_headers.h"

// The sanitizer run-times end the process on a deep-bound library.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OSTREL_NO_DEEP_BINDING
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OSTREL_NO_DEEP_BINDING
#endif
#endif

namespace ostrel_native {

/// How the FFmpeg libraries are opened: deep binding makes them use their own generation's
/// functions also in a process that carries another FFmpeg under the same names, as a browser
/// runtime does.
#ifdef OSTREL_NO_DEEP_BINDING
inline constexpr int kFfmpegOpenFlags = RTLD_NOW;
#else
inline constexpr int kFfmpegOpenFlags = RTLD_NOW | RTLD_DEEPBIND;
#endif

/// The table of FFmpeg functions, and how it came about. `Load` fills it once for the life of
/// the process; afterwards all fields are constant and read without a lock. Nothing here closes
/// a library of a successful load.
struct FfmpegApi {
#define SYMBOL(library, name) decltype(&::name) name = nullptr;
#include "recording/ffmpeg_symbols.h"

  std::once_flag once;
  bool loaded = false;  ///< set last of all
  std::string error;    ///< why the load failed
  std::string detail;   ///< why the last library could not be opened, to build `error` from
  void* avutilHandle = nullptr;
  void* avcodecHandle = nullptr;
  void* avformatHandle = nullptr;
  std::vector<void*> dependencies;  ///< open for the life of the process

  /// The one table of the process. It is never destroyed: the recorder, which may have been
  /// made before it, finishes its file through it at process exit.
  /// Thread: any.
  static FfmpegApi& Instance();

  /// Loads the libraries and fills the table, on the first call of all; other callers wait for
  /// that. A failed load is final: `loaded` stays false and `error` tells why. Never throws.
  /// Thread: any.
  void Load();

  /// The body of `Load`. `bundledDirectory`: where the application packs the libraries, tried
  /// before the system's own search; empty to skip that. May throw `std::bad_alloc`.
  /// Thread: any, one call per object.
  void LoadOnce(const std::string& bundledDirectory);

  /// Opens the three libraries, named by file, in `directory`, or by the system's search if it
  /// is empty. False closes what it opened, nulls the handles and leaves the reason in `detail`.
  /// Thread: as `LoadOnce`.
  bool OpenLibrarySet(const std::string& directory, const std::string& utilName,
                      const std::string& codecName, const std::string& formatName);

  /// Opens, and keeps in `dependencies`, every library that the one at `path` pulls in, apart
  /// from those of FFmpeg itself: they stay resident without deep binding. False if `path`
  /// cannot be opened or read; a dependency that cannot be opened is passed over.
  /// Thread: as `LoadOnce`.
  bool PreloadNonFfmpegDependencies(const std::string& path);

  /// Stores the function `symbol` of the library `handle` in `slot`, preferably under this
  /// generation's version tag. False nulls the slot and sets `error`.
  /// Thread: as `LoadOnce`.
  template <typename T>
  bool Require(void* handle, const char* symbol, T& slot) {
    slot = reinterpret_cast<T>(FindSymbol(handle, symbol));
    return slot != nullptr;
  }

  /// Fills the table from the three open libraries. False, with `error` set, at the first symbol
  /// that is missing, or without open libraries.
  /// Thread: as `LoadOnce`.
  bool ResolveTable();

  /// Whether a library's file name, without its directory, belongs to FFmpeg, in any version.
  /// Thread: any.
  static bool IsFfmpegFamilyLibrary(const std::string& fileName);

 private:
  bool OpenLibraries(const std::string& bundledDirectory);
  bool MatchesBuildHeaders();
  // Null for a file that has been cut off, with the reason in `detail`, and for what the dynamic
  // loader refuses, whose text is pending then.
  void* OpenFile(const std::string& path, int flags);
  // Leaves the reason of the failure just met in `detail`.
  void TakeDetailOr(const char* fallback);
  void* FindSymbol(void* handle, const char* symbol);
};

/// `fileName` in `directory`, with one separator; `fileName` alone if `directory` is empty.
/// Thread: any.
std::string JoinPath(const std::string& directory, const std::string& fileName);

/// Where the application packs the FFmpeg libraries, seen from the file that holds this code;
/// empty for a path without a directory.
/// Thread: any.
std::string BundledLibraryDirectory(const std::string& addonFile);

/// Sets FFmpeg's log level, which is the process's, for the life of the object. `api` must be
/// loaded.
/// Thread: recorder worker.
struct FfmpegLogLevel {
  FfmpegLogLevel(FfmpegApi& loadedApi, int level)
      : api(loadedApi), previous(loadedApi.av_log_get_level()) {
    api.av_log_set_level(level);
  }
  ~FfmpegLogLevel() { api.av_log_set_level(previous); }
  FfmpegLogLevel(const FfmpegLogLevel&) = delete;
  FfmpegLogLevel& operator=(const FfmpegLogLevel&) = delete;

  FfmpegApi& api;
  int previous;
};

}  // namespace ostrel_native

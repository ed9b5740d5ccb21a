#include "recording/ffmpeg_api.h"

#include <link.h>

#include <cstdlib>
#include <exception>

#include "addon/library_file.h"

namespace ostrel_native {
namespace {

constexpr int kSymbolCount = 0
#define SYMBOL(library, name) +1
#include "recording/ffmpeg_symbols.h"
    ;
static_assert(kSymbolCount == 41);

constexpr char kUtilName[] = "libavutil.so.56";
constexpr char kCodecName[] = "libavcodec.so.58";
constexpr char kFormatName[] = "libavformat.so.58";

// Its address tells which file this code was loaded from.
const char kBackendLibraryMarker = 0;

// Takes the pending text of the dynamic loader; must follow the failed call directly, since
// the next call that succeeds, a close as well, clears it.
std::string TakeLoaderText() {
  const char* const text = dlerror();
  return text == nullptr ? std::string() : std::string(text);
}

void ClearLoaderText() {
  dlerror();
}

std::string AddonFile() {
  Dl_info info = {};
  if (dladdr(&kBackendLibraryMarker, &info) == 0 || info.dli_fname == nullptr) {
    return std::string();
  }
  return info.dli_fname;
}

std::string LoadFailure() {
  return std::string("Could not load version-matched FFmpeg libraries (") + kUtilName + ", " +
         kCodecName + ", " + kFormatName + ")";
}

// The names of the libraries that `library` brought along, as the loader knows them, in load
// order and without those of FFmpeg.
std::vector<std::string> ForeignLibrariesBehind(const link_map& library) {
  std::vector<std::string> names;
  for (const link_map* entry = library.l_next; entry != nullptr; entry = entry->l_next) {
    const std::string name = entry->l_name == nullptr ? "" : entry->l_name;
    if (!name.empty() && !FfmpegApi::IsFfmpegFamilyLibrary(name.substr(name.rfind('/') + 1))) {
      names.push_back(name);
    }
  }
  return names;
}

}  // namespace

FfmpegApi& FfmpegApi::Instance() {
  static FfmpegApi& api = *new FfmpegApi;
  return api;
}

void FfmpegApi::Load() {
  std::call_once(once, [this] {
    // An exception that left here would make the next caller load again.
    try {
      LoadOnce(BundledLibraryDirectory(AddonFile()));
    } catch (const std::exception&) {
      error.clear();
    }
  });
}

void FfmpegApi::LoadOnce(const std::string& bundledDirectory) {
  loaded = OpenLibraries(bundledDirectory) && ResolveTable() && MatchesBuildHeaders();
}

bool FfmpegApi::OpenLibraries(const std::string& bundledDirectory) {
  const char* const value = std::getenv("OSTREL_FFMPEG_LIBRARY_DIR");
  const std::string directory = value == nullptr ? "" : value;
  if (!directory.empty()) {
    // A wrong explicit directory must fail and not fall back to another FFmpeg.
    if (OpenLibrarySet(directory, kUtilName, kCodecName, kFormatName)) {
      return true;
    }
    error = "Could not load version-matched FFmpeg libraries from " + directory + ": " + detail;
    return false;
  }
  if (!bundledDirectory.empty() &&
      OpenLibrarySet(bundledDirectory, kUtilName, kCodecName, kFormatName)) {
    return true;
  }
  if (OpenLibrarySet(std::string(), kUtilName, kCodecName, kFormatName)) {
    return true;
  }
  error = LoadFailure() + ": " + detail;
  return false;
}

bool FfmpegApi::OpenLibrarySet(const std::string& directory, const std::string& utilName,
                               const std::string& codecName, const std::string& formatName) {
  ClearLoaderText();
  detail.clear();
  const std::string utilPath = JoinPath(directory, utilName);
  const std::string codecPath = JoinPath(directory, codecName);
  const std::string formatPath = JoinPath(directory, formatName);
  if (!PreloadNonFfmpegDependencies(utilPath)) {
    TakeDetailOr("could not initialize FFmpeg dependencies");
    return false;
  }
  // Nothing follows the first failure, so that its text stays the pending one.
  avutilHandle = OpenFile(utilPath, kFfmpegOpenFlags);
  if (avutilHandle != nullptr && PreloadNonFfmpegDependencies(codecPath)) {
    avcodecHandle = OpenFile(codecPath, kFfmpegOpenFlags);
  }
  if (avcodecHandle != nullptr && PreloadNonFfmpegDependencies(formatPath)) {
    avformatHandle = OpenFile(formatPath, kFfmpegOpenFlags);
  }
  if (avutilHandle != nullptr && avcodecHandle != nullptr && avformatHandle != nullptr) {
    return true;
  }
  TakeDetailOr("library not found");
  for (void** const handle : {&avformatHandle, &avcodecHandle, &avutilHandle}) {
    if (*handle != nullptr) {
      dlclose(*handle);
      *handle = nullptr;
    }
  }
  return false;
}

void* FfmpegApi::OpenFile(const std::string& path, int flags) {
  detail = CutOffText(path);
  return detail.empty() ? dlopen(path.c_str(), flags) : nullptr;
}

void FfmpegApi::TakeDetailOr(const char* fallback) {
  if (detail.empty()) {
    detail = TakeLoaderText();
  }
  if (detail.empty()) {
    detail = fallback;
  }
}

bool FfmpegApi::PreloadNonFfmpegDependencies(const std::string& path) {
  void* const library = OpenFile(path, RTLD_NOW);
  if (library == nullptr) {
    return false;
  }
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) {
    dlclose(library);
    return false;
  }
  // The names are copied before anything is opened or closed, which changes the list. What they
  // name is mapped already, so no file is read.
  for (const std::string& name : ForeignLibrariesBehind(*map)) {
    void* const dependency = dlopen(name.c_str(), RTLD_NOW);
    if (dependency != nullptr) {
      dependencies.push_back(dependency);
    }
  }
  dlclose(library);
  return true;
}

bool FfmpegApi::ResolveTable() {
  if (avutilHandle == nullptr || avcodecHandle == nullptr || avformatHandle == nullptr) {
    error = LoadFailure();
    return false;
  }
#define SYMBOL(library, name)                   \
  if (!Require(library##Handle, #name, name)) { \
    return false;                               \
  }
#include "recording/ffmpeg_symbols.h"
  return true;
}

bool FfmpegApi::MatchesBuildHeaders() {
  if (avcodec_version() >> 16 == kAvcodecMajor && avformat_version() >> 16 == kAvformatMajor &&
      avutil_version() >> 16 == kAvutilMajor) {
    return true;
  }
  error = "FFmpeg runtime ABI does not match the build headers";
  return false;
}

void* FfmpegApi::FindSymbol(void* handle, const char* symbol) {
  const char* tag = "LIBAVUTIL_56";
  if (handle == avcodecHandle) {
    tag = "LIBAVCODEC_58";
  } else if (handle == avformatHandle) {
    tag = "LIBAVFORMAT_58";
  }
  ClearLoaderText();
  void* address = dlvsym(handle, symbol, tag);
  if (address != nullptr && TakeLoaderText().empty()) {
    return address;
  }
  // A library that was built without version tags will do.
  ClearLoaderText();
  address = dlsym(handle, symbol);
  if (address != nullptr && TakeLoaderText().empty()) {
    return address;
  }
  error = std::string("FFmpeg runtime is missing symbol ") + symbol;
  return nullptr;
}

bool FfmpegApi::IsFfmpegFamilyLibrary(const std::string& fileName) {
  for (const char* const prefix :
       {"libavcodec.so", "libavformat.so", "libavutil.so", "libavfilter.so", "libavdevice.so",
        "libswresample.so", "libswscale.so", "libpostproc.so"}) {
    if (fileName.starts_with(prefix)) {
      return true;
    }
  }
  return false;
}

std::string JoinPath(const std::string& directory, const std::string& fileName) {
  if (directory.empty()) {
    return fileName;
  }
  return directory.ends_with('/') ? directory + fileName : directory + "/" + fileName;
}

std::string BundledLibraryDirectory(const std::string& addonFile) {
  const std::string::size_type slash = addonFile.rfind('/');
  if (slash == std::string::npos) {
    return std::string();
  }
  // Two levels up from build/Release, in the folder of this processor architecture.
  return addonFile.substr(0, slash) + "/../../natives/" + "x64";
}

}  // namespace ostrel_native

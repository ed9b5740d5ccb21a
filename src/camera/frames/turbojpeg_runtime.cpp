#include "camera/frames/turbojpeg_runtime.h"

#include "addon/common.h"
#include "addon/native_library.h"

namespace ostrel_native {

namespace {

constexpr int kTurboJpegSymbolCount = 0
#define SYMBOL(name) +1
#include "camera/frames/turbojpeg_symbols.h"
    ;
static_assert(kTurboJpegSymbolCount == 8);

}  // namespace

TurboJpegRuntime::~TurboJpegRuntime() {
  CloseLibrary(handle.load(std::memory_order_relaxed));
}

bool TurboJpegRuntime::Available() const {
  // The handle first: it is what orders the reads of the functions.
  return handle.load(std::memory_order_acquire) != nullptr && tjInitDecompress != nullptr &&
         tjDestroy != nullptr && tjDecompressHeader3 != nullptr &&
         tjDecompressToYUVPlanes != nullptr && tjDecompress2 != nullptr &&
         tjPlaneWidth != nullptr && tjPlaneHeight != nullptr;
}

bool TurboJpegRuntime::Load(const std::string& libraryPath) {
  if (Available()) {
    return true;
  }
  if (libraryPath.empty()) {
    SetLastError("No libjpeg-turbo library path was provided");
    return false;
  }
  void* const library = OpenLibrary(libraryPath);
  if (library == nullptr) {
    return false;
  }
  // Collected first and stored together: a library that lacks one leaves nothing behind.
#define SYMBOL(name)                                        \
  decltype(&::name) found_##name = nullptr;                 \
  if (!LoadRequiredSymbol(library, #name, &found_##name)) { \
    CloseLibrary(library);                                  \
    return false;                                           \
  }
#include "camera/frames/turbojpeg_symbols.h"
  bool isInstalled = false;
  {
    const MutexLock lock(loadMutex);
    if (handle.load(std::memory_order_relaxed) == nullptr) {
#define SYMBOL(name) name = found_##name;
#include "camera/frames/turbojpeg_symbols.h"
      path = libraryPath;
      handle.store(library, std::memory_order_release);
      isInstalled = true;
    }
  }
  if (!isInstalled) {
    CloseLibrary(library);  // another thread's is in use by now
  }
  return true;
}

std::string TurboJpegRuntime::LoadPath() const {
  return handle.load(std::memory_order_acquire) == nullptr ? std::string() : path;
}

}  // namespace ostrel_native

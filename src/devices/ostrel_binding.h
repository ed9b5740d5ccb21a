// The microscope library in use: its table of entry points, and whether it is loaded and started.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "addon/mutex.h"
#include "vendor/vendor_sdk_executor.h"

namespace ostrel_native {

/// The library's entry points; an absent optional one is null. They have a structure of their own
/// because the library's `Init` is not the binding's.
struct OstrelApi {
#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "devices/ostrel_symbols.h"
};

/// The library is never closed: it stays loaded until the process ends, and only script code shuts
/// it down.
///
/// The owner thread writes. Three script functions call the library on the script thread, though,
/// so what those read is atomic; the table is written before `loaded` and never again after it. One
/// of them may start the library, so `startMutex` is held while it is started or shut down.
struct OstrelBinding {
  void* handle = nullptr;  ///< open library, or null; owner thread only
  /// All required entries are there. Stored with release order, so that whoever sees it by
  /// acquire also sees the table.
  std::atomic<bool> loaded{false};
  std::atomic<bool> initialized{false};  ///< the library's `Init` succeeded, no `Destroy` since
  std::string path;                      ///< the candidate that loaded; owner thread only
  std::atomic<std::int32_t> selectedDevice{-1};  ///< -1: none
  OstrelApi api;
  /// Held across the library's `Init` and `Destroy`, so that no two threads are in them at once.
  Mutex startMutex;
  /// Held across the library's call for its error text and the copy: the next call may reuse the
  /// memory.
  mutable Mutex libraryTextMutex;
  mutable Mutex errorMutex;  ///< a leaf
  std::string lastError OSTREL_GUARDED_BY(errorMutex);

  /// Opens the library: `explicitPath` alone if it is not empty, otherwise the default names.
  /// True if a library is loaded, also by an earlier call, which is then left as it is. A fresh
  /// success clears both error texts, a failure sets them.
  /// Thread: owner.
  bool Load(const std::string& explicitPath);

  /// Starts the library unless it is started; with `force` a started one is shut down first, which
  /// drops the selection. Starting clears both error texts, a refusal sets them; otherwise, also
  /// where nothing is loaded, they are left alone.
  /// Thread: owner.
  bool Init(bool force);

  /// `Init(false)` for a thread that must not wait for the owner thread: false also where another
  /// thread is starting the library or shutting it down.
  /// Thread: any environment; this may call the library there.
  bool InitUnlessBusy();

  /// Shuts the library down if it is started, which drops the selection.
  /// Thread: owner.
  void Dispose();

  /// The table, or null where nothing is loaded.
  /// Thread: any.
  const OstrelApi* LoadedApi() const {
    return loaded.load(std::memory_order_acquire) ? &api : nullptr;
  }

  /// Sets both error texts, the binding's first.
  /// Thread: any.
  void SetBindingError(const std::string& text);

  /// The binding's own error text; where that is empty, the library's. Empty, with the last error
  /// set, where the library throws an exception.
  /// Thread: any environment, one after the other; this calls the library there.
  std::string LastErrorText() const;

 private:
  // Starts the library, or starts it anew; whether it did. Nothing if it was started meanwhile.
  std::optional<bool> StartUnlessStarted(bool force) OSTREL_REQUIRES(startMutex);
  // Sets the error texts after a start; whether the library is started.
  bool ReportStart(std::optional<bool> started);
  std::string OwnErrorText() const;
};

/// The one microscope binding of the process, and the owner thread of its library.
extern OstrelBinding g_ostrel;
extern VendorSdkExecutor g_ostrelExecutor;

}  // namespace ostrel_native

// The Dino-Lite library in use: its entry points, whether it is loaded and started, and what the
// selected device can do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "addon/mutex.h"
#include "vendor/vendor_sdk_executor.h"

namespace ostrel_native {

/// What kind of library serves the devices.
enum class DinoBackendKind : std::int32_t { None = 0, LibDinoLite = 1, Dnx = 2 };

/// The text by which a kind reaches script code.
/// Thread: any.
const char* DinoBackendText(DinoBackendKind kind);

/// The library is never closed: it stays loaded until the process ends.
///
/// Owner thread only, but for `error` and its `mutex`. Script code reads a published copy.
struct DinoLiteBinding {
  // Codes of the LED modes that switch something on; devices have others besides.
  static constexpr std::int32_t kLedOn = 17;          ///< all groups
  static constexpr std::int32_t kLedFlexibleOn = 34;  ///< flexible mode
  static constexpr std::int32_t kLed1On = 16;         ///< the first group
  static constexpr std::int32_t kLed2On = 1;          ///< the second group

  /// A copy of the binding's state for script code; what it is before the first one is made.
  struct DebugSnapshot {
    bool loaded = false;
    std::string backend;  ///< empty here, a text of `DinoBackendText` in every copy
    std::string path;
    std::int32_t selectedDeviceIndex = -1;
    std::int32_t ledState = 0;
    std::int32_t controllableLedsCount = 0;
    std::vector<std::int32_t> ledModes;
    bool initialized = false;
    bool supportsAmr = false;
    bool supportsMicrotouch = false;
    bool supportsLedControl = false;  ///< a device is selected and its light can be switched
    bool amrRead = false;
    double amrRaw = -1.0;
    bool amrAccepted = false;
    std::uint64_t amrUpdates = 0;  ///< the library's own count
  };

  /// Which backend serves a product.
  struct BackendSelection {
    bool ok = false;
    bool supportsAmr = false;
    bool dnxLoadAttempted = false;
    std::string backend;
    std::string path;
    std::string reason;  ///< why not ok; empty otherwise
  };

  mutable Mutex mutex;  ///< a leaf
  std::string error OSTREL_GUARDED_BY(mutex);
  // The library's entry points; an absent optional one is null.
#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "devices/dino_lite_symbols.h"
  bool initialized = false;         ///< `dl_initialize` has run since the last dispose
  std::int32_t deviceCount = 0;     ///< as the library told when it was started, unchecked
  bool supportsAmr = false;         ///< of the selected device
  bool supportsMicrotouch = false;  ///< of the selected device
  bool microtouchEnabled = false;   ///< script code's wish; outlives a selection
  bool amrRead = false;             ///< the magnification was read since the selection
  double amrRaw = -1.0;             ///< as last read
  bool amrAccepted = false;         ///< that value is one that a microscope can have
  void* handle = nullptr;           ///< open library, or null
  bool loaded = false;              ///< all required entries are there
  std::string path;                 ///< the candidate that loaded
  std::string resolvedPath;         ///< written with `path`
  DinoBackendKind backendKind = DinoBackendKind::None;
  std::int32_t selectedDeviceIndex = -1;   ///< -1: none
  std::int32_t ledState = 0;               ///< last mode that the library accepted; 0: none
  std::int32_t controllableLedsCount = 0;  ///< LED groups that can be switched by themselves
  std::vector<std::int32_t> ledModes;      ///< of the selected device, in the library's order

  /// Opens the library: `explicitPath` alone if it is not empty, otherwise the default names.
  /// True if a library is loaded, also by an earlier call, which is then left as it is. A fresh
  /// success clears both error texts, a failure sets them to what went wrong first.
  /// Thread: owner.
  bool Load(const std::string& explicitPath);

  /// Makes a device the current one, reads what it can do and turns its light on; starts the
  /// library if that was not done, after a pause for devices that were only just plugged in.
  /// True clears both error texts, false sets them. A refusal leaves `selectedDeviceIndex` as it
  /// is and forgets what the device can do. More LED modes than `kMostListed` count as none; the
  /// selection succeeds, and both error texts say so.
  /// Thread: owner.
  bool SelectDevice(int index);

  /// Steps the light to the mode behind the present one. The new mode, which clears both error
  /// texts, or -1, which sets them.
  /// Thread: owner.
  int ToggleLedState();

  /// Says whether polls of the button ask the library. True if the selected device has a button,
  /// which clears both error texts; false sets them, but the wish is kept for another device.
  /// Thread: owner.
  bool EnableMicrotouch(bool enabled);

  /// Sets both error texts, the binding's first.
  /// Thread: any.
  void SetBindingError(const std::string& text);

  /// A copy of the binding's own error text.
  /// Thread: any.
  std::string ErrorText() const;

  /// A library of the kind that all operations are made for is there.
  bool IsServed() const {
    return loaded && backendKind == DinoBackendKind::LibDinoLite;
  }

  /// Whether the library can be started; sets both error texts if not.
  /// Thread: owner, as for all below.
  bool CanStartOnOwnerThread();

  /// Starts the library, started or not, and counts the devices.
  /// Precondition: `CanStartOnOwnerThread`.
  void StartOnOwnerThread();

  /// Forgets what the selected device can do, but neither which one it is nor `microtouchEnabled`.
  void ClearDeviceStateOnOwnerThread();

  /// Unselects the library's device, if it has one, and forgets all of it.
  void DropSelectionOnOwnerThread();
};

/// The one Dino-Lite binding of the process, and the owner thread of its library.
extern DinoLiteBinding g_dinoLite;
extern VendorSdkExecutor g_dinoLiteExecutor;

}  // namespace ostrel_native

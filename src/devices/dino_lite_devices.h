// Loading and starting the Dino-Lite library, its devices and their selection: what each call of
// script code does on its own thread, and the tasks that do the work on the owner thread.
//
// Every call waits for the owner thread, at most for `timeout`, and gives its failure value after
// that. The last error then says why; the task goes on and takes effect all the same.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "addon/vendor_device_snapshot.h"
#include "devices/dino_lite_binding.h"
#include "vendor/vendor_timeouts.h"

namespace ostrel_native {

struct DinoLoadResult {
  bool ok = false;
  std::string backend = "none";
  std::string path;  ///< of the library that is loaded, also by an earlier call; empty if none
};

/// `DinoLiteBinding::Load`. On failure not ok, backend "none" and no path.
/// Thread: any environment.
DinoLoadResult LoadDinoLibrary(const std::string& path,
                               std::chrono::milliseconds timeout = kInitialisationTimeout);

/// Starts the library unless it is started; `force` starts it again, which drops the selection.
/// True, also where there was nothing to do, if it is started. Starting clears both error texts;
/// where nothing is loaded, or nothing is done, they are left alone. The telemetry starts again
/// from nothing, whatever came of it.
/// Thread: any environment, pool.
bool InitDino(bool force, std::chrono::milliseconds timeout = kInitialisationTimeout);

/// Drops the selection and counts the library as not started; it stays loaded. False if that was
/// not done in time; then script code sees the state of nothing loaded until it is.
/// Thread: any environment, pool.
bool DisposeDino(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// Which backend serves a product: the loaded one, whatever the product. All empty on failure.
/// Thread: any environment.
DinoLiteBinding::BackendSelection SelectDinoBackend(
    std::chrono::milliseconds timeout = kInitialisationTimeout);

/// The number of devices when the library was started; 0 on failure. The library is not asked.
/// Thread: any environment.
std::int32_t CountDinoDevices(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// A device's text; empty for a negative index, which the library never sees, and on failure.
/// Thread: any environment.
std::string DinoDeviceIdentifier(int index,
                                 std::chrono::milliseconds timeout = kOrdinaryCallTimeout);
std::string DinoDeviceName(int index, std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// All devices in the library's order; empty on failure. Where the library counts more than
/// `kMostListed`, empty as well, and both error texts say so.
/// Thread: pool.
std::vector<VendorDeviceSnapshot> ListDinoDevices(
    std::chrono::milliseconds timeout = kInitialisationTimeout);

/// `DinoLiteBinding::SelectDevice`, with a first reading of the magnification on success. The
/// telemetry starts again from nothing.
/// Thread: any environment, pool.
bool SelectDinoDevice(int index, std::chrono::milliseconds timeout = kDeviceSelectionTimeout);

/// The selected index; -1 if there is none, and on failure.
/// Thread: any environment.
std::int32_t SelectedDinoDevice(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// Whether the selected device measures its magnification; false on failure.
/// Thread: any environment.
bool DinoSupportsAmr(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// The list behind `ListDinoDevices`.
/// Thread: owner.
std::vector<VendorDeviceSnapshot> ReadDinoDevicesOnCurrentThread();

}  // namespace ostrel_native

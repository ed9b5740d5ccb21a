// Loading and starting the microscope library, its devices and their selection: what each call of
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
#include "vendor/vendor_timeouts.h"

namespace ostrel_native {

struct OstrelLoadResult {
  bool ok = false;
  std::string path;  ///< of the library that is loaded, also by an earlier call; empty if none
};

/// `OstrelBinding::Load`. On failure not ok and no path.
/// Thread: any environment.
OstrelLoadResult LoadOstrelLibrary(const std::string& path,
                                   std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// `OstrelBinding::Init`. Afterwards, whatever came of it, the telemetry and the versions start
/// again from nothing.
/// Thread: one environment at a time, pool.
bool InitOstrel(bool force, std::chrono::milliseconds timeout = kInitialisationTimeout);

/// Shuts the library down if it is started; it stays loaded. True if that was looked after, also
/// if there was nothing to do. The telemetry and the versions start again as in `InitOstrel`.
/// Thread: one environment at a time, pool.
bool DisposeOstrel(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// The library's number of devices, unchecked; 0 on failure.
/// Thread: any environment.
int CountOstrelDevices(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// A device's text as UTF-8; empty on failure. Every `index` goes to the library as it stands.
/// Thread: any environment.
std::string OstrelDeviceIdentifier(int index,
                                   std::chrono::milliseconds timeout = kOrdinaryCallTimeout);
std::string OstrelDeviceName(int index, std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// All devices in the library's order; empty on failure. Where the library counts more than
/// `kMostListed`, empty as well, and both error texts say so.
/// Thread: pool.
std::vector<VendorDeviceSnapshot> ListOstrelDevices(
    std::chrono::milliseconds timeout = kInitialisationTimeout);

/// Makes a device the current one, and reads its versions and a first pass of telemetry. False on
/// failure, which leaves an earlier selection in place. The caller resets the telemetry first, on
/// the script thread, so that nothing of the former device is served meanwhile.
/// Thread: one environment at a time, pool.
bool SelectOstrelDevice(int index, std::chrono::milliseconds timeout = kDeviceSelectionTimeout);

/// The selected index; -1 if there is none, and on failure.
/// Thread: any environment.
std::int32_t SelectedOstrelDevice(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// The tasks of the calls above. Each begins with `Init(false)`, apart from the dispose.
/// Thread: owner.
int CountOstrelDevicesOnOwnerThread();
std::string ReadOstrelDeviceIdentifierOnOwnerThread(int index);
std::string ReadOstrelDeviceNameOnOwnerThread(int index);
std::vector<VendorDeviceSnapshot> ListOstrelDevicesOnOwnerThread();
bool SelectOstrelDeviceOnOwnerThread(int index);
void DisposeOstrelOnOwnerThread();

}  // namespace ostrel_native

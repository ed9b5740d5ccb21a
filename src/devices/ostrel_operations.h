// Commands to the microscope's focus and light, and what its library can do.
//
// The commands wait for the owner thread, at most for `timeout`, and give false after that, with
// the last error set. A library that refuses, or lacks the entry, gives false without a text.
#pragma once

#include <chrono>
#include <cstdint>

#include "vendor/vendor_timeouts.h"

namespace ostrel_native {

/// The focus commands. After a success the new position is read back before they return, once the
/// microscope has had time to move, so that it can be polled at once.
/// Thread: pool.
bool TriggerOstrelAutoFocus(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);
bool StepOstrelFocusNear(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);
bool StepOstrelFocusFar(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);
/// Positions go from 0 to 255; any other is refused before the owner thread is asked.
bool MoveOstrelFocus(int position, std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// Switches the light.
/// Thread: pool.
bool SwitchOstrelLed(bool on, std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// 1 on, 0 off, -1 unknown; that also, with the last error set, where the library throws an
/// exception. Starts the library if need be; while another thread is starting it or shutting it
/// down, the light is unknown.
/// Thread: any environment, several at once; this calls the library there, which may be busy on its
/// owner thread.
int ReadOstrelLedState();

struct OstrelFeatures {
  std::uint32_t apiVersion = 0;
  bool focus = false;
  bool led = false;
  bool pixelSizeInfo = false;
  bool lensGroupInfo = false;
};

/// What the loaded library can do; nothing, and version 1.0, where none is loaded. A library that
/// throws an exception at the question for its version has version 1.0, with the last error set.
/// Thread: any environment, several at once; this calls the library there.
OstrelFeatures ReadOstrelFeatures();

}  // namespace ostrel_native

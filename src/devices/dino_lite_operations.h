// Commands to the light and the button of the selected Dino-Lite device.
//
// They wait for the owner thread, at most for `timeout`, and give their failure value after that,
// with the last error set. A refusal sets both error texts, a success clears them.
#pragma once

#include <chrono>
#include <cstdint>

#include "vendor/vendor_timeouts.h"

namespace ostrel_native {

/// `DinoLiteBinding::ToggleLedState`; -1 on failure.
/// Thread: any environment, pool.
std::int32_t ToggleDinoLed(std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

/// `DinoLiteBinding::EnableMicrotouch`; false on failure.
/// Thread: any environment, pool.
bool EnableDinoMicrotouch(bool enabled, std::chrono::milliseconds timeout = kOrdinaryCallTimeout);

}  // namespace ostrel_native

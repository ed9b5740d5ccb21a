#include "devices/dino_lite_operations.h"

#include <cassert>

#include "devices/dino_lite_binding.h"
#include "devices/dino_lite_led_modes.h"
#include "devices/dino_lite_telemetry.h"

namespace ostrel_native {

int DinoLiteBinding::ToggleLedState() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  if (!loaded || selectedDeviceIndex < 0) {
    SetBindingError("No Dino-Lite SDK device is selected for LED control");
    return -1;
  }
  if (backendKind != DinoBackendKind::LibDinoLite || dl_set_led_state == nullptr ||
      ledModes.empty()) {
    SetBindingError("The selected Dino-Lite device does not expose controllable LEDs");
    return -1;
  }
  const std::int32_t next = FindNextLedMode(ledModes, ledState);
  if (!dl_set_led_state(next)) {
    SetBindingError("Dino-Lite SDK rejected the LED change");
    return -1;
  }
  ledState = next;
  SetBindingError("");
  return ledState;
}

bool DinoLiteBinding::EnableMicrotouch(bool enabled) {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  if (!loaded) {
    SetBindingError("Dino-Lite MicroTouch is unavailable because the SDK is not loaded");
    return false;
  }
  if (backendKind != DinoBackendKind::LibDinoLite) {
    SetBindingError("Dino-Lite MicroTouch control is unavailable for this backend");
    return false;
  }
  // Kept also where this device has no button: the next one may.
  microtouchEnabled = enabled;
  if (selectedDeviceIndex < 0 || !supportsMicrotouch) {
    SetBindingError("The selected Dino-Lite device does not support MicroTouch");
    return false;
  }
  SetBindingError("");
  return true;
}

std::int32_t ToggleDinoLed(std::chrono::milliseconds timeout) {
  const auto toggle = [] {
    const std::int32_t mode = g_dinoLite.ToggleLedState();
    UpdateDinoSnapshotOnOwnerThread();
    return mode;
  };
  return g_dinoLiteExecutor.Invoke(toggle, timeout).value_or(-1);
}

bool EnableDinoMicrotouch(bool enabled, std::chrono::milliseconds timeout) {
  const auto enable = [enabled] {
    const bool ok = g_dinoLite.EnableMicrotouch(enabled);
    UpdateDinoSnapshotOnOwnerThread();
    return ok;
  };
  return g_dinoLiteExecutor.Invoke(enable, timeout).value_or(false);
}

}  // namespace ostrel_native

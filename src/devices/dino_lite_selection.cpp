// The selection of a Dino-Lite device: the moment at which the binding learns what it can do.
#include <cassert>
#include <chrono>
#include <string>
#include <thread>

#include "addon/common.h"
#include "devices/device_list.h"
#include "devices/dino_lite_binding.h"
#include "devices/dino_lite_led_modes.h"

namespace ostrel_native {

namespace {

// Lets a device that was only just plugged in settle before the library looks for it.
constexpr std::chrono::milliseconds kPauseBeforeFirstSelection{300};

// Reports a refusal with the library's own words, if it has any. False.
bool RefuseOnOwnerThread(DinoLiteBinding& binding, const char* otherwise) {
  // Gone before the library is asked for its words, for which it may take its time.
  binding.ClearDeviceStateOnOwnerThread();
  const std::string words =
      binding.dl_get_last_error != nullptr ? SafeCString(binding.dl_get_last_error()) : "";
  binding.SetBindingError(words.empty() ? otherwise : words);
  return false;
}

void StartForFirstSelectionOnOwnerThread(DinoLiteBinding& binding) {
  std::this_thread::sleep_for(kPauseBeforeFirstSelection);
  if (binding.CanStartOnOwnerThread()) {
    binding.StartOnOwnerThread();
    binding.SetBindingError("");
  }
}

// Brings the library to serve the device behind `index`; false, with the texts set, if it refuses.
bool ConnectOnOwnerThread(DinoLiteBinding& binding, int index) {
  const int current =
      binding.dl_get_selected_device != nullptr ? binding.dl_get_selected_device() : -1;
  if (current != index && !binding.dl_select_device(index)) {
    return RefuseOnOwnerThread(binding, "Dino-Lite SDK device selection failed");
  }
  if (binding.dl_initialize_selected_device != nullptr) {
    return binding.dl_initialize_selected_device() ||
           RefuseOnOwnerThread(binding, "Dino-Lite post-connect initialization failed");
  }
  // A library without that step takes a new device in when it is started again.
  if (current != index && binding.dl_initialize != nullptr && binding.dl_devices_count != nullptr) {
    binding.StartOnOwnerThread();
  }
  return true;
}

// Empty, or what to say of a list that is too long, of which none is read.
std::string ReadLedModesOnOwnerThread(DinoLiteBinding& binding) {
  if (binding.dl_led_mode_count == nullptr || binding.dl_led_mode == nullptr) {
    return "";
  }
  const int count = binding.dl_led_mode_count();
  if (count > kMostListed) {
    return TooManyToListText(g_dinoLiteExecutor.name, count, "LED modes");
  }
  for (int i = 0; i < count; ++i) {
    binding.ledModes.push_back(binding.dl_led_mode(i));
  }
  return "";
}

// Gives what `ReadLedModesOnOwnerThread` does.
std::string ReadCapabilitiesOnOwnerThread(DinoLiteBinding& binding) {
  binding.supportsAmr =
      binding.dl_device_supports_amr != nullptr && binding.dl_device_supports_amr();
  binding.supportsMicrotouch =
      binding.dl_device_supports_microtouch != nullptr && binding.dl_device_supports_microtouch();
  std::string remark = ReadLedModesOnOwnerThread(binding);
  binding.controllableLedsCount = CountControllableLeds(binding.ledModes);
  return remark;
}

// A light that stays dark does not spoil the selection.
void LightUpOnOwnerThread(DinoLiteBinding& binding) {
  if (binding.dl_set_led_state == nullptr) {
    return;
  }
  const std::optional<std::int32_t> mode = FindStartLedMode(binding.ledModes);
  if (mode && binding.dl_set_led_state(*mode)) {
    binding.ledState = *mode;
  }
}

}  // namespace

bool DinoLiteBinding::SelectDevice(int index) {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  if (index < 0 || !loaded) {
    SetBindingError("Dino-Lite SDK device selection received an invalid device index");
    return false;
  }
  if (backendKind != DinoBackendKind::LibDinoLite) {
    SetBindingError("Dino-Lite SDK device selection is unavailable for this backend");
    return false;
  }
  if (!initialized) {
    StartForFirstSelectionOnOwnerThread(*this);
  }
  if (dl_select_device == nullptr) {
    ClearDeviceStateOnOwnerThread();
    SetBindingError("Dino-Lite SDK device selection function is unavailable");
    return false;
  }
  if (!ConnectOnOwnerThread(*this, index)) {
    return false;
  }
  selectedDeviceIndex = index;
  ClearDeviceStateOnOwnerThread();
  const std::string remark = ReadCapabilitiesOnOwnerThread(*this);
  LightUpOnOwnerThread(*this);
  SetBindingError(remark);
  return true;
}

}  // namespace ostrel_native

#include "devices/ostrel_operations.h"

#include <cassert>
#include <thread>

#include "devices/ostrel_binding.h"
#include "devices/ostrel_telemetry.h"

namespace ostrel_native {

namespace {

constexpr std::uint32_t kFirstApiVersion = 0x1'0000;
// Narrower than the library's parameter: the microscope's own scale.
constexpr int kLargestFocusPosition = 255;
// How long a focus move takes to show in the position.
constexpr std::chrono::milliseconds kFocusSettleTime{150};

// `entry` is the command's member of the table, `arguments` what it is called with.
template <typename Fn, typename... Arguments>
bool RunFocusCommandOnOwnerThread(Fn OstrelApi::*entry, Arguments... arguments) {
  assert(g_ostrelExecutor.IsOwnerThread());
  if (!g_ostrel.Init(false) || g_ostrel.api.*entry == nullptr ||
      (g_ostrel.api.*entry)(arguments...) == 0) {
    return false;
  }
  std::this_thread::sleep_for(kFocusSettleTime);
  RefreshOstrelFocusCacheOnOwnerThread();
  return true;
}

template <typename Fn, typename... Arguments>
bool InvokeFocusCommand(std::chrono::milliseconds timeout, Fn OstrelApi::*entry,
                        Arguments... arguments) {
  const auto command = [entry, arguments...] {
    return RunFocusCommandOnOwnerThread(entry, arguments...);
  };
  return g_ostrelExecutor.Invoke(command, timeout).value_or(false);
}

bool SwitchLedOnOwnerThread(bool on) {
  assert(g_ostrelExecutor.IsOwnerThread());
  return g_ostrel.Init(false) && g_ostrel.api.SetLedState != nullptr &&
         g_ostrel.api.SetLedState(on) != 0;
}

}  // namespace

bool TriggerOstrelAutoFocus(std::chrono::milliseconds timeout) {
  return InvokeFocusCommand(timeout, &OstrelApi::TriggerAutoFocus);
}

bool StepOstrelFocusNear(std::chrono::milliseconds timeout) {
  return InvokeFocusCommand(timeout, &OstrelApi::FocusNearStep);
}

bool StepOstrelFocusFar(std::chrono::milliseconds timeout) {
  return InvokeFocusCommand(timeout, &OstrelApi::FocusFarStep);
}

bool MoveOstrelFocus(int position, std::chrono::milliseconds timeout) {
  if (position < 0 || position > kLargestFocusPosition) {
    return false;
  }
  return InvokeFocusCommand(timeout, &OstrelApi::SetFocusPosition,
                            static_cast<std::uint16_t>(position));
}

bool SwitchOstrelLed(bool on, std::chrono::milliseconds timeout) {
  return g_ostrelExecutor.Invoke([on] { return SwitchLedOnOwnerThread(on); }, timeout)
      .value_or(false);
}

int ReadOstrelLedState() {
  const auto read = [] {
    std::int32_t state = 0;
    if (!g_ostrel.InitUnlessBusy() || g_ostrel.api.GetLedState == nullptr ||
        g_ostrel.api.GetLedState(&state) == 0) {
      return -1;
    }
    return state != 0 ? 1 : 0;
  };
  return g_ostrelExecutor.CallHere(read).value_or(-1);
}

OstrelFeatures ReadOstrelFeatures() {
  const OstrelApi* const api = g_ostrel.LoadedApi();
  if (api == nullptr) {
    return {.apiVersion = kFirstApiVersion};
  }
  const auto version = [api] {
    return api->GetApiVersion != nullptr ? api->GetApiVersion() : kFirstApiVersion;
  };
  return {.apiVersion = g_ostrelExecutor.CallHere(version).value_or(kFirstApiVersion),
          .focus = api->TriggerAutoFocus != nullptr && api->GetFocusPosition != nullptr &&
                   api->SetFocusPosition != nullptr && api->FocusNearStep != nullptr &&
                   api->FocusFarStep != nullptr,
          .led = api->GetLedState != nullptr && api->SetLedState != nullptr,
          .pixelSizeInfo = api->GetPixelSizeInfo != nullptr,
          .lensGroupInfo = api->GetLensGroupInfo != nullptr};
}

}  // namespace ostrel_native

// The microscope library's face of the simulated instrument: `libostrel.so`.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/instrument.h"

// The table's own signatures, so that a function that drifts from them does not compile.
extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/ostrel_symbols.h"
}

namespace {

using ostrel_simulator::FocusState;
using ostrel_simulator::Instrument;
using ostrel_simulator::Microscope;
using ostrel_simulator::TheInstrument;

// Results of most functions.
constexpr int kFailed = 0;
constexpr int kDone = 1;

// What GetScopeStatus answers.
constexpr int kNothingSelected = 0;
constexpr int kReady = 1;
constexpr int kFocusMoves = 2;
constexpr int kFocusScans = 3;
constexpr int kUnplugged = 4;

// How far one step near or far moves the focus.
constexpr int kFocusStep = 4;

constexpr unsigned int kApiVersion = 0x00010002;
constexpr std::uint16_t kLensDriver = 0x0301;

// The library's state; any thread may call any function at any time.
std::atomic<bool> g_isInitialized{false};
std::atomic<Microscope*> g_selected{nullptr};
/// Of the last call that failed; only texts that live for ever.
std::atomic<const char*> g_lastError{""};

int Fail(const char* text) {
  g_lastError = text;
  return kFailed;
}

struct DeviceTexts {
  std::wstring uniqueId;
  std::wstring name;
};

// The texts of a microscope, whether or not it is plugged in; never destroyed, so that what was
// handed out stays there.
const DeviceTexts& TextsOf(const Microscope& microscope) {
  static const auto& texts = *[] {
    auto* const all = new std::vector<DeviceTexts>;
    for (std::size_t i = 1; i <= TheInstrument().devices.size(); ++i) {
      all->push_back({L"simulated-microscope-" + std::to_wstring(i),
                      L"Simulated microscope " + std::to_wstring(i)});
    }
    return all;
  }();
  return texts[static_cast<std::size_t>(microscope.index)];
}

// The microscope at an index of the list, or null, with the reason as the last error.
Microscope* Listed(std::int64_t index) {
  if (!g_isInitialized) {
    Fail("The library is not initialised");
    return nullptr;
  }
  const std::vector<Microscope*> plugged = TheInstrument().PluggedMicroscopes();
  if (index < 0 || index >= static_cast<std::int64_t>(plugged.size())) {
    Fail("There is no such microscope");
    return nullptr;
  }
  return plugged[static_cast<std::size_t>(index)];
}

// The selected microscope where it can answer, or null, with the reason as the last error.
Microscope* Selected() {
  Microscope* const selected = g_selected;
  if (selected == nullptr) {
    Fail("No microscope is selected");
    return nullptr;
  }
  if (!selected->isPlugged) {
    Fail("The selected microscope is unplugged");
    return nullptr;
  }
  return selected;
}

int MoveBy(int steps) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  return microscope->StepFocus(steps) ? kDone : Fail("The focus is at the end of its travel");
}

std::uint8_t LensGroupOf(int magnification) {
  if (magnification < 40) {
    return 1;
  }
  return magnification < 100 ? 2 : 3;
}

float PixelSizeOf(Microscope& microscope) {
  const int magnification = microscope.SceneNow().optics.magnification;
  return static_cast<float>(ostrel_simulator::MicronsPerPixel(magnification));
}

}  // namespace

int Init() {
  if (!TheInstrument().settings.valid) {
    return Fail("A variable of the simulator could not be read");
  }
  g_isInitialized = true;
  return kDone;
}

void Destroy() {
  g_selected = nullptr;
  g_isInitialized = false;
}

int GetDevicesCount() {
  return g_isInitialized ? static_cast<int>(TheInstrument().PluggedMicroscopes().size()) : 0;
}

const wchar_t* GetDeviceUniqueId(int index) {
  const Microscope* const microscope = Listed(index);
  return microscope == nullptr ? nullptr : TextsOf(*microscope).uniqueId.c_str();
}

const wchar_t* GetDeviceFriendlyName(int index) {
  const Microscope* const microscope = Listed(index);
  return microscope == nullptr ? nullptr : TextsOf(*microscope).name.c_str();
}

// The selection stays with the microscope, also while it is unplugged.
int SelectDeviceNumber(unsigned int index) {
  Microscope* const microscope = Listed(index);
  if (microscope == nullptr) {
    return kFailed;
  }
  g_selected = microscope;
  return kDone;
}

int GetScopeStatus() {
  Microscope* const selected = g_selected;
  if (selected == nullptr) {
    return kNothingSelected;
  }
  if (!selected->isPlugged) {
    return kUnplugged;
  }
  const FocusState focus = selected->Focus();
  if (focus.isScanning) {
    return kFocusScans;
  }
  return focus.isMoving ? kFocusMoves : kReady;
}

float GetPixelSizeMicrons() {
  Microscope* const microscope = Selected();
  return microscope == nullptr ? 0.0F : PixelSizeOf(*microscope);
}

unsigned int GetApiVersion() {
  return kApiVersion;
}

// The size of the frames that the camera delivers now: frames of other sizes have pixels of the
// same size.
int GetPixelSizeInfo(float* micronsPerPixel, std::uint16_t* width, std::uint16_t* height) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  const ostrel_simulator::FrameSize size = microscope->LastFrameSize();
  *micronsPerPixel = PixelSizeOf(*microscope);
  *width = static_cast<std::uint16_t>(size.width);
  *height = static_cast<std::uint16_t>(size.height);
  return kDone;
}

int GetLensGroupInfo(std::uint16_t* lensDriver, std::uint8_t* lensGroup) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  *lensDriver = kLensDriver;
  *lensGroup = LensGroupOf(microscope->SceneNow().optics.magnification);
  return kDone;
}

int IsCapturePressed() {
  Microscope* const microscope = Selected();
  return microscope != nullptr && microscope->TakePress() ? kDone : kFailed;
}

int GetVersionInfo(std::uint16_t* productId, std::uint8_t* hardwareMajor,
                   std::uint8_t* hardwareMinor, std::uint16_t* softwareMajor,
                   std::uint8_t* softwareMinor, std::uint8_t* softwarePatch) {
  if (Selected() == nullptr) {
    return kFailed;
  }
  *productId = 4711;
  *hardwareMajor = 2;
  *hardwareMinor = 1;
  *softwareMajor = 3;
  *softwareMinor = 4;
  *softwarePatch = 5;
  return kDone;
}

int GetProtocolVersionInfo(std::uint16_t* major, std::uint8_t* minor, std::uint8_t* patch) {
  if (Selected() == nullptr) {
    return kFailed;
  }
  *major = 1;
  *minor = 6;
  *patch = 2;
  return kDone;
}

int TriggerAutoFocus() {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  microscope->StartAutoFocus();
  return kDone;
}

int GetFocusPosition(std::uint16_t* position) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  *position = static_cast<std::uint16_t>(microscope->Focus().position);
  return kDone;
}

int SetFocusPosition(std::uint16_t position) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  return microscope->MoveFocus(position) ? kDone : Fail("The focus has no such position");
}

int FocusNearStep() {
  return MoveBy(-kFocusStep);
}

int FocusFarStep() {
  return MoveBy(kFocusStep);
}

int GetLedState(std::int32_t* state) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  *state = microscope->IsLightOn() ? 1 : 0;
  return kDone;
}

int SetLedState(bool on) {
  Microscope* const microscope = Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  microscope->SwitchLight(on);
  return kDone;
}

const char* GetLastErrorString() {
  return g_lastError;
}

// The microscope library's face of the simulated instrument: `libostrel.so`.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/face_state.h"
#include "simulator/instrument.h"

// The table's own signatures, so that a function that drifts from them does not compile.
extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/ostrel_symbols.h"
}

namespace {

using ostrel_simulator::DevicePart;
using ostrel_simulator::FaceState;
using ostrel_simulator::FocusState;
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

constinit FaceState g_face;

int Fail(const char* text) {
  return g_face.Fail(text) ? kDone : kFailed;
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

int MoveBy(int steps) {
  Microscope* const microscope = g_face.Commanded();
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
  return g_face.Initialize() ? kDone : kFailed;
}

void Destroy() {
  g_face.selected = nullptr;
  g_face.isInitialized = false;
}

int GetDevicesCount() {
  return g_face.DevicesCount();
}

const wchar_t* GetDeviceUniqueId(int index) {
  const Microscope* const microscope = g_face.Listed(index);
  return microscope == nullptr ? nullptr : TextsOf(*microscope).uniqueId.c_str();
}

const wchar_t* GetDeviceFriendlyName(int index) {
  const Microscope* const microscope = g_face.Listed(index);
  return microscope == nullptr ? nullptr : TextsOf(*microscope).name.c_str();
}

int SelectDeviceNumber(unsigned int index) {
  return g_face.Select(index) ? kDone : kFailed;
}

int GetScopeStatus() {
  Microscope* const selected = g_face.selected;
  if (selected == nullptr) {
    return kNothingSelected;
  }
  selected->faults.Delay(DevicePart::Microscope);
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
  Microscope* const microscope = g_face.Selected();
  return microscope == nullptr ? 0.0F : PixelSizeOf(*microscope);
}

unsigned int GetApiVersion() {
  return kApiVersion;
}

// The size of the frames that the camera delivers now: frames of other sizes have pixels of the
// same size.
int GetPixelSizeInfo(float* micronsPerPixel, std::uint16_t* width, std::uint16_t* height) {
  Microscope* const microscope = g_face.Selected();
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
  Microscope* const microscope = g_face.Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  *lensDriver = kLensDriver;
  *lensGroup = LensGroupOf(microscope->SceneNow().optics.magnification);
  return kDone;
}

int IsCapturePressed() {
  Microscope* const microscope = g_face.Selected();
  return microscope != nullptr && microscope->TakePress() ? kDone : kFailed;
}

int GetVersionInfo(std::uint16_t* productId, std::uint8_t* hardwareMajor,
                   std::uint8_t* hardwareMinor, std::uint16_t* softwareMajor,
                   std::uint8_t* softwareMinor, std::uint8_t* softwarePatch) {
  if (g_face.Selected() == nullptr) {
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
  if (g_face.Selected() == nullptr) {
    return kFailed;
  }
  *major = 1;
  *minor = 6;
  *patch = 2;
  return kDone;
}

int TriggerAutoFocus() {
  Microscope* const microscope = g_face.Commanded();
  if (microscope == nullptr) {
    return kFailed;
  }
  microscope->StartAutoFocus();
  return kDone;
}

int GetFocusPosition(std::uint16_t* position) {
  Microscope* const microscope = g_face.Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  *position = static_cast<std::uint16_t>(microscope->Focus().position);
  return kDone;
}

int SetFocusPosition(std::uint16_t position) {
  Microscope* const microscope = g_face.Commanded();
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
  Microscope* const microscope = g_face.Selected();
  if (microscope == nullptr) {
    return kFailed;
  }
  *state = microscope->IsLightOn() ? 1 : 0;
  return kDone;
}

int SetLedState(bool on) {
  Microscope* const microscope = g_face.Commanded();
  if (microscope == nullptr) {
    return kFailed;
  }
  microscope->LightLeds(on ? ostrel_simulator::kAllLeds : 0);
  return kDone;
}

const char* GetLastErrorString() {
  return g_face.lastError;
}

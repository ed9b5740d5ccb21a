// The fake of the Ostrel microscope library. Without a script it starts, has two devices without
// texts, and does what it is told; what it reports is 0, and nobody presses its button.
//
// Floats are scripted as their 32 bits. Output parameters, as `symbol.field`; one that was not
// scripted is left alone:
//   GetPixelSizeInfo: microns_per_pixel, width, height
//   GetLensGroupInfo: lens_driver, lens_group
//   GetVersionInfo: product_id, hardware_major, hardware_minor, software_major, software_minor,
//     software_patch
//   GetProtocolVersionInfo: major, minor, patch
//   GetFocusPosition: position
//   GetLedState: state
// Device texts are scripted with `wide`, the last error with `text`.
#include <bit>
#include <cstdint>
#include <iterator>

#include "fakes/fake_control.h"

extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/ostrel_symbols.h"
}

namespace ostrel_native {

const char* const kFakeSymbols[] = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/ostrel_symbols.h"
    nullptr};
static_assert(std::size(kFakeSymbols) == 22 + 1);

}  // namespace ostrel_native

namespace {

using ostrel_native::FakeCall;

template <typename T>
void WriteField(const FakeCall& call, const char* field, T* out) {
  *out = static_cast<T>(call.Field(field, *out));
}

}  // namespace

int Init() {
  return FakeCall(__func__, {}, 1).Result();
}

void Destroy() {
  const FakeCall call(__func__, {});
}

int GetDevicesCount() {
  return FakeCall(__func__, {}, 2).Result();
}

const wchar_t* GetDeviceUniqueId(int index) {
  return FakeCall(__func__, {index}).LibraryWideText();
}

const wchar_t* GetDeviceFriendlyName(int index) {
  return FakeCall(__func__, {index}).LibraryWideText();
}

int SelectDeviceNumber(unsigned int index) {
  return FakeCall(__func__, {static_cast<unsigned long>(index)}, 1).Result();
}

int GetScopeStatus() {
  return FakeCall(__func__, {}).Result();
}

float GetPixelSizeMicrons() {
  return std::bit_cast<float>(FakeCall(__func__, {}).Result());
}

unsigned int GetApiVersion() {
  return static_cast<unsigned int>(FakeCall(__func__, {}).result);
}

int GetPixelSizeInfo(float* micronsPerPixel, std::uint16_t* width, std::uint16_t* height) {
  const FakeCall call(__func__, {micronsPerPixel, width, height}, 1);
  *micronsPerPixel =
      std::bit_cast<float>(call.Field("microns_per_pixel", std::bit_cast<int>(*micronsPerPixel)));
  WriteField(call, "width", width);
  WriteField(call, "height", height);
  return call.Result();
}

int GetLensGroupInfo(std::uint16_t* lensDriver, std::uint8_t* lensGroup) {
  const FakeCall call(__func__, {lensDriver, lensGroup}, 1);
  WriteField(call, "lens_driver", lensDriver);
  WriteField(call, "lens_group", lensGroup);
  return call.Result();
}

int IsCapturePressed() {
  return FakeCall(__func__, {}).Result();
}

int GetVersionInfo(std::uint16_t* productId, std::uint8_t* hardwareMajor,
                   std::uint8_t* hardwareMinor, std::uint16_t* softwareMajor,
                   std::uint8_t* softwareMinor, std::uint8_t* softwarePatch) {
  const FakeCall call(
      __func__,
      {productId, hardwareMajor, hardwareMinor, softwareMajor, softwareMinor, softwarePatch}, 1);
  WriteField(call, "product_id", productId);
  WriteField(call, "hardware_major", hardwareMajor);
  WriteField(call, "hardware_minor", hardwareMinor);
  WriteField(call, "software_major", softwareMajor);
  WriteField(call, "software_minor", softwareMinor);
  WriteField(call, "software_patch", softwarePatch);
  return call.Result();
}

int GetProtocolVersionInfo(std::uint16_t* major, std::uint8_t* minor, std::uint8_t* patch) {
  const FakeCall call(__func__, {major, minor, patch}, 1);
  WriteField(call, "major", major);
  WriteField(call, "minor", minor);
  WriteField(call, "patch", patch);
  return call.Result();
}

int TriggerAutoFocus() {
  return FakeCall(__func__, {}, 1).Result();
}

int GetFocusPosition(std::uint16_t* position) {
  const FakeCall call(__func__, {position}, 1);
  WriteField(call, "position", position);
  return call.Result();
}

int SetFocusPosition(std::uint16_t position) {
  return FakeCall(__func__, {position}, 1).Result();
}

int FocusNearStep() {
  return FakeCall(__func__, {}, 1).Result();
}

int FocusFarStep() {
  return FakeCall(__func__, {}, 1).Result();
}

int GetLedState(std::int32_t* state) {
  const FakeCall call(__func__, {state}, 1);
  WriteField(call, "state", state);
  return call.Result();
}

int SetLedState(bool on) {
  return FakeCall(__func__, {on}, 1).Result();
}

const char* GetLastErrorString() {
  return FakeCall(__func__, {}).LibraryText();
}

// The Dino-Lite library's face of the simulated instrument: `libdinolite.so`.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "simulator/face_state.h"
#include "simulator/face_text.h"
#include "simulator/instrument.h"

// The table's own signatures, so that a function that drifts from them does not compile.
extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/dino_lite_symbols.h"
}

namespace {

using ostrel_simulator::DinoLiteFeatures;
using ostrel_simulator::FaceState;
using ostrel_simulator::kAllLeds;
using ostrel_simulator::LedControl;
using ostrel_simulator::Microscope;
using ostrel_simulator::TheInstrument;

constexpr int kNothingSelected = -1;

// The one field of view that there is: from the left edge of the picture to its right one.
constexpr int kWidthSelector = 0;

// A mode and how many percent of the LEDs burn in it.
struct LedMode {
  int code;
  int litPercent;
};

// All, group 1, group 2, those that the flexible mode leaves on, none.
constexpr std::array<LedMode, 5> kGroupModes = {
    {{17, kAllLeds}, {16, 60}, {1, 40}, {34, 80}, {0, 0}}};
constexpr std::array<LedMode, 2> kSwitchModes = {{{17, kAllLeds}, {0, 0}}};

constinit FaceState g_face;

const DinoLiteFeatures& FeaturesOf(const Microscope& microscope) {
  return TheInstrument().settings.DinoLiteFeaturesOf(microscope.index);
}

// `prefix` and the number of a listed microscope from 1; an empty text for none.
void WriteNumberedText(unsigned int index, const char* prefix, void* buffer,
                       unsigned int capacity) {
  const Microscope* const microscope = g_face.Listed(index);
  const std::string text =
      microscope == nullptr ? "" : prefix + std::to_string(microscope->index + 1);
  ostrel_simulator::WriteText(text, buffer, capacity);
}

// The selected microscope if it can tell its magnification, or null.
Microscope* Measuring() {
  Microscope* const microscope = g_face.Selected();
  if (microscope != nullptr && !FeaturesOf(*microscope).measuresMagnification) {
    g_face.Fail("The selected microscope does not measure its magnification");
    return nullptr;
  }
  return microscope;
}

// The selected microscope if it has the button, or null.
Microscope* WithButton() {
  Microscope* const microscope = g_face.Selected();
  if (microscope != nullptr && !FeaturesOf(*microscope).hasMicrotouch) {
    g_face.Fail("The selected microscope has no MicroTouch button");
    return nullptr;
  }
  return microscope;
}

// What the LEDs of the selected microscope can be set to; nothing where there is none, or a program
// cannot.
std::span<const LedMode> LedModesOf(const Microscope* microscope) {
  if (microscope == nullptr) {
    return {};
  }
  switch (FeaturesOf(*microscope).leds) {
    case LedControl::Groups:
      return kGroupModes;
    case LedControl::Switch:
      return kSwitchModes;
    case LedControl::None:
      g_face.Fail("The LEDs of the selected microscope cannot be controlled");
      break;
  }
  return {};
}

bool IsOnTheRing(double magnification) {
  return magnification >= ostrel_simulator::kLeastMagnification &&
         magnification <= ostrel_simulator::kMostMagnification;
}

}  // namespace

void dl_initialize() {
  g_face.Initialize();
}

int dl_devices_count() {
  return g_face.DevicesCount();
}

void dl_get_device_unique_id(unsigned int index, void* buffer, unsigned int capacity) {
  WriteNumberedText(index, "simulated-microscope-", buffer, capacity);
}

void dl_get_device_name(unsigned int index, void* buffer, unsigned int capacity) {
  WriteNumberedText(index, "Simulated microscope ", buffer, capacity);
}

bool dl_select_device(int index) {
  return g_face.Select(index);
}

void dl_unselect_device() {
  g_face.selected = nullptr;
}

int dl_get_selected_device() {
  const std::vector<Microscope*> plugged = TheInstrument().PluggedMicroscopes();
  const auto found = std::find(plugged.begin(), plugged.end(), g_face.selected.load());
  return found == plugged.end() ? kNothingSelected : static_cast<int>(found - plugged.begin());
}

bool dl_device_supports_amr() {
  return Measuring() != nullptr;
}

float dl_get_amr() {
  Microscope* const microscope = Measuring();
  return microscope == nullptr ? 0.0F : static_cast<float>(microscope->ReadMagnification());
}

// In micrometres, for the size of the frames that the camera delivers now.
double dl_get_fovx(int selector, double amr) {
  Microscope* const microscope = g_face.Selected();
  if (microscope == nullptr) {
    return 0;
  }
  if (selector != kWidthSelector || !IsOnTheRing(amr)) {
    g_face.Fail("There is no such field of view");
    return 0;
  }
  return microscope->LastFrameSize().width * ostrel_simulator::MicronsPerPixel(amr);
}

std::uint64_t dl_get_amr_update_count() {
  Microscope* const microscope = Measuring();
  return microscope == nullptr ? 0 : microscope->MagnificationChanges();
}

bool dl_device_supports_microtouch() {
  return WithButton() != nullptr;
}

bool dl_microtouch_pressed() {
  Microscope* const microscope = WithButton();
  return microscope != nullptr && microscope->TakePress();
}

int dl_led_mode_count() {
  return static_cast<int>(LedModesOf(g_face.Selected()).size());
}

int dl_led_mode(int index) {
  const std::span<const LedMode> modes = LedModesOf(g_face.Selected());
  if (modes.empty()) {
    return 0;
  }
  if (index < 0 || static_cast<std::size_t>(index) >= modes.size()) {
    g_face.Fail("There is no such LED mode");
    return 0;
  }
  return modes[static_cast<std::size_t>(index)].code;
}

bool dl_set_led_state(int mode) {
  Microscope* const microscope = g_face.Commanded();
  const std::span<const LedMode> modes = LedModesOf(microscope);
  if (modes.empty()) {
    return false;
  }
  const auto found = std::find_if(modes.begin(), modes.end(),
                                  [mode](const LedMode& each) { return each.code == mode; });
  if (found == modes.end()) {
    return g_face.Fail("There is no such LED mode");
  }
  microscope->LightLeds(found->litPercent);
  return true;
}

bool dl_supports_amr() {
  return true;
}

bool dl_initialize_selected_device() {
  return g_face.Selected() != nullptr;
}

const char* dl_get_last_error() {
  return g_face.lastError;
}

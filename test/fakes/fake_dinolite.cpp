// The fake of the Dino-Lite microscope library. Without a script it has two devices without texts,
// none of them selected, that can do nothing; it refuses no command, its magnification is 0, and
// nobody presses its button.
//
// Floating-point answers are scripted as their bits: 32 for `dl_get_amr`, 64 for `dl_get_fovx`,
// whose magnification is logged in the same way. Texts are scripted with `text`.
#include <bit>
#include <cstdint>
#include <iterator>

#include "fakes/fake_control.h"

extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/dino_lite_symbols.h"
}

namespace ostrel_native {

const char* const kFakeSymbols[] = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/dino_lite_symbols.h"
    nullptr};
static_assert(std::size(kFakeSymbols) == 19 + 1);

}  // namespace ostrel_native

namespace {

using ostrel_native::FakeCall;

bool IsTrue(const FakeCall& call) {
  return call.result != 0;
}

unsigned long Word(unsigned int value) {
  return value;
}

}  // namespace

void dl_initialize() {
  const FakeCall call(__func__, {});
}

int dl_devices_count() {
  return FakeCall(__func__, {}, 2).Result();
}

void dl_get_device_unique_id(unsigned int index, void* buffer, unsigned int capacity) {
  FakeCall(__func__, {Word(index), buffer, Word(capacity)})
      .WriteText(buffer, static_cast<int>(capacity));
}

void dl_get_device_name(unsigned int index, void* buffer, unsigned int capacity) {
  FakeCall(__func__, {Word(index), buffer, Word(capacity)})
      .WriteText(buffer, static_cast<int>(capacity));
}

bool dl_select_device(int index) {
  return IsTrue(FakeCall(__func__, {index}, 1));
}

void dl_unselect_device() {
  const FakeCall call(__func__, {});
}

int dl_get_selected_device() {
  return FakeCall(__func__, {}, -1).Result();
}

bool dl_device_supports_amr() {
  return IsTrue(FakeCall(__func__, {}));
}

float dl_get_amr() {
  return std::bit_cast<float>(FakeCall(__func__, {}).Result());
}

double dl_get_fovx(int selector, double amr) {
  return std::bit_cast<double>(
      FakeCall(__func__, {selector, std::bit_cast<unsigned long>(amr)}).result);
}

std::uint64_t dl_get_amr_update_count() {
  return static_cast<std::uint64_t>(FakeCall(__func__, {}).result);
}

bool dl_device_supports_microtouch() {
  return IsTrue(FakeCall(__func__, {}));
}

bool dl_microtouch_pressed() {
  return IsTrue(FakeCall(__func__, {}));
}

int dl_led_mode_count() {
  return FakeCall(__func__, {}).Result();
}

int dl_led_mode(int index) {
  return FakeCall(__func__, {index}).Result();
}

bool dl_set_led_state(int mode) {
  return IsTrue(FakeCall(__func__, {mode}, 1));
}

bool dl_supports_amr() {
  return IsTrue(FakeCall(__func__, {}));
}

bool dl_initialize_selected_device() {
  return IsTrue(FakeCall(__func__, {}, 1));
}

const char* dl_get_last_error() {
  return FakeCall(__func__, {}).LibraryText();
}

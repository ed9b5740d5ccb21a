#include "devices/dino_lite_led_modes.h"

#include <algorithm>

#include "devices/dino_lite_binding.h"

namespace ostrel_native {

namespace {

using Binding = DinoLiteBinding;

std::int32_t WeightOf(std::int32_t mode) {
  switch (mode) {
    case Binding::kLedOn:
    case Binding::kLedFlexibleOn:
      return 1;
    case Binding::kLed1On:
    case Binding::kLed2On:
      return 2;
    default:
      return 0;
  }
}

}  // namespace

std::int32_t CountControllableLeds(const std::vector<std::int32_t>& modes) {
  std::int32_t count = 0;
  for (const std::int32_t mode : modes) {
    count = std::max(count, WeightOf(mode));
  }
  return count;
}

std::optional<std::int32_t> FindStartLedMode(const std::vector<std::int32_t>& modes) {
  for (const std::int32_t mode :
       {Binding::kLedOn, Binding::kLedFlexibleOn, Binding::kLed1On, Binding::kLed2On}) {
    if (std::find(modes.begin(), modes.end(), mode) != modes.end()) {
      return mode;
    }
  }
  const auto nonZero =
      std::find_if(modes.begin(), modes.end(), [](std::int32_t mode) { return mode != 0; });
  return nonZero != modes.end() ? std::optional(*nonZero) : std::nullopt;
}

std::int32_t FindNextLedMode(const std::vector<std::int32_t>& modes, std::int32_t current) {
  const auto found = std::find(modes.begin(), modes.end(), current);
  return found == modes.end() || found + 1 == modes.end() ? modes.front() : *(found + 1);
}

}  // namespace ostrel_native

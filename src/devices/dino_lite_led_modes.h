// What follows from the list of LED modes that a Dino-Lite device offers.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace ostrel_native {

/// How many LED groups can be switched by themselves: 2, 1 for a common switch, or 0.
/// Thread: any.
std::int32_t CountControllableLeds(const std::vector<std::int32_t>& modes);

/// The mode that turns the light on when a device is selected: the best known one, or else the
/// first that is not 0; none if there is no such mode.
/// Thread: any.
std::optional<std::int32_t> FindStartLedMode(const std::vector<std::int32_t>& modes);

/// The mode behind the first `current` of the list, which goes round; its head where `current` is
/// not in it. `modes` is not empty. Modes behind a repeated one are never reached.
/// Thread: any.
std::int32_t FindNextLedMode(const std::vector<std::int32_t>& modes, std::int32_t current);

}  // namespace ostrel_native

// What users set about the simulator, by environment variables; README.md lists them.
#pragma once

#include <cstdint>
#include <functional>

namespace ostrel_simulator {

struct Settings {
  std::uint64_t seed = 1;         ///< OSTREL_SIMULATOR_SEED
  int devices = 1;                ///< OSTREL_SIMULATOR_DEVICES, 0 to 8
  int rowPadding = 0;             ///< OSTREL_SIMULATOR_ROW_PADDING, bytes, 0 to 4096
  std::int64_t frameLimit = 0;    ///< OSTREL_SIMULATOR_FRAMES; 0: no limit
  std::int64_t stutterEvery = 0;  ///< OSTREL_SIMULATOR_STUTTER, first number; 0: no stutter
  std::int64_t stutterMs = 0;     ///< second number, milliseconds
  bool valid = true;              ///< whether every variable that is set could be read
};

/// Reads the settings through `get`, which gives a variable's text or null. A variable that
/// cannot be read, or is out of range, leaves its default in place and clears `valid`.
Settings ReadSettings(const std::function<const char*(const char*)>& get);

}  // namespace ostrel_simulator

#include "simulator/settings.h"

#include <charconv>
#include <cstring>
#include <limits>

namespace ostrel_simulator {

namespace {

// A decimal number from `least` to `most` that ends at `end`.
template <typename Number>
bool ReadNumber(const char* text, const char* end, Number least, Number most, Number* out) {
  Number value = 0;
  const auto [stop, problem] = std::from_chars(text, end, value);
  if (problem != std::errc() || stop != end || value < least || value > most) {
    return false;
  }
  *out = value;
  return true;
}

struct Reader {
  const std::function<const char*(const char*)>& get;
  bool valid = true;

  template <typename Number>
  void Read(const char* name, Number least, Number most, Number* out) {
    const char* const text = get(name);
    if (text != nullptr && !ReadNumber(text, text + std::strlen(text), least, most, out)) {
      valid = false;
    }
  }

  // "EVERY:MS"; both or none.
  void ReadStutter(const char* name, std::int64_t* every, std::int64_t* pauseMs) {
    const char* const text = get(name);
    if (text == nullptr) {
      return;
    }
    const char* const colon = std::strchr(text, ':');
    std::int64_t first = 0;
    std::int64_t second = 0;
    if (colon == nullptr || !ReadNumber<std::int64_t>(text, colon, 1, 1000000, &first) ||
        !ReadNumber<std::int64_t>(colon + 1, text + std::strlen(text), 1, 60000, &second)) {
      valid = false;
      return;
    }
    *every = first;
    *pauseMs = second;
  }
};

}  // namespace

Settings ReadSettings(const std::function<const char*(const char*)>& get) {
  Settings settings;
  Reader reader{get};
  reader.Read<std::uint64_t>("OSTREL_SIMULATOR_SEED", 0, std::numeric_limits<std::uint64_t>::max(),
                             &settings.seed);
  reader.Read("OSTREL_SIMULATOR_DEVICES", 0, 8, &settings.devices);
  reader.Read("OSTREL_SIMULATOR_ROW_PADDING", 0, 4096, &settings.rowPadding);
  reader.Read<std::int64_t>("OSTREL_SIMULATOR_FRAMES", 1, std::numeric_limits<std::int32_t>::max(),
                            &settings.frameLimit);
  reader.ReadStutter("OSTREL_SIMULATOR_STUTTER", &settings.stutterEvery, &settings.stutterMs);
  settings.valid = reader.valid;
  return settings;
}

}  // namespace ostrel_simulator

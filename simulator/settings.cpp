#include "simulator/settings.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "simulator/optics.h"

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

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(end + 1);
  }
}

// Words between commas, or "none".
bool ParseFeatures(std::string_view text, DinoLiteFeatures* features) {
  *features = {false, false, LedControl::None};
  if (text == "none") {
    return true;
  }
  for (const std::string_view word : Split(text, ',')) {
    if (word == "amr") {
      features->measuresMagnification = true;
    } else if (word == "microtouch") {
      features->hasMicrotouch = true;
    } else if (word == "leds") {
      features->leds = LedControl::Groups;
    } else if (word == "switch") {
      features->leds = LedControl::Switch;
    } else {
      return false;
    }
  }
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

  // The features of one microscope after the other, between colons.
  void ReadFeatures(const char* name, std::vector<DinoLiteFeatures>* all) {
    const char* const text = get(name);
    if (text == nullptr) {
      return;
    }
    std::vector<DinoLiteFeatures> parsed;
    for (const std::string_view one : Split(text, ':')) {
      if (!ParseFeatures(one, &parsed.emplace_back())) {
        valid = false;
        return;
      }
    }
    *all = std::move(parsed);
  }

  void ReadStage(const char* name, Stage* stage) {
    const char* const text = get(name);
    if (text != nullptr && !ParseStage(text, stage)) {
      valid = false;
    }
  }
};

}  // namespace

const DinoLiteFeatures& Settings::DinoLiteFeaturesOf(int index) const {
  return dinoLiteFeatures[std::min(static_cast<std::size_t>(index), dinoLiteFeatures.size() - 1)];
}

bool ParseStage(const char* text, Stage* stage) {
  if (std::strcmp(text, "moving") == 0) {
    *stage = Stage{};
    return true;
  }
  const char* const colon = std::strchr(text, ':');
  Stage still{false, 0, 0};
  if (colon == nullptr || !ReadNumber(text, colon, -kFarthestStage, kFarthestStage, &still.x) ||
      !ReadNumber(colon + 1, text + std::strlen(text), -kFarthestStage, kFarthestStage, &still.y)) {
    return false;
  }
  *stage = still;
  return true;
}

bool ParseNumber(const char* text, int least, int most, int* number) {
  return ReadNumber(text, text + std::strlen(text), least, most, number);
}

Settings ReadSettings(const std::function<const char*(const char*)>& get) {
  Settings settings;
  Reader reader{get};
  reader.Read<std::uint64_t>("OSTREL_SIMULATOR_SEED", 0, std::numeric_limits<std::uint64_t>::max(),
                             &settings.seed);
  reader.Read("OSTREL_SIMULATOR_DEVICES", 0, 8, &settings.devices);
  reader.Read("OSTREL_SIMULATOR_ROW_PADDING", 0, 4096, &settings.rowPadding);
  reader.Read("OSTREL_SIMULATOR_BOTTOM_UP", 0, 1, &settings.runsBottomUp);
  reader.Read<std::int64_t>("OSTREL_SIMULATOR_FRAMES", 1, std::numeric_limits<std::int32_t>::max(),
                            &settings.frameLimit);
  reader.ReadStutter("OSTREL_SIMULATOR_STUTTER", &settings.stutterEvery, &settings.stutterMs);
  reader.Read("OSTREL_SIMULATOR_FOCUS", 0, kFocusPositions - 1, &settings.focus);
  reader.Read("OSTREL_SIMULATOR_LIGHT", 0, 100, &settings.light);
  reader.Read("OSTREL_SIMULATOR_MAGNIFICATION", kLeastMagnification, kMostMagnification,
              &settings.magnification);
  reader.ReadStage("OSTREL_SIMULATOR_STAGE", &settings.stage);
  reader.Read("OSTREL_SIMULATOR_NUMBERS", 0, 1, &settings.showsNumbers);
  reader.Read("OSTREL_SIMULATOR_NOISE", 0, 100, &settings.noiseTenths);
  reader.Read("OSTREL_SIMULATOR_READING_NOISE", 0, 1000, &settings.readingNoise);
  reader.ReadFeatures("OSTREL_SIMULATOR_DINO_FEATURES", &settings.dinoLiteFeatures);
  if (const char* const path = get("OSTREL_SIMULATOR_CONTROL"); path != nullptr) {
    settings.controlPath = path;
  }
  settings.valid = reader.valid;
  return settings;
}

}  // namespace ostrel_simulator

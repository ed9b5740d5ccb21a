// What users set about the simulator, by environment variables; README.md lists them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace ostrel_simulator {

/// Where the stage stands.
struct Stage {
  bool moves = true;  ///< two pixels to the right and one down each frame, at default optics
  int x = 0;          ///< in texels, while it does not move
  int y = 0;

  bool operator==(const Stage&) const = default;
};

/// Which LEDs of a microscope a program can light through the Dino-Lite library.
enum class LedControl { None, Switch, Groups };

/// What a microscope can do for the Dino-Lite library.
struct DinoLiteFeatures {
  bool measuresMagnification = true;  ///< "amr"
  bool hasMicrotouch = true;          ///< "microtouch"
  /// "leds": all at once, and the groups by themselves; "switch": all at once alone
  LedControl leds = LedControl::Groups;

  bool operator==(const DinoLiteFeatures&) const = default;
};

struct Settings {
  /// Of the microscope of an index.
  const DinoLiteFeatures& DinoLiteFeaturesOf(int index) const;

  std::uint64_t seed = 1;         ///< OSTREL_SIMULATOR_SEED
  int devices = 1;                ///< OSTREL_SIMULATOR_DEVICES, 0 to 8
  int rowPadding = 0;             ///< OSTREL_SIMULATOR_ROW_PADDING, bytes, 0 to 4096
  int runsBottomUp = 0;           ///< OSTREL_SIMULATOR_BOTTOM_UP, 0 or 1
  std::int64_t frameLimit = 0;    ///< OSTREL_SIMULATOR_FRAMES; 0: no limit
  std::int64_t stutterEvery = 0;  ///< OSTREL_SIMULATOR_STUTTER, first number; 0: no stutter
  std::int64_t stutterMs = 0;     ///< second number, milliseconds
  int focus = 128;                ///< OSTREL_SIMULATOR_FOCUS, position at the start, 0 to 255
  int light = 100;                ///< OSTREL_SIMULATOR_LIGHT, percent at the start, 0 to 100
  int magnification = 50;         ///< OSTREL_SIMULATOR_MAGNIFICATION at the start, 20 to 220
  Stage stage;                    ///< OSTREL_SIMULATOR_STAGE: "moving", or "X:Y"
  int showsNumbers = 1;           ///< OSTREL_SIMULATOR_NUMBERS, 0 or 1
  int noiseTenths = 12;           ///< OSTREL_SIMULATOR_NOISE, 0 to 100
  int readingNoise = 12;          ///< OSTREL_SIMULATOR_READING_NOISE, 1/100 %, 0 to 1000
  /// OSTREL_SIMULATOR_DINO_FEATURES; the last holds for all microscopes behind it
  std::vector<DinoLiteFeatures> dinoLiteFeatures = std::vector<DinoLiteFeatures>(1);
  std::string controlPath;  ///< OSTREL_SIMULATOR_CONTROL; empty: no socket
  bool valid = true;        ///< whether every variable that is set could be read
};

inline constexpr int kFarthestStage = 1000000;

/// Reads "moving", or "X:Y" for a stage that stands at a point in texels, up to kFarthestStage to
/// any side. False, and `stage` is left alone, where the text is neither.
bool ParseStage(const char* text, Stage* stage);

/// Reads a whole decimal number from `least` to `most`; false, and `number` is left alone, where
/// the text is none.
bool ParseNumber(const char* text, int least, int most, int* number);

/// Reads the settings through `get`, which gives a variable's text or null. A variable that
/// cannot be read, or is out of range, leaves its default in place and clears `valid`.
Settings ReadSettings(const std::function<const char*(const char*)>& get);

}  // namespace ostrel_simulator

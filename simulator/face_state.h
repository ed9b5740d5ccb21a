// What the library of a microscope knows by itself: one for each face that selects a device.
#pragma once

#include <atomic>
#include <cstdint>

#include "simulator/microscope.h"

namespace ostrel_simulator {

/// Works on `TheInstrument`. Whatever fails leaves a text in `lastError` until the next one does.
/// Thread: any, for all members.
struct FaceState {
  /// Keeps the text, one that lives for ever. Always false.
  bool Fail(const char* text);

  /// False where the settings of the simulator could not be read.
  bool Initialize();

  /// How many microscopes are plugged in; 0 before the start.
  int DevicesCount();

  /// The microscope at an index of the list, or null. The list has those that are plugged in.
  Microscope* Listed(std::int64_t index);

  /// Selects what is listed at an index; the selection stays with it, also while it is unplugged.
  bool Select(std::int64_t index);

  /// The selected microscope where it can answer, or null; as late as its faults say.
  Microscope* Selected();

  /// The same where it takes commands.
  Microscope* Commanded();

  std::atomic<bool> isInitialized{false};
  std::atomic<Microscope*> selected{nullptr};
  std::atomic<const char*> lastError{""};
};

}  // namespace ostrel_simulator

// How one device misbehaves, as the hand at it says.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace ostrel_simulator {

/// The halves of a device, each behind a library of its own.
enum class DevicePart { None, Camera, Microscope };

/// Longest that a call can be slowed down by, in milliseconds.
inline constexpr int kSlowest = 10000;

/// Thread: any, for all members.
struct Faults {
  /// Lets all calls of a part that come from now on wait, and lets go of those of the others.
  void Hang(DevicePart part);

  /// What a call of a part begins with: takes as long as it is slowed down, and as it hangs.
  void Delay(DevicePart part);

  std::atomic<bool> freezes{false};  ///< the camera makes no more frames
  std::atomic<bool> refuses{false};  ///< neither captures nor commands are taken
  std::atomic<int> slowMs{0};        ///< what each call takes longer

  std::mutex mutex;  ///< guards the rest
  std::condition_variable changed;
  DevicePart hanging = DevicePart::None;
};

}  // namespace ostrel_simulator

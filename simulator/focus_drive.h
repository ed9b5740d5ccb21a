// The motor that moves the focus. Pure: time goes in as a number of milliseconds.
#pragma once

#include <cstdint>
#include <vector>

namespace ostrel_simulator {

inline constexpr int kFocusStepsPerMs = 2;  ///< speed of a move
inline constexpr int kMsPerScanStop = 30;   ///< how long an auto-focus looks at each position

struct FocusDrive {
  /// A drive that stands still.
  explicit FocusDrive(int position);

  /// Where the focus is. Time must not run backwards from one call to the next.
  int PositionAt(std::int64_t nowMs) const;

  bool IsMovingAt(std::int64_t nowMs) const;
  bool IsScanningAt(std::int64_t nowMs) const;

  /// Sets off for a position, from wherever the focus is; a scan ends.
  void MoveTo(int position, std::int64_t nowMs);

  /// Sets off on a scan over `positions`, not empty, which ends at the last of them.
  void Scan(std::vector<int> positions, std::int64_t nowMs);

  int start;                 ///< of the last move
  int target;                ///< of the last move
  std::int64_t startMs = 0;  ///< of the last move or scan
  std::vector<int> stops;    ///< of the scan; empty where the last order was a move
};

}  // namespace ostrel_simulator

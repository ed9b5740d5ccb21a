// One simulated microscope: all of its state, which every face shows and the control changes.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "simulator/faults.h"
#include "simulator/focus_drive.h"
#include "simulator/frame_painter.h"
#include "simulator/random.h"
#include "simulator/settings.h"
#include "simulator/simulated_clock.h"

namespace ostrel_simulator {

/// As many percent of a lamp's LEDs as there are.
inline constexpr int kAllLeds = 100;

/// What the focus does at a moment.
struct FocusState {
  int position;
  bool isMoving;    ///< also during an auto-focus
  bool isScanning;  ///< an auto-focus runs
};

/// The size of the frames that the camera delivers now.
struct FrameSize {
  int width;
  int height;
};

/// Its frames come from a camera that looks at `SharedSpecimen` by `SceneNow`; nothing here waits
/// for it. Unplugging is only a mark: whoever shows the microscope looks at it. Thread: any, for
/// all members.
struct Microscope {
  /// `microscopeClock` must outlive the microscope.
  Microscope(const Settings& settings, int microscopeIndex, SimulatedClock& microscopeClock);

  Scene SceneNow();

  /// What lies under it; made at the first call, which takes about half a second.
  std::shared_ptr<const LayeredSpecimen> SharedSpecimen();

  FocusState Focus();

  /// Sends the focus to a position at the speed of its motor; false where there is none.
  bool MoveFocus(int position);

  /// Sends the focus a little way; false at the end of its travel. `steps` is not 0.
  bool StepFocus(int steps);

  /// Sends the focus to the sharpest plane of the middle of the picture, as it is now.
  void StartAutoFocus();

  /// Lights some of the lamp's LEDs, at its level: so many percent of them, 0 to 100. 0 turns it
  /// off.
  void LightLeds(int percent);
  bool IsLightOn();

  /// Level of the lamp in percent, also while it is off.
  int LightLevel();

  /// Level of the lamp in percent while it is on, 1 to 100; 0 turns it off and keeps the level. A
  /// lamp that was off comes on with all LEDs.
  void SetLight(int percent);

  /// Turns the magnification ring.
  void SetMagnification(int magnification);

  /// What the sensor at the ring reads: a little off the magnification, by another amount at each
  /// reading, as the settings say, but never beyond the ring's ends. The nth reading of a
  /// microscope is off by the same share in every run with the same seed.
  double ReadMagnification();

  /// How often the ring has come to another magnification.
  std::uint64_t MagnificationChanges();

  void SetStage(const Stage& stage);
  void ShowNumbers(bool shown);

  /// Puts the focus somewhere at once, as by hand.
  void PlaceFocus(int position);

  /// Presses and releases the button: seen by one `TakePress`.
  void Press();

  /// Holds the button down, seen by each `TakePress`, or releases it.
  void Hold(bool down);

  /// Whether the button is down, or was since the last call. Each press is seen once.
  bool TakePress();

  /// The camera's part: the size and number of its newest frame.
  void NoteFrame(std::uint32_t number) { lastFrame = number; }
  void NoteFrameSize(FrameSize size);
  FrameSize LastFrameSize();

  const int index;
  SimulatedClock& clock;
  std::atomic<bool> isPlugged{true};
  std::atomic<std::uint32_t> lastFrame{0};
  Faults faults;  ///< also its camera's

  std::mutex specimenMutex;  ///< guards `specimen`
  std::shared_ptr<const LayeredSpecimen> specimen;
  const std::uint64_t seed;

  std::mutex mutex;  ///< guards the rest
  FocusDrive drive;
  Scene scene;  ///< without its focus and its light
  int lightLevel;
  int litPercent;  ///< of the lamp's LEDs
  std::uint64_t magnificationChanges = 0;
  const int readingNoise;  ///< largest share of a reading that is off, in 1/100 %
  Random readingRandom;
  int presses = 0;
  bool isHeld = false;
  FrameSize frameSize{1920, 1080};
};

}  // namespace ostrel_simulator

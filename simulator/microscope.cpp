#include "simulator/microscope.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "simulator/auto_focus.h"

namespace ostrel_simulator {

Microscope::Microscope(const Settings& settings, int microscopeIndex,
                       SimulatedClock& microscopeClock)
    : index(microscopeIndex),
      clock(microscopeClock),
      // Microscopes side by side look at different specimens.
      seed(settings.seed + static_cast<std::uint64_t>(microscopeIndex)),
      drive(settings.focus),
      lightLevel(settings.light == 0 ? 100 : settings.light),
      litPercent(settings.light == 0 ? 0 : kAllLeds),
      readingNoise(settings.readingNoise),
      readingRandom{seed} {
  scene.optics.magnification = settings.magnification;
  scene.stage = settings.stage;
  scene.showsNumber = settings.showsNumbers == 1;
}

Scene Microscope::SceneNow() {
  const std::lock_guard lock(mutex);
  Scene now = scene;
  now.optics.focus = drive.PositionAt(clock.NowMs());
  // However few they are, they give some light.
  now.optics.light = litPercent == 0 ? 0 : std::max(1, lightLevel * litPercent / kAllLeds);
  return now;
}

std::shared_ptr<const LayeredSpecimen> Microscope::SharedSpecimen() {
  const std::lock_guard lock(specimenMutex);
  if (specimen == nullptr) {
    specimen = std::make_shared<const LayeredSpecimen>(MakeLayeredSpecimen(MakeSpecimen(seed)));
  }
  return specimen;
}

FocusState Microscope::Focus() {
  const std::lock_guard lock(mutex);
  const std::int64_t now = clock.NowMs();
  return {drive.PositionAt(now), drive.IsMovingAt(now), drive.IsScanningAt(now)};
}

bool Microscope::MoveFocus(int position) {
  if (position < 0 || position >= kFocusPositions) {
    return false;
  }
  const std::lock_guard lock(mutex);
  drive.MoveTo(position, clock.NowMs());
  return true;
}

bool Microscope::StepFocus(int steps) {
  const std::lock_guard lock(mutex);
  const std::int64_t now = clock.NowMs();
  const int position = drive.PositionAt(now);
  const int target = std::clamp(position + steps, 0, kFocusPositions - 1);
  if (target == position) {
    return false;
  }
  drive.MoveTo(target, now);
  return true;
}

void Microscope::StartAutoFocus() {
  const std::shared_ptr<const LayeredSpecimen> seen = SharedSpecimen();
  const Scene now = SceneNow();
  std::vector<int> stops = PlanAutoFocus(*seen, now.optics, StageAt(now.stage, lastFrame));
  const std::lock_guard lock(mutex);
  drive.Scan(std::move(stops), clock.NowMs());
}

void Microscope::LightLeds(int percent) {
  const std::lock_guard lock(mutex);
  litPercent = percent;
}

bool Microscope::IsLightOn() {
  const std::lock_guard lock(mutex);
  return litPercent > 0;
}

int Microscope::LightLevel() {
  const std::lock_guard lock(mutex);
  return lightLevel;
}

void Microscope::SetLight(int percent) {
  const std::lock_guard lock(mutex);
  if (percent == 0) {
    litPercent = 0;
    return;
  }
  lightLevel = percent;
  litPercent = litPercent == 0 ? kAllLeds : litPercent;
}

void Microscope::SetMagnification(int magnification) {
  const std::lock_guard lock(mutex);
  magnificationChanges += magnification == scene.optics.magnification ? 0 : 1;
  scene.optics.magnification = magnification;
}

double Microscope::ReadMagnification() {
  constexpr double kSharesOfOne = 10'000.0;
  const std::lock_guard lock(mutex);
  const double magnification = scene.optics.magnification;
  const double farthest = magnification * readingNoise / kSharesOfOne;
  return std::clamp<double>(magnification + readingRandom.Uniform(-farthest, farthest),
                            kLeastMagnification, kMostMagnification);
}

std::uint64_t Microscope::MagnificationChanges() {
  const std::lock_guard lock(mutex);
  return magnificationChanges;
}

void Microscope::SetStage(const Stage& stage) {
  const std::lock_guard lock(mutex);
  scene.stage = stage;
}

void Microscope::ShowNumbers(bool shown) {
  const std::lock_guard lock(mutex);
  scene.showsNumber = shown;
}

void Microscope::PlaceFocus(int position) {
  const std::lock_guard lock(mutex);
  drive = FocusDrive(position);
}

void Microscope::Press() {
  const std::lock_guard lock(mutex);
  ++presses;
}

void Microscope::Hold(bool down) {
  const std::lock_guard lock(mutex);
  isHeld = down;
}

bool Microscope::TakePress() {
  const std::lock_guard lock(mutex);
  if (presses > 0) {
    --presses;
    return true;
  }
  return isHeld;
}

void Microscope::NoteFrameSize(FrameSize size) {
  const std::lock_guard lock(mutex);
  frameSize = size;
}

FrameSize Microscope::LastFrameSize() {
  const std::lock_guard lock(mutex);
  return frameSize;
}

}  // namespace ostrel_simulator

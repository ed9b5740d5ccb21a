#include "simulator/control.h"

#include <cstddef>
#include <cstring>
#include <iterator>
#include <map>
#include <sstream>
#include <vector>

namespace ostrel_simulator {

namespace {

constexpr const char* kOkText = "ok";
constexpr const char* kBadArguments = "error: these arguments are not understood";

using Words = std::vector<std::string>;

std::string Answer(bool isUnderstood) {
  return isUnderstood ? kOkText : kBadArguments;
}

// What a command with one number does.
template <typename Effect>
std::string WithNumber(const Words& words, int least, int most, Effect effect) {
  int number = 0;
  if (words.size() != 2 || !ParseNumber(words[1].c_str(), least, most, &number)) {
    return kBadArguments;
  }
  effect(number);
  return kOkText;
}

template <typename Effect>
std::string WithoutArguments(const Words& words, Effect effect) {
  if (words.size() == 1) {
    effect();
  }
  return Answer(words.size() == 1);
}

std::string Describe(Microscope& microscope) {
  const Scene scene = microscope.SceneNow();
  const FocusState focus = microscope.Focus();
  std::ostringstream text;
  text << "plugged " << (microscope.isPlugged ? 1 : 0) << " focus " << focus.position << " moving "
       << (focus.isMoving ? 1 : 0) << " scanning " << (focus.isScanning ? 1 : 0) << " light "
       << scene.optics.light << " magnification " << scene.optics.magnification << " stage ";
  if (scene.stage.moves) {
    text << "moving";
  } else {
    text << scene.stage.x << ":" << scene.stage.y;
  }
  text << " frame " << microscope.lastFrame;
  return text.str();
}

std::string RunHang(Faults& faults, const Words& words) {
  // Never destroyed: asked also while the process exits.
  static const auto& parts =
      *new std::map<std::string, DevicePart>{{"nothing", DevicePart::None},
                                             {"camera", DevicePart::Camera},
                                             {"microscope", DevicePart::Microscope}};
  const auto part = words.size() == 2 ? parts.find(words[1]) : parts.end();
  if (part != parts.end()) {
    faults.Hang(part->second);
  }
  return Answer(part != parts.end());
}

std::string RunOnDevice(Device& device, const Words& words) {
  Microscope& microscope = device.microscope;
  const std::string& name = words[0];
  if (name == "status") {
    return words.size() == 1 ? Describe(microscope) : kBadArguments;
  }
  if (name == "prepare") {
    return WithoutArguments(words, [&] { microscope.SharedSpecimen(); });
  }
  if (name == "focus") {
    return WithNumber(words, 0, kFocusPositions - 1,
                      [&](int position) { microscope.PlaceFocus(position); });
  }
  if (name == "light") {
    return WithNumber(words, 0, 100, [&](int percent) { microscope.SetLight(percent); });
  }
  if (name == "magnification") {
    return WithNumber(words, kLeastMagnification, kMostMagnification,
                      [&](int magnification) { microscope.SetMagnification(magnification); });
  }
  if (name == "stage") {
    Stage stage;
    const bool isUnderstood = words.size() == 2 && ParseStage(words[1].c_str(), &stage);
    if (isUnderstood) {
      microscope.SetStage(stage);
    }
    return Answer(isUnderstood);
  }
  if (name == "numbers") {
    return WithNumber(words, 0, 1, [&](int shown) { microscope.ShowNumbers(shown == 1); });
  }
  if (name == "press") {
    return WithoutArguments(words, [&] { microscope.Press(); });
  }
  if (name == "hold") {
    return WithoutArguments(words, [&] { microscope.Hold(true); });
  }
  if (name == "release") {
    return WithoutArguments(words, [&] { microscope.Hold(false); });
  }
  if (name == "freeze") {
    return WithNumber(words, 0, 1, [&](int frozen) { microscope.faults.freezes = frozen == 1; });
  }
  if (name == "slow") {
    return WithNumber(words, 0, kSlowest, [&](int ms) { microscope.faults.slowMs = ms; });
  }
  if (name == "refuse") {
    return WithNumber(words, 0, 1,
                      [&](int refusing) { microscope.faults.refuses = refusing == 1; });
  }
  if (name == "hang") {
    return RunHang(microscope.faults, words);
  }
  if (name == "unplug") {
    return WithoutArguments(words, [&] { device.SetPlugged(false); });
  }
  if (name == "plug") {
    return WithoutArguments(words, [&] { device.SetPlugged(true); });
  }
  return "error: there is no command " + name;
}

std::string RunClock(SimulatedClock& clock, const Words& words) {
  if (words.size() == 2 && words[1] == "stop") {
    clock.Stop();
    return kOkText;
  }
  if (words.size() == 2 && words[1] == "run") {
    clock.Run();
    return kOkText;
  }
  int ms = 0;
  if (words.size() == 3 && words[1] == "advance" &&
      ParseNumber(words[2].c_str(), 0, 1000000000, &ms)) {
    return clock.Advance(ms) ? kOkText : "error: the clock runs by itself";
  }
  return kBadArguments;
}

}  // namespace

std::string RunControlCommand(Instrument& instrument, const std::string& command) {
  std::istringstream text(command);
  Words words{std::istream_iterator<std::string>(text), std::istream_iterator<std::string>()};
  if (!words.empty() && words[0] == "clock") {
    return RunClock(instrument.clock, words);
  }
  int device = 0;
  if (words.size() >= 2 && words[0] == "device") {
    if (!ParseNumber(words[1].c_str(), 0, 7, &device)) {
      return kBadArguments;
    }
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty()) {
    return "error: there is no command here";
  }
  if (static_cast<std::size_t>(device) >= instrument.devices.size()) {
    return "error: there is no such device";
  }
  return RunOnDevice(*instrument.devices[static_cast<std::size_t>(device)], words);
}

}  // namespace ostrel_simulator

char* virtual_microscope_control(const char* command) {
  using ostrel_simulator::RunControlCommand;
  using ostrel_simulator::TheInstrument;
  const std::string text = command == nullptr ? "" : command;
  return strdup(RunControlCommand(TheInstrument(), text).c_str());
}

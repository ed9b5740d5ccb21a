#include "simulator/control.h"

#include <gtest/gtest.h>

#include <string>

namespace ostrel_simulator {
namespace {

constexpr const char* kOkText = "ok";
constexpr const char* kBadArguments = "error: these arguments are not understood";

struct ControlledInstrument {
  explicit ControlledInstrument(int devices = 1) : instrument(SettingsFor(devices)) {}

  static Settings SettingsFor(int devices) {
    Settings settings;
    settings.devices = devices;
    return settings;
  }

  std::string Run(const std::string& command) { return RunControlCommand(instrument, command); }
  Scene SceneOf(int device) {
    return instrument.devices[static_cast<std::size_t>(device)]->microscope.SceneNow();
  }

  Instrument instrument;
};

TEST(Control, TellsTheWholeState) {
  ControlledInstrument one;
  EXPECT_EQ(
      one.Run("status"),
      "plugged 1 focus 128 moving 0 scanning 0 light 100 magnification 50 stage moving frame 0");
}

TEST(Control, MakesTheSpecimenBeforehand) {
  ControlledInstrument one;
  Microscope& microscope = one.instrument.devices[0]->microscope;
  EXPECT_EQ(microscope.specimen, nullptr);
  EXPECT_EQ(one.Run("prepare"), kOkText);
  EXPECT_NE(microscope.specimen, nullptr);
}

TEST(Control, SetsWhatALibraryDoesNotLetAProgramSet) {
  ControlledInstrument one;
  EXPECT_EQ(one.Run("focus 9"), kOkText);
  EXPECT_EQ(one.Run("light 40"), kOkText);
  EXPECT_EQ(one.Run("magnification 200"), kOkText);
  EXPECT_EQ(one.Run("stage -5:600"), kOkText);
  EXPECT_EQ(one.Run("numbers 0"), kOkText);
  EXPECT_EQ(one.SceneOf(0).optics, (Optics{9, 200, 40}));
  EXPECT_EQ(one.SceneOf(0).stage, (Stage{false, -5, 600}));
  EXPECT_FALSE(one.SceneOf(0).showsNumber);
  EXPECT_EQ(
      one.Run("status"),
      "plugged 1 focus 9 moving 0 scanning 0 light 40 magnification 200 stage -5:600 frame 0");
  EXPECT_EQ(one.Run("  stage   moving "), kOkText);
  EXPECT_EQ(one.Run("numbers 1"), kOkText);
  EXPECT_TRUE(one.SceneOf(0).stage.moves);
  EXPECT_TRUE(one.SceneOf(0).showsNumber);
}

TEST(Control, PressesTheButton) {
  ControlledInstrument one;
  Microscope& microscope = one.instrument.devices[0]->microscope;
  EXPECT_EQ(one.Run("press"), kOkText);
  EXPECT_TRUE(microscope.TakePress());
  EXPECT_FALSE(microscope.TakePress());
  EXPECT_EQ(one.Run("hold"), kOkText);
  EXPECT_TRUE(microscope.TakePress());
  EXPECT_EQ(one.Run("release"), kOkText);
  EXPECT_FALSE(microscope.TakePress());
}

TEST(Control, SpoilsADeviceAndMendsIt) {
  ControlledInstrument two(2);
  Faults& faults = two.instrument.devices[1]->microscope.faults;
  EXPECT_EQ(two.Run("device 1 freeze 1"), kOkText);
  EXPECT_EQ(two.Run("device 1 refuse 1"), kOkText);
  EXPECT_EQ(two.Run("device 1 slow 10000"), kOkText);
  EXPECT_EQ(two.Run("device 1 hang camera"), kOkText);
  EXPECT_TRUE(faults.freezes);
  EXPECT_TRUE(faults.refuses);
  EXPECT_EQ(faults.slowMs, 10000);
  EXPECT_EQ(faults.hanging, DevicePart::Camera);
  const Faults& others = two.instrument.devices[0]->microscope.faults;
  EXPECT_FALSE(others.freezes || others.refuses || others.slowMs > 0);
  EXPECT_EQ(others.hanging, DevicePart::None);
  EXPECT_EQ(two.Run("device 1 hang microscope"), kOkText);
  EXPECT_EQ(faults.hanging, DevicePart::Microscope);
  for (const char* const command : {"freeze 0", "refuse 0", "slow 0", "hang nothing"}) {
    EXPECT_EQ(two.Run(std::string("device 1 ") + command), kOkText);
  }
  EXPECT_FALSE(faults.freezes || faults.refuses || faults.slowMs > 0);
  EXPECT_EQ(faults.hanging, DevicePart::None);
  for (const char* const command : {"freeze", "freeze 2", "refuse yes", "slow -1", "slow 10001",
                                    "hang", "hang both", "hang camera microscope"}) {
    EXPECT_EQ(two.Run(command), kBadArguments) << command;
  }
}

TEST(Control, ReachesEachDevice) {
  ControlledInstrument two(2);
  EXPECT_EQ(two.Run("device 1 focus 7"), kOkText);
  EXPECT_EQ(two.SceneOf(0).optics.focus, 128);
  EXPECT_EQ(two.SceneOf(1).optics.focus, 7);
  EXPECT_EQ(two.Run("device 0 focus 8"), kOkText);
  EXPECT_EQ(two.SceneOf(0).optics.focus, 8);
  EXPECT_EQ(two.Run("device 2 focus 7"), "error: there is no such device");
  EXPECT_EQ(two.Run("device x focus 7"), kBadArguments);
  EXPECT_EQ(two.Run("device 1"), "error: there is no command here");
}

TEST(Control, UnplugsADeviceAndPlugsItInAgain) {
  ControlledInstrument two(2);
  EXPECT_EQ(two.instrument.CameraCount(), 2);
  EXPECT_EQ(two.Run("device 0 unplug"), kOkText);
  EXPECT_EQ(two.instrument.CameraCount(), 2);
  EXPECT_EQ(two.instrument.Camera(0), nullptr);
  EXPECT_NE(two.instrument.Camera(1), nullptr);
  ASSERT_EQ(two.instrument.PluggedMicroscopes().size(), 1U);
  EXPECT_EQ(two.instrument.PluggedMicroscopes()[0]->index, 1);
  EXPECT_EQ(two.Run("device 1 unplug"), kOkText);
  EXPECT_EQ(two.instrument.CameraCount(), 0);
  EXPECT_EQ(two.Run("device 0 plug"), kOkText);
  EXPECT_EQ(two.instrument.CameraCount(), 1);
  EXPECT_EQ(two.instrument.PluggedMicroscopes()[0]->index, 0);
}

TEST(Control, EndsACaptureWithThePlug) {
  ControlledInstrument one;
  SimulatedCamera& camera = one.instrument.devices[0]->camera;
  ASSERT_EQ(camera.Start(0), kOk);
  one.Run("unplug");
  EXPECT_EQ(camera.FrameWidth(), kNotCapturing);
  EXPECT_EQ(camera.Start(0), kNoDevice);
  one.Run("plug");
  EXPECT_EQ(camera.FrameWidth(), kNotCapturing);
  EXPECT_EQ(camera.Start(0), kOk);
  EXPECT_EQ(camera.Stop(), kOk);
}

TEST(Control, StopsTheClockAndPutsItForward) {
  ControlledInstrument one;
  Microscope& microscope = one.instrument.devices[0]->microscope;
  EXPECT_EQ(one.Run("clock advance 5"), "error: the clock runs by itself");
  EXPECT_EQ(one.Run("clock stop"), kOkText);
  microscope.MoveFocus(148);
  EXPECT_EQ(one.Run("clock advance 5"), kOkText);
  EXPECT_EQ(
      one.Run("status"),
      "plugged 1 focus 138 moving 1 scanning 0 light 100 magnification 50 stage moving frame 0");
  EXPECT_EQ(one.Run("clock run"), kOkText);
  for (const char* const command : {"clock", "clock advance", "clock advance -1", "clock advance x",
                                    "clock sleep", "clock run 5"}) {
    EXPECT_EQ(one.Run(command), kBadArguments) << command;
  }
}

TEST(Control, RefusesWhatItDoesNotUnderstand) {
  ControlledInstrument one;
  for (const char* const command :
       {"focus", "focus 256", "focus -1", "focus 1 2", "focus x", "light 101", "magnification 19",
        "magnification 221", "stage", "stage 5", "stage 5:", "stage 5:6 7", "stage 5:1000001",
        "prepare 1", "numbers 2", "press 1", "unplug 0", "status x"}) {
    EXPECT_EQ(one.Run(command), kBadArguments) << command;
  }
  EXPECT_EQ(one.Run(""), "error: there is no command here");
  EXPECT_EQ(one.Run("  "), "error: there is no command here");
  EXPECT_EQ(one.Run("jump 5"), "error: there is no command jump");
  EXPECT_EQ(one.SceneOf(0).optics, Optics{});
  ControlledInstrument none(0);
  EXPECT_EQ(none.Run("focus 5"), "error: there is no such device");
}

}  // namespace
}  // namespace ostrel_simulator

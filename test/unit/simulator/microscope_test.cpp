#include "simulator/microscope.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "simulator/auto_focus.h"

namespace ostrel_simulator {
namespace {

struct StoppedMicroscope {
  explicit StoppedMicroscope(const Settings& settings = {}) : microscope(settings, 0, clock) {
    clock.Stop();
  }

  SimulatedClock clock;
  Microscope microscope;
};

TEST(Clock, RunsUnlessItIsStopped) {
  SimulatedClock clock;
  EXPECT_FALSE(clock.Advance(5));
  clock.Stop();
  const std::int64_t now = clock.NowMs();
  EXPECT_TRUE(clock.Advance(1000000));
  EXPECT_EQ(clock.NowMs(), now + 1000000);
  clock.Run();
  EXPECT_GE(clock.NowMs(), now + 1000000);
  EXPECT_FALSE(clock.Advance(1));
}

TEST(Microscope, BeginsAsTheSettingsSay) {
  Settings settings;
  settings.focus = 33;
  settings.light = 40;
  settings.magnification = 90;
  settings.stage = {false, 5, 6};
  settings.showsNumbers = 0;
  StoppedMicroscope one(settings);
  const Scene scene = one.microscope.SceneNow();
  EXPECT_EQ(scene.optics, (Optics{33, 90, 40}));
  EXPECT_EQ(scene.stage, (Stage{false, 5, 6}));
  EXPECT_FALSE(scene.showsNumber);
  EXPECT_TRUE(one.microscope.IsLightOn());
}

TEST(Microscope, MovesItsFocusByTheClock) {
  StoppedMicroscope one;
  ASSERT_TRUE(one.microscope.MoveFocus(138));
  EXPECT_EQ(one.microscope.Focus().position, 128);
  EXPECT_TRUE(one.microscope.Focus().isMoving);
  one.clock.Advance(2);
  EXPECT_EQ(one.microscope.SceneNow().optics.focus, 132);
  one.clock.Advance(3);
  EXPECT_EQ(one.microscope.Focus().position, 138);
  EXPECT_FALSE(one.microscope.Focus().isMoving);
}

TEST(Microscope, RefusesPositionsThatTheFocusDoesNotHave) {
  StoppedMicroscope one;
  EXPECT_FALSE(one.microscope.MoveFocus(-1));
  EXPECT_FALSE(one.microscope.MoveFocus(256));
  EXPECT_FALSE(one.microscope.Focus().isMoving);
  EXPECT_TRUE(one.microscope.MoveFocus(0));
  EXPECT_TRUE(one.microscope.MoveFocus(255));
}

TEST(Microscope, StepsToTheEndOfTheTravelAndNoFarther) {
  StoppedMicroscope one;
  one.microscope.PlaceFocus(6);
  EXPECT_TRUE(one.microscope.StepFocus(-4));
  one.clock.Advance(100);
  EXPECT_TRUE(one.microscope.StepFocus(-4));
  one.clock.Advance(100);
  EXPECT_EQ(one.microscope.Focus().position, 0);
  EXPECT_FALSE(one.microscope.StepFocus(-4));
  EXPECT_TRUE(one.microscope.StepFocus(4));
  one.clock.Advance(100);
  EXPECT_EQ(one.microscope.Focus().position, 4);
}

TEST(Microscope, FocusesByItselfInItsOwnTime) {
  StoppedMicroscope one;
  one.microscope.SetStage({false, 200, 100});
  one.microscope.StartAutoFocus();
  const std::vector<int> stops =
      PlanAutoFocus(*one.microscope.SharedSpecimen(), {128, 50, 100}, {200 * 65536, 100 * 65536});
  for (const int stop : stops) {
    EXPECT_TRUE(one.microscope.Focus().isScanning);
    EXPECT_EQ(one.microscope.Focus().position, stop);
    one.clock.Advance(kMsPerScanStop);
  }
  EXPECT_FALSE(one.microscope.Focus().isScanning);
  EXPECT_EQ(one.microscope.Focus().position, stops.back());
}

TEST(Microscope, KeepsTheLevelOfItsLampWhileItIsOff) {
  StoppedMicroscope one;
  one.microscope.SetLight(30);
  one.microscope.LightLeds(0);
  EXPECT_FALSE(one.microscope.IsLightOn());
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 0);
  one.microscope.LightLeds(100);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 30);
  one.microscope.SetLight(0);
  EXPECT_FALSE(one.microscope.IsLightOn());
  one.microscope.LightLeds(100);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 30);
}

TEST(Microscope, GivesTheLightOfTheLedsThatAreLit) {
  StoppedMicroscope one;
  one.microscope.SetLight(50);
  one.microscope.LightLeds(60);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 30);
  one.microscope.SetLight(100);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 60);
  one.microscope.SetLight(1);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 1);
  one.microscope.SetLight(0);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 0);
  one.microscope.SetLight(80);
  EXPECT_EQ(one.microscope.SceneNow().optics.light, 80);
}

TEST(Microscope, CountsHowOftenItsRingIsTurned) {
  StoppedMicroscope one;
  EXPECT_EQ(one.microscope.MagnificationChanges(), 0U);
  one.microscope.SetMagnification(50);
  EXPECT_EQ(one.microscope.MagnificationChanges(), 0U);
  one.microscope.SetMagnification(60);
  one.microscope.SetMagnification(50);
  EXPECT_EQ(one.microscope.MagnificationChanges(), 2U);
}

TEST(Microscope, ReadsItsMagnificationWithinTheNoiseAndTheSameInEveryRunWithItsSeed) {
  StoppedMicroscope one;
  StoppedMicroscope two;
  Settings settings;
  settings.seed = 2;
  StoppedMicroscope other(settings);
  bool differ = false;
  for (int i = 0; i < 500; ++i) {
    const double reading = one.microscope.ReadMagnification();
    EXPECT_NEAR(reading, 50.0, 0.06);
    EXPECT_EQ(reading, two.microscope.ReadMagnification());
    differ = differ || reading != other.microscope.ReadMagnification();
  }
  EXPECT_TRUE(differ);
  one.microscope.SetMagnification(200);
  for (int i = 0; i < 500; ++i) {
    EXPECT_NEAR(one.microscope.ReadMagnification(), 200.0, 0.24);
  }
}

TEST(Microscope, ReadsNoMagnificationBeyondItsRing) {
  StoppedMicroscope one;
  for (int i = 0; i < 500; ++i) {
    one.microscope.SetMagnification(kLeastMagnification);
    EXPECT_GE(one.microscope.ReadMagnification(), kLeastMagnification);
    one.microscope.SetMagnification(kMostMagnification);
    EXPECT_LE(one.microscope.ReadMagnification(), kMostMagnification);
  }
}

TEST(Microscope, ReadsItsMagnificationExactlyWithoutNoise) {
  Settings settings;
  settings.readingNoise = 0;
  StoppedMicroscope one(settings);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(one.microscope.ReadMagnification(), 50.0);
  }
}

TEST(Microscope, TellsEachPressOfItsButtonOnce) {
  StoppedMicroscope one;
  EXPECT_FALSE(one.microscope.TakePress());
  one.microscope.Press();
  EXPECT_TRUE(one.microscope.TakePress());
  EXPECT_FALSE(one.microscope.TakePress());
  one.microscope.Press();
  one.microscope.Press();
  EXPECT_TRUE(one.microscope.TakePress());
  EXPECT_TRUE(one.microscope.TakePress());
  EXPECT_FALSE(one.microscope.TakePress());
}

TEST(Microscope, TellsThatItsButtonIsHeldUntilItIsReleased) {
  StoppedMicroscope one;
  one.microscope.Hold(true);
  EXPECT_TRUE(one.microscope.TakePress());
  EXPECT_TRUE(one.microscope.TakePress());
  one.microscope.Hold(false);
  EXPECT_FALSE(one.microscope.TakePress());
}

TEST(Microscope, LooksAtASpecimenOfItsOwn) {
  Settings settings;
  settings.seed = 4;
  SimulatedClock clock;
  Microscope first(settings, 0, clock);
  Microscope second(settings, 1, clock);
  EXPECT_FALSE(first.SharedSpecimen()->layers[0].bytes == second.SharedSpecimen()->layers[0].bytes);
  EXPECT_EQ(first.SharedSpecimen(), first.SharedSpecimen());
}

TEST(Microscope, MayBeUsedByManyThreadsAtOnce) {
  SimulatedClock clock;
  Microscope microscope({}, 0, clock);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&microscope, &clock, i] {
      for (int round = 0; round < 200; ++round) {
        microscope.MoveFocus((round * 7 + i) % 256);
        microscope.StepFocus(i % 2 == 0 ? 4 : -4);
        microscope.LightLeds(round % 101);
        microscope.SetLight(round % 101);
        microscope.SetMagnification(20 + round);
        microscope.SetStage({false, round, i});
        microscope.Press();
        microscope.TakePress();
        microscope.Hold(round % 2 == 0);
        microscope.NoteFrame(static_cast<std::uint32_t>(round));
        microscope.NoteFrameSize({round, i});
        const FocusState focus = microscope.Focus();
        EXPECT_GE(focus.position, 0);
        EXPECT_LE(focus.position, 255);
        microscope.SceneNow();
        microscope.LastFrameSize();
        microscope.SharedSpecimen();
        if (i == 0 && round % 20 == 0) {
          clock.Stop();
          clock.Advance(1);
          clock.Run();
        }
      }
    });
  }
  microscope.StartAutoFocus();
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace ostrel_simulator

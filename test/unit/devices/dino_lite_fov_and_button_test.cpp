// The polls of the field of view and of the button.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <latch>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "devices/cache_age.h"
#include "devices/dino_lite_devices.h"
#include "devices/dino_lite_operations.h"
#include "devices/dino_lite_telemetry.h"
#include "unit/support/asleep.h"
#include "unit/support/dino_fixture.h"
#include "unit/support/eventually.h"

namespace ostrel_native {
namespace {

using CallList = std::vector<std::string>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct DinoFovTest : DinoTest {
  // What the library answers for any magnification.
  void SendFov(double value) { fake.Send("default dl_get_fovx " + Bits(value)); }

  static void ReadFov(double amr) {
    PollDinoFov(amr, 0);
    Flush();
  }
};

struct DinoMicrotouchTest : DinoTest {
  void SelectDeviceWithButton() {
    Start();
    fake.Send("default dl_device_supports_microtouch 1");
    ASSERT_TRUE(SelectDinoDevice(0));
  }
};

TEST_F(DinoFovTest, ServesTheFieldOfViewOnlyAtTheCallAfterTheOneThatAskedForIt) {
  Load();
  SendFov(6540.0);
  EXPECT_EQ(PollDinoFov(50.0, 3), std::nullopt);
  Flush();
  EXPECT_EQ(Calls(), CallList{"dl_get_fovx(3," + Bits(50.0) + ")"});
  SendFov(1000.0);
  EXPECT_EQ(PollDinoFov(50.0, 3), 6.54);
  Flush();
  EXPECT_EQ(PollDinoFov(50.0, 3), 1.0);
  Flush();
  EXPECT_EQ(Errors(), Both(""));
}

TEST_F(DinoFovTest, TakesANegativeSelectorForZero) {
  Load();
  for (const std::int32_t selector : {-1, std::numeric_limits<std::int32_t>::min(), 7}) {
    PollDinoFov(50.0, selector);
    Flush();
  }
  EXPECT_EQ(Calls(),
            (CallList{"dl_get_fovx(0," + Bits(50.0) + ")", "dl_get_fovx(0," + Bits(50.0) + ")",
                      "dl_get_fovx(7," + Bits(50.0) + ")"}));
}

TEST_F(DinoFovTest, ServesTheFieldOfViewOfNearlyTheSameMagnificationAndOfNoOther) {
  Load();
  SendFov(5000.0);
  ReadFov(50.0005);
  fake.Send("block dl_get_fovx");
  EXPECT_EQ(PollDinoFov(50.0, 0), 5.0);
  EXPECT_EQ(PollDinoFov(50.002, 0), std::nullopt);
  EXPECT_EQ(g_dinoCachedFov, -1.0);
  EXPECT_EQ(g_dinoCachedFovAmr, 50.002);
  EXPECT_EQ(PollDinoFov(50.0, 0), std::nullopt);
  fake.Send("release dl_get_fovx");
  Flush();
}

TEST_F(DinoFovTest, ServesTheFieldOfViewWhateverTheSelectorThatItIsFor) {
  Load();
  SendFov(5000.0);
  ReadFov(50.0);
  EXPECT_EQ(PollDinoFov(50.0, 2), 5.0);
  Flush();
}

// A reading for the former magnification that ends late writes it back; the next poll sees that.
TEST_F(DinoFovTest, DropsALateFieldOfViewForAFormerMagnification) {
  Load();
  fake.Send("default dl_get_fovx@0," + Bits(50.0) + " " + Bits(5000.0));
  fake.Send("default dl_get_fovx@0," + Bits(60.0) + " " + Bits(6000.0));
  fake.Send("block dl_get_fovx");
  EXPECT_EQ(PollDinoFov(50.0, 0), std::nullopt);
  fake.WaitEntered("dl_get_fovx", 1);
  EXPECT_EQ(PollDinoFov(60.0, 0), std::nullopt);
  fake.Send("release dl_get_fovx");
  Flush();
  EXPECT_EQ(g_dinoCachedFov, 5.0);
  EXPECT_EQ(g_dinoCachedFovAmr, 50.0);
  EXPECT_EQ(PollDinoFov(60.0, 0), std::nullopt);
  Flush();
  EXPECT_EQ(PollDinoFov(60.0, 0), 6.0);
  Flush();
}

// A reading that has stored its value, and not yet the magnification that it is for.
TEST_F(DinoFovTest, ServesNothingOfAReadingThatIsStillBeingStored) {
  g_dinoCachedFov = 5.0;
  g_dinoCachedFovAmr = 50.0;
  g_dinoCachedFovAtMs = SteadyMs();
  std::latch storing{1};
  std::latch goOn{1};
  std::thread writer([&] {
    g_dinoTelemetry.Write([&] {
      g_dinoCachedFov = 6.0;
      storing.count_down();
      goOn.wait();
      g_dinoCachedFovAmr = 60.0;
    });
  });
  storing.wait();
  std::atomic<pid_t> thread{0};
  std::atomic<bool> isServed{false};
  std::optional<double> served;
  std::thread poller([&] {
    thread = gettid();
    served = PollDinoFov(50.0, 0);
    isServed = true;
  });
  EXPECT_TRUE(Eventually([&] { return isServed || (thread != 0 && IsAsleep(thread)); }));
  EXPECT_FALSE(isServed);
  goOn.count_down();
  writer.join();
  poller.join();
  EXPECT_EQ(served, std::nullopt);
  Flush();
}

// The lock is held, so a reading is either stored as a whole behind it, or in part before.
TEST_F(DinoFovTest, StoresAReadingWithItsMagnificationAndItsStampInOneGo) {
  Load();
  SendFov(6000.0);
  {
    const std::lock_guard lock(g_dinoTelemetry.mutex);
    g_dinoCachedFovAmr = 60.0;
    EXPECT_EQ(PollDinoFov(60.0, 0), std::nullopt);
    fake.WaitFinished("dl_get_fovx", 1);
    const int owner = fake.Calls().at(0).thread;
    EXPECT_TRUE(Eventually([owner] { return IsAsleep(owner); }));
    EXPECT_EQ(g_dinoCachedFov, -1.0);
    EXPECT_EQ(g_dinoCachedFovAtMs, 0);
  }
  Flush();
  EXPECT_EQ(g_dinoCachedFov, 6.0);
  EXPECT_EQ(g_dinoCachedFovAmr, 60.0);
  EXPECT_GT(g_dinoCachedFovAtMs, 0);
}

// Of a library whose every answer says for which magnification it is.
TEST_F(DinoFovTest, NeverServesTheFieldOfViewOfAnotherMagnificationHoweverFastTheyChange) {
  Load();
  g_dinoLite.dl_get_fovx = [](int, double amr) { return amr * 1000.0; };
  int served = 0;
  int others = 0;
  for (int i = 0; i < 300'000; ++i) {
    const double amr = 50.0 + i / 3 % 2;
    if (const std::optional<double> fov = PollDinoFov(amr, 0)) {
      ++served;
      others += *fov == amr ? 0 : 1;
    }
  }
  Flush();
  EXPECT_EQ(others, 0) << "of " << served;
  EXPECT_GT(served, 0);
}

TEST_F(DinoFovTest, NeverServesTheFieldOfViewOfAnotherMagnificationToTwoPollersAtOnce) {
  Load();
  g_dinoLite.dl_get_fovx = [](int, double amr) { return amr * 1000.0; };
  const auto poll = [](double amr) {
    for (int i = 0; i < 100'000; ++i) {
      const std::optional<double> fov = PollDinoFov(amr, 0);
      ASSERT_EQ(fov.value_or(amr), amr);
    }
  };
  std::thread other(poll, 60.0);
  poll(50.0);
  other.join();
  Flush();
}

TEST_F(DinoFovTest, StoresAndStampsAlsoAFieldOfViewThatIsNone) {
  Load();
  for (const double none : {0.0, -0.0, -5.0, kNaN}) {
    SendFov(none);
    g_dinoCachedFov = 1.0;
    g_dinoCachedFovAtMs = 0;
    ReadFov(50.0);
    EXPECT_EQ(g_dinoCachedFov, -1.0);
    EXPECT_EQ(g_dinoCachedFovAmr, 50.0);
    EXPECT_GT(g_dinoCachedFovAtMs, 0);
    EXPECT_EQ(PollDinoFov(50.0, 0), std::nullopt);
    Flush();
  }
  SendFov(kInfinity);
  ReadFov(50.0);
  EXPECT_EQ(PollDinoFov(50.0, 0), kInfinity);
  Flush();
}

TEST_F(DinoFovTest, HasNoFieldOfViewOfALibraryWithoutOneOrOfNone) {
  ReadFov(50.0);
  EXPECT_EQ(g_dinoCachedFov, -1.0);
  EXPECT_GT(g_dinoCachedFovAtMs, 0);
  const FakeLibrary library = Load("dl_get_fovx");
  ReadFov(50.0);
  EXPECT_EQ(PollDinoFov(50.0, 0), std::nullopt);
  Flush();
  // These readings publish no state.
  EXPECT_EQ(Snapshot().backend, "");
  EXPECT_TRUE(library.Calls().empty());
}

TEST_F(DinoFovTest, TakesNaNForTheMagnificationOfAnyFieldOfView) {
  Load();
  SendFov(5000.0);
  ReadFov(50.0);
  EXPECT_EQ(PollDinoFov(kNaN, 0), 5.0);
  Flush();
  EXPECT_TRUE(std::isnan(g_dinoCachedFovAmr));
  EXPECT_EQ(PollDinoFov(70.0, 0), 5.0);
  Flush();
  EXPECT_EQ(g_dinoCachedFovAmr, 70.0);
}

TEST_F(DinoFovTest, ServesAFieldOfViewUntilItIsTooOld) {
  Load();
  fake.Send("block dl_get_fovx");
  g_dinoCachedFov = 6.0;
  g_dinoCachedFovAmr = 50.0;
  g_dinoCachedFovAtMs = SteadyMs() - 1000;
  EXPECT_EQ(PollDinoFov(50.0, 0), 6.0);
  g_dinoCachedFovAtMs = SteadyMs() - 3000;
  EXPECT_EQ(PollDinoFov(50.0, 0), std::nullopt);
  fake.Send("release dl_get_fovx");
  Flush();
}

TEST_F(DinoMicrotouchTest, ReportsEachPressOnceAndOneCallLate) {
  SelectDeviceWithButton();
  ASSERT_TRUE(EnableDinoMicrotouch(true));
  fake.Send("answer dl_microtouch_pressed 1 0 0");
  EXPECT_FALSE(PollDinoMicrotouch());
  Flush();
  EXPECT_TRUE(PollDinoMicrotouch());
  Flush();
  EXPECT_FALSE(PollDinoMicrotouch());
  Flush();
  EXPECT_EQ(fake.Entered("dl_microtouch_pressed"), 3);
}

TEST_F(DinoMicrotouchTest, ReportsTwoPressesThatNobodyAskedForInBetweenAsOne) {
  SelectDeviceWithButton();
  ASSERT_TRUE(EnableDinoMicrotouch(true));
  fake.Send("block dl_microtouch_pressed\nanswer dl_microtouch_pressed 1 0 0");
  EXPECT_FALSE(PollDinoMicrotouch());
  fake.WaitEntered("dl_microtouch_pressed", 1);
  g_dinoCachedMicrotouch = true;
  fake.Send("release dl_microtouch_pressed");
  Flush();
  EXPECT_TRUE(PollDinoMicrotouch());
  Flush();
  EXPECT_FALSE(PollDinoMicrotouch());
  Flush();
}

// The latch is taken in one step: of many presses and many polls, none is told twice.
TEST_F(DinoMicrotouchTest, TellsNoPressTwiceHoweverFastItIsPolled) {
  SelectDeviceWithButton();
  ASSERT_TRUE(EnableDinoMicrotouch(true));
  fake.Send("log_limit 0\ndefault dl_microtouch_pressed 1");
  int told = 0;
  for (int i = 0; i < 20'000; ++i) {
    told += PollDinoMicrotouch() ? 1 : 0;
  }
  Flush();
  told += g_dinoCachedMicrotouch ? 1 : 0;
  EXPECT_GE(told, 1);
  EXPECT_LE(told, fake.Entered("dl_microtouch_pressed"));
}

TEST_F(DinoMicrotouchTest, KeepsAPressHoweverOldAndThroughADisabling) {
  SelectDeviceWithButton();
  ASSERT_TRUE(EnableDinoMicrotouch(true));
  fake.Send("answer dl_microtouch_pressed 1");
  PollDinoMicrotouch();
  Flush();
  ASSERT_TRUE(EnableDinoMicrotouch(false));
  EXPECT_TRUE(PollDinoMicrotouch());
  Flush();
  EXPECT_FALSE(PollDinoMicrotouch());
  Flush();
  // Disabled, the polls did not reach the library.
  EXPECT_EQ(fake.Entered("dl_microtouch_pressed"), 1);
}

TEST_F(DinoMicrotouchTest, LosesAPressWhenTheDeviceIsChanged) {
  SelectDeviceWithButton();
  ASSERT_TRUE(EnableDinoMicrotouch(true));
  fake.Send("answer dl_microtouch_pressed 1");
  PollDinoMicrotouch();
  Flush();
  ASSERT_TRUE(SelectDinoDevice(1));
  EXPECT_FALSE(PollDinoMicrotouch());
  Flush();
  // Polling goes on without enabling it anew.
  EXPECT_EQ(fake.Entered("dl_microtouch_pressed"), 2);
}

TEST_F(DinoMicrotouchTest, AsksForTheButtonOnlyOfASelectedDeviceThatHasOneAndIfItIsEnabled) {
  const auto poll = [] {
    EXPECT_FALSE(PollDinoMicrotouch());
    Flush();
  };
  poll();
  Start();
  fake.Send("default dl_microtouch_pressed 1");
  EXPECT_FALSE(EnableDinoMicrotouch(true));
  poll();
  ASSERT_TRUE(SelectDinoDevice(0));
  poll();
  SelectDeviceWithButton();
  EXPECT_TRUE(EnableDinoMicrotouch(false));
  poll();
  EXPECT_EQ(fake.Entered("dl_microtouch_pressed"), 0);
  EXPECT_TRUE(EnableDinoMicrotouch(true));
  poll();
  EXPECT_EQ(fake.Entered("dl_microtouch_pressed"), 1);
}

}  // namespace
}  // namespace ostrel_native

#include "devices/dino_lite_telemetry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "devices/cache_age.h"
#include "devices/dino_lite_devices.h"
#include "devices/dino_lite_operations.h"
#include "unit/support/dino_fixture.h"

namespace ostrel_native {
namespace {

using CallList = std::vector<std::string>;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct DinoTelemetryTest : DinoTest {
  // A device with a magnification and a button, selected, with its readings forgotten.
  void SelectDevice() {
    Start();
    fake.Send("default dl_device_supports_amr 1\ndefault dl_device_supports_microtouch 1");
    ASSERT_TRUE(SelectDinoDevice(0));
    ResetDinoTelemetry(0);
    fake.Send("clear_log");
    SetErrors(kEarlierError);
  }

  void SendAmr(float value) { SendFloat(fake, "default dl_get_amr", value); }

  // Asks for a reading of the device 0, and waits for it.
  static void ReadAmr() {
    PollDinoAmr(0);
    Flush();
  }
};

TEST_F(DinoTelemetryTest, HasNoStateBeforeTheFirstTask) {
  const DinoDebugState state = CopyDinoDebugState();
  EXPECT_FALSE(state.snapshot.loaded);
  EXPECT_EQ(state.snapshot.backend, "");
  EXPECT_EQ(state.snapshot.path, "");
  EXPECT_EQ(state.snapshot.selectedDeviceIndex, -1);
  EXPECT_EQ(state.snapshot.amrRaw, -1.0);
  EXPECT_EQ(state.cachedAmr, std::nullopt);
  EXPECT_EQ(state.cachedAmrAgeMs, std::nullopt);
}

TEST_F(DinoTelemetryTest, CopiesAllOfTheBinding) {
  Start();
  SendLedModes(fake, {16, 1});
  fake.Send(
      "default dl_device_supports_amr 1\ndefault dl_device_supports_microtouch 1\n"
      "default dl_get_amr_update_count -1");
  SendAmr(1001.0F);
  ASSERT_TRUE(SelectDinoDevice(1));
  const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
  EXPECT_TRUE(snapshot.loaded);
  EXPECT_EQ(snapshot.backend, "mac-libdinolite");
  EXPECT_EQ(snapshot.path, FakePath("libdinolite.so"));
  EXPECT_EQ(snapshot.selectedDeviceIndex, 1);
  EXPECT_EQ(snapshot.ledState, 16);
  EXPECT_EQ(snapshot.controllableLedsCount, 2);
  EXPECT_EQ(snapshot.ledModes, (std::vector<std::int32_t>{16, 1}));
  EXPECT_TRUE(snapshot.initialized);
  EXPECT_TRUE(snapshot.supportsAmr);
  EXPECT_TRUE(snapshot.supportsMicrotouch);
  EXPECT_TRUE(snapshot.supportsLedControl);
  EXPECT_TRUE(snapshot.amrRead);
  EXPECT_EQ(snapshot.amrRaw, 1001.0);
  EXPECT_FALSE(snapshot.amrAccepted);
  EXPECT_EQ(snapshot.amrUpdates, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(DinoTelemetryTest, CountsNoUpdatesOfALibraryThatDoesNotCountThem) {
  Start("dl_get_amr_update_count");
  ASSERT_TRUE(SelectDinoDevice(0));
  EXPECT_EQ(Snapshot().amrUpdates, 0U);
  EXPECT_TRUE(Snapshot().loaded);
}

TEST_F(DinoTelemetryTest, HasNoLightToControlUntilADeviceIsSelected) {
  Start();
  SendLedModes(fake, {16, 1});
  g_dinoLite.ledModes = {16, 1};
  OnOwner(UpdateDinoSnapshotOnOwnerThread);
  EXPECT_FALSE(Snapshot().supportsLedControl);
}

// A writer makes states whose parts belong together; no reader ever sees two of them in one, nor an
// older one after a newer.
TEST_F(DinoTelemetryTest, IsNeverCopiedInPartNorOutOfOrder) {
  constexpr std::int32_t kStates = 3000;
  std::atomic<bool> stop{false};
  const auto read = [&stop] {
    std::int32_t last = 0;
    while (!stop) {
      const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
      const std::int32_t state = snapshot.ledState;
      ASSERT_GE(state, last);
      last = state;
      if (state > 0) {
        ASSERT_EQ(snapshot.selectedDeviceIndex, state);
        ASSERT_EQ(snapshot.ledModes,
                  std::vector<std::int32_t>(static_cast<std::size_t>(state % 50), state));
        ASSERT_EQ(snapshot.path, std::to_string(state) + " is a text too long to stand in place");
      }
    }
  };
  std::thread first(read);
  std::thread second(read);
  for (std::int32_t state = 1; state <= kStates; ++state) {
    ASSERT_TRUE(g_dinoLiteExecutor.InvokeVoid(
        [state] {
          g_dinoLite.ledState = state;
          g_dinoLite.selectedDeviceIndex = state;
          g_dinoLite.ledModes.assign(static_cast<std::size_t>(state % 50), state);
          g_dinoLite.path = std::to_string(state) + " is a text too long to stand in place";
          UpdateDinoSnapshotOnOwnerThread();
        },
        std::chrono::minutes(1)));
    // No older than the task that has just been waited for.
    ASSERT_EQ(Snapshot().ledState, state);
  }
  stop = true;
  first.join();
  second.join();
}

TEST_F(DinoTelemetryTest, ServesAMagnificationOnlyAtTheCallAfterTheOneThatAskedForIt) {
  SelectDevice();
  for (int i = 1; i <= 100; ++i) {
    ResetDinoTelemetry(0);
    SendAmr(100.0F + static_cast<float>(i));
    EXPECT_EQ(PollDinoAmr(0), std::nullopt);
    Flush();
    SendAmr(500.0F);
    EXPECT_EQ(PollDinoAmr(0), 100.0 + i);
    Flush();
  }
}

TEST_F(DinoTelemetryTest, ReadsTheMagnificationAndPublishesTheState) {
  SelectDevice();
  SendAmr(219.7F);
  ReadAmr();
  EXPECT_EQ(Calls(), (CallList{"dl_get_amr()", "dl_get_amr_update_count()"}));
  EXPECT_EQ(Snapshot().amrRaw, double{219.7F});
  EXPECT_TRUE(Snapshot().amrAccepted);
  EXPECT_EQ(PollDinoAmr(0), double{219.7F});
  Flush();
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(DinoTelemetryTest, AcceptsTenToAThousandAndWhatIsNoNumber) {
  SelectDevice();
  for (const float accepted : {10.0F, 1000.0F, 999.9999F}) {
    SendAmr(accepted);
    ReadAmr();
    EXPECT_TRUE(Snapshot().amrAccepted);
    EXPECT_EQ(g_dinoCachedAmr, double{accepted});
  }
  SendAmr(kNaN);
  ReadAmr();
  EXPECT_TRUE(Snapshot().amrRead);
  EXPECT_TRUE(Snapshot().amrAccepted);
  EXPECT_TRUE(std::isnan(Snapshot().amrRaw));
  const std::optional<double> served = PollDinoAmr(0);
  ASSERT_TRUE(served.has_value());
  EXPECT_TRUE(std::isnan(*served));
  ASSERT_TRUE(CopyDinoDebugState().cachedAmr.has_value());
  Flush();
}

TEST_F(DinoTelemetryTest, ServesTheLastGoodMagnificationUntilItIsTooOld) {
  SelectDevice();
  SendAmr(60.0F);
  ReadAmr();
  const std::int64_t stamp = g_dinoCachedAmrAtMs;
  for (const float refused : {9.9F, 1000.5F, 0.0F, -60.0F, kInfinity, -kInfinity}) {
    SendAmr(refused);
    ReadAmr();
    EXPECT_TRUE(Snapshot().amrRead);
    EXPECT_EQ(Snapshot().amrRaw, double{refused});
    EXPECT_FALSE(Snapshot().amrAccepted);
    EXPECT_EQ(g_dinoCachedAmr, 60.0);
    EXPECT_EQ(g_dinoCachedAmrAtMs, stamp);
  }
  EXPECT_EQ(PollDinoAmr(0), 60.0);
  g_dinoCachedAmrAtMs = SteadyMs() - 60'000;
  EXPECT_EQ(PollDinoAmr(0), std::nullopt);
  Flush();
  // The debug state shows it with its age.
  const DinoDebugState state = CopyDinoDebugState();
  EXPECT_EQ(state.cachedAmr, 60.0);
  ASSERT_TRUE(state.cachedAmrAgeMs.has_value());
  EXPECT_GE(*state.cachedAmrAgeMs, 60'000);
  SendAmr(70.0F);
  ReadAmr();
  EXPECT_EQ(PollDinoAmr(0), 70.0);
  Flush();
}

TEST_F(DinoTelemetryTest, ForgetsEverythingForAnotherIndexAndNeverServesTheOld) {
  SelectDevice();
  SendAmr(60.0F);
  fake.Send("default dl_get_fovx " + Bits(6000.0));
  ReadAmr();
  PollDinoFov(60.0, 0);
  Flush();
  g_dinoCachedMicrotouch = true;
  ASSERT_EQ(g_dinoCachedAmr, 60.0);
  fake.Send("block dl_get_amr");
  EXPECT_EQ(PollDinoAmr(1), std::nullopt);
  EXPECT_EQ(g_dinoTelemetryIndex, 1);
  EXPECT_EQ(g_dinoCachedAmr, -1.0);
  EXPECT_EQ(g_dinoCachedAmrAtMs, 0);
  EXPECT_EQ(g_dinoCachedFov, -1.0);
  EXPECT_EQ(g_dinoCachedFovAmr, -1.0);
  EXPECT_EQ(g_dinoCachedFovAtMs, 0);
  EXPECT_FALSE(g_dinoCachedMicrotouch);
  EXPECT_EQ(PollDinoAmr(1), std::nullopt);
  fake.Send("release dl_get_amr");
  Flush();
  // The index says which device is meant; read is the selected one.
  EXPECT_EQ(PollDinoAmr(1), 60.0);
  EXPECT_EQ(PollDinoAmr(-1), std::nullopt);
  Flush();
}

TEST_F(DinoTelemetryTest, PublishesTheStateAlsoWhereThereIsNoMagnificationToRead) {
  ResetDinoSnapshot();
  ReadAmr();
  EXPECT_EQ(Snapshot().backend, "none");
  Start();
  ASSERT_TRUE(SelectDinoDevice(0));
  fake.Send("clear_log\ndefault dl_get_amr_update_count 8");
  SendAmr(60.0F);
  ReadAmr();
  EXPECT_EQ(PollDinoAmr(0), std::nullopt);
  Flush();
  EXPECT_EQ(Calls(), CallList(2, "dl_get_amr_update_count()"));
  EXPECT_EQ(Snapshot().amrUpdates, 8U);
  EXPECT_FALSE(Snapshot().amrRead);
}

TEST_F(DinoTelemetryTest, PutsOneReadingOfAKindIntoTheQueueHoweverManyPollsThereAre) {
  SelectDevice();
  ASSERT_TRUE(EnableDinoMicrotouch(true));
  fake.Send("clear_log\nblock dl_get_amr");
  for (int i = 0; i < 10; ++i) {
    PollDinoAmr(0);
    PollDinoFov(50.0, 0);
    PollDinoMicrotouch();
  }
  fake.WaitEntered("dl_get_amr", 2);
  PollDinoAmr(0);
  fake.Send("release dl_get_amr");
  Flush();
  EXPECT_EQ(Calls(), (CallList{"dl_get_amr()", "dl_get_amr_update_count()",
                               "dl_get_fovx(0," + Bits(50.0) + ")", "dl_microtouch_pressed()"}));
}

TEST_F(DinoTelemetryTest, NeverWaitsForALibraryThatHangs) {
  SelectDevice();
  SendAmr(60.0F);
  ReadAmr();
  fake.Send("block dl_get_amr");
  EXPECT_EQ(PollDinoAmr(0), 60.0);
  fake.WaitEntered("dl_get_amr", 3);
  for (int i = 0; i < 1000; ++i) {
    PollDinoAmr(0);
    EXPECT_EQ(PollDinoFov(50.0, 0), std::nullopt);
    EXPECT_FALSE(PollDinoMicrotouch());
    EXPECT_EQ(CopyDinoDebugState().cachedAmr, 60.0);
  }
  fake.Send("release dl_get_amr");
  Flush();
}

}  // namespace
}  // namespace ostrel_native

#include "devices/dino_lite_devices.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "devices/dino_lite_operations.h"
#include "unit/support/dino_fixture.h"

namespace ostrel_native {
namespace {

using std::chrono::milliseconds;
using CallList = std::vector<std::string>;

constexpr char kTimedOut[] = "Dino-Lite SDK call timed out";
constexpr milliseconds kShort{5};
const CallList kSnapshotAlone = {"dl_get_amr_update_count()"};

struct DinoDevicesTest : DinoTest {
  // Gives every cached reading a value, which only a reset takes away.
  static void FillTelemetry() {
    g_dinoTelemetryIndex = 5;
    g_dinoCachedAmr = 50.0;
    g_dinoCachedAmrAtMs = 1;
    g_dinoCachedFov = 6.0;
    g_dinoCachedFovAmr = 50.0;
    g_dinoCachedFovAtMs = 1;
    g_dinoCachedMicrotouch = true;
  }

  static void ExpectTelemetryReset() {
    EXPECT_EQ(g_dinoTelemetryIndex, -1);
    EXPECT_EQ(g_dinoCachedAmr, -1.0);
    EXPECT_EQ(g_dinoCachedAmrAtMs, 0);
    EXPECT_EQ(g_dinoCachedFov, -1.0);
    EXPECT_EQ(g_dinoCachedFovAmr, -1.0);
    EXPECT_EQ(g_dinoCachedFovAtMs, 0);
    EXPECT_FALSE(g_dinoCachedMicrotouch);
    FillTelemetry();
  }

  // A selected device, with its log empty.
  void SelectDevice() {
    Start();
    SendLedModes(fake, {16, 1});
    ASSERT_TRUE(SelectDinoDevice(1));
    g_dinoLite.microtouchEnabled = true;
    FillTelemetry();
    fake.Send("clear_log");
    SetErrors(kEarlierError);
  }
};

TEST_F(DinoDevicesTest, HasNothingToTellOfWhatIsNotLoaded) {
  SetErrors(kEarlierError);
  EXPECT_EQ(CountDinoDevices(), 0);
  EXPECT_EQ(DinoDeviceIdentifier(0), "");
  EXPECT_EQ(DinoDeviceName(0), "");
  EXPECT_TRUE(ListDinoDevices().empty());
  EXPECT_EQ(SelectedDinoDevice(), -1);
  EXPECT_FALSE(DinoSupportsAmr());
  FillTelemetry();
  EXPECT_FALSE(InitDino(false));
  ExpectTelemetryReset();
  EXPECT_FALSE(InitDino(true));
  ExpectTelemetryReset();
  EXPECT_TRUE(DisposeDino());
  ExpectTelemetryReset();
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(DinoDevicesTest, PublishesTheStateAfterEveryTaskThatMayChangeIt) {
  const std::vector<std::function<void()>> tasks = {
      [] { LoadDinoLibrary("/nowhere"); }, [] { InitDino(false); },      [] { DisposeDino(); },
      [] { SelectDinoBackend(); },         [] { SelectDinoDevice(-1); }, [] { ToggleDinoLed(); },
      [] { EnableDinoMicrotouch(true); }};
  for (const auto& task : tasks) {
    ResetDinoSnapshot();
    EXPECT_EQ(Snapshot().backend, "");
    task();
    EXPECT_EQ(Snapshot().backend, "none");
  }
  ResetDinoSnapshot();
  CountDinoDevices();
  SelectedDinoDevice();
  ListDinoDevices();
  DinoSupportsAmr();
  EXPECT_EQ(Snapshot().backend, "");
}

TEST_F(DinoDevicesTest, TellsTheLoadedPathAlsoAtALaterLoadAndNoneAfterAFailure) {
  FillTelemetry();
  const DinoLoadResult failed = LoadDinoLibrary("/nowhere/libdinolite.so");
  EXPECT_FALSE(failed.ok);
  EXPECT_EQ(failed.backend, "none");
  EXPECT_EQ(failed.path, "");
  EXPECT_FALSE(Snapshot().loaded);
  for (const std::string& path : {FakePath("libdinolite.so"), std::string("/nowhere")}) {
    fake.Send("clear_log");
    const DinoLoadResult loaded = LoadDinoLibrary(path);
    EXPECT_TRUE(loaded.ok);
    EXPECT_EQ(loaded.backend, "mac-libdinolite");
    EXPECT_EQ(loaded.path, FakePath("libdinolite.so"));
    EXPECT_TRUE(Snapshot().loaded);
    EXPECT_EQ(Snapshot().backend, "mac-libdinolite");
    EXPECT_EQ(Snapshot().path, FakePath("libdinolite.so"));
    EXPECT_EQ(Calls(), kSnapshotAlone);
  }
  EXPECT_EQ(g_dinoTelemetryIndex, 5);
}

TEST_F(DinoDevicesTest, InstallsAnIdleTaskThatDoesNothingAtEveryLoad) {
  const auto installed = [] {
    const std::lock_guard lock(g_dinoLiteExecutor.mutex);
    return static_cast<bool>(g_dinoLiteExecutor.idleTask);
  };
  for (int i = 0; i < 2; ++i) {
    g_dinoLiteExecutor.SetIdleTask({});
    EXPECT_FALSE(installed());
    LoadDinoLibrary("/nowhere");
    EXPECT_TRUE(installed());
  }
}

TEST_F(DinoDevicesTest, LoadsAndCallsTheLibraryOnItsOwnerThread) {
  LoadDinoLibrary(FakePath("libdinolite.so"));
  InitDino(false);
  DinoDeviceIdentifier(0);
  ListDinoDevices();
  SelectDinoDevice(1);
  SelectDinoBackend();
  DisposeDino();
  const int owner = fake.Calls().at(0).thread;
  EXPECT_NE(owner, gettid());
  for (const FakeCallRecord& call : fake.Calls()) {
    EXPECT_EQ(call.thread, owner) << call.symbol;
  }
}

TEST_F(DinoDevicesTest, StartsTheLibraryOnceAndClearsBothTextsOnlyThen) {
  Load();
  fake.Send("answer dl_devices_count 3 -9");
  SetErrors(kEarlierError);
  FillTelemetry();
  EXPECT_TRUE(InitDino(false));
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(Calls(),
            (CallList{"dl_initialize()", "dl_devices_count()", "dl_get_amr_update_count()"}));
  EXPECT_TRUE(Snapshot().initialized);
  EXPECT_EQ(CountDinoDevices(), 3);
  ExpectTelemetryReset();
  SetErrors(kEarlierError);
  fake.Send("clear_log");
  EXPECT_TRUE(InitDino(false));
  EXPECT_EQ(Errors(), Both(kEarlierError));
  EXPECT_EQ(Calls(), kSnapshotAlone);
  ExpectTelemetryReset();
}

TEST_F(DinoDevicesTest, ForgetsTelemetryButNotTheSelectionAtAStartWithoutEffect) {
  SelectDevice();
  EXPECT_TRUE(InitDino(false));
  ExpectTelemetryReset();
  EXPECT_EQ(SelectedDinoDevice(), 1);
  EXPECT_EQ(Snapshot().ledState, 16);
}

TEST_F(DinoDevicesTest, StartsAgainByForceAndDropsTheSelection) {
  SelectDevice();
  fake.Send("default dl_devices_count 6");
  EXPECT_TRUE(InitDino(true));
  EXPECT_EQ(Calls(), (CallList{"dl_unselect_device()", "dl_initialize()", "dl_devices_count()",
                               "dl_get_amr_update_count()"}));
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(SelectedDinoDevice(), -1);
  EXPECT_EQ(CountDinoDevices(), 6);
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
  const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
  EXPECT_TRUE(snapshot.initialized);
  EXPECT_EQ(snapshot.selectedDeviceIndex, -1);
  EXPECT_EQ(snapshot.ledState, 0);
  EXPECT_EQ(snapshot.controllableLedsCount, 0);
  EXPECT_TRUE(snapshot.ledModes.empty());
  ExpectTelemetryReset();
}

TEST_F(DinoDevicesTest, DropsTheSelectionByForceAlsoOfALibraryThatWasNotStarted) {
  Load();
  fake.Send("default dl_get_selected_device 0");
  EXPECT_TRUE(InitDino(true));
  EXPECT_EQ(Calls(),
            (CallList{"dl_get_selected_device()", "dl_unselect_device()", "dl_initialize()",
                      "dl_devices_count()", "dl_get_amr_update_count()"}));
}

// The count stays as it was read before, and the library counts as started, until it is again.
TEST_F(DinoDevicesTest, IsStartedAllTheWhileThatItIsStartedAgain) {
  SelectDevice();
  fake.Send("block dl_initialize");
  EXPECT_FALSE(InitDino(true, milliseconds(0)));
  fake.WaitEntered("dl_initialize", 2);
  EXPECT_TRUE(g_dinoLite.initialized);
  EXPECT_EQ(g_dinoLite.deviceCount, 2);
  EXPECT_EQ(g_dinoLite.selectedDeviceIndex, -1);
  fake.Send("release dl_initialize");
  Flush();
}

TEST_F(DinoDevicesTest, GivesBackTheSelectionAndTheStartButNotTheLoad) {
  SelectDevice();
  EXPECT_TRUE(DisposeDino());
  EXPECT_EQ(Calls(), (CallList{"dl_unselect_device()", "dl_get_amr_update_count()"}));
  EXPECT_EQ(Errors(), Both(kEarlierError));
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
  ExpectTelemetryReset();
  const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
  EXPECT_TRUE(snapshot.loaded);
  EXPECT_EQ(snapshot.backend, "mac-libdinolite");
  EXPECT_FALSE(snapshot.initialized);
  EXPECT_EQ(snapshot.selectedDeviceIndex, -1);
  EXPECT_EQ(snapshot.ledState, 0);
  EXPECT_EQ(snapshot.controllableLedsCount, 0);
  EXPECT_TRUE(snapshot.ledModes.empty());
  EXPECT_EQ(CountDinoDevices(), 0);
  EXPECT_TRUE(ListDinoDevices().empty());
  EXPECT_EQ(SelectedDinoDevice(), -1);

  fake.Send("clear_log");
  EXPECT_TRUE(DisposeDino());
  EXPECT_EQ(Calls(), (CallList{"dl_get_selected_device()", "dl_get_amr_update_count()"}));
  EXPECT_TRUE(InitDino(false));
  EXPECT_EQ(CountDinoDevices(), 2);
}

TEST_F(DinoDevicesTest, ServesEveryProductByWhatIsLoaded) {
  FillTelemetry();
  SetErrors(kEarlierError);
  const DinoLiteBinding::BackendSelection none = SelectDinoBackend();
  EXPECT_FALSE(none.ok);
  EXPECT_FALSE(none.supportsAmr);
  EXPECT_FALSE(none.dnxLoadAttempted);
  EXPECT_EQ(none.backend, "none");
  EXPECT_EQ(none.path, "");
  EXPECT_EQ(none.reason, "libdinolite is not loaded");
  ExpectTelemetryReset();
  Load();
  SetErrors(kEarlierError);
  const DinoLiteBinding::BackendSelection loaded = SelectDinoBackend();
  EXPECT_TRUE(loaded.ok);
  EXPECT_TRUE(loaded.supportsAmr);
  EXPECT_FALSE(loaded.dnxLoadAttempted);
  EXPECT_EQ(loaded.backend, "mac-libdinolite");
  EXPECT_EQ(loaded.path, FakePath("libdinolite.so"));
  EXPECT_EQ(loaded.reason, "");
  EXPECT_EQ(Calls(), kSnapshotAlone);
  ExpectTelemetryReset();
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(DinoDevicesTest, CountsTheDevicesAtTheStartAndNeverAgain) {
  Load();
  EXPECT_EQ(CountDinoDevices(), 0);
  StartLibrary();
  fake.Send("clear_log\ndefault dl_devices_count 9");
  EXPECT_EQ(CountDinoDevices(), 2);
  EXPECT_TRUE(fake.Calls().empty());
  EXPECT_TRUE(InitDino(true));
  EXPECT_EQ(CountDinoDevices(), 9);
}

TEST_F(DinoDevicesTest, HandsEveryIndexButANegativeOneToTheLibraryForItsTexts) {
  Load();
  fake.Send("text dl_get_device_unique_id@0 first\ntext dl_get_device_name@2147483647 last");
  EXPECT_EQ(DinoDeviceIdentifier(0), "first");
  EXPECT_EQ(DinoDeviceName(INT_MAX), "last");
  EXPECT_EQ(DinoDeviceIdentifier(1), "");
  EXPECT_EQ(Calls(), (CallList{"dl_get_device_unique_id(0,ptr,1024)",
                               "dl_get_device_name(2147483647,ptr,1024)",
                               "dl_get_device_unique_id(1,ptr,1024)"}));
  fake.Send("clear_log");
  for (const int index : {-1, INT_MIN}) {
    EXPECT_EQ(DinoDeviceIdentifier(index), "");
    EXPECT_EQ(DinoDeviceName(index), "");
  }
  EXPECT_TRUE(fake.Calls().empty());
}

TEST_F(DinoDevicesTest, CutsATextWhereTheBufferEndsOrAZeroByteStands) {
  Load();
  fake.Send("unterminated dl_get_device_unique_id 120");
  EXPECT_EQ(DinoDeviceIdentifier(0), std::string(1023, 'x'));
  fake.Send("text dl_get_device_unique_id " + std::string(1023, 'y'));
  EXPECT_EQ(DinoDeviceIdentifier(0), std::string(1023, 'y'));
  fake.Send("text dl_get_device_name ab\\x00cd");
  EXPECT_EQ(DinoDeviceName(0), "ab");
}

TEST_F(DinoDevicesTest, ListsAllDevicesWithTheirTexts) {
  Load();
  fake.Send(
      "default dl_devices_count 3\n"
      "text dl_get_device_unique_id@0 a\ntext dl_get_device_name@0 A\n"
      "text dl_get_device_unique_id@2 c\ntext dl_get_device_name@2 C");
  EXPECT_TRUE(ListDinoDevices().empty());
  StartLibrary();
  fake.Send("clear_log");
  const std::vector<VendorDeviceSnapshot> devices = ListDinoDevices();
  ASSERT_EQ(devices.size(), 3U);
  const std::vector<CallList> expected = {{"a", "A"}, {"", ""}, {"c", "C"}};
  for (std::size_t i = 0; i < devices.size(); ++i) {
    EXPECT_EQ(devices[i].index, static_cast<int>(i));
    EXPECT_EQ((CallList{devices[i].uniqueId, devices[i].name}), expected[i]);
  }
  EXPECT_EQ(fake.CallOrder(),
            (CallList{"dl_get_device_unique_id", "dl_get_device_name", "dl_get_device_unique_id",
                      "dl_get_device_name", "dl_get_device_unique_id", "dl_get_device_name"}));
}

TEST_F(DinoDevicesTest, ListsNothingForACountThatNoMachineHasButTellsIt) {
  Load();
  for (const std::int32_t count : {-1, INT_MIN, 0, 65'537, INT_MAX}) {
    fake.Send("default dl_devices_count " + std::to_string(count));
    EXPECT_TRUE(InitDino(true));
    EXPECT_TRUE(ListDinoDevices().empty());
    const std::string tooMany =
        "Dino-Lite SDK reported " + std::to_string(count) + " devices; at most 65536 can be listed";
    EXPECT_EQ(Errors(), Both(count > 0 ? tooMany : ""));
    EXPECT_EQ(CountDinoDevices(), count);
  }
  EXPECT_EQ(fake.Entered("dl_get_device_unique_id"), 0);
}

TEST_F(DinoDevicesTest, ListsAsManyAs65536Devices) {
  Load();
  fake.Send("default dl_devices_count 65536\nlog_limit 0\ntext dl_get_device_name@65535 last");
  EXPECT_TRUE(InitDino(true));
  const std::vector<VendorDeviceSnapshot> devices = ListDinoDevices(std::chrono::minutes(1));
  ASSERT_EQ(devices.size(), 65'536U);
  EXPECT_EQ(devices.back().index, 65'535);
  EXPECT_EQ(devices.back().name, "last");
  EXPECT_EQ(Errors(), Both(""));
}

// Every call with the owner thread held: the failure value in time, the words in the addon's store
// alone, and the effect later on.
TEST_F(DinoDevicesTest, GivesUpInTimeAndTellsWhyButNotInTheBindingsOwnText) {
  SelectDevice();
  fake.Send("block dl_initialize");
  EXPECT_FALSE(InitDino(true, milliseconds(0)));
  fake.WaitEntered("dl_initialize", 2);
  SetErrors(kEarlierError);
  const auto expectTimedOut = [] {
    EXPECT_EQ(Errors(), (CallList{kEarlierError, kTimedOut}));
    SetLastError("");
  };
  const DinoLoadResult loaded = LoadDinoLibrary("", kShort);
  EXPECT_FALSE(loaded.ok);
  EXPECT_EQ(loaded.backend, "none");
  EXPECT_EQ(loaded.path, "");
  expectTimedOut();
  EXPECT_FALSE(InitDino(false, kShort));
  expectTimedOut();
  const DinoLiteBinding::BackendSelection backend = SelectDinoBackend(kShort);
  EXPECT_FALSE(backend.ok);
  EXPECT_FALSE(backend.supportsAmr);
  EXPECT_EQ(backend.backend, "");
  EXPECT_EQ(backend.path, "");
  EXPECT_EQ(backend.reason, "");
  expectTimedOut();
  EXPECT_EQ(CountDinoDevices(kShort), 0);
  expectTimedOut();
  EXPECT_TRUE(ListDinoDevices(kShort).empty());
  expectTimedOut();
  EXPECT_EQ(DinoDeviceIdentifier(0, kShort), "");
  expectTimedOut();
  EXPECT_EQ(DinoDeviceName(0, kShort), "");
  expectTimedOut();
  EXPECT_FALSE(SelectDinoDevice(1, kShort));
  expectTimedOut();
  EXPECT_EQ(SelectedDinoDevice(kShort), -1);
  expectTimedOut();
  EXPECT_FALSE(DinoSupportsAmr(kShort));
  expectTimedOut();
  EXPECT_EQ(ToggleDinoLed(kShort), -1);
  expectTimedOut();
  EXPECT_FALSE(EnableDinoMicrotouch(true, kShort));
  expectTimedOut();
  // Nothing of that has touched what script code sees of the device.
  EXPECT_EQ(Snapshot().selectedDeviceIndex, 1);
  EXPECT_EQ(g_dinoTelemetryIndex, 5);

  fake.Send("clear_log\nrelease dl_initialize");
  Flush();
  EXPECT_EQ(Calls(), (CallList{"dl_devices_count()",
                               "dl_get_amr_update_count()",
                               "dl_get_amr_update_count()",
                               "dl_get_amr_update_count()",
                               "dl_get_amr_update_count()",
                               "dl_get_device_unique_id(0,ptr,1024)",
                               "dl_get_device_name(0,ptr,1024)",
                               "dl_get_device_unique_id(1,ptr,1024)",
                               "dl_get_device_name(1,ptr,1024)",
                               "dl_get_device_unique_id(0,ptr,1024)",
                               "dl_get_device_name(0,ptr,1024)",
                               "dl_get_selected_device()",
                               "dl_select_device(1)",
                               "dl_initialize_selected_device()",
                               "dl_device_supports_amr()",
                               "dl_device_supports_microtouch()",
                               "dl_led_mode_count()",
                               "dl_led_mode(0)",
                               "dl_led_mode(1)",
                               "dl_set_led_state(16)",
                               "dl_get_amr_update_count()",
                               "dl_set_led_state(1)",
                               "dl_get_amr_update_count()",
                               "dl_get_amr_update_count()"}));
  EXPECT_EQ(Errors(), Both("The selected Dino-Lite device does not support MicroTouch"));
  EXPECT_EQ(Snapshot().selectedDeviceIndex, 1);
  EXPECT_EQ(Snapshot().ledState, 1);
}

// Nobody is to take a device for there that may be gone; the readings age by themselves.
TEST_F(DinoDevicesTest, HidesTheStateWhenADisposeIsLateAndShowsItOnceItIsDone) {
  SelectDevice();
  fake.Send("block dl_unselect_device");
  EXPECT_FALSE(DisposeDino(milliseconds(0)));
  EXPECT_EQ(Errors(), (CallList{kEarlierError, kTimedOut}));
  fake.WaitEntered("dl_unselect_device", 1);
  const DinoLiteBinding::DebugSnapshot hidden = Snapshot();
  EXPECT_FALSE(hidden.loaded);
  EXPECT_EQ(hidden.backend, "");
  EXPECT_EQ(hidden.path, "");
  EXPECT_EQ(hidden.selectedDeviceIndex, -1);
  EXPECT_EQ(hidden.ledState, 0);
  EXPECT_EQ(hidden.amrRaw, -1.0);
  EXPECT_TRUE(hidden.ledModes.empty());
  EXPECT_EQ(g_dinoTelemetryIndex, 5);
  EXPECT_EQ(g_dinoCachedAmr, 50.0);
  fake.Send("release dl_unselect_device");
  Flush();
  EXPECT_TRUE(Snapshot().loaded);
  EXPECT_EQ(Snapshot().backend, "mac-libdinolite");
  ExpectTelemetryReset();
}

}  // namespace
}  // namespace ostrel_native

// Selecting a device, told by the calls that the library sees.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "devices/dino_lite_devices.h"
#include "devices/dino_lite_telemetry.h"
#include "unit/support/dino_fixture.h"

namespace ostrel_native {
namespace {

using CallList = std::vector<std::string>;

constexpr char kInvalidIndex[] = "Dino-Lite SDK device selection received an invalid device index";
constexpr char kRefused[] = "Dino-Lite SDK device selection failed";
constexpr char kNotConnected[] = "Dino-Lite post-connect initialization failed";

struct DinoSelectionTest : DinoTest {
  // A device that can do everything, selected, with all of its state away from what it starts as.
  void SelectFullDevice() {
    Start();
    SendLedModes(fake, {16, 1});
    fake.Send("default dl_device_supports_amr 1\ndefault dl_device_supports_microtouch 1");
    SendFloat(fake, "default dl_get_amr", 50.0F);
    ASSERT_TRUE(SelectDinoDevice(1));
    ASSERT_TRUE(OnOwner([] { return g_dinoLite.EnableMicrotouch(true); }));
    fake.Send("clear_log");
    SetErrors(kEarlierError);
  }

  // What a refusal leaves of that device.
  static void ExpectOnlyTheIndex() {
    EXPECT_EQ(g_dinoLite.selectedDeviceIndex, 1);
    EXPECT_TRUE(g_dinoLite.microtouchEnabled);
    EXPECT_FALSE(g_dinoLite.supportsAmr);
    EXPECT_FALSE(g_dinoLite.supportsMicrotouch);
    EXPECT_TRUE(g_dinoLite.ledModes.empty());
    EXPECT_EQ(g_dinoLite.ledState, 0);
    EXPECT_EQ(g_dinoLite.controllableLedsCount, 0);
    EXPECT_FALSE(g_dinoLite.amrRead);
    EXPECT_FALSE(g_dinoLite.amrAccepted);
    EXPECT_EQ(g_dinoLite.amrRaw, -1.0);
    EXPECT_EQ(g_dinoTelemetryIndex, -1);
    EXPECT_EQ(g_dinoCachedAmr, -1.0);
  }
};

TEST_F(DinoSelectionTest, GoesThroughTheLibraryInOneOrder) {
  Start();
  SendLedModes(fake, {16, 1});
  fake.Send(
      "default dl_device_supports_amr 1\ndefault dl_device_supports_microtouch 1\n"
      "default dl_get_amr_update_count 4");
  SendFloat(fake, "default dl_get_amr", 50.0F);
  SetErrors(kEarlierError);
  EXPECT_TRUE(SelectDinoDevice(1));
  EXPECT_EQ(Calls(), (CallList{"dl_get_selected_device()", "dl_select_device(1)",
                               "dl_initialize_selected_device()", "dl_device_supports_amr()",
                               "dl_device_supports_microtouch()", "dl_led_mode_count()",
                               "dl_led_mode(0)", "dl_led_mode(1)", "dl_set_led_state(16)",
                               "dl_get_amr()", "dl_get_amr_update_count()"}));
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(SelectedDinoDevice(), 1);
  EXPECT_TRUE(DinoSupportsAmr());
  const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
  EXPECT_EQ(snapshot.selectedDeviceIndex, 1);
  EXPECT_EQ(snapshot.ledModes, (std::vector<std::int32_t>{16, 1}));
  EXPECT_EQ(snapshot.ledState, 16);
  EXPECT_EQ(snapshot.controllableLedsCount, 2);
  EXPECT_TRUE(snapshot.supportsAmr);
  EXPECT_TRUE(snapshot.supportsMicrotouch);
  EXPECT_TRUE(snapshot.supportsLedControl);
  EXPECT_TRUE(snapshot.amrRead);
  EXPECT_EQ(snapshot.amrRaw, 50.0);
  EXPECT_TRUE(snapshot.amrAccepted);
  EXPECT_EQ(snapshot.amrUpdates, 4U);
  EXPECT_EQ(g_dinoTelemetryIndex, 1);
  EXPECT_EQ(g_dinoCachedAmr, 50.0);
  EXPECT_GT(g_dinoCachedAmrAtMs, 0);
}

TEST_F(DinoSelectionTest, StartsALibraryThatWasNotStartedAfterAPause) {
  Load();
  fake.Send("default dl_devices_count 7");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(SelectDinoDevice(0));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
  EXPECT_EQ(Calls(), (CallList{"dl_initialize()", "dl_devices_count()", "dl_get_selected_device()",
                               "dl_select_device(0)", "dl_initialize_selected_device()",
                               "dl_device_supports_amr()", "dl_device_supports_microtouch()",
                               "dl_led_mode_count()", "dl_get_amr_update_count()"}));
  EXPECT_TRUE(g_dinoLite.initialized);
  EXPECT_EQ(CountDinoDevices(), 7);
}

TEST_F(DinoSelectionTest, ClearsTheTextsBeforeTheLibraryIsAskedForTheDevice) {
  Load();
  SetErrors(kEarlierError);
  fake.Send("block dl_select_device");
  EXPECT_FALSE(SelectDinoDevice(0, std::chrono::milliseconds(0)));
  fake.WaitEntered("dl_select_device", 1);
  EXPECT_EQ(Errors().at(0), "");
  fake.Send("release dl_select_device");
  Flush();
}

// A library without the step after the connection is started once more for the new device.
TEST_F(DinoSelectionTest, StartsALibraryWithoutThePostConnectStepTwice) {
  const FakeLibrary library = Load("dl_initialize_selected_device");
  library.Send("answer dl_devices_count 3 4");
  EXPECT_TRUE(SelectDinoDevice(0));
  EXPECT_EQ(Calls(library),
            (CallList{"dl_initialize()", "dl_devices_count()", "dl_get_selected_device()",
                      "dl_select_device(0)", "dl_initialize()", "dl_devices_count()",
                      "dl_device_supports_amr()", "dl_device_supports_microtouch()",
                      "dl_led_mode_count()", "dl_get_amr_update_count()"}));
  EXPECT_EQ(CountDinoDevices(), 4);
}

TEST_F(DinoSelectionTest, DoesNotStartItAgainForTheDeviceThatItHas) {
  const FakeLibrary library = Start("dl_initialize_selected_device");
  library.Send("default dl_get_selected_device 0");
  EXPECT_TRUE(SelectDinoDevice(0));
  EXPECT_EQ(Calls(library), (CallList{"dl_get_selected_device()", "dl_device_supports_amr()",
                                      "dl_device_supports_microtouch()", "dl_led_mode_count()",
                                      "dl_get_amr_update_count()"}));
}

TEST_F(DinoSelectionTest, DoesNotSelectTheDeviceThatTheLibraryHasButLooksAtItAgain) {
  SelectFullDevice();
  fake.Send("default dl_get_selected_device 1\ndefault dl_set_led_state 1");
  ASSERT_EQ(OnOwner([] { return g_dinoLite.ToggleLedState(); }), 1);
  fake.Send("clear_log");
  EXPECT_TRUE(SelectDinoDevice(1));
  EXPECT_EQ(Calls(),
            (CallList{"dl_get_selected_device()", "dl_initialize_selected_device()",
                      "dl_device_supports_amr()", "dl_device_supports_microtouch()",
                      "dl_led_mode_count()", "dl_led_mode(0)", "dl_led_mode(1)",
                      "dl_set_led_state(16)", "dl_get_amr()", "dl_get_amr_update_count()"}));
  EXPECT_EQ(Snapshot().ledState, 16);
  EXPECT_TRUE(g_dinoLite.microtouchEnabled);
  EXPECT_EQ(Errors(), Both(""));
}

TEST_F(DinoSelectionTest, RefusesANegativeIndexAndAnyIndexWithoutALibrary) {
  for (const int index : {0, 5, -1, INT_MIN}) {
    SetErrors("");
    EXPECT_FALSE(SelectDinoDevice(index));
    EXPECT_EQ(Errors(), Both(kInvalidIndex));
  }
  // Neither starts the library nor forgets what the selected device can do.
  SelectFullDevice();
  EXPECT_FALSE(SelectDinoDevice(-1));
  EXPECT_EQ(Errors(), Both(kInvalidIndex));
  EXPECT_EQ(Calls(), CallList{"dl_get_amr_update_count()"});
  EXPECT_EQ(SelectedDinoDevice(), 1);
  EXPECT_TRUE(DinoSupportsAmr());
  EXPECT_EQ(g_dinoTelemetryIndex, -1);
  EXPECT_EQ(g_dinoCachedAmr, -1.0);
}

TEST_F(DinoSelectionTest, HandsAnIndexThatIsNotThereToTheLibrary) {
  Start();
  EXPECT_TRUE(SelectDinoDevice(INT_MAX));
  EXPECT_EQ(fake.Calls("dl_select_device").at(0).arguments, CallList{"2147483647"});
  EXPECT_EQ(SelectedDinoDevice(), INT_MAX);
}

TEST_F(DinoSelectionTest, KeepsTheFormerIndexButNothingElseWhereTheLibraryRefuses) {
  SelectFullDevice();
  fake.Send("default dl_select_device 0");
  EXPECT_FALSE(SelectDinoDevice(0));
  EXPECT_EQ(Errors(), Both(kRefused));
  EXPECT_EQ(Calls(), (CallList{"dl_get_selected_device()", "dl_select_device(0)",
                               "dl_get_last_error()", "dl_get_amr_update_count()"}));
  ExpectOnlyTheIndex();
  const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
  EXPECT_EQ(snapshot.selectedDeviceIndex, 1);
  EXPECT_FALSE(snapshot.supportsLedControl);
  EXPECT_TRUE(snapshot.ledModes.empty());
}

TEST_F(DinoSelectionTest, KeepsTheFormerIndexButNothingElseWhereThePostConnectStepRefuses) {
  SelectFullDevice();
  fake.Send("default dl_initialize_selected_device 0");
  EXPECT_FALSE(SelectDinoDevice(0));
  EXPECT_EQ(Errors(), Both(kNotConnected));
  EXPECT_EQ(Calls(), (CallList{"dl_get_selected_device()", "dl_select_device(0)",
                               "dl_initialize_selected_device()", "dl_get_last_error()",
                               "dl_get_amr_update_count()"}));
  ExpectOnlyTheIndex();
}

TEST_F(DinoSelectionTest, TellsARefusalInTheLibrarysWordsWhereItHasAny) {
  Start();
  fake.Send("text dl_get_last_error cable loose");
  fake.Send("answer dl_select_device 0\nanswer dl_initialize_selected_device 0");
  for (int i = 0; i < 2; ++i) {
    SetErrors("");
    EXPECT_FALSE(SelectDinoDevice(0));
    EXPECT_EQ(Errors(), Both("cable loose"));
  }
  fake.Send("text dl_get_last_error\nanswer dl_select_device 0");
  EXPECT_FALSE(SelectDinoDevice(0));
  EXPECT_EQ(Errors(), Both(kRefused));
}

TEST_F(DinoSelectionTest, HasWordsOfItsOwnForALibraryWithoutAny) {
  const FakeLibrary library = Start("dl_get_last_error");
  library.Send("answer dl_select_device 0\nanswer dl_initialize_selected_device 0");
  EXPECT_FALSE(SelectDinoDevice(0));
  EXPECT_EQ(Errors(), Both(kRefused));
  EXPECT_FALSE(SelectDinoDevice(0));
  EXPECT_EQ(Errors(), Both(kNotConnected));
}

TEST_F(DinoSelectionTest, HasForgottenTheDeviceWhenItAsksForTheWords) {
  SelectFullDevice();
  fake.Send("default dl_select_device 0\nblock dl_get_last_error");
  EXPECT_FALSE(SelectDinoDevice(0, std::chrono::milliseconds(0)));
  fake.WaitEntered("dl_get_last_error", 1);
  EXPECT_FALSE(g_dinoLite.supportsAmr);
  EXPECT_TRUE(g_dinoLite.ledModes.empty());
  EXPECT_EQ(g_dinoLite.ledState, 0);
  fake.Send("release dl_get_last_error");
  Flush();
}

TEST_F(DinoSelectionTest, TurnsTheLightOnInTheBestModeThatThereIs) {
  struct Case {
    std::vector<std::int32_t> modes;
    std::int32_t state;
    std::int32_t count;
  };
  const std::vector<Case> cases = {{{16, 1}, 16, 2},  {{1, 16}, 16, 2},
                                   {{1, 17}, 17, 2},  {{1, 34}, 34, 2},
                                   {{1}, 1, 2},       {{5, 9}, 5, 0},
                                   {{0, 9, 5}, 9, 0}, {{0, 0}, 0, 0},
                                   {{}, 0, 0},        {{-2147483648}, -2147483648, 0}};
  Start();
  for (const Case& expected : cases) {
    SendLedModes(fake, expected.modes);
    fake.Send("clear_log");
    EXPECT_TRUE(SelectDinoDevice(0));
    const DinoLiteBinding::DebugSnapshot snapshot = Snapshot();
    EXPECT_EQ(snapshot.ledModes, expected.modes);
    EXPECT_EQ(snapshot.ledState, expected.state);
    EXPECT_EQ(snapshot.controllableLedsCount, expected.count);
    EXPECT_EQ(snapshot.supportsLedControl, !expected.modes.empty());
    const std::vector<FakeCallRecord> set = fake.Calls("dl_set_led_state");
    ASSERT_EQ(set.size(), expected.state == 0 ? 0U : 1U);
    if (!set.empty()) {
      EXPECT_EQ(set.at(0).arguments, CallList{std::to_string(expected.state)});
    }
  }
}

TEST_F(DinoSelectionTest, IsNotSpoiltByALightThatStaysDark) {
  Start();
  SendLedModes(fake, {16, 1});
  fake.Send("default dl_set_led_state 0");
  SetErrors(kEarlierError);
  EXPECT_TRUE(SelectDinoDevice(0));
  EXPECT_EQ(Snapshot().ledState, 0);
  EXPECT_EQ(Snapshot().controllableLedsCount, 2);
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(fake.Entered("dl_set_led_state"), 1);
}

TEST_F(DinoSelectionTest, LeavesTheLightAloneWhereItsModesAreUnknown) {
  for (const char* missing : {"dl_led_mode", "dl_led_mode_count"}) {
    g_dinoLite.loaded = false;
    const FakeLibrary library = Start(missing);
    library.Send("default " + std::string(missing == std::string("dl_led_mode")
                                              ? "dl_led_mode_count 2"
                                              : "dl_led_mode 17"));
    EXPECT_TRUE(SelectDinoDevice(0));
    EXPECT_EQ(Calls(library),
              (CallList{"dl_get_selected_device()", "dl_select_device(0)",
                        "dl_initialize_selected_device()", "dl_device_supports_amr()",
                        "dl_device_supports_microtouch()", "dl_get_amr_update_count()"}));
    EXPECT_TRUE(Snapshot().ledModes.empty());
  }
}

TEST_F(DinoSelectionTest, ReadsTheModesOfALightThatItCannotSwitch) {
  const FakeLibrary library = Start("dl_set_led_state");
  SendLedModes(library, {16, 1});
  EXPECT_TRUE(SelectDinoDevice(0));
  EXPECT_EQ(Snapshot().ledModes, (std::vector<std::int32_t>{16, 1}));
  EXPECT_EQ(Snapshot().controllableLedsCount, 2);
  EXPECT_EQ(Snapshot().ledState, 0);
  EXPECT_FALSE(Snapshot().supportsLedControl);
}

TEST_F(DinoSelectionTest, ReadsNoModesForACountThatNoDeviceHas) {
  Start();
  for (const int count : {-1, INT_MIN, 0, 65'537, INT_MAX}) {
    SetErrors(kEarlierError);
    fake.Send("default dl_led_mode_count " + std::to_string(count));
    EXPECT_TRUE(SelectDinoDevice(0));
    EXPECT_TRUE(Snapshot().ledModes.empty()) << count;
    // The selection is a success all the same.
    const std::string tooMany = "Dino-Lite SDK reported " + std::to_string(count) +
                                " LED modes; at most 65536 can be listed";
    EXPECT_EQ(Errors(), Both(count > 0 ? tooMany : ""));
  }
  // Once each: a library may answer otherwise the second time.
  EXPECT_EQ(fake.Entered("dl_led_mode_count"), 5);
  EXPECT_EQ(fake.Entered("dl_led_mode"), 0);
  fake.Send("default dl_led_mode_count 65536\ndefault dl_led_mode@65535 7\nlog_limit 0");
  EXPECT_TRUE(SelectDinoDevice(0, std::chrono::minutes(1)));
  ASSERT_EQ(Snapshot().ledModes.size(), 65'536U);
  EXPECT_EQ(Snapshot().ledModes.back(), 7);
  EXPECT_EQ(Errors(), Both(""));
}

TEST_F(DinoSelectionTest, KeepsAReadingThatItCannotAcceptOutOfTheCache) {
  Start();
  fake.Send("default dl_device_supports_amr 1");
  SendFloat(fake, "default dl_get_amr", 9.9F);
  EXPECT_TRUE(SelectDinoDevice(0));
  EXPECT_TRUE(Snapshot().amrRead);
  EXPECT_EQ(Snapshot().amrRaw, double{9.9F});
  EXPECT_FALSE(Snapshot().amrAccepted);
  EXPECT_EQ(g_dinoTelemetryIndex, 0);
  EXPECT_EQ(g_dinoCachedAmr, -1.0);
  EXPECT_EQ(g_dinoCachedAmrAtMs, 0);
}

}  // namespace
}  // namespace ostrel_native

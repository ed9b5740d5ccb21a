#include "devices/dino_lite_operations.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "devices/dino_lite_devices.h"
#include "unit/support/dino_fixture.h"

namespace ostrel_native {
namespace {

using CallList = std::vector<std::string>;

constexpr char kNothingSelected[] = "No Dino-Lite SDK device is selected for LED control";
constexpr char kNoLeds[] = "The selected Dino-Lite device does not expose controllable LEDs";
constexpr char kLedRefused[] = "Dino-Lite SDK rejected the LED change";
constexpr char kNoLibrary[] = "Dino-Lite MicroTouch is unavailable because the SDK is not loaded";
constexpr char kNoButton[] = "The selected Dino-Lite device does not support MicroTouch";

struct DinoOperationsTest : DinoTest {
  void SelectWithModes(const FakeLibrary& library, const std::vector<std::int32_t>& modes) {
    SendLedModes(library, modes);
    ASSERT_TRUE(SelectDinoDevice(0));
    library.Send("clear_log");
    SetErrors(kEarlierError);
  }

  void SelectWithButton() {
    Start();
    fake.Send("default dl_device_supports_microtouch 1");
    ASSERT_TRUE(SelectDinoDevice(0));
    fake.Send("clear_log");
    SetErrors(kEarlierError);
  }
};

TEST_F(DinoOperationsTest, StepsTheLightThroughItsModesAndRound) {
  Start();
  SelectWithModes(fake, {17, 34});
  EXPECT_EQ(ToggleDinoLed(), 34);
  EXPECT_EQ(Snapshot().ledState, 34);
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(ToggleDinoLed(), 17);
  EXPECT_EQ(Calls(), (CallList{"dl_set_led_state(34)", "dl_get_amr_update_count()",
                               "dl_set_led_state(17)", "dl_get_amr_update_count()"}));
}

TEST_F(DinoOperationsTest, NeverComesToAModeBehindARepeatedOne) {
  Start();
  SelectWithModes(fake, {17, 34, 17, 1});
  std::vector<std::int32_t> modes;
  for (int i = 0; i < 5; ++i) {
    modes.push_back(ToggleDinoLed());
  }
  EXPECT_EQ(modes, (std::vector<std::int32_t>{34, 17, 34, 17, 34}));
}

TEST_F(DinoOperationsTest, BeginsAtTheHeadWhereTheLightDidNotComeOn) {
  Start();
  fake.Send("answer dl_set_led_state 0");
  SelectWithModes(fake, {16, 1, 17});
  EXPECT_EQ(ToggleDinoLed(), 16);
}

TEST_F(DinoOperationsTest, StepsThroughAModeOfZeroLikeAnyOther) {
  Start();
  SelectWithModes(fake, {17, 0, 5});
  EXPECT_EQ(ToggleDinoLed(), 0);
  EXPECT_EQ(ToggleDinoLed(), 5);
  EXPECT_EQ(ToggleDinoLed(), 17);
}

TEST_F(DinoOperationsTest, SetsTheOnlyModeAgain) {
  Start();
  SelectWithModes(fake, {16});
  EXPECT_EQ(ToggleDinoLed(), 16);
  EXPECT_EQ(ToggleDinoLed(), 16);
  EXPECT_EQ(fake.Calls("dl_set_led_state@16").size(), 2U);
}

TEST_F(DinoOperationsTest, KeepsTheModeThatTheLibraryRefusesToLeave) {
  Start();
  SelectWithModes(fake, {17, 34});
  fake.Send("default dl_set_led_state 0");
  EXPECT_EQ(ToggleDinoLed(), -1);
  EXPECT_EQ(Errors(), Both(kLedRefused));
  EXPECT_EQ(Snapshot().ledState, 17);
  fake.Send("default dl_set_led_state 1");
  EXPECT_EQ(ToggleDinoLed(), 34);
  EXPECT_EQ(Errors(), Both(""));
}

TEST_F(DinoOperationsTest, HasNoLightToStepWithoutALibraryOrADevice) {
  EXPECT_EQ(ToggleDinoLed(), -1);
  EXPECT_EQ(Errors(), Both(kNothingSelected));
  Start();
  SetErrors("");
  EXPECT_EQ(ToggleDinoLed(), -1);
  EXPECT_EQ(Errors(), Both(kNothingSelected));
  EXPECT_EQ(fake.Entered("dl_set_led_state"), 0);
}

TEST_F(DinoOperationsTest, HasNoLightToStepOfADeviceWithoutModes) {
  Start();
  SelectWithModes(fake, {});
  EXPECT_EQ(ToggleDinoLed(), -1);
  EXPECT_EQ(Errors(), Both(kNoLeds));
  EXPECT_EQ(Calls(), CallList{"dl_get_amr_update_count()"});
}

TEST_F(DinoOperationsTest, HasNoLightToStepWhereTheLibraryCannotSwitchIt) {
  const FakeLibrary library = Start("dl_set_led_state");
  SelectWithModes(library, {17, 34});
  EXPECT_EQ(ToggleDinoLed(), -1);
  EXPECT_EQ(Errors(), Both(kNoLeds));
}

TEST_F(DinoOperationsTest, EnablesAndDisablesTheButtonOfADeviceThatHasOne) {
  SelectWithButton();
  for (const bool enabled : {true, false, true}) {
    SetErrors(kEarlierError);
    EXPECT_TRUE(EnableDinoMicrotouch(enabled));
    EXPECT_EQ(g_dinoLite.microtouchEnabled, enabled);
    EXPECT_EQ(Errors(), Both(""));
  }
  // There is nothing to tell the library.
  EXPECT_EQ(Calls(), CallList(3, "dl_get_amr_update_count()"));
}

TEST_F(DinoOperationsTest, KeepsTheWishForAButtonThatThisDeviceDoesNotHave) {
  Start();
  EXPECT_FALSE(EnableDinoMicrotouch(true));
  EXPECT_EQ(Errors(), Both(kNoButton));
  EXPECT_TRUE(g_dinoLite.microtouchEnabled);
  ASSERT_TRUE(SelectDinoDevice(0));
  EXPECT_FALSE(EnableDinoMicrotouch(false));
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
  EXPECT_FALSE(EnableDinoMicrotouch(true));
  EXPECT_EQ(Errors(), Both(kNoButton));
  EXPECT_TRUE(g_dinoLite.microtouchEnabled);
}

TEST_F(DinoOperationsTest, HasNoWishToKeepWithoutALibrary) {
  EXPECT_FALSE(EnableDinoMicrotouch(true));
  EXPECT_EQ(Errors(), Both(kNoLibrary));
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
}

TEST_F(DinoOperationsTest, KeepsTheWishOverASelectionButNotOverAForcedStartOrADispose) {
  SelectWithButton();
  const auto enable = [] { return EnableDinoMicrotouch(true); };
  EXPECT_TRUE(enable());
  EXPECT_TRUE(SelectDinoDevice(1));
  EXPECT_TRUE(g_dinoLite.microtouchEnabled);
  fake.Send("answer dl_select_device 0");
  EXPECT_FALSE(SelectDinoDevice(0));
  EXPECT_TRUE(g_dinoLite.microtouchEnabled);
  EXPECT_TRUE(InitDino(false));
  EXPECT_TRUE(g_dinoLite.microtouchEnabled);
  EXPECT_TRUE(InitDino(true));
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
  EXPECT_TRUE(SelectDinoDevice(1));
  EXPECT_TRUE(enable());
  EXPECT_TRUE(DisposeDino());
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
}

}  // namespace
}  // namespace ostrel_native

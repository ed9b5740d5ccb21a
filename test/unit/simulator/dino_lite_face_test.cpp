// The built Dino-Lite library, opened as the addon opens it, beside the camera library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "unit/simulator/opened_instrument.h"
#include "unit/support/elf_symbols.h"

namespace ostrel_simulator {
namespace {

const char* const kLibrary = OSTREL_TEST_DINO_LITE_SIMULATOR;

// The whole table, as the binding fills it.
struct Table {
#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "devices/dino_lite_symbols.h"

  Table() {
    void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
#define REQUIRED(name, result, parameters) \
  name = reinterpret_cast<result(*) parameters>(dlsym(library, #name));
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/dino_lite_symbols.h"
  }

  std::string UniqueId(unsigned int index) const {
    std::array<char, 100> text{};
    dl_get_device_unique_id(index, text.data(), 100);
    return text.data();
  }

  std::string Name(unsigned int index) const {
    std::array<char, 100> text{};
    dl_get_device_name(index, text.data(), 100);
    return text.data();
  }

  std::vector<int> LedModes() const {
    std::vector<int> modes;
    for (int i = 0; i < dl_led_mode_count(); ++i) {
      modes.push_back(dl_led_mode(i));
    }
    return modes;
  }

  std::string LastError() const {
    return dl_get_last_error();
  }
};

// A library with its first microscope selected.
struct SelectedTable : Table {
  SelectedTable() {
    dl_initialize();
    EXPECT_TRUE(dl_select_device(0));
  }
};

TEST(SimulatedDinoLite, ExportsTheTableAndNothingElse) {
  const std::set<std::string> expected = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/dino_lite_symbols.h"
  };
  ASSERT_EQ(expected.size(), 19U);
  EXPECT_EQ(ostrel_native::ExportedSymbols(kLibrary), expected);
}

TEST(SimulatedDinoLite, ListsTheMicroscopesThatArePluggedIn) {
  setenv("OSTREL_SIMULATOR_DEVICES", "3", 1);
  const Table table;
  table.dl_initialize();
  EXPECT_EQ(table.dl_devices_count(), 3);
  EXPECT_EQ(table.UniqueId(0), "simulated-microscope-1");
  EXPECT_EQ(table.Name(0), "Simulated microscope 1");
  EXPECT_EQ(table.UniqueId(2), "simulated-microscope-3");
  EXPECT_EQ(table.Name(2), "Simulated microscope 3");
  Control("device 1 unplug");
  EXPECT_EQ(table.dl_devices_count(), 2);
  EXPECT_EQ(table.UniqueId(1), "simulated-microscope-3");
  EXPECT_EQ(table.UniqueId(2), "");
  EXPECT_EQ(table.LastError(), "There is no such microscope");
  Control("device 1 plug");
  EXPECT_EQ(table.dl_devices_count(), 3);
  EXPECT_EQ(table.Name(1), "Simulated microscope 2");
}

TEST(SimulatedDinoLite, WritesNoTextBeyondTheCapacity) {
  const Table table;
  table.dl_initialize();
  std::array<char, 6> text = {'x', 'x', 'x', 'x', 'x', 'x'};
  table.dl_get_device_name(0, text.data(), 0);
  EXPECT_EQ(text[0], 'x');
  table.dl_get_device_name(0, nullptr, 100);
  table.dl_get_device_name(0, text.data(), 5);
  EXPECT_EQ(std::memcmp(text.data(), "Simu\0x", 6), 0);
  table.dl_get_device_unique_id(0, text.data(), 1);
  EXPECT_EQ(std::memcmp(text.data(), "\0imu\0x", 6), 0);
}

TEST(SimulatedDinoLite, KnowsNoOtherMicroscopes) {
  const Table table;
  table.dl_initialize();
  for (const int index : {-1, 1, 2147483647}) {
    EXPECT_EQ(table.UniqueId(static_cast<unsigned int>(index)), "");
    EXPECT_EQ(table.Name(static_cast<unsigned int>(index)), "");
    EXPECT_FALSE(table.dl_select_device(index));
    EXPECT_EQ(table.LastError(), "There is no such microscope");
  }
  EXPECT_EQ(table.dl_get_selected_device(), -1);
}

TEST(SimulatedDinoLite, KeepsQuietUntilItIsInitialised) {
  const Table table;
  EXPECT_EQ(table.LastError(), "");
  EXPECT_EQ(table.dl_devices_count(), 0);
  EXPECT_EQ(table.dl_get_selected_device(), -1);
  table.dl_unselect_device();
  EXPECT_EQ(table.LastError(), "");
  EXPECT_EQ(table.Name(0), "");
  EXPECT_EQ(table.LastError(), "The library is not initialised");
  EXPECT_FALSE(table.dl_select_device(0));
  EXPECT_TRUE(table.dl_supports_amr());
}

// What every function that needs a microscope answers where it has none.
void ExpectNoAnswers(const Table& table, const std::string& error) {
  // Leaves another text behind, for the next question.
  const auto hasFailed = [&] {
    const bool isTold = table.LastError() == error;
    table.dl_select_device(99);
    return isTold;
  };
  EXPECT_EQ(table.dl_get_selected_device(), -1);
  EXPECT_FALSE(table.dl_initialize_selected_device());
  EXPECT_TRUE(hasFailed());
  EXPECT_FALSE(table.dl_device_supports_amr());
  EXPECT_TRUE(hasFailed());
  EXPECT_EQ(table.dl_get_amr(), 0.0F);
  EXPECT_TRUE(hasFailed());
  EXPECT_EQ(table.dl_get_fovx(0, 50), 0.0);
  EXPECT_TRUE(hasFailed());
  EXPECT_EQ(table.dl_get_amr_update_count(), 0U);
  EXPECT_TRUE(hasFailed());
  EXPECT_FALSE(table.dl_device_supports_microtouch());
  EXPECT_TRUE(hasFailed());
  EXPECT_FALSE(table.dl_microtouch_pressed());
  EXPECT_TRUE(hasFailed());
  EXPECT_EQ(table.dl_led_mode_count(), 0);
  EXPECT_TRUE(hasFailed());
  EXPECT_EQ(table.dl_led_mode(0), 0);
  EXPECT_TRUE(hasFailed());
  EXPECT_FALSE(table.dl_set_led_state(17));
  EXPECT_TRUE(hasFailed());
}

TEST(SimulatedDinoLite, AnswersNothingWithoutASelection) {
  const Table table;
  table.dl_initialize();
  ExpectNoAnswers(table, "No microscope is selected");
}

TEST(SimulatedDinoLite, AnswersNothingWhileTheMicroscopeIsUnplugged) {
  const SelectedTable table;
  Control("unplug");
  ExpectNoAnswers(table, "The selected microscope is unplugged");
  EXPECT_EQ(table.dl_devices_count(), 0);
  Control("plug");
  EXPECT_EQ(table.dl_get_selected_device(), 0);
  EXPECT_TRUE(table.dl_initialize_selected_device());
  EXPECT_NEAR(table.dl_get_amr(), 50.0F, 0.06F);
}

TEST(SimulatedDinoLite, SelectsAndForgets) {
  setenv("OSTREL_SIMULATOR_DEVICES", "3", 1);
  const SelectedTable table;
  EXPECT_EQ(table.dl_get_selected_device(), 0);
  EXPECT_TRUE(table.dl_select_device(2));
  EXPECT_EQ(table.dl_get_selected_device(), 2);
  EXPECT_FALSE(table.dl_select_device(3));
  EXPECT_EQ(table.dl_get_selected_device(), 2);
  Control("device 0 unplug");
  EXPECT_EQ(table.dl_get_selected_device(), 1);
  table.dl_initialize();
  EXPECT_EQ(table.dl_get_selected_device(), 1);
  table.dl_unselect_device();
  EXPECT_EQ(table.dl_get_selected_device(), -1);
  EXPECT_EQ(table.dl_devices_count(), 2);
}

TEST(SimulatedDinoLite, DoesNotStartWhereAVariableCannotBeRead) {
  setenv("OSTREL_SIMULATOR_DINO_FEATURES", "wings", 1);
  const Table table;
  table.dl_initialize();
  EXPECT_EQ(table.LastError(), "A variable of the simulator could not be read");
  EXPECT_EQ(table.dl_devices_count(), 0);
  EXPECT_FALSE(table.dl_select_device(0));
}

TEST(SimulatedDinoLite, TellsTheMagnificationOfTheRing) {
  setenv("OSTREL_SIMULATOR_READING_NOISE", "0", 1);
  const SelectedTable table;
  EXPECT_TRUE(table.dl_device_supports_amr());
  EXPECT_EQ(table.dl_get_amr(), 50.0F);
  EXPECT_EQ(table.dl_get_amr_update_count(), 0U);
  Control("magnification 220");
  EXPECT_EQ(table.dl_get_amr(), 220.0F);
  EXPECT_EQ(table.dl_get_amr_update_count(), 1U);
  Control("magnification 220");
  EXPECT_EQ(table.dl_get_amr_update_count(), 1U);
}

// A ring of another magnification is off by the same share.
TEST(SimulatedDinoLite, ReadsAMagnificationThatWandersALittle) {
  const SelectedTable table;
  std::set<float> readings;
  for (int i = 0; i < 1000; ++i) {
    readings.insert(table.dl_get_amr());
  }
  EXPECT_GT(readings.size(), 900U);
  EXPECT_NEAR(*readings.begin(), 49.94F, 0.002F);
  EXPECT_NEAR(*readings.rbegin(), 50.06F, 0.002F);
  EXPECT_EQ(table.dl_get_amr_update_count(), 0U);
}

TEST(SimulatedDinoLite, HasAFieldOfViewForEveryReadingAtBothEndsOfTheRing) {
  const SelectedTable table;
  for (const int magnification : {20, 220}) {
    Control("magnification " + std::to_string(magnification));
    for (int i = 0; i < 100; ++i) {
      EXPECT_GT(table.dl_get_fovx(0, table.dl_get_amr()), 0.0);
    }
  }
}

TEST(SimulatedDinoLite, TellsTheFieldOfViewInMicrometres) {
  const SelectedTable table;
  EXPECT_EQ(table.dl_get_fovx(0, 50), 1920 * 45875 / 65536.0);
  EXPECT_EQ(table.dl_get_fovx(0, 62.5), 1920 * 36700 / 65536.0);
  EXPECT_EQ(table.dl_get_fovx(0, 20), 1920 * 114688 / 65536.0);
  EXPECT_EQ(table.dl_get_fovx(0, 220), 1920 * 10426 / 65536.0);
  EXPECT_EQ(table.LastError(), "");
  for (const double amr :
       {19.9, 220.1, 0.0, -50.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(table.dl_get_fovx(0, amr), 0.0) << amr;
    EXPECT_EQ(table.LastError(), "There is no such field of view");
  }
  for (const int selector : {-1, 1, 2147483647}) {
    EXPECT_EQ(table.dl_get_fovx(selector, 50), 0.0);
  }
}

TEST(SimulatedDinoLite, SeesEachPressOfMicroTouchOnce) {
  const SelectedTable table;
  EXPECT_TRUE(table.dl_device_supports_microtouch());
  EXPECT_FALSE(table.dl_microtouch_pressed());
  Control("press");
  EXPECT_TRUE(table.dl_microtouch_pressed());
  EXPECT_FALSE(table.dl_microtouch_pressed());
  Control("hold");
  EXPECT_TRUE(table.dl_microtouch_pressed());
  EXPECT_TRUE(table.dl_microtouch_pressed());
  Control("release");
  EXPECT_FALSE(table.dl_microtouch_pressed());
}

std::string Lit(int percent) {
  return "plugged 1 focus 128 moving 0 scanning 0 light " + std::to_string(percent) +
         " magnification 50 stage moving frame 0";
}

TEST(SimulatedDinoLite, LightsItsLedGroups) {
  const SelectedTable table;
  EXPECT_EQ(table.LedModes(), (std::vector<int>{17, 16, 1, 34, 0}));
  EXPECT_TRUE(table.dl_set_led_state(16));
  EXPECT_EQ(Control("status"), Lit(60));
  EXPECT_TRUE(table.dl_set_led_state(1));
  EXPECT_EQ(Control("status"), Lit(40));
  EXPECT_TRUE(table.dl_set_led_state(34));
  EXPECT_EQ(Control("status"), Lit(80));
  EXPECT_TRUE(table.dl_set_led_state(0));
  EXPECT_EQ(Control("status"), Lit(0));
  EXPECT_TRUE(table.dl_set_led_state(17));
  EXPECT_EQ(Control("status"), Lit(100));
  EXPECT_EQ(table.LastError(), "");
}

TEST(SimulatedDinoLite, RefusesModesThatItsLedsDoNotHave) {
  const SelectedTable table;
  for (const int mode : {-1, 2, 18}) {
    EXPECT_FALSE(table.dl_set_led_state(mode));
    EXPECT_EQ(table.LastError(), "There is no such LED mode");
  }
  EXPECT_EQ(Control("status"), Lit(100));
  for (const int index : {-1, 5}) {
    table.dl_select_device(99);
    EXPECT_EQ(table.dl_led_mode(index), 0);
    EXPECT_EQ(table.LastError(), "There is no such LED mode");
  }
}

TEST(SimulatedDinoLite, ComesWithLessToo) {
  setenv("OSTREL_SIMULATOR_DEVICES", "3", 1);
  setenv("OSTREL_SIMULATOR_DINO_FEATURES", "amr,microtouch,leds:switch:none", 1);
  const SelectedTable table;
  ASSERT_TRUE(table.dl_select_device(1));
  EXPECT_EQ(table.LedModes(), (std::vector<int>{17, 0}));
  EXPECT_FALSE(table.dl_set_led_state(16));
  EXPECT_EQ(table.LastError(), "There is no such LED mode");
  EXPECT_TRUE(table.dl_set_led_state(0));
  EXPECT_EQ(Control("device 1 status"), Lit(0));
  EXPECT_EQ(Control("device 0 status"), Lit(100));

  ASSERT_TRUE(table.dl_select_device(2));
  EXPECT_TRUE(table.dl_initialize_selected_device());
  EXPECT_FALSE(table.dl_device_supports_amr());
  EXPECT_EQ(table.dl_get_amr(), 0.0F);
  EXPECT_EQ(table.LastError(), "The selected microscope does not measure its magnification");
  Control("device 2 magnification 60");
  EXPECT_EQ(table.dl_get_amr_update_count(), 0U);
  EXPECT_EQ(table.dl_get_fovx(0, 50), 1920 * 45875 / 65536.0);
  EXPECT_FALSE(table.dl_device_supports_microtouch());
  Control("device 2 press");
  EXPECT_FALSE(table.dl_microtouch_pressed());
  EXPECT_EQ(table.LastError(), "The selected microscope has no MicroTouch button");
  EXPECT_EQ(table.LedModes(), std::vector<int>());
  EXPECT_EQ(table.dl_led_mode(0), 0);
  EXPECT_FALSE(table.dl_set_led_state(17));
  EXPECT_EQ(table.LastError(), "The LEDs of the selected microscope cannot be controlled");
}

TEST(SimulatedDinoLite, ShowsTheCameraItsRingAndItsLeds) {
  setenv("OSTREL_SIMULATOR_STAGE", "0:0", 1);
  setenv("OSTREL_SIMULATOR_NOISE", "0", 1);
  const SelectedTable table;
  Control("numbers 0");
  const OpenedCamera camera;
  ASSERT_EQ(camera.Call("cnokhwa_start_capture_with_format", 0, 0), 0);
  const std::vector<std::uint8_t> before = camera.Grab();
  EXPECT_EQ(table.dl_get_fovx(0, 50), 640 * 45875 / 65536.0);
  Control("magnification 100");
  EXPECT_FALSE(camera.Grab() == before);
  Control("magnification 50");
  EXPECT_TRUE(camera.Grab() == before);
  std::vector<std::int64_t> brightness;
  for (const int mode : {17, 34, 16, 1, 0}) {
    ASSERT_TRUE(table.dl_set_led_state(mode));
    const std::vector<std::uint8_t> frame = camera.Grab();
    brightness.push_back(std::accumulate(frame.begin(), frame.end(), std::int64_t{0}));
  }
  for (std::size_t i = 1; i < brightness.size(); ++i) {
    EXPECT_LT(brightness[i], brightness[i - 1]) << i;
  }
  Control("unplug");
  EXPECT_EQ(camera.Call("cnokhwa_devices_count"), 0);
}

TEST(SimulatedDinoLite, MayBeCalledByManyThreadsAtOnce) {
  const SelectedTable table;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&table, i] {
      for (int round = 0; round < 100; ++round) {
        if (i == 0 && round % 10 == 0) {
          table.dl_unselect_device();
          table.dl_initialize();
        }
        if (i == 1 && round % 7 == 0) {
          Control(round % 2 == 0 ? "unplug" : "plug");
        }
        if (i == 2) {
          Control("magnification " + std::to_string(20 + round));
        }
        table.dl_select_device(0);
        table.dl_initialize_selected_device();
        EXPECT_LE(table.dl_get_selected_device(), 0);
        EXPECT_LE(table.dl_devices_count(), 1);
        table.Name(0);
        table.dl_device_supports_amr();
        EXPECT_LE(table.dl_get_amr(), 120.0F * 1.0012F);
        EXPECT_LE(table.dl_get_fovx(0, 50), 1920 * 45875 / 65536.0);
        table.dl_get_amr_update_count();
        table.dl_device_supports_microtouch();
        table.dl_microtouch_pressed();
        EXPECT_LE(table.LedModes().size(), 5U);
        table.dl_set_led_state(round % 2 == 0 ? 17 : 1);
        EXPECT_NE(table.dl_get_last_error(), nullptr);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(SimulatedDinoLite, LightsNoLedsWhileItRefuses) {
  const SelectedTable table;
  EXPECT_EQ(Control("refuse 1"), "ok");
  EXPECT_FALSE(table.dl_set_led_state(0));
  EXPECT_EQ(table.LastError(), "The microscope refuses commands");
  EXPECT_EQ(table.LedModes().size(), 5U);
  EXPECT_EQ(Control("refuse 0"), "ok");
  EXPECT_TRUE(table.dl_set_led_state(0));
}

}  // namespace
}  // namespace ostrel_simulator

// The built microscope library, opened as the addon opens it, beside the camera library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "unit/simulator/opened_instrument.h"
#include "unit/support/elf_symbols.h"

namespace ostrel_simulator {
namespace {

const char* const kLibrary = OSTREL_TEST_OSTREL_SIMULATOR;

// The whole table, as the binding fills it.
struct Table {
#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "devices/ostrel_symbols.h"

  Table() {
    void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
#define REQUIRED(name, result, parameters) \
  name = reinterpret_cast<result(*) parameters>(dlsym(library, #name));
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/ostrel_symbols.h"
  }

  std::string LastError() const {
    return GetLastErrorString();
  }
};

// A library with its first microscope selected, and a clock that stands still.
struct SelectedTable : Table {
  SelectedTable() {
    EXPECT_EQ(Control("clock stop"), "ok");
    EXPECT_NE(Init(), 0);
    EXPECT_NE(SelectDeviceNumber(0), 0);
  }

  int FocusPosition() const {
    std::uint16_t position = 9999;
    EXPECT_NE(GetFocusPosition(&position), 0);
    return position;
  }
};

TEST(SimulatedOstrel, ExportsTheTableAndNothingElse) {
  const std::set<std::string> expected = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/ostrel_symbols.h"
  };
  ASSERT_EQ(expected.size(), 22U);
  EXPECT_EQ(ostrel_native::ExportedSymbols(kLibrary), expected);
}

TEST(SimulatedOstrel, ListsTheMicroscopesThatArePluggedIn) {
  setenv("OSTREL_SIMULATOR_DEVICES", "3", 1);
  const Table table;
  ASSERT_NE(table.Init(), 0);
  EXPECT_EQ(table.GetDevicesCount(), 3);
  EXPECT_STREQ(table.GetDeviceUniqueId(0), L"simulated-microscope-1");
  EXPECT_STREQ(table.GetDeviceFriendlyName(0), L"Simulated microscope 1");
  EXPECT_STREQ(table.GetDeviceUniqueId(2), L"simulated-microscope-3");
  EXPECT_STREQ(table.GetDeviceFriendlyName(2), L"Simulated microscope 3");
  Control("device 1 unplug");
  EXPECT_EQ(table.GetDevicesCount(), 2);
  EXPECT_STREQ(table.GetDeviceUniqueId(1), L"simulated-microscope-3");
  EXPECT_EQ(table.GetDeviceUniqueId(2), nullptr);
  EXPECT_EQ(table.LastError(), "There is no such microscope");
  Control("device 1 plug");
  EXPECT_EQ(table.GetDevicesCount(), 3);
  EXPECT_STREQ(table.GetDeviceFriendlyName(1), L"Simulated microscope 2");
}

TEST(SimulatedOstrel, KnowsNoOtherMicroscopes) {
  const Table table;
  ASSERT_NE(table.Init(), 0);
  for (const int index : {-1, 1, 2147483647}) {
    EXPECT_EQ(table.GetDeviceUniqueId(index), nullptr);
    EXPECT_EQ(table.GetDeviceFriendlyName(index), nullptr);
    EXPECT_EQ(table.SelectDeviceNumber(static_cast<unsigned int>(index)), 0);
    EXPECT_EQ(table.LastError(), "There is no such microscope");
  }
  EXPECT_EQ(table.GetScopeStatus(), 0);
}

TEST(SimulatedOstrel, KeepsQuietUntilItIsInitialised) {
  const Table table;
  EXPECT_EQ(table.LastError(), "");
  EXPECT_EQ(table.GetDevicesCount(), 0);
  EXPECT_EQ(table.GetDeviceUniqueId(0), nullptr);
  EXPECT_EQ(table.LastError(), "The library is not initialised");
  EXPECT_EQ(table.SelectDeviceNumber(0), 0);
  EXPECT_EQ(table.GetScopeStatus(), 0);
  EXPECT_EQ(table.GetApiVersion(), 0x00010002U);
}

// What every function that needs a microscope answers where it has none.
void ExpectNoAnswers(const Table& table, const std::string& error) {
  std::uint16_t words[2] = {1, 2};
  std::uint8_t bytes[4] = {3, 4, 5, 6};
  float size = 7;
  std::int32_t state = 8;
  const auto refuses = [&](int result) { return result == 0 && table.LastError() == error; };
  EXPECT_EQ(table.GetPixelSizeMicrons(), 0.0F);
  EXPECT_EQ(table.LastError(), error);
  EXPECT_TRUE(refuses(table.GetPixelSizeInfo(&size, &words[0], &words[1])));
  EXPECT_TRUE(refuses(table.GetLensGroupInfo(&words[0], &bytes[0])));
  EXPECT_TRUE(refuses(table.IsCapturePressed()));
  EXPECT_TRUE(refuses(
      table.GetVersionInfo(&words[0], &bytes[0], &bytes[1], &words[1], &bytes[2], &bytes[3])));
  EXPECT_TRUE(refuses(table.GetProtocolVersionInfo(&words[0], &bytes[0], &bytes[1])));
  EXPECT_TRUE(refuses(table.TriggerAutoFocus()));
  EXPECT_TRUE(refuses(table.GetFocusPosition(&words[0])));
  EXPECT_TRUE(refuses(table.SetFocusPosition(5)));
  EXPECT_TRUE(refuses(table.FocusNearStep()));
  EXPECT_TRUE(refuses(table.FocusFarStep()));
  EXPECT_TRUE(refuses(table.GetLedState(&state)));
  EXPECT_TRUE(refuses(table.SetLedState(true)));
  EXPECT_EQ(words[0], 1);
  EXPECT_EQ(words[1], 2);
  EXPECT_EQ(bytes[0], 3);
  EXPECT_EQ(size, 7);
  EXPECT_EQ(state, 8);
}

TEST(SimulatedOstrel, AnswersNothingWithoutASelection) {
  const Table table;
  ASSERT_NE(table.Init(), 0);
  ExpectNoAnswers(table, "No microscope is selected");
  EXPECT_EQ(table.GetScopeStatus(), 0);
}

TEST(SimulatedOstrel, AnswersNothingWhileTheMicroscopeIsUnplugged) {
  const SelectedTable table;
  Control("unplug");
  ExpectNoAnswers(table, "The selected microscope is unplugged");
  EXPECT_EQ(table.GetScopeStatus(), 4);
  EXPECT_EQ(table.GetDevicesCount(), 0);
  EXPECT_EQ(table.SelectDeviceNumber(0), 0);
  Control("plug");
  EXPECT_EQ(table.GetScopeStatus(), 1);
  EXPECT_EQ(table.FocusPosition(), 128);
}

TEST(SimulatedOstrel, ForgetsTheSelectionWhenItIsDestroyed) {
  const SelectedTable table;
  table.Destroy();
  EXPECT_EQ(table.GetScopeStatus(), 0);
  EXPECT_EQ(table.GetDevicesCount(), 0);
  ASSERT_NE(table.Init(), 0);
  EXPECT_EQ(table.GetScopeStatus(), 0);
  EXPECT_NE(table.SelectDeviceNumber(0), 0);
  EXPECT_EQ(table.GetScopeStatus(), 1);
}

TEST(SimulatedOstrel, DoesNotStartWhereAVariableCannotBeRead) {
  setenv("OSTREL_SIMULATOR_FOCUS", "far", 1);
  const Table table;
  EXPECT_EQ(table.Init(), 0);
  EXPECT_EQ(table.LastError(), "A variable of the simulator could not be read");
  EXPECT_EQ(table.GetDevicesCount(), 0);
}

TEST(SimulatedOstrel, IsControlledByTextsAlone) {
  void* const library = dlopen(OSTREL_TEST_MICROSCOPE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  const auto control =
      reinterpret_cast<char* (*)(const char*)>(dlsym(library, "virtual_microscope_control"));
  const std::unique_ptr<char, decltype(&std::free)> answer(control(nullptr), &std::free);
  EXPECT_STREQ(answer.get(), "error: there is no command here");
  EXPECT_EQ(Control("light 20"), "ok");
}

TEST(SimulatedOstrel, TellsItsVersions) {
  const SelectedTable table;
  std::uint16_t product = 0;
  std::uint16_t software = 0;
  std::array<std::uint8_t, 4> parts{};
  ASSERT_NE(table.GetVersionInfo(&product, &parts[0], &parts[1], &software, &parts[2], &parts[3]),
            0);
  EXPECT_EQ(product, 4711);
  EXPECT_EQ(software, 3);
  EXPECT_EQ(parts, (std::array<std::uint8_t, 4>{2, 1, 4, 5}));
  ASSERT_NE(table.GetProtocolVersionInfo(&product, &parts[0], &parts[1]), 0);
  EXPECT_EQ(product, 1);
  EXPECT_EQ(parts[0], 6);
  EXPECT_EQ(parts[1], 2);
}

TEST(SimulatedOstrel, TellsItsPixelSizeAndLens) {
  const SelectedTable table;
  float size = 0;
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint8_t group = 0;
  ASSERT_NE(table.GetPixelSizeInfo(&size, &width, &height), 0);
  EXPECT_FLOAT_EQ(size, 45875.0F / 65536);
  EXPECT_EQ(width, 1920);
  EXPECT_EQ(height, 1080);
  EXPECT_EQ(table.GetPixelSizeMicrons(), size);
  for (const auto& [magnification, expected] :
       std::vector<std::pair<std::string, int>>{{"20", 1}, {"50", 2}, {"200", 3}}) {
    Control("magnification " + magnification);
    ASSERT_NE(table.GetLensGroupInfo(&width, &group), 0);
    EXPECT_EQ(width, 0x0301);
    EXPECT_EQ(group, expected);
  }
  EXPECT_FLOAT_EQ(table.GetPixelSizeMicrons(), 11468.0F / 65536);
}

TEST(SimulatedOstrel, MovesTheFocus) {
  const SelectedTable table;
  EXPECT_EQ(table.FocusPosition(), 128);
  EXPECT_NE(table.SetFocusPosition(148), 0);
  EXPECT_EQ(table.GetScopeStatus(), 2);
  Control("clock advance 4");
  EXPECT_EQ(table.FocusPosition(), 136);
  Control("clock advance 6");
  EXPECT_EQ(table.FocusPosition(), 148);
  EXPECT_EQ(table.GetScopeStatus(), 1);
  EXPECT_NE(table.FocusNearStep(), 0);
  Control("clock advance 10");
  EXPECT_EQ(table.FocusPosition(), 144);
  EXPECT_NE(table.FocusFarStep(), 0);
  Control("clock advance 10");
  EXPECT_EQ(table.FocusPosition(), 148);
}

TEST(SimulatedOstrel, RefusesWhatTheFocusCannotDo) {
  const SelectedTable table;
  EXPECT_EQ(table.SetFocusPosition(256), 0);
  EXPECT_EQ(table.LastError(), "The focus has no such position");
  Control("focus 0");
  EXPECT_EQ(table.FocusNearStep(), 0);
  EXPECT_EQ(table.LastError(), "The focus is at the end of its travel");
  Control("focus 255");
  EXPECT_EQ(table.FocusFarStep(), 0);
  EXPECT_EQ(table.FocusPosition(), 255);
}

TEST(SimulatedOstrel, FocusesByItself) {
  const SelectedTable table;
  ASSERT_NE(table.TriggerAutoFocus(), 0);
  EXPECT_EQ(table.GetScopeStatus(), 3);
  EXPECT_EQ(table.FocusPosition(), 0);
  Control("clock advance 30");
  EXPECT_EQ(table.FocusPosition(), 16);
  Control("clock advance 2000");
  EXPECT_EQ(table.GetScopeStatus(), 1);
  const int sharpest = table.FocusPosition();
  Control("focus 128");
  ASSERT_NE(table.TriggerAutoFocus(), 0);
  Control("clock advance 2000");
  EXPECT_EQ(table.FocusPosition(), sharpest);
}

TEST(SimulatedOstrel, SwitchesItsLight) {
  const SelectedTable table;
  std::int32_t state = 7;
  ASSERT_NE(table.GetLedState(&state), 0);
  EXPECT_EQ(state, 1);
  EXPECT_NE(table.SetLedState(false), 0);
  ASSERT_NE(table.GetLedState(&state), 0);
  EXPECT_EQ(state, 0);
  EXPECT_EQ(
      Control("status"),
      "plugged 1 focus 128 moving 0 scanning 0 light 0 magnification 50 stage moving frame 0");
  EXPECT_NE(table.SetLedState(true), 0);
  ASSERT_NE(table.GetLedState(&state), 0);
  EXPECT_EQ(state, 1);
}

TEST(SimulatedOstrel, SeesEachPressOfTheButtonOnce) {
  const SelectedTable table;
  EXPECT_EQ(table.IsCapturePressed(), 0);
  Control("press");
  EXPECT_NE(table.IsCapturePressed(), 0);
  EXPECT_EQ(table.IsCapturePressed(), 0);
  Control("hold");
  EXPECT_NE(table.IsCapturePressed(), 0);
  EXPECT_NE(table.IsCapturePressed(), 0);
  Control("release");
  EXPECT_EQ(table.IsCapturePressed(), 0);
}

TEST(SimulatedOstrel, DrivesTheMicroscopeThatIsSelected) {
  setenv("OSTREL_SIMULATOR_DEVICES", "2", 1);
  const SelectedTable table;
  ASSERT_NE(table.SelectDeviceNumber(1), 0);
  ASSERT_NE(table.SetFocusPosition(200), 0);
  Control("clock advance 100");
  EXPECT_EQ(table.FocusPosition(), 200);
  ASSERT_NE(table.SelectDeviceNumber(0), 0);
  EXPECT_EQ(table.FocusPosition(), 128);
}

TEST(SimulatedOstrel, ShowsTheCameraWhatItIsSetTo) {
  setenv("OSTREL_SIMULATOR_STAGE", "0:0", 1);
  setenv("OSTREL_SIMULATOR_NOISE", "0", 1);
  const SelectedTable table;
  Control("numbers 0");
  const OpenedCamera camera;
  ASSERT_EQ(camera.Call("cnokhwa_start_capture_with_format", 0, 0), 0);
  const std::vector<std::uint8_t> middle = camera.Grab();
  EXPECT_TRUE(camera.Grab() == middle);
  table.SetFocusPosition(90);
  Control("clock advance 100");
  EXPECT_FALSE(camera.Grab() == middle);
  table.SetFocusPosition(128);
  Control("clock advance 100");
  EXPECT_TRUE(camera.Grab() == middle);
  table.SetLedState(false);
  const std::vector<std::uint8_t> dark = camera.Grab();
  for (const std::uint8_t value : dark) {
    ASSERT_LE(value, 255 * 8 / 256 + 5);
  }
  table.SetLedState(true);
  float size = 0;
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  ASSERT_NE(table.GetPixelSizeInfo(&size, &width, &height), 0);
  EXPECT_EQ(width, 640);
  EXPECT_EQ(height, 480);
  Control("unplug");
  EXPECT_EQ(camera.Call("cnokhwa_devices_count"), 0);
  EXPECT_EQ(camera.Call("cnokhwa_frame_width", 0), -1);
  EXPECT_EQ(camera.Call("cnokhwa_start_capture_with_format", 0, 0), -1);
  Control("plug");
  EXPECT_EQ(camera.Call("cnokhwa_devices_count"), 1);
  EXPECT_EQ(camera.Call("cnokhwa_frame_width", 0), -2);
}

TEST(SimulatedOstrel, MayBeCalledByManyThreadsAtOnce) {
  const SelectedTable table;
  Control("clock run");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&table, i] {
      std::uint16_t words[2] = {};
      std::uint8_t byte = 0;
      float size = 0;
      std::int32_t state = 0;
      for (int round = 0; round < 100; ++round) {
        if (i == 0 && round % 10 == 0) {
          table.Destroy();
          table.Init();
        }
        if (i == 1 && round % 7 == 0) {
          Control(round % 2 == 0 ? "unplug" : "plug");
        }
        table.SelectDeviceNumber(0);
        table.GetDevicesCount();
        table.GetDeviceUniqueId(0);
        table.GetScopeStatus();
        table.GetPixelSizeInfo(&size, &words[0], &words[1]);
        table.GetLensGroupInfo(&words[0], &byte);
        table.IsCapturePressed();
        table.SetFocusPosition(static_cast<std::uint16_t>(round));
        table.FocusFarStep();
        table.SetLedState(round % 2 == 0);
        table.GetLedState(&state);
        EXPECT_NE(table.GetLastErrorString(), nullptr);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(SimulatedOstrel, TakesNoCommandsWhileItRefuses) {
  const SelectedTable library;
  std::int32_t led = 0;
  const int position = library.FocusPosition();
  EXPECT_EQ(Control("refuse 1"), "ok");
  for (const int result :
       {library.SetFocusPosition(9), library.FocusNearStep(), library.FocusFarStep(),
        library.TriggerAutoFocus(), library.SetLedState(false)}) {
    EXPECT_EQ(result, 0);
  }
  EXPECT_EQ(library.LastError(), "The microscope refuses commands");
  EXPECT_NE(library.GetLedState(&led), 0);
  EXPECT_EQ(led, 1);
  EXPECT_EQ(library.FocusPosition(), position);
  EXPECT_EQ(library.GetScopeStatus(), 1);
  EXPECT_EQ(Control("refuse 0"), "ok");
  EXPECT_NE(library.SetLedState(false), 0);
}

TEST(SimulatedOstrel, KeepsCallsWhileItHangs) {
  const SelectedTable library;
  EXPECT_EQ(Control("hang microscope"), "ok");
  std::atomic<int> back = 0;
  std::thread status([&] {
    EXPECT_EQ(library.GetScopeStatus(), 1);
    ++back;
  });
  std::thread command([&] {
    EXPECT_NE(library.SetLedState(false), 0);
    ++back;
  });
  // The list of microscopes is not the microscope's.
  EXPECT_EQ(library.GetDevicesCount(), 1);
  EXPECT_EQ(back, 0);
  EXPECT_EQ(Control("hang nothing"), "ok");
  status.join();
  command.join();
  EXPECT_EQ(back, 2);
}

}  // namespace
}  // namespace ostrel_simulator

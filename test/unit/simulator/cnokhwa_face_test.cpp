// The built library, opened as the addon opens it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simulator/frame_code.h"
#include "unit/support/elf_symbols.h"

namespace ostrel_simulator {
namespace {

const char* const kLibrary = OSTREL_TEST_SIMULATOR_LIBRARY;

// The whole table, as the binding fills it.
struct Table {
#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "camera/backend/cnokhwa_symbols.h"

  Table() {
    void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
#define REQUIRED(name, result, parameters) \
  name = reinterpret_cast<result(*) parameters>(dlsym(library, #name));
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "camera/backend/cnokhwa_symbols.h"
  }

  void AwaitFirstFrame() const {
    while (cnokhwa_has_first_frame(0) == -256) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
};

std::string Text(int (*entry)(int, void*, int), int device) {
  std::array<char, 64> buffer;
  buffer.fill('#');
  entry(device, buffer.data(), static_cast<int>(buffer.size()));
  return buffer.data();
}

TEST(SimulatedLibrary, ExportsTheCameraTableAndNothingElse) {
  const std::set<std::string> expected = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/cnokhwa_symbols.h"
  };
  ASSERT_EQ(expected.size(), 20U);
  EXPECT_EQ(ostrel_native::ExportedSymbols(kLibrary), expected);
}

TEST(SimulatedLibrary, OffersOneCameraThatIsReady) {
  const Table table;
  EXPECT_EQ(table.cnokhwa_initialize(), 0);
  EXPECT_EQ(table.cnokhwa_has_videocapture_auth(), 0);
  table.cnokhwa_ask_videocapture_auth();
  EXPECT_EQ(table.cnokhwa_devices_count(), 1);
  EXPECT_EQ(Text(table.cnokhwa_device_name, 0), "Simulated microscope camera");
  EXPECT_EQ(Text(table.cnokhwa_device_unique_id, 0), "simulated-camera-1");
  EXPECT_EQ(Text(table.cnokhwa_device_model_id, 0), "simulated-microscope-camera");
}

TEST(SimulatedLibrary, ListsItsFormatsFromSmallToLarge) {
  const Table table;
  const std::vector<std::vector<int>> expected = {{640, 480, 30},   {1280, 720, 30},
                                                  {1920, 1080, 30}, {1920, 1080, 60},
                                                  {2592, 1944, 15}, {3840, 2160, 15}};
  std::vector<std::vector<int>> formats;
  for (int format = 0; format < table.cnokhwa_device_formats_count(0); ++format) {
    formats.push_back({table.cnokhwa_device_format_width(0, format),
                       table.cnokhwa_device_format_height(0, format),
                       table.cnokhwa_device_format_frame_rate(0, format)});
    std::array<char, 16> type;
    table.cnokhwa_device_format_type(0, format, type.data(), 16);
    EXPECT_STREQ(type.data(), "RGB24");
  }
  EXPECT_EQ(formats, expected);
}

TEST(SimulatedLibrary, CutsTextsToTheCapacity) {
  const Table table;
  std::array<char, 8> buffer;
  buffer.fill('#');
  table.cnokhwa_device_name(0, buffer.data(), 4);
  EXPECT_EQ(std::string(buffer.data(), 5), std::string("Sim\0#", 5));
  buffer.fill('#');
  table.cnokhwa_device_name(0, buffer.data(), 0);
  table.cnokhwa_device_name(0, nullptr, 8);
  table.cnokhwa_device_format_type(0, 0, nullptr, 8);
  EXPECT_EQ(buffer[0], '#');
}

TEST(SimulatedLibrary, KnowsNoOtherDevicesAndFormats) {
  const Table table;
  for (const int device : {-1, 1, 2147483647}) {
    EXPECT_EQ(Text(table.cnokhwa_device_name, device), "");
    EXPECT_EQ(Text(table.cnokhwa_device_unique_id, device), "");
    EXPECT_EQ(Text(table.cnokhwa_device_model_id, device), "");
    EXPECT_EQ(table.cnokhwa_device_formats_count(device), 0);
    EXPECT_EQ(table.cnokhwa_device_format_width(device, 0), 0);
    EXPECT_EQ(table.cnokhwa_start_capture(device, 640, 480), -1);
    EXPECT_EQ(table.cnokhwa_start_capture_with_format(device, 0), -1);
    EXPECT_EQ(table.cnokhwa_has_first_frame(device), -1);
    EXPECT_EQ(table.cnokhwa_frame_width(device), -1);
    EXPECT_EQ(table.cnokhwa_frame_height(device), -1);
    EXPECT_EQ(table.cnokhwa_frame_bytes_per_row(device), -1);
    EXPECT_EQ(table.cnokhwa_grab_frame(device, nullptr, 0), -1);
  }
  EXPECT_EQ(table.cnokhwa_stop_capture(1), -1);
  EXPECT_EQ(table.cnokhwa_start_capture_with_format(0, 99), -1);
  EXPECT_EQ(table.cnokhwa_device_format_height(0, 99), 0);
  EXPECT_EQ(table.cnokhwa_device_format_frame_rate(0, -1), 0);
}

TEST(SimulatedLibrary, CapturesInTheFormatThatComesClosest) {
  const Table table;
  ASSERT_EQ(table.cnokhwa_start_capture(0, 700, 500), 0);
  EXPECT_EQ(table.cnokhwa_frame_width(0), 640);
  EXPECT_EQ(table.cnokhwa_frame_height(0), 480);
  EXPECT_EQ(table.cnokhwa_frame_bytes_per_row(0), 1920);
  table.AwaitFirstFrame();
  std::vector<std::uint8_t> frame(640 * 480 * 3);
  ASSERT_EQ(table.cnokhwa_grab_frame(0, frame.data(), static_cast<int>(frame.size())), 0);
  EXPECT_GE(ReadFrameCode(frame.data(), 640, 480, 1920, 3).value_or(0), 1U);
  EXPECT_EQ(table.cnokhwa_stop_capture(0), 0);
  EXPECT_EQ(table.cnokhwa_has_first_frame(0), -2);
}

TEST(SimulatedLibrary, OffersAsManyCamerasAsTheEnvironmentSays) {
  setenv("OSTREL_SIMULATOR_DEVICES", "2", 1);
  const Table table;
  EXPECT_EQ(table.cnokhwa_devices_count(), 2);
  EXPECT_EQ(Text(table.cnokhwa_device_name, 1), "Simulated microscope camera 2");
  EXPECT_EQ(Text(table.cnokhwa_device_unique_id, 1), "simulated-camera-2");
  ASSERT_EQ(table.cnokhwa_start_capture_with_format(0, 0), 0);
  ASSERT_EQ(table.cnokhwa_start_capture_with_format(1, 1), 0);
  EXPECT_EQ(table.cnokhwa_frame_width(1), 1280);
  EXPECT_EQ(table.cnokhwa_stop_capture(-1), 0);
  EXPECT_EQ(table.cnokhwa_frame_width(0), -2);
  EXPECT_EQ(table.cnokhwa_frame_width(1), -2);
}

TEST(SimulatedLibrary, SaysAtTheStartThatAVariableCannotBeRead) {
  setenv("OSTREL_SIMULATOR_STUTTER", "often", 1);
  const Table table;
  EXPECT_EQ(table.cnokhwa_initialize(), -3);
  EXPECT_EQ(table.cnokhwa_devices_count(), 1);
}

const Table* g_lateTable = nullptr;

TEST(SimulatedLibrary, KeepsCapturingWhileTheProcessExits) {
  EXPECT_EXIT(
      {
        // Registered before the library is opened, so run after whatever it would destroy.
        std::atexit([] {
          g_lateTable->AwaitFirstFrame();
          const bool answers = g_lateTable->cnokhwa_frame_width(0) == 640 &&
                               g_lateTable->cnokhwa_devices_count() == 1;
          _exit(answers ? 3 : 4);
        });
        g_lateTable = new Table;
        g_lateTable->cnokhwa_start_capture(0, 640, 480);
        std::exit(0);
      },
      testing::ExitedWithCode(3), "");
}

TEST(SimulatedLibrary, LetsTheProcessEndWithACaptureRunning) {
  EXPECT_EXIT(
      {
        const Table table;
        table.cnokhwa_start_capture(0, 640, 480);
        table.AwaitFirstFrame();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^$");
}

TEST(SimulatedLibrary, StaysLoadedWhenItIsClosed) {
  void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr);
  dlclose(library);
  EXPECT_NE(dlopen(kLibrary, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace ostrel_simulator

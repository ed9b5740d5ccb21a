#include "devices/dino_lite_binding.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "unit/support/child_process.h"
#include "unit/support/dino_fixture.h"
#include "unit/support/symbol_spy.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

const std::vector<std::string> kRequired = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters)
#include "devices/dino_lite_symbols.h"
};
const std::vector<std::string> kOptional = {
#define REQUIRED(name, result, parameters)
#define OPTIONAL(name, result, parameters) #name,
#include "devices/dino_lite_symbols.h"
};

// The entries of the table that are null, by name.
std::vector<std::string> AbsentEntries() {
  std::vector<std::string> names;
#define REQUIRED(name, result, parameters) \
  if (g_dinoLite.name == nullptr) {        \
    names.emplace_back(#name);             \
  }
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/dino_lite_symbols.h"
  return names;
}

std::string MissingText(const std::string& symbol) {
  return "Required symbol not found: " + symbol;
}

void ExpectNotLoaded() {
  EXPECT_FALSE(g_dinoLite.loaded);
  EXPECT_EQ(g_dinoLite.backendKind, DinoBackendKind::None);
  EXPECT_EQ(g_dinoLite.handle, nullptr);
  EXPECT_EQ(g_dinoLite.path, "");
  EXPECT_EQ(AbsentEntries().size(), 19U);
}

TEST(DinoBackendText, NamesEveryKind) {
  EXPECT_STREQ(DinoBackendText(DinoBackendKind::None), "none");
  EXPECT_STREQ(DinoBackendText(DinoBackendKind::LibDinoLite), "mac-libdinolite");
  EXPECT_STREQ(DinoBackendText(DinoBackendKind::Dnx), "windows-dnx");
}

TEST_F(DinoTest, IsEmptyBeforeALoad) {
  ExpectNotLoaded();
  EXPECT_FALSE(g_dinoLite.initialized);
  EXPECT_EQ(g_dinoLite.deviceCount, 0);
  EXPECT_EQ(g_dinoLite.selectedDeviceIndex, -1);
  EXPECT_EQ(g_dinoLite.amrRaw, -1.0);
  EXPECT_EQ(g_dinoLiteExecutor.name, "Dino-Lite");
  EXPECT_EQ(g_dinoLiteExecutor.idleInterval, std::chrono::milliseconds(10));
}

TEST_F(DinoTest, LoadsAllEntriesWithoutCallingAnyAndClearsBothTexts) {
  SetErrors(kEarlierError);
  EXPECT_TRUE(TryLoad(FakePath("libdinolite.so")));
  EXPECT_TRUE(AbsentEntries().empty());
  EXPECT_TRUE(g_dinoLite.loaded);
  EXPECT_EQ(g_dinoLite.backendKind, DinoBackendKind::LibDinoLite);
  EXPECT_EQ(g_dinoLite.path, FakePath("libdinolite.so"));
  EXPECT_EQ(g_dinoLite.resolvedPath, FakePath("libdinolite.so"));
  EXPECT_NE(g_dinoLite.handle, nullptr);
  EXPECT_FALSE(g_dinoLite.initialized);
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_TRUE(fake.Calls().empty());
}

TEST_F(DinoTest, LooksUpTheRequiredEntriesAndThenTheOthersTheLightFirst) {
  LookedUpSymbols().clear();
  ASSERT_TRUE(TryLoad(FakePath("libdinolite.so")));
  std::vector<std::string> expected = kRequired;
  for (const char* optional :
       {"dl_led_mode_count", "dl_led_mode", "dl_set_led_state", "dl_unselect_device",
        "dl_get_amr_update_count", "dl_get_fovx", "dl_supports_amr",
        "dl_initialize_selected_device", "dl_get_last_error"}) {
    expected.emplace_back(optional);
  }
  EXPECT_EQ(LookedUpSymbols(), expected);
}

TEST_F(DinoTest, KeepsTheFirstLibraryAndTheTextsAtALaterLoad) {
  Load();
  SetErrors(kEarlierError);
  EXPECT_TRUE(TryLoad("/nowhere/libdinolite.so"));
  EXPECT_EQ(g_dinoLite.path, FakePath("libdinolite.so"));
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(DinoTest, RefusesALibraryThatLacksARequiredEntryAndClosesIt) {
  ASSERT_EQ(kRequired, (std::vector<std::string>{
                           "dl_initialize", "dl_devices_count", "dl_get_device_unique_id",
                           "dl_get_device_name", "dl_select_device", "dl_get_selected_device",
                           "dl_device_supports_amr", "dl_get_amr", "dl_device_supports_microtouch",
                           "dl_microtouch_pressed"}));
  for (const std::string& missing : kRequired) {
    const std::string path = FakePath("without_" + missing + "/libdinolite.so");
    EXPECT_FALSE(TryLoad(path)) << missing;
    EXPECT_EQ(Errors(), Both(MissingText(missing)));
    ExpectNotLoaded();
    EXPECT_FALSE(IsMapped(path));
  }
}

TEST_F(DinoTest, TellsOfTheFirstOfSeveralMissingEntries) {
  // The mathematics library has none of them.
  EXPECT_FALSE(TryLoad("libm.so.6"));
  EXPECT_EQ(Errors(), Both(MissingText("dl_initialize")));
}

TEST_F(DinoTest, LoadsALibraryThatLacksAnOptionalEntry) {
  ASSERT_EQ(kOptional.size(), 9U);
  for (const std::string& missing : kOptional) {
    g_dinoLite.loaded = false;
    Load(missing);
    EXPECT_EQ(AbsentEntries(), std::vector<std::string>{missing});
    EXPECT_EQ(Errors(), Both(""));
  }
}

TEST_F(DinoTest, TriesNoOtherNameAfterAnExplicitPath) {
  RunWithLibraryPath(OSTREL_TEST_FAKES_DIR, [] {
    EXPECT_FALSE(TryLoad("/nowhere/libdinolite.so"));
    EXPECT_EQ(Errors(), Both("Could not load native library '/nowhere/libdinolite.so': "
                             "/nowhere/libdinolite.so: cannot open shared object file: No such "
                             "file or directory"));
    EXPECT_TRUE(TryLoad(""));
    EXPECT_EQ(g_dinoLite.path, "libdinolite.so");
  });
}

TEST_F(DinoTest, TellsOfTheFirstNameWhereNeitherIsFound) {
  RunWithLibraryPath("/nowhere", [] {
    EXPECT_FALSE(TryLoad(""));
    EXPECT_EQ(Errors(), Both("Could not load native library 'libdinolite.so': libdinolite.so: "
                             "cannot open shared object file: No such file or directory"));
  });
}

TEST_F(DinoTest, TriesTheSecondNameWhereTheFirstIsNoLibraryThatServes) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink(FakePath("without_dl_get_amr/libdinolite.so"),
                                  directory.File("libdinolite.so"));
  std::filesystem::create_symlink(FakePath("libdinolite.so"), directory.File("libdinolite.dylib"));
  RunWithLibraryPath(directory.path, [] {
    SetErrors(kEarlierError);
    EXPECT_TRUE(TryLoad(""));
    EXPECT_EQ(g_dinoLite.path, "libdinolite.dylib");
    EXPECT_EQ(g_dinoLite.resolvedPath, "libdinolite.dylib");
    EXPECT_EQ(Errors(), Both(""));
    EXPECT_FALSE(IsMapped(FakePath("without_dl_get_amr/libdinolite.so")));
  });
}

TEST_F(DinoTest, TellsOfTheNameThatFailedFirstWhateverFailedLater) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink(FakePath("without_dl_get_amr/libdinolite.so"),
                                  directory.File("libdinolite.dylib"));
  RunWithLibraryPath(directory.path, [] {
    EXPECT_FALSE(TryLoad(""));
    EXPECT_EQ(Errors(), Both("Could not load native library 'libdinolite.so': libdinolite.so: "
                             "cannot open shared object file: No such file or directory"));
    ExpectNotLoaded();
  });
}

TEST_F(DinoTest, TellsOfTheMissingEntryOfTheFirstNameAndNotOfTheSecond) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink(FakePath("without_dl_get_amr/libdinolite.so"),
                                  directory.File("libdinolite.so"));
  std::filesystem::create_symlink(FakePath("without_dl_initialize/libdinolite.so"),
                                  directory.File("libdinolite.dylib"));
  RunWithLibraryPath(directory.path, [] {
    EXPECT_FALSE(TryLoad(""));
    EXPECT_EQ(Errors(), Both(MissingText("dl_get_amr")));
  });
}

TEST_F(DinoTest, TellsOfItsOwnFailureWhateverAnotherThreadWritesMeanwhile) {
  std::atomic<bool> stop{false};
  std::thread other([&stop] {
    while (!stop) {
      SetLastError("of another subsystem");
    }
  });
  for (int i = 0; i < 200; ++i) {
    EXPECT_FALSE(TryLoad(FakePath("without_dl_get_amr/libdinolite.so")));
    EXPECT_EQ(Errors().at(0), MissingText("dl_get_amr"));
    EXPECT_FALSE(TryLoad("/dev/null"));
    EXPECT_EQ(Errors().at(0),
              "Could not load native library '/dev/null': /dev/null: file too short");
  }
  stop = true;
  other.join();
}

void DropSelection() {
  OnOwnerOf(g_dinoLiteExecutor, [] { g_dinoLite.DropSelectionOnOwnerThread(); });
}

TEST_F(DinoTest, LetsTheLibraryGoOfADeviceThatTheBindingHasSelectedWithoutAskingIt) {
  Start();
  g_dinoLite.selectedDeviceIndex = 0;
  g_dinoLite.microtouchEnabled = true;
  DropSelection();
  EXPECT_EQ(Calls(), std::vector<std::string>{"dl_unselect_device()"});
  EXPECT_EQ(g_dinoLite.selectedDeviceIndex, -1);
  EXPECT_FALSE(g_dinoLite.microtouchEnabled);
}

TEST_F(DinoTest, AsksTheLibraryForItsDeviceWhereTheBindingHasNone) {
  Start();
  DropSelection();
  EXPECT_EQ(Calls(), std::vector<std::string>{"dl_get_selected_device()"});
  fake.Send("clear_log\ndefault dl_get_selected_device 0");
  DropSelection();
  EXPECT_EQ(Calls(),
            (std::vector<std::string>{"dl_get_selected_device()", "dl_unselect_device()"}));
}

TEST_F(DinoTest, AsksForNoDeviceWhereTheLibraryCannotLetItGo) {
  const FakeLibrary library = Start("dl_unselect_device");
  g_dinoLite.selectedDeviceIndex = 1;
  DropSelection();
  DropSelection();
  EXPECT_TRUE(library.Calls().empty());
  EXPECT_EQ(g_dinoLite.selectedDeviceIndex, -1);
}

}  // namespace
}  // namespace ostrel_native

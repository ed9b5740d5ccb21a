#include "devices/ostrel_binding.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "unit/support/child_process.h"
#include "unit/support/ostrel_fixture.h"
#include "unit/support/symbol_spy.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

constexpr char kNotLoaded[] = "Could not load Ostrel native library";
constexpr char kNotStarted[] = "Ostrel SDK initialization failed";

const std::vector<std::string> kRequired = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters)
#include "devices/ostrel_symbols.h"
};
const std::vector<std::string> kOptional = {
#define REQUIRED(name, result, parameters)
#define OPTIONAL(name, result, parameters) #name,
#include "devices/ostrel_symbols.h"
};

// The entries of a table that are null, by name.
std::vector<std::string> AbsentEntries() {
  std::vector<std::string> names;
#define REQUIRED(name, result, parameters) \
  if (g_ostrel.api.name == nullptr) {      \
    names.emplace_back(#name);             \
  }
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/ostrel_symbols.h"
  return names;
}

TEST_F(OstrelTest, IsEmptyBeforeALoad) {
  EXPECT_EQ(AbsentEntries().size(), 22U);
  EXPECT_FALSE(g_ostrel.loaded);
  EXPECT_EQ(g_ostrel.selectedDevice, -1);
  EXPECT_EQ(g_ostrel.LoadedApi(), nullptr);
  EXPECT_EQ(g_ostrelExecutor.name, "Ostrel");
  EXPECT_EQ(g_ostrelExecutor.idleInterval, std::chrono::milliseconds(10));
}

TEST_F(OstrelTest, LoadsAllEntriesWithoutCallingAnyAndClearsBothTexts) {
  SetErrors(kEarlierError);
  g_ostrel.initialized = true;
  EXPECT_TRUE(TryLoad(FakePath("libostrel.so")));
  EXPECT_TRUE(AbsentEntries().empty());
  EXPECT_EQ(g_ostrel.path, FakePath("libostrel.so"));
  EXPECT_TRUE(g_ostrel.loaded);
  EXPECT_FALSE(g_ostrel.initialized);
  EXPECT_NE(g_ostrel.handle, nullptr);
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_TRUE(fake.Calls().empty());
}

TEST_F(OstrelTest, LooksUpTheRequiredEntriesAndThenTheOthersTheVersionsFirst) {
  LookedUpSymbols().clear();
  ASSERT_TRUE(TryLoad(FakePath("libostrel.so")));
  std::vector<std::string> expected = kRequired;
  for (const char* optional :
       {"GetVersionInfo", "GetProtocolVersionInfo", "GetApiVersion", "GetPixelSizeInfo",
        "GetLensGroupInfo", "TriggerAutoFocus", "GetFocusPosition", "SetFocusPosition",
        "FocusNearStep", "FocusFarStep", "GetLedState", "SetLedState", "GetLastErrorString"}) {
    expected.emplace_back(optional);
  }
  EXPECT_EQ(LookedUpSymbols(), expected);
}

TEST_F(OstrelTest, KeepsTheFirstLibraryAndTheTextsAtALaterLoad) {
  Load();
  SetErrors(kEarlierError);
  EXPECT_TRUE(TryLoad("/nowhere/libostrel.so"));
  EXPECT_EQ(g_ostrel.path, FakePath("libostrel.so"));
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(OstrelTest, RefusesALibraryThatLacksARequiredEntryAndClosesIt) {
  ASSERT_EQ(kRequired, (std::vector<std::string>{"Init", "Destroy", "GetDevicesCount",
                                                 "GetDeviceUniqueId", "GetDeviceFriendlyName",
                                                 "SelectDeviceNumber", "GetScopeStatus",
                                                 "GetPixelSizeMicrons", "IsCapturePressed"}));
  for (const std::string& missing : kRequired) {
    const std::string path = FakePath("without_" + missing + "/libostrel.so");
    SetErrors("");
    EXPECT_FALSE(TryLoad(path)) << missing;
    EXPECT_EQ(Errors(), Both(kNotLoaded));
    EXPECT_FALSE(g_ostrel.loaded);
    EXPECT_EQ(g_ostrel.handle, nullptr);
    EXPECT_EQ(g_ostrel.path, "");
    EXPECT_EQ(AbsentEntries().size(), 22U);
    EXPECT_FALSE(IsMapped(path));
  }
}

TEST_F(OstrelTest, LoadsALibraryThatLacksAnOptionalEntry) {
  ASSERT_EQ(kOptional.size(), 13U);
  for (const std::string& missing : kOptional) {
    g_ostrel.loaded = false;
    Load(missing);
    EXPECT_EQ(AbsentEntries(), std::vector<std::string>{missing});
    EXPECT_EQ(Errors(), Both(""));
  }
}

TEST_F(OstrelTest, TriesNoOtherNameAfterAnExplicitPath) {
  RunWithLibraryPath(OSTREL_TEST_FAKES_DIR, [] {
    for (const char* path : {"/nowhere/libostrel.so", "/etc/hostname", "/"}) {
      EXPECT_FALSE(TryLoad(path)) << path;
      EXPECT_EQ(Errors(), Both(kNotLoaded));
    }
    EXPECT_TRUE(TryLoad(""));
    EXPECT_EQ(g_ostrel.path, "libostrel.so");
  });
}

TEST_F(OstrelTest, TriesTheSecondNameWhereTheFirstIsNoLibraryThatServes) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink(FakePath("without_IsCapturePressed/libostrel.so"),
                                  directory.File("libostrel.so"));
  std::filesystem::create_symlink(FakePath("libostrel.so"), directory.File("ostrel.so"));
  RunWithLibraryPath(directory.path, [] {
    SetErrors(kEarlierError);
    EXPECT_TRUE(TryLoad(""));
    EXPECT_EQ(g_ostrel.path, "ostrel.so");
    EXPECT_EQ(Errors(), Both(""));
    EXPECT_FALSE(IsMapped(FakePath("without_IsCapturePressed/libostrel.so")));
  });
}

TEST_F(OstrelTest, DoesNotStartWhatIsNotLoaded) {
  SetErrors(kEarlierError);
  EXPECT_FALSE(g_ostrel.Init(false));
  EXPECT_FALSE(g_ostrel.Init(true));
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(OstrelTest, StartsTheLibraryOnceAndClearsBothTextsOnlyThen) {
  Load();
  SetErrors(kEarlierError);
  EXPECT_TRUE(g_ostrel.Init(false));
  EXPECT_EQ(Errors(), Both(""));
  SetErrors(kEarlierError);
  EXPECT_TRUE(g_ostrel.Init(false));
  EXPECT_EQ(Errors(), Both(kEarlierError));
  EXPECT_EQ(fake.CallOrder(), std::vector<std::string>{"Init"});
}

TEST_F(OstrelTest, TellsOfALibraryThatDoesNotStartAndTriesAgain) {
  Load();
  fake.Send("answer Init 0 0 -1");
  EXPECT_FALSE(g_ostrel.Init(false));
  EXPECT_EQ(Errors(), Both(kNotStarted));
  EXPECT_FALSE(g_ostrel.initialized);
  EXPECT_FALSE(g_ostrel.Init(true));
  EXPECT_TRUE(g_ostrel.Init(false));
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(fake.CallOrder(), (std::vector<std::string>{"Init", "Init", "Init"}));
}

TEST_F(OstrelTest, StartsAgainByForceAndDropsTheSelection) {
  Load();
  g_ostrel.selectedDevice = 1;
  EXPECT_TRUE(g_ostrel.Init(true));
  EXPECT_EQ(g_ostrel.selectedDevice, 1);
  EXPECT_TRUE(g_ostrel.Init(true));
  EXPECT_EQ(g_ostrel.selectedDevice, -1);
  EXPECT_EQ(fake.CallOrder(), (std::vector<std::string>{"Init", "Destroy", "Init"}));
}

TEST_F(OstrelTest, IsOnlyLoadedAfterAForcedStartThatFails) {
  Load();
  EXPECT_TRUE(g_ostrel.Init(false));
  g_ostrel.selectedDevice = 1;
  fake.Send("default Init 0");
  EXPECT_FALSE(g_ostrel.Init(true));
  EXPECT_FALSE(g_ostrel.initialized);
  EXPECT_TRUE(g_ostrel.loaded);
  EXPECT_EQ(g_ostrel.selectedDevice, -1);
  EXPECT_EQ(Errors(), Both(kNotStarted));
}

TEST_F(OstrelTest, ThreadsThatAskForTheLibrarysErrorTextAtOnceGetItOneAfterTheOther) {
  Load();
  // The next call may reuse the memory of the text before.
  fake.Send("delay GetLastErrorString 1\ntext GetLastErrorString lens cap on");
  std::atomic<int> torn{0};
  {
    std::vector<std::jthread> readers;
    for (int reader = 0; reader < 4; ++reader) {
      readers.emplace_back([&torn] {
        for (int i = 0; i < 25; ++i) {
          torn += g_ostrel.LastErrorText() == "lens cap on" ? 0 : 1;
        }
      });
    }
  }
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(fake.Send("stats GetLastErrorString"),
            "ok entered=100 finished=100 active=0 max_active=1");
}

TEST_F(OstrelTest, TellsItsOwnErrorFirstAndTheLibrarysWhereItHasNone) {
  Load();
  fake.Send("text GetLastErrorString lens cap on");
  EXPECT_EQ(g_ostrel.LastErrorText(), "lens cap on");
  SetErrors("own");
  EXPECT_EQ(g_ostrel.LastErrorText(), "own");
  EXPECT_EQ(fake.Entered("GetLastErrorString"), 1);
  SetLastError("of another subsystem");
  EXPECT_EQ(g_ostrel.LastErrorText(), "own");
  SetErrors("");
  EXPECT_EQ(g_ostrel.LastErrorText(), "lens cap on");
}

TEST_F(OstrelTest, HasNoErrorTextWhereTheLibraryGivesNone) {
  EXPECT_EQ(g_ostrel.LastErrorText(), "");
  Load();
  EXPECT_EQ(g_ostrel.LastErrorText(), "");
  g_ostrel.loaded = false;
  const FakeLibrary silent = Load("GetLastErrorString");
  EXPECT_EQ(g_ostrel.LastErrorText(), "");
  EXPECT_TRUE(silent.Calls().empty());
}

}  // namespace
}  // namespace ostrel_native

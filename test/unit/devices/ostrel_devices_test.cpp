#include "devices/ostrel_devices.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "devices/ostrel_operations.h"
#include "unit/support/ostrel_fixture.h"

namespace ostrel_native {
namespace {

using std::chrono::milliseconds;
using Calls = std::vector<std::string>;

constexpr char kUnavailable[] = "Ostrel SDK device selection received an unavailable device index";
constexpr char kSelectionFailed[] = "Ostrel SDK device selection failed";
constexpr char kTimedOut[] = "Ostrel SDK call timed out";
constexpr milliseconds kShort{5};

// What a prime reads, behind a selection.
const Calls kSelectionCalls = {"GetDevicesCount",        "SelectDeviceNumber", "GetVersionInfo",
                               "GetProtocolVersionInfo", "GetScopeStatus",     "GetPixelSizeInfo",
                               "GetLensGroupInfo",       "GetFocusPosition"};

TEST_F(OstrelTest, HasNothingToTellOfWhatIsNotLoaded) {
  SetErrors(kEarlierError);
  EXPECT_EQ(CountOstrelDevices(), 0);
  EXPECT_EQ(OstrelDeviceIdentifier(0), "");
  EXPECT_EQ(OstrelDeviceName(0), "");
  EXPECT_TRUE(ListOstrelDevices().empty());
  EXPECT_FALSE(SelectOstrelDevice(0));
  EXPECT_EQ(SelectedOstrelDevice(), -1);
  EXPECT_FALSE(InitOstrel(false));
  EXPECT_FALSE(InitOstrel(true));
  EXPECT_TRUE(DisposeOstrel());
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(OstrelTest, LoadsAndCallsTheLibraryOnItsOwnerThread) {
  const OstrelLoadResult loaded = LoadOstrelLibrary(FakePath("libostrel.so"));
  EXPECT_TRUE(loaded.ok);
  EXPECT_EQ(loaded.path, FakePath("libostrel.so"));
  CountOstrelDevices();
  OstrelDeviceIdentifier(0);
  ListOstrelDevices();
  SelectOstrelDevice(1);
  DisposeOstrel();
  const int owner = fake.Calls().at(0).thread;
  EXPECT_NE(owner, gettid());
  for (const FakeCallRecord& call : fake.Calls()) {
    EXPECT_EQ(call.thread, owner) << call.symbol;
  }
}

TEST_F(OstrelTest, TellsTheLoadedPathAlsoAtALaterLoadAndNoneAfterAFailure) {
  const OstrelLoadResult failed = LoadOstrelLibrary("/nowhere/libostrel.so");
  EXPECT_FALSE(failed.ok);
  EXPECT_EQ(failed.path, "");
  LoadOstrelLibrary(FakePath("libostrel.so"));
  const OstrelLoadResult again = LoadOstrelLibrary("/nowhere/libostrel.so");
  EXPECT_TRUE(again.ok);
  EXPECT_EQ(again.path, FakePath("libostrel.so"));
}

TEST_F(OstrelTest, StartsTheLibraryOnFirstUseAndPassesItsCountOn) {
  Load();
  fake.Send("answer GetDevicesCount 5 -3");
  EXPECT_EQ(CountOstrelDevices(), 5);
  EXPECT_EQ(CountOstrelDevices(), -3);
  EXPECT_EQ(fake.CallOrder(), (Calls{"Init", "GetDevicesCount", "GetDevicesCount"}));
}

TEST_F(OstrelTest, HasNothingToTellOfALibraryThatDoesNotStart) {
  Load();
  fake.Send("default Init 0");
  EXPECT_EQ(CountOstrelDevices(), 0);
  EXPECT_EQ(OstrelDeviceIdentifier(0), "");
  EXPECT_EQ(OstrelDeviceName(0), "");
  EXPECT_TRUE(ListOstrelDevices().empty());
  EXPECT_FALSE(SelectOstrelDevice(-1));
  EXPECT_EQ(Errors(), Both("Ostrel SDK initialization failed"));
  EXPECT_EQ(fake.CallOrder(), Calls(5, "Init"));
}

TEST_F(OstrelTest, HandsEveryIndexToTheLibraryForItsTexts) {
  Load();
  fake.Send("wide GetDeviceUniqueId@-1 45 49\nwide GetDeviceFriendlyName@2147483647 56");
  EXPECT_EQ(OstrelDeviceIdentifier(-1), "-1");
  EXPECT_EQ(OstrelDeviceName(INT_MAX), "8");
  EXPECT_EQ(OstrelDeviceIdentifier(0), "");
}

TEST_F(OstrelTest, TurnsAnyWideTextIntoUtf8) {
  Load();
  fake.Send("wide GetDeviceUniqueId 181 55357 56832 128300 1114112 -1");
  EXPECT_EQ(OstrelDeviceIdentifier(0),
            "\xC2\xB5"
            "\xEF\xBF\xBD\xEF\xBF\xBD"
            "\xF0\x9F\x94\xAC"
            "\xEF\xBF\xBD\xEF\xBF\xBD");
  // 4096 characters that end at a page which must not be read.
  fake.Send("wide_unterminated GetDeviceFriendlyName 120 4096");
  EXPECT_EQ(OstrelDeviceName(0), std::string(4096, 'x'));
  fake.Send("wide_unterminated GetDeviceFriendlyName 121 8192");
  EXPECT_EQ(OstrelDeviceName(0), std::string(4096, 'y'));
}

TEST_F(OstrelTest, ListsAllDevicesEachTextCopiedBeforeTheNextCall) {
  Load();
  fake.Send(
      "default GetDevicesCount 3\n"
      "wide GetDeviceUniqueId@0 97\nwide GetDeviceFriendlyName@0 65\n"
      "wide GetDeviceUniqueId@2 99\nwide GetDeviceFriendlyName@2 67");
  const std::vector<VendorDeviceSnapshot> devices = ListOstrelDevices();
  ASSERT_EQ(devices.size(), 3U);
  const std::vector<std::vector<std::string>> expected = {{"a", "A"}, {"", ""}, {"c", "C"}};
  for (std::size_t i = 0; i < devices.size(); ++i) {
    EXPECT_EQ(devices[i].index, static_cast<int>(i));
    EXPECT_EQ((std::vector<std::string>{devices[i].uniqueId, devices[i].name}), expected[i]);
  }
  EXPECT_EQ(fake.CallOrder(),
            (Calls{"Init", "GetDevicesCount", "GetDeviceUniqueId", "GetDeviceFriendlyName",
                   "GetDeviceUniqueId", "GetDeviceFriendlyName", "GetDeviceUniqueId",
                   "GetDeviceFriendlyName"}));
}

TEST_F(OstrelTest, ListsNothingForACountThatNoMachineHas) {
  Load();
  for (const int count : {-1, INT_MIN, 0, 65'537, INT_MAX}) {
    SetErrors("");
    fake.Send("default GetDevicesCount " + std::to_string(count));
    EXPECT_TRUE(ListOstrelDevices().empty());
    const std::string tooMany =
        "Ostrel SDK reported " + std::to_string(count) + " devices; at most 65536 can be listed";
    EXPECT_EQ(Errors(), Both(count > 0 ? tooMany : ""));
    EXPECT_EQ(CountOstrelDevices(), count);
  }
  EXPECT_EQ(fake.Entered("GetDeviceUniqueId"), 0);
}

TEST_F(OstrelTest, ListsAsManyAs65536Devices) {
  Load();
  fake.Send("default GetDevicesCount 65536\nlog_limit 0\nwide GetDeviceFriendlyName@65535 108");
  const std::vector<VendorDeviceSnapshot> devices = ListOstrelDevices(std::chrono::minutes(1));
  ASSERT_EQ(devices.size(), 65'536U);
  EXPECT_EQ(devices.back().index, 65'535);
  EXPECT_EQ(devices.back().name, "l");
  EXPECT_EQ(Errors(), Both(""));
}

TEST_F(OstrelTest, SelectsADeviceAndReadsItsVersionsAndItsTelemetry) {
  Load();
  SetErrors(kEarlierError);
  fake.Send("default GetScopeStatus 4");
  EXPECT_TRUE(SelectOstrelDevice(1));
  EXPECT_EQ(SelectedOstrelDevice(), 1);
  EXPECT_EQ(Errors(), Both(""));
  Calls expected = {"Init"};
  expected.insert(expected.end(), kSelectionCalls.begin(), kSelectionCalls.end());
  EXPECT_EQ(fake.CallOrder(), expected);
  EXPECT_EQ(fake.Calls("SelectDeviceNumber").at(0).arguments, Calls{"1"});
  EXPECT_EQ(g_ostrelCachedStatus, 4);
  EXPECT_GT(g_ostrelCachedTelemetryAtMs, 0);
  EXPECT_TRUE(g_ostrelCachedVersion.ok);
}

TEST_F(OstrelTest, RefusesAnIndexThatIsNotThere) {
  Load();
  EXPECT_TRUE(SelectOstrelDevice(0));
  fake.Send("clear_log");
  for (const int index : {-1, INT_MIN, 2, INT_MAX}) {
    SetErrors("");
    EXPECT_FALSE(SelectOstrelDevice(index));
    EXPECT_EQ(Errors(), Both(kUnavailable));
  }
  // The library is not asked about a negative one.
  EXPECT_EQ(fake.CallOrder(), Calls(2, "GetDevicesCount"));
  EXPECT_EQ(SelectedOstrelDevice(), 0);
  fake.Send("default GetDevicesCount -5");
  EXPECT_FALSE(SelectOstrelDevice(0));
}

TEST_F(OstrelTest, KeepsTheFormerSelectionAndItsVersionsWhereTheLibraryRefuses) {
  Load();
  fake.Send("default GetVersionInfo.software_major 3");
  EXPECT_TRUE(SelectOstrelDevice(0));
  fake.Send("clear_log\ndefault SelectDeviceNumber 0");
  EXPECT_FALSE(SelectOstrelDevice(1));
  EXPECT_EQ(Errors(), Both(kSelectionFailed));
  EXPECT_EQ(SelectedOstrelDevice(), 0);
  EXPECT_TRUE(CachedOstrelVersion().has_value());
  EXPECT_EQ(fake.CallOrder(), (Calls{"GetDevicesCount", "SelectDeviceNumber"}));
}

TEST_F(OstrelTest, ForgetsTelemetryAndVersionsAtEachStartWhateverItsOutcome) {
  Load();
  fake.Send("default GetVersionInfo.software_major 3");
  for (const bool force : {false, true}) {
    EXPECT_TRUE(SelectOstrelDevice(1));
    EXPECT_TRUE(InitOstrel(force));
    EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 0);
    EXPECT_EQ(g_ostrelCachedFocusAtMs, 0);
    EXPECT_FALSE(g_ostrelCachedVersion.ok);
    // Without force the selection stays.
    EXPECT_EQ(SelectedOstrelDevice(), force ? -1 : 1);
  }
  EXPECT_TRUE(SelectOstrelDevice(1));
  fake.Send("default Init 0");
  EXPECT_FALSE(InitOstrel(true));
  EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 0);
  EXPECT_FALSE(g_ostrelCachedVersion.ok);
}

TEST_F(OstrelTest, ShutsTheLibraryDownOnceAndStartsItAgainOnUse) {
  Load();
  EXPECT_TRUE(DisposeOstrel());
  EXPECT_EQ(fake.Entered("Destroy"), 0);
  fake.Send("default GetVersionInfo.software_major 3");
  EXPECT_TRUE(SelectOstrelDevice(1));
  SetErrors(kEarlierError);
  EXPECT_TRUE(DisposeOstrel());
  EXPECT_TRUE(DisposeOstrel());
  EXPECT_EQ(fake.Entered("Destroy"), 1);
  EXPECT_EQ(Errors(), Both(kEarlierError));
  EXPECT_EQ(SelectedOstrelDevice(), -1);
  EXPECT_TRUE(g_ostrel.loaded);
  EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 0);
  EXPECT_FALSE(g_ostrelCachedVersion.ok);
  EXPECT_EQ(CountOstrelDevices(), 2);
  EXPECT_EQ(fake.Entered("Init"), 2);
}

// Every call with the owner thread held: the failure value in time, the words in the addon's store
// alone, and the effect later on.
TEST_F(OstrelTest, GivesUpInTimeAndTellsWhyButNotInTheBindingsOwnText) {
  Load();
  SetErrors(kEarlierError);
  g_ostrelCachedTelemetryAtMs = 1;
  g_ostrelCachedVersion.ok = true;
  fake.Send("block Init");
  const auto expectTimedOut = [] {
    EXPECT_EQ(Errors(), (std::vector<std::string>{kEarlierError, kTimedOut}));
    SetLastError("");
  };
  EXPECT_EQ(CountOstrelDevices(kShort), 0);
  expectTimedOut();
  EXPECT_EQ(OstrelDeviceIdentifier(0, kShort), "");
  expectTimedOut();
  EXPECT_EQ(OstrelDeviceName(0, kShort), "");
  expectTimedOut();
  EXPECT_TRUE(ListOstrelDevices(kShort).empty());
  expectTimedOut();
  EXPECT_FALSE(SelectOstrelDevice(1, kShort));
  expectTimedOut();
  EXPECT_EQ(SelectedOstrelDevice(kShort), -1);
  expectTimedOut();
  const OstrelLoadResult loaded = LoadOstrelLibrary("", kShort);
  EXPECT_FALSE(loaded.ok);
  EXPECT_EQ(loaded.path, "");
  expectTimedOut();
  EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 1);
  EXPECT_FALSE(InitOstrel(true, kShort));
  expectTimedOut();
  EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 0);
  EXPECT_FALSE(g_ostrelCachedVersion.ok);
  g_ostrelCachedTelemetryAtMs = 1;
  EXPECT_FALSE(DisposeOstrel(kShort));
  expectTimedOut();
  EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 0);

  fake.Send("release Init");
  Flush();
  EXPECT_EQ(Errors(), Both(""));
  EXPECT_EQ(fake.Entered("Destroy"), 2);
  EXPECT_EQ(fake.Entered("SelectDeviceNumber"), 1);
  EXPECT_FALSE(g_ostrel.initialized);
}

// Also those that read the table and call the library on the script's thread, and from before the
// load on; ThreadSanitizer looks on.
TEST_F(OstrelTest, TakesEveryCallFromManyThreadsAtOnce) {
  fake.Send("log_limit 0\ndefault SetFocusPosition 0\ntext GetLastErrorString odd");
  constexpr int kTurns = 200;
  const auto repeat = [](auto call) {
    return std::jthread([call] {
      for (int turn = 0; turn < kTurns; ++turn) {
        call(turn);
      }
    });
  };
  {
    std::vector<std::jthread> threads;
    threads.push_back(repeat([](int) {
      g_ostrel.LastErrorText();
      ReadOstrelFeatures();
      ReadOstrelLedState();
    }));
    threads.push_back(repeat([](int) {
      PollOstrelStatus();
      PollOstrelPixelSizeMicrons();
      PollOstrelPixelSize();
      PollOstrelLensGroup();
      PollOstrelCapturePressed();
      CachedOstrelFocusPosition();
      CachedOstrelVersion();
      CachedOstrelProtocolVersion();
    }));
    threads.push_back(repeat([](int turn) { SelectOstrelDevice(turn % 3); }));
    threads.push_back(repeat([](int turn) { InitOstrel(turn % 2 == 0); }));
    threads.push_back(repeat([](int) { DisposeOstrel(); }));
    threads.push_back(repeat([](int turn) {
      ListOstrelDevices();
      MoveOstrelFocus(turn);
      SwitchOstrelLed(true);
      OstrelDeviceName(turn);
    }));
    threads.push_back(repeat([](int turn) {
      if (turn == kTurns / 10) {
        EXPECT_TRUE(LoadOstrelLibrary(FakePath("libostrel.so")).ok);
      }
      SelectedOstrelDevice();
    }));
  }
  // Whatever the threads came to: these two calls are made, so there is something to be counted.
  EXPECT_TRUE(SelectOstrelDevice(0));
  EXPECT_TRUE(SwitchOstrelLed(true));
  EXPECT_TRUE(fake.Send("stats SelectDeviceNumber").ends_with(" active=0 max_active=1"));
  EXPECT_TRUE(fake.Send("stats SetLedState").ends_with(" active=0 max_active=1"));
  EXPECT_EQ(SelectedOstrelDevice(), 0);
}

}  // namespace
}  // namespace ostrel_native

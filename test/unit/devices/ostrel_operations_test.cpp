#include "devices/ostrel_operations.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "devices/cache_age.h"
#include "devices/ostrel_devices.h"
#include "unit/support/ostrel_fixture.h"

namespace ostrel_native {
namespace {

using std::chrono::milliseconds;
using Calls = std::vector<std::string>;

struct Command {
  std::string symbol;
  std::function<bool(milliseconds)> run;
};

const std::vector<Command> kFocusCommands = {
    {"TriggerAutoFocus", [](milliseconds timeout) { return TriggerOstrelAutoFocus(timeout); }},
    {"SetFocusPosition", [](milliseconds timeout) { return MoveOstrelFocus(255, timeout); }},
    {"FocusNearStep", [](milliseconds timeout) { return StepOstrelFocusNear(timeout); }},
    {"FocusFarStep", [](milliseconds timeout) { return StepOstrelFocusFar(timeout); }},
};
const Command kLedCommand = {"SetLedState",
                             [](milliseconds timeout) { return SwitchOstrelLed(true, timeout); }};

std::vector<Command> AllCommands() {
  std::vector<Command> all = kFocusCommands;
  all.push_back(kLedCommand);
  return all;
}

constexpr milliseconds kLong{60'000};

TEST_F(OstrelTest, FocusCommandsReadThePositionBackOnceTheMicroscopeHasMoved) {
  Load();
  SetErrors(kEarlierError);
  int position = 10;
  for (const Command& command : kFocusCommands) {
    g_ostrel.initialized = false;
    fake.Send("clear_log\ndefault GetFocusPosition.position " + std::to_string(++position));
    const std::int64_t before = SteadyMs();
    EXPECT_TRUE(command.run(kLong));
    EXPECT_GE(g_ostrelCachedFocusAtMs - before, 150);
    EXPECT_EQ(CachedOstrelFocusPosition(), position);
    EXPECT_EQ(fake.CallOrder(), (Calls{"Init", command.symbol, "GetFocusPosition"}));
    EXPECT_NE(fake.Calls().at(0).thread, gettid());
  }
}

TEST_F(OstrelTest, AFocusCommandIsASuccessAlsoWhereItsPositionCannotBeRead) {
  Load();
  g_ostrelCachedFocusPosition = 5;
  g_ostrelCachedFocusAtMs = 1;
  fake.Send("default GetFocusPosition 0");
  EXPECT_TRUE(StepOstrelFocusNear());
  EXPECT_EQ(g_ostrelCachedFocusPosition, 5);
  EXPECT_EQ(g_ostrelCachedFocusAtMs, 1);
}

TEST_F(OstrelTest, CommandsThatTheLibraryRefusesChangeNothingAndSayNothing) {
  Load();
  ASSERT_TRUE(g_ostrel.Init(false));
  SetErrors(kEarlierError);
  for (const Command& command : AllCommands()) {
    fake.Send("clear_log\ndefault " + command.symbol + " 0");
    EXPECT_FALSE(command.run(kLong));
    EXPECT_EQ(fake.CallOrder(), Calls{command.symbol});
  }
  EXPECT_EQ(g_ostrelCachedFocusAtMs, 0);
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(OstrelTest, CommandsThatTheLibraryLacksAreRefused) {
  SetErrors(kEarlierError);
  for (const Command& command : AllCommands()) {
    EXPECT_FALSE(command.run(kLong));
  }
  EXPECT_EQ(Errors(), Both(kEarlierError));
  for (const Command& command : AllCommands()) {
    g_ostrel.loaded = false;
    const FakeLibrary lacking = Load(command.symbol);
    EXPECT_FALSE(command.run(kLong));
    EXPECT_EQ(lacking.CallOrder(), Calls{"Init"});
    EXPECT_EQ(Errors(), Both(""));
  }
}

TEST_F(OstrelTest, CommandsGiveUpWhereTheLibraryDoesNotStart) {
  Load();
  fake.Send("default Init 0");
  for (const Command& command : AllCommands()) {
    SetErrors("");
    EXPECT_FALSE(command.run(kLong));
    EXPECT_EQ(Errors(), Both("Ostrel SDK initialization failed"));
  }
  EXPECT_EQ(fake.CallOrder(), Calls(5, "Init"));
}

TEST_F(OstrelTest, CommandsTimeOutInTheAddonsStoreAloneAndStillReachTheLibrary) {
  Load();
  fake.Send("block Init");
  for (const Command& command : AllCommands()) {
    SetErrors(kEarlierError);
    EXPECT_FALSE(command.run(milliseconds(5)));
    EXPECT_EQ(Errors(), (std::vector<std::string>{kEarlierError, "Ostrel SDK call timed out"}));
  }
  fake.Send("release Init");
  Flush();
  for (const Command& command : AllCommands()) {
    EXPECT_EQ(fake.Entered(command.symbol), 1);
  }
}

TEST_F(OstrelTest, MovesTheFocusWithinTheMicroscopesScaleOnly) {
  Load();
  fake.Send("default SetFocusPosition 0");  // no waiting for a move
  for (const int position : {0, 1, 255}) {
    EXPECT_FALSE(MoveOstrelFocus(position));
    EXPECT_EQ(fake.Calls("SetFocusPosition").back().arguments, Calls{std::to_string(position)});
  }
  fake.Send("clear_log\nblock Init");
  SetErrors(kEarlierError);
  for (const int position : {-1, 256, 65536, INT_MIN, INT_MAX}) {
    EXPECT_FALSE(MoveOstrelFocus(position));
  }
  EXPECT_TRUE(fake.Calls().empty());
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(OstrelTest, SwitchesTheLightWithoutReadingAnythingBack) {
  Load();
  fake.Send("default SetLedState 9");
  EXPECT_TRUE(SwitchOstrelLed(true));
  EXPECT_TRUE(SwitchOstrelLed(false));
  EXPECT_EQ(fake.CallOrder(), (Calls{"Init", "SetLedState", "SetLedState"}));
  EXPECT_EQ(fake.Calls("SetLedState").at(0).arguments, Calls{"1"});
  EXPECT_EQ(fake.Calls("SetLedState").at(1).arguments, Calls{"0"});
}

TEST_F(OstrelTest, ReadsTheLightOnTheCallersThreadWhichMayStartTheLibrary) {
  EXPECT_EQ(ReadOstrelLedState(), -1);
  Load();
  fake.Send("default GetLedState.state -4");
  EXPECT_EQ(ReadOstrelLedState(), 1);
  fake.Send("default GetLedState.state 0");
  EXPECT_EQ(ReadOstrelLedState(), 0);
  fake.Send("default GetLedState 0\ndefault GetLedState.state 1");
  EXPECT_EQ(ReadOstrelLedState(), -1);
  for (const FakeCallRecord& call : fake.Calls()) {
    EXPECT_EQ(call.thread, gettid());
  }
  EXPECT_EQ(fake.CallOrder(), (Calls{"Init", "GetLedState", "GetLedState", "GetLedState"}));
  fake.Send("default Init 0");
  g_ostrel.initialized = false;
  EXPECT_EQ(ReadOstrelLedState(), -1);
  EXPECT_EQ(Errors(), Both("Ostrel SDK initialization failed"));
  g_ostrel.loaded = false;
  Load("GetLedState");
  EXPECT_EQ(ReadOstrelLedState(), -1);
}

TEST_F(OstrelTest, DoesNotKnowTheLightWhileAnotherThreadStartsTheLibraryAndStartsItNoSecondTime) {
  Load();
  fake.Send("block Init\ndefault GetLedState.state 1");
  int first = 0;
  std::thread starter([&] { first = ReadOstrelLedState(); });
  fake.WaitEntered("Init", 1);
  EXPECT_EQ(ReadOstrelLedState(), -1);
  ScheduleOstrelTelemetry();  // the owner thread waits for the start instead
  fake.Send("release Init");
  starter.join();
  Flush();
  EXPECT_EQ(first, 1);
  EXPECT_EQ(ReadOstrelLedState(), 1);
  EXPECT_EQ(fake.Entered("Init"), 1);
}

TEST_F(OstrelTest, DoesNotKnowTheLightWhileTheOwnerThreadShutsTheLibraryDown) {
  Load();
  ASSERT_TRUE(g_ostrel.Init(false));
  fake.Send("block Destroy\ndefault GetLedState.state 1\nclear_log");
  std::thread owner([] { EXPECT_FALSE(DisposeOstrel(milliseconds(1))); });
  fake.WaitEntered("Destroy", 1);
  owner.join();
  g_ostrel.initialized = false;  // as it is between the shut-down and the start of a forced init
  EXPECT_EQ(ReadOstrelLedState(), -1);
  fake.Send("release Destroy");
  Flush();
  EXPECT_EQ(ReadOstrelLedState(), 1);
  EXPECT_EQ(fake.CallOrder(), (Calls{"Destroy", "Init", "GetLedState"}));
}

TEST_F(OstrelTest, HasNoFeaturesBeforeALoad) {
  const OstrelFeatures none = ReadOstrelFeatures();
  EXPECT_EQ(none.apiVersion, 65536U);
  EXPECT_FALSE(none.focus || none.led || none.pixelSizeInfo || none.lensGroupInfo);
}

TEST_F(OstrelTest, TellsWhatTheLibraryHasWithoutStartingIt) {
  Load();
  fake.Send("default GetApiVersion 4294967295");
  const OstrelFeatures all = ReadOstrelFeatures();
  EXPECT_EQ(all.apiVersion, 4294967295U);
  EXPECT_TRUE(all.focus && all.led && all.pixelSizeInfo && all.lensGroupInfo);
  EXPECT_EQ(fake.CallOrder(), Calls{"GetApiVersion"});
  EXPECT_EQ(fake.Calls().at(0).thread, gettid());
}

TEST_F(OstrelTest, LacksAFeatureOfWhichOneEntryIsAbsent) {
  const std::vector<std::vector<std::string>> features = {
      {"TriggerAutoFocus", "GetFocusPosition", "SetFocusPosition", "FocusNearStep", "FocusFarStep"},
      {"GetLedState", "SetLedState"},
      {"GetPixelSizeInfo"},
      {"GetLensGroupInfo"},
  };
  for (std::size_t lacking = 0; lacking < features.size(); ++lacking) {
    for (const std::string& symbol : features[lacking]) {
      g_ostrel.loaded = false;
      Load(symbol);
      const OstrelFeatures read = ReadOstrelFeatures();
      const std::vector<bool> present = {read.focus, read.led, read.pixelSizeInfo,
                                         read.lensGroupInfo};
      for (std::size_t i = 0; i < present.size(); ++i) {
        EXPECT_EQ(present[i], i != lacking) << symbol;
      }
    }
  }
  g_ostrel.loaded = false;
  Load("GetApiVersion");
  EXPECT_EQ(ReadOstrelFeatures().apiVersion, 65536U);
}

// On the thread of the caller, where no one else would catch it.
TEST_F(OstrelTest, GivesTheFailureValueWhereTheLibraryThrowsOnTheCallersThread) {
  Load();
  ASSERT_TRUE(g_ostrel.Init(false));
  SetErrors("");
  fake.Send("throw GetLedState no lamp\nthrow GetApiVersion no version");
  EXPECT_EQ(ReadOstrelLedState(), -1);
  EXPECT_EQ(Errors(), (std::vector<std::string>{"", "Ostrel SDK call failed: no lamp"}));
  const OstrelFeatures features = ReadOstrelFeatures();
  EXPECT_EQ(features.apiVersion, 65536U);
  EXPECT_TRUE(features.focus && features.led && features.pixelSizeInfo && features.lensGroupInfo);
  EXPECT_EQ(GetLastErrorString(), "Ostrel SDK call failed: no version");
  fake.Send("throw GetLastErrorString no words");
  EXPECT_EQ(g_ostrel.LastErrorText(), "");
  EXPECT_EQ(GetLastErrorString(), "Ostrel SDK call failed: no words");
  fake.Send("throw_number GetLedState");
  EXPECT_EQ(ReadOstrelLedState(), -1);
  EXPECT_EQ(GetLastErrorString(), "Ostrel SDK call failed with an unknown error");
  // A start of the library, too, is made there.
  fake.Send("throw Init no power");
  g_ostrel.initialized = false;
  EXPECT_EQ(ReadOstrelLedState(), -1);
  EXPECT_EQ(GetLastErrorString(), "Ostrel SDK call failed: no power");
  EXPECT_FALSE(g_ostrel.initialized);
}

}  // namespace
}  // namespace ostrel_native

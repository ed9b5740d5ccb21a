#include "devices/ostrel_telemetry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <latch>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "devices/cache_age.h"
#include "unit/support/asleep.h"
#include "unit/support/eventually.h"
#include "unit/support/ostrel_fixture.h"

namespace ostrel_native {
namespace {

using Calls = std::vector<std::string>;

// A pass with the library started, in its order.
const Calls kPass = {"GetScopeStatus", "GetPixelSizeInfo", "GetLensGroupInfo", "GetFocusPosition",
                     "IsCapturePressed"};

struct OstrelTelemetryTest : OstrelTest {
  // Starts the library and forgets the call.
  FakeLibrary Start(const std::string& missing = "") {
    FakeLibrary library = Load(missing);
    EXPECT_TRUE(g_ostrel.Init(false));
    library.Send("clear_log");
    return library;
  }

  static void ExpectNothing() {
    EXPECT_EQ(g_ostrelCachedStatus, -1);
    EXPECT_EQ(g_ostrelCachedPixelSize, -1.0F);
    EXPECT_EQ(g_ostrelCachedPixelWidth, 0);
    EXPECT_EQ(g_ostrelCachedPixelHeight, 0);
    EXPECT_FALSE(g_ostrelCachedPixelInfoOk);
    EXPECT_EQ(g_ostrelCachedLensGroupRaw, 0U);
    EXPECT_FALSE(g_ostrelCachedLensGroupOk);
    EXPECT_FALSE(g_ostrelCachedCapturePressed);
    EXPECT_EQ(g_ostrelCachedFocusPosition, -1);
    EXPECT_EQ(g_ostrelCachedFocusAtMs, 0);
  }

  static void SetPixelSizeAge(std::int64_t ageMs) {
    g_ostrelCachedTelemetryAtMs = SteadyMs() - ageMs;
  }
};

// However quick the owner thread is: many rounds, since it wins only some of them.
TEST_F(OstrelTelemetryTest, NeverServesThePassThatAPollAsksFor) {
  Start();
  fake.Send("default GetScopeStatus 5\ndefault IsCapturePressed 1");
  for (int round = 0; round < 3000; ++round) {
    EXPECT_EQ(PollOstrelStatus(), -1);
    Flush();
    EXPECT_EQ(PollOstrelStatus(), 5);
    Flush();
    ResetOstrelTelemetry();
    EXPECT_FALSE(PollOstrelCapturePressed());
    Flush();
    ResetOstrelTelemetry();
  }
}

TEST_F(OstrelTelemetryTest, ReadsEverythingInAPassInItsOrder) {
  Start();
  SendFloat(fake, "default GetPixelSizeInfo.microns_per_pixel", 0.1F);
  fake.Send(
      "default GetScopeStatus -7\n"
      "default GetPixelSizeInfo.width 65535\ndefault GetPixelSizeInfo.height 1200\n"
      "default GetLensGroupInfo.lens_driver 65535\ndefault GetLensGroupInfo.lens_group 200\n"
      "default GetFocusPosition.position 40000\ndefault IsCapturePressed -1");
  const std::int64_t before = SteadyMs();
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_EQ(fake.CallOrder(), kPass);
  EXPECT_EQ(g_ostrelCachedStatus, -7);
  EXPECT_EQ(g_ostrelCachedPixelSize, 0.1F);
  EXPECT_EQ(g_ostrelCachedPixelWidth, 65535);
  EXPECT_EQ(g_ostrelCachedPixelHeight, 1200);
  EXPECT_TRUE(g_ostrelCachedPixelInfoOk);
  EXPECT_EQ(g_ostrelCachedLensGroupRaw, 0xFFFF00C8U);
  EXPECT_TRUE(g_ostrelCachedLensGroupOk);
  EXPECT_EQ(g_ostrelCachedFocusPosition, 40000);
  EXPECT_GE(g_ostrelCachedFocusAtMs, before);
  EXPECT_TRUE(g_ostrelCachedCapturePressed);
  EXPECT_GE(g_ostrelCachedTelemetryAtMs, before);
}

TEST_F(OstrelTelemetryTest, PrimesWithoutTheCaptureButton) {
  Start();
  fake.Send("default IsCapturePressed 1");
  OnOwner(PrimeOstrelTelemetryOnOwnerThread);
  EXPECT_EQ(fake.CallOrder(), Calls(kPass.begin(), kPass.end() - 1));
  EXPECT_FALSE(g_ostrelCachedCapturePressed);
  EXPECT_GT(g_ostrelCachedTelemetryAtMs, 0);
}

TEST_F(OstrelTelemetryTest, StampsAPassOfWhichNothingCouldBeRead) {
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  ExpectNothing();
  EXPECT_GT(g_ostrelCachedTelemetryAtMs, 0);
}

TEST_F(OstrelTelemetryTest, TriesToStartTheLibraryForEachReadAndTellsEachTime) {
  Load();
  fake.Send("default Init 0");
  SetErrors("");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_EQ(fake.CallOrder(), Calls(5, "Init"));
  EXPECT_EQ(Errors(), Both("Ostrel SDK initialization failed"));
  ExpectNothing();
  fake.Send("clear_log");
  OnOwner(PrimeOstrelTelemetryOnOwnerThread);
  EXPECT_EQ(fake.CallOrder(), Calls(4, "Init"));
}

TEST_F(OstrelTelemetryTest, LeavesTheTextsAloneWhereTheLibraryHasStarted) {
  Start();
  SetErrors(kEarlierError);
  fake.Send(
      "default GetPixelSizeInfo 0\ndefault GetLensGroupInfo 0\ndefault GetFocusPosition 0\n"
      "default GetScopeStatus -1");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_EQ(Errors(), Both(kEarlierError));
}

TEST_F(OstrelTelemetryTest, KeepsWhatAFailedCallForThePixelSizeLeft) {
  Start();
  fake.Send("default GetPixelSizeInfo 0\ndefault GetPixelSizeInfo.width 640");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_FALSE(g_ostrelCachedPixelInfoOk);
  EXPECT_EQ(g_ostrelCachedPixelSize, -1.0F);
  EXPECT_EQ(g_ostrelCachedPixelWidth, 640);
  SendFloat(fake, "default GetPixelSizeInfo.microns_per_pixel", 2.5F);
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_FALSE(g_ostrelCachedPixelInfoOk);
  EXPECT_EQ(PollOstrelPixelSizeMicrons(), 2.5F);
}

TEST_F(OstrelTelemetryTest, TakesTheBareSizeOfALibraryWithoutTheDetailedOne) {
  const FakeLibrary plain = Start("GetPixelSizeInfo");
  const auto read = [&plain](float value) {
    g_ostrelCachedPixelWidth = 5;
    SendFloat(plain, "default GetPixelSizeMicrons", value);
    OnOwner(RunOstrelTelemetryPassOnOwnerThread);
    EXPECT_EQ(g_ostrelCachedPixelWidth, 0);
    EXPECT_EQ(g_ostrelCachedPixelHeight, 0);
    return g_ostrelCachedPixelInfoOk.load();
  };
  EXPECT_TRUE(read(1.25F));
  EXPECT_EQ(g_ostrelCachedPixelSize, 1.25F);
  for (const float refused : {0.0F, -0.0F, -1.0F, -std::numeric_limits<float>::infinity()}) {
    EXPECT_FALSE(read(refused)) << refused;
    EXPECT_EQ(g_ostrelCachedPixelSize, -1.0F);
  }
  EXPECT_TRUE(read(std::numeric_limits<float>::denorm_min()));
  EXPECT_TRUE(read(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_TRUE(std::isnan(g_ostrelCachedPixelSize));
  EXPECT_EQ(plain.Entered("GetPixelSizeMicrons"), 7);
}

TEST_F(OstrelTelemetryTest, CountsAFailedOrAbsentLensAsNone) {
  Start();
  fake.Send("default GetLensGroupInfo.lens_driver 3\nanswer GetLensGroupInfo 0");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_EQ(g_ostrelCachedLensGroupRaw, 0x30000U);
  EXPECT_FALSE(g_ostrelCachedLensGroupOk);
  g_ostrel.loaded = false;
  Start("GetLensGroupInfo");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  EXPECT_EQ(g_ostrelCachedLensGroupRaw, 0U);
}

TEST_F(OstrelTelemetryTest, LetsTheLastFocusPositionAgeWhereAReadFails) {
  Start();
  fake.Send("default GetFocusPosition.position 77");
  OnOwner(RefreshOstrelFocusCacheOnOwnerThread);
  fake.Send("default GetFocusPosition 0\ndefault GetFocusPosition.position 88");
  g_ostrelCachedFocusAtMs = SteadyMs() - 1000;
  const std::int64_t stamp = g_ostrelCachedFocusAtMs;
  OnOwner(RefreshOstrelFocusCacheOnOwnerThread);
  EXPECT_EQ(g_ostrelCachedFocusAtMs, stamp);
  EXPECT_EQ(CachedOstrelFocusPosition(), 77);
  g_ostrelCachedFocusAtMs = SteadyMs() - 3000;
  EXPECT_EQ(CachedOstrelFocusPosition(), -1);
}

TEST_F(OstrelTelemetryTest, ServesTheFocusWithoutAskingForAPass) {
  Start();
  g_ostrelCachedFocusPosition = 9;
  g_ostrelCachedFocusAtMs = SteadyMs();
  EXPECT_EQ(CachedOstrelFocusPosition(), 9);
  Flush();
  EXPECT_TRUE(fake.Calls().empty());
}

TEST_F(OstrelTelemetryTest, EachPollAsksForAPassAndIsServedByAnEarlierOne) {
  Start();
  fake.Send("default GetScopeStatus 3");
  const std::vector<std::function<void()>> polls = {
      [] { EXPECT_EQ(PollOstrelStatus(), -1); },
      [] { EXPECT_EQ(PollOstrelPixelSizeMicrons(), -1.0F); },
      [] { EXPECT_FALSE(PollOstrelPixelSize().ok); },
      [] { EXPECT_FALSE(PollOstrelLensGroup().ok); },
      [] { EXPECT_FALSE(PollOstrelCapturePressed()); },
  };
  for (const auto& poll : polls) {
    ResetOstrelTelemetry();
    fake.Send("clear_log\nblock GetScopeStatus");
    poll();
    fake.Send("release GetScopeStatus");
    Flush();
    EXPECT_EQ(fake.CallOrder(), kPass);
  }
  EXPECT_EQ(PollOstrelStatus(), 3);
  Flush();
}

TEST_F(OstrelTelemetryTest, TenPollsPutOnePassIntoTheQueue) {
  Start();
  fake.Send("block GetScopeStatus");
  for (int i = 0; i < 10; ++i) {
    PollOstrelStatus();
    PollOstrelLensGroup();
  }
  fake.WaitEntered("GetScopeStatus", 1);
  PollOstrelStatus();
  fake.Send("release GetScopeStatus");
  Flush();
  EXPECT_EQ(fake.CallOrder(), kPass);
}

TEST_F(OstrelTelemetryTest, ServesFreshValuesAndNoneThatAreTooOld) {
  g_ostrelCachedStatus = 6;
  g_ostrelCachedPixelSize = 1.5F;
  g_ostrelCachedPixelWidth = 640;
  g_ostrelCachedPixelHeight = 480;
  g_ostrelCachedPixelInfoOk = true;
  g_ostrelCachedLensGroupRaw = 0xABCD00EFU;
  g_ostrelCachedLensGroupOk = true;
  // The pass that a poll asks for is held, so that only the values above are served.
  Load();
  fake.Send("block Init");
  for (const bool fresh : {true, false}) {
    SetPixelSizeAge(fresh ? 1000 : 3000);
    EXPECT_EQ(PollOstrelStatus(), fresh ? 6 : -1);
    EXPECT_EQ(PollOstrelPixelSizeMicrons(), fresh ? 1.5F : -1.0F);
    const OstrelPixelSize size = PollOstrelPixelSize();
    EXPECT_EQ(size.ok, fresh);
    EXPECT_EQ(size.micronsPerPixel, fresh ? 1.5F : -1.0F);
    EXPECT_EQ(size.width, fresh ? 640 : 0);
    EXPECT_EQ(size.height, fresh ? 480 : 0);
    const OstrelLensGroup lens = PollOstrelLensGroup();
    EXPECT_EQ(lens.ok, fresh);
    EXPECT_EQ(lens.lensDriver, fresh ? 0xABCD : 0);
    EXPECT_EQ(lens.lensGroup, fresh ? 0xEF : 0);
  }
  fake.Send("release Init");
  Flush();
}

// The lock is held, so what a call has told is either stored as a whole behind it, or in part
// before.
TEST_F(OstrelTelemetryTest, StoresAllThatACallToldInOneGo) {
  Start();
  SendFloat(fake, "default GetPixelSizeInfo.microns_per_pixel", 2.5F);
  fake.Send(
      "default GetPixelSizeInfo.width 640\ndefault GetPixelSizeInfo.height 480\n"
      "default GetLensGroupInfo.lens_group 7\nblock GetLensGroupInfo\n"
      "default GetFocusPosition.position 9\nblock GetFocusPosition");
  const auto whileHeld = [this](const std::string& symbol, const auto& expectNothingStored) {
    // Before the lock is taken: the store of the call before needs it, too.
    fake.WaitEntered(symbol, 1);
    const std::lock_guard lock(g_ostrelTelemetry.mutex);
    fake.Send("release " + symbol);
    fake.WaitFinished(symbol, 1);
    const int owner = fake.Calls().at(0).thread;
    EXPECT_TRUE(Eventually([owner] { return IsAsleep(owner); }));
    expectNothingStored();
  };
  fake.Send("block GetPixelSizeInfo");
  ScheduleOstrelTelemetry();
  whileHeld("GetPixelSizeInfo", [] {
    EXPECT_EQ(g_ostrelCachedPixelSize, -1.0F);
    EXPECT_EQ(g_ostrelCachedPixelWidth, 0);
    EXPECT_EQ(g_ostrelCachedPixelHeight, 0);
    EXPECT_FALSE(g_ostrelCachedPixelInfoOk);
  });
  whileHeld("GetLensGroupInfo", [] {
    EXPECT_EQ(g_ostrelCachedPixelHeight, 480);
    EXPECT_EQ(g_ostrelCachedLensGroupRaw, 0U);
    EXPECT_FALSE(g_ostrelCachedLensGroupOk);
  });
  whileHeld("GetFocusPosition", [] {
    EXPECT_EQ(g_ostrelCachedLensGroupRaw, 7U);
    EXPECT_EQ(g_ostrelCachedFocusPosition, -1);
    EXPECT_EQ(g_ostrelCachedFocusAtMs, 0);
  });
  Flush();
  EXPECT_EQ(g_ostrelCachedFocusPosition, 9);
}

// A pass that has stored that the size is known, and not yet the size.
TEST_F(OstrelTelemetryTest, ServesNothingOfAPassThatIsStillBeingStored) {
  g_ostrelCachedTelemetryAtMs = SteadyMs();
  // The passes that the polls post must not store anything meanwhile.
  std::latch isServedAll{1};
  ASSERT_TRUE(g_ostrelExecutor.Enqueue([&] { isServedAll.wait(); }));
  std::latch storing{1};
  std::latch goOn{1};
  std::thread writer([&] {
    g_ostrelTelemetry.Write([&] {
      g_ostrelCachedPixelInfoOk = true;
      g_ostrelCachedLensGroupOk = true;
      storing.count_down();
      goOn.wait();
      g_ostrelCachedPixelSize = 2.5F;
      g_ostrelCachedLensGroupRaw = 7;
    });
  });
  storing.wait();
  std::atomic<pid_t> thread{0};
  std::atomic<bool> isServed{false};
  OstrelPixelSize size;
  OstrelLensGroup lens;
  std::thread poller([&] {
    thread = gettid();
    size = PollOstrelPixelSize();
    isServed = true;
  });
  EXPECT_TRUE(Eventually([&] { return isServed || (thread != 0 && IsAsleep(thread)); }));
  EXPECT_FALSE(isServed);
  std::atomic<pid_t> otherThread{0};
  std::thread other([&] {
    otherThread = gettid();
    lens = PollOstrelLensGroup();
    isServed = true;
  });
  EXPECT_TRUE(Eventually([&] { return isServed || (otherThread != 0 && IsAsleep(otherThread)); }));
  EXPECT_FALSE(isServed);
  goOn.count_down();
  writer.join();
  poller.join();
  other.join();
  isServedAll.count_down();
  EXPECT_TRUE(size.ok);
  EXPECT_EQ(size.micronsPerPixel, 2.5F);
  EXPECT_TRUE(lens.ok);
  EXPECT_EQ(lens.lensGroup, 7);
  Flush();
}

// Of a library that answers every other time, and then with a size that belongs together.
TEST_F(OstrelTelemetryTest, NeverServesAPixelSizeOrALensOfTwoReadings) {
  Start();
  static std::atomic<int> g_answers;
  g_ostrel.api.GetScopeStatus = [] { return 1; };
  g_ostrel.api.GetFocusPosition = [](std::uint16_t*) { return 0; };
  g_ostrel.api.IsCapturePressed = [] { return 0; };
  g_ostrel.api.GetPixelSizeInfo = [](float* size, std::uint16_t* width, std::uint16_t* height) {
    const int answer = ++g_answers;
    if (answer % 2 == 0) {
      return 0;
    }
    *width = static_cast<std::uint16_t>(answer % 1000 + 1);
    *height = *width;
    *size = *width;
    return 1;
  };
  g_ostrel.api.GetLensGroupInfo = [](std::uint16_t* driver, std::uint8_t* group) {
    const int answer = g_answers;
    *driver = static_cast<std::uint16_t>(answer % 200);
    *group = static_cast<std::uint8_t>(answer % 200);
    return answer % 2;
  };
  int mixed = 0;
  for (int i = 0; i < 200'000; ++i) {
    const OstrelPixelSize size = PollOstrelPixelSize();
    const bool isNone = !size.ok && size.micronsPerPixel == -1.0F && size.width == 0;
    const bool isOne = size.ok && size.micronsPerPixel == static_cast<float>(size.width);
    mixed += (isNone || isOne) && size.width == size.height ? 0 : 1;
    const OstrelLensGroup lens = PollOstrelLensGroup();
    mixed += lens.lensDriver == lens.lensGroup && lens.ok == (lens.lensDriver % 2 == 1) ? 0 : 1;
  }
  Flush();
  EXPECT_EQ(mixed, 0);
}

TEST_F(OstrelTelemetryTest, ReportsAPressOnceHoweverOldAndTwoAsOne) {
  Start();
  fake.Send("answer IsCapturePressed 1 1 0 0");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  SetPixelSizeAge(100'000);
  EXPECT_TRUE(PollOstrelCapturePressed());
  EXPECT_FALSE(PollOstrelCapturePressed());
  Flush();
  EXPECT_FALSE(PollOstrelCapturePressed());
  Flush();
}

TEST_F(OstrelTelemetryTest, ForgetsEverythingButTheVersions) {
  Start();
  fake.Send(
      "default GetScopeStatus 3\ndefault IsCapturePressed 1\ndefault GetLensGroupInfo.lens_group "
      "1\n"
      "default GetPixelSizeInfo.width 5\ndefault GetPixelSizeInfo.height 5");
  OnOwner(RunOstrelTelemetryPassOnOwnerThread);
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  ResetOstrelTelemetry();
  ExpectNothing();
  EXPECT_EQ(g_ostrelCachedTelemetryAtMs, 0);
  EXPECT_TRUE(g_ostrelCachedVersion.ok);
  EXPECT_TRUE(g_ostrelCachedProtocol.ok);
}

TEST_F(OstrelTelemetryTest, ReadsBothVersionsWhole) {
  Start();
  fake.Send(
      "default GetVersionInfo.product_id 60000\ndefault GetVersionInfo.hardware_major 1\n"
      "default GetVersionInfo.hardware_minor 2\ndefault GetVersionInfo.software_major 50000\n"
      "default GetVersionInfo.software_minor 4\ndefault GetVersionInfo.software_patch 255\n"
      "default GetProtocolVersionInfo.major 40000\ndefault GetProtocolVersionInfo.minor 8\n"
      "default GetProtocolVersionInfo.patch 9");
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  EXPECT_EQ(fake.CallOrder(), (Calls{"GetVersionInfo", "GetProtocolVersionInfo"}));
  const std::optional<OstrelVersion> version = CachedOstrelVersion();
  ASSERT_TRUE(version.has_value());
  EXPECT_EQ(version->productId, 60000);
  EXPECT_EQ(version->hardwareMajorVersion, 1);
  EXPECT_EQ(version->hardwareMinorVersion, 2);
  EXPECT_EQ(version->softwareMajorVersion, 50000);
  EXPECT_EQ(version->softwareMinorVersion, 4);
  EXPECT_EQ(version->softwarePatchVersion, 255);
  const std::optional<OstrelProtocolVersion> protocol = CachedOstrelProtocolVersion();
  ASSERT_TRUE(protocol.has_value());
  EXPECT_EQ(protocol->majorVersion, 40000);
  EXPECT_EQ(protocol->minorVersion, 8);
  EXPECT_EQ(protocol->patchVersion, 9);
  ClearOstrelVersionSnapshots();
  EXPECT_FALSE(CachedOstrelVersion().has_value());
  EXPECT_FALSE(CachedOstrelProtocolVersion().has_value());
}

TEST_F(OstrelTelemetryTest, TakesAZeroMajorVersionOrARefusalForNoAnswer) {
  Start();
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  EXPECT_FALSE(CachedOstrelVersion().has_value());
  EXPECT_FALSE(CachedOstrelProtocolVersion().has_value());
  fake.Send(
      "default GetVersionInfo.software_major 1\ndefault GetProtocolVersionInfo.major 1\n"
      "default GetVersionInfo 0\ndefault GetProtocolVersionInfo 0");
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  EXPECT_FALSE(CachedOstrelVersion().has_value());
  EXPECT_FALSE(CachedOstrelProtocolVersion().has_value());
  fake.Send("default GetVersionInfo 1");
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  EXPECT_TRUE(CachedOstrelVersion().has_value());
  EXPECT_FALSE(CachedOstrelProtocolVersion().has_value());
}

TEST_F(OstrelTelemetryTest, HasNoVersionsOfALibraryWithoutThem) {
  Start();
  fake.Send("default GetVersionInfo.software_major 1\ndefault GetProtocolVersionInfo.major 1");
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  g_ostrel.api.GetVersionInfo = nullptr;
  g_ostrel.api.GetProtocolVersionInfo = nullptr;
  OnOwner(UpdateOstrelVersionSnapshotsOnOwnerThread);
  EXPECT_FALSE(CachedOstrelVersion().has_value());
  EXPECT_FALSE(CachedOstrelProtocolVersion().has_value());
}

}  // namespace
}  // namespace ostrel_native

// The commands of the fakes, tried on the fake camera library.
#include "fakes/fake_control.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "fakes/fake_library.h"
#include "fakes/frame_content.h"

namespace ostrel_native {
namespace {

struct FakeControl : testing::Test {
  FakeLibrary fake{FakePath("libcnokhwa.so")};
  int (*count)() = fake.Symbol<int (*)()>("cnokhwa_devices_count");
  int (*stop)(int) = fake.Symbol<int (*)(int)>("cnokhwa_stop_capture");
  int (*width)(int) = fake.Symbol<int (*)(int)>("cnokhwa_frame_width");
  int (*height)(int) = fake.Symbol<int (*)(int)>("cnokhwa_frame_height");
  int (*row)(int) = fake.Symbol<int (*)(int)>("cnokhwa_frame_bytes_per_row");
  int (*formatWidth)(int, int) = fake.Symbol<int (*)(int, int)>("cnokhwa_device_format_width");
  int (*name)(int, void*, int) = fake.Symbol<int (*)(int, void*, int)>("cnokhwa_device_name");
  int (*grab)(int, void*, int) = fake.Symbol<int (*)(int, void*, int)>("cnokhwa_grab_frame");

  FakeControl() { fake.Send("reset"); }

  std::string ErrorOf(const std::string& command) const {
    try {
      fake.Send(command);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }
};

TEST_F(FakeControl, AnswersZeroUntilItIsTold) {
  EXPECT_EQ(count(), 0);
}

TEST_F(FakeControl, GivesQueuedAnswersOnceAndThenTheDefault) {
  fake.Send("default cnokhwa_devices_count 7\nanswer cnokhwa_devices_count -3 2");
  EXPECT_EQ(count(), -3);
  EXPECT_EQ(count(), 2);
  EXPECT_EQ(count(), 7);
  EXPECT_EQ(count(), 7);
}

TEST_F(FakeControl, PrefersTheKeyThatNamesMoreArguments) {
  fake.Send(
      "default cnokhwa_device_format_width 1\n"
      "default cnokhwa_device_format_width@0 2\n"
      "default cnokhwa_device_format_width@0,5 3");
  EXPECT_EQ(formatWidth(1, 5), 1);
  EXPECT_EQ(formatWidth(0, 4), 2);
  EXPECT_EQ(formatWidth(0, 5), 3);
}

TEST_F(FakeControl, WritesATextThatIsCutToTheCapacity) {
  fake.Send("text cnokhwa_device_name Tube \\xC3\\xBC 2");
  std::array<char, 16> buffer;
  buffer.fill('#');
  name(0, buffer.data(), 16);
  EXPECT_STREQ(buffer.data(), "Tube \xC3\xBC 2");
  buffer.fill('#');
  name(0, buffer.data(), 3);
  EXPECT_EQ(std::string(buffer.data(), 4), std::string("Tu\0#", 4));
}

TEST_F(FakeControl, FillsTheWholeCapacityWithAnUnterminatedText) {
  fake.Send("unterminated cnokhwa_device_name 65");
  std::array<char, 6> buffer;
  buffer.fill('#');
  name(0, buffer.data(), 5);
  EXPECT_EQ(std::string(buffer.data(), 6), "AAAAA#");
}

TEST_F(FakeControl, LeavesTheBufferAloneWithoutAText) {
  std::array<char, 2> buffer = {'#', '\0'};
  name(0, buffer.data(), 2);
  EXPECT_STREQ(buffer.data(), "#");
}

TEST_F(FakeControl, LogsCallsInOrderWithArgumentsThreadAndResult) {
  fake.Send("default cnokhwa_stop_capture -4");
  stop(-1);
  int otherThread = 0;
  std::thread other([&] {
    otherThread = gettid();
    grab(2, nullptr, 9);
  });
  other.join();
  const std::vector<FakeCallRecord> calls = fake.Calls();
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0].index, 1);
  EXPECT_EQ(calls[0].symbol, "cnokhwa_stop_capture");
  EXPECT_EQ(calls[0].arguments, std::vector<std::string>({"-1"}));
  EXPECT_EQ(calls[0].thread, gettid());
  EXPECT_TRUE(calls[0].finished);
  EXPECT_EQ(calls[0].result, -4);
  EXPECT_EQ(calls[1].index, 2);
  EXPECT_EQ(calls[1].arguments, std::vector<std::string>({"2", "null", "9"}));
  EXPECT_EQ(calls[1].thread, otherThread);
  EXPECT_EQ(fake.CallOrder(),
            std::vector<std::string>({"cnokhwa_stop_capture", "cnokhwa_grab_frame"}));
  EXPECT_EQ(fake.Calls("cnokhwa_stop_capture@-1").size(), 1U);
  EXPECT_EQ(fake.Calls("cnokhwa_stop_capture@0").size(), 0U);
}

TEST_F(FakeControl, KeepsTheNewestCallsOfALongLog) {
  fake.Send("log_limit 2");
  for (int call = 1; call <= 9; ++call) {
    stop(call);
    const std::vector<FakeCallRecord> calls = fake.Calls();
    ASSERT_EQ(calls.size(), call == 1 ? 1U : 2U);
    EXPECT_EQ(calls.back().index, call);
    EXPECT_EQ(calls.front().index, call == 1 ? 1 : call - 1);
  }
  EXPECT_EQ(fake.Entered("cnokhwa_stop_capture"), 9);
}

TEST_F(FakeControl, HoldsACallUntilItIsReleased) {
  fake.Send("block cnokhwa_devices_count\ndefault cnokhwa_devices_count 1");
  int answer = 0;
  std::thread caller([&] { answer = count(); });
  fake.WaitEntered("cnokhwa_devices_count", 1);
  EXPECT_EQ(fake.Send("stats cnokhwa_devices_count"),
            "ok entered=1 finished=0 active=1 max_active=1");
  EXPECT_FALSE(fake.Calls()[0].finished);
  // The answer is chosen when the call goes on.
  fake.Send("default cnokhwa_devices_count 5\nrelease cnokhwa_devices_count");
  caller.join();
  EXPECT_EQ(answer, 5);
}

TEST_F(FakeControl, LetsAsManyCallsPassAsItIsTold) {
  fake.Send("block cnokhwa_devices_count\nrelease cnokhwa_devices_count 2");
  std::atomic<int> passed{0};
  std::thread caller([&] {
    for (int i = 0; i < 3; ++i) {
      count();
      ++passed;
    }
  });
  fake.WaitEntered("cnokhwa_devices_count", 3);
  EXPECT_EQ(passed, 2);
  fake.Send("release cnokhwa_devices_count 1");
  caller.join();
  EXPECT_EQ(passed, 3);
}

TEST_F(FakeControl, OpensAGateWhenAnotherSymbolIsCalled) {
  fake.Send("block cnokhwa_grab_frame until cnokhwa_stop_capture");
  std::thread caller([&] { grab(0, nullptr, 0); });
  fake.WaitEntered("cnokhwa_grab_frame", 1);
  EXPECT_EQ(fake.Send("stats cnokhwa_grab_frame"), "ok entered=1 finished=0 active=1 max_active=1");
  stop(0);
  fake.WaitFinished("cnokhwa_grab_frame", 1);
  caller.join();
}

TEST_F(FakeControl, CountsCallsThatOverlap) {
  fake.Send("block cnokhwa_devices_count");
  std::thread one([&] { count(); });
  std::thread two([&] { count(); });
  fake.WaitEntered("cnokhwa_devices_count", 2);
  fake.Send("release cnokhwa_devices_count");
  one.join();
  two.join();
  EXPECT_EQ(fake.Send("stats cnokhwa_devices_count"),
            "ok entered=2 finished=2 active=0 max_active=2");
}

TEST_F(FakeControl, ResetLetsHeldCallsGoAndForgetsEverything) {
  fake.Send("block cnokhwa_devices_count\ndefault cnokhwa_devices_count 5\nframe 4 4");
  int answer = -1;
  std::thread caller([&] { answer = count(); });
  fake.WaitEntered("cnokhwa_devices_count", 1);
  fake.Send("reset");
  caller.join();
  EXPECT_EQ(answer, 0);
  EXPECT_EQ(width(0), 0);
  EXPECT_EQ(fake.Calls().size(), 1U);
  EXPECT_EQ(fake.Calls()[0].symbol, "cnokhwa_frame_width");
}

TEST_F(FakeControl, AWaitThatIsNotMetSaysWhatItSaw) {
  count();
  EXPECT_EQ(ErrorOf("wait_entered cnokhwa_devices_count 2 1"),
            "error: timed out with 1 calls of cnokhwa_devices_count in: "
            "wait_entered cnokhwa_devices_count 2 1");
}

TEST_F(FakeControl, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(ErrorOf("default cnokhwa_grab_frames 1"),
            "error: no such symbol: cnokhwa_grab_frames in: default cnokhwa_grab_frames 1");
  EXPECT_EQ(ErrorOf("defaults cnokhwa_grab_frame 1"),
            "error: no such command: defaults in: defaults cnokhwa_grab_frame 1");
  EXPECT_EQ(ErrorOf("default cnokhwa_grab_frame x"),
            "error: not a number: x in: default cnokhwa_grab_frame x");
  EXPECT_EQ(ErrorOf("default cnokhwa_grab_frame"),
            "error: missing number in: default cnokhwa_grab_frame");
}

TEST_F(FakeControl, DeliversFramesThatCarryTheirNumberInEveryPixel) {
  fake.Send("frame 2 2 8");
  EXPECT_EQ(width(0), 2);
  EXPECT_EQ(height(0), 2);
  EXPECT_EQ(row(0), 8);
  std::array<std::uint8_t, 17> buffer;
  buffer.fill(0x77);
  ASSERT_EQ(grab(0, buffer.data(), 16), 0);
  ASSERT_EQ(grab(0, buffer.data(), 16), 0);
  for (const std::size_t pixel : {0, 3, 8, 11}) {
    EXPECT_EQ(UniformNumber(&buffer[pixel]), 2U);
  }
  EXPECT_EQ(buffer[6], kFakePaddingByte);
  EXPECT_EQ(buffer[15], kFakePaddingByte);
  EXPECT_EQ(buffer[16], 0x77);
  EXPECT_EQ(fake.Send("frames"), "ok 2");
}

TEST_F(FakeControl, WritesNoMoreThanTheCapacity) {
  for (const char* content : {"content uniform", "content ramp", "content fill 9"}) {
    fake.Send(std::string("frame 4 4\n") + content);
    std::array<std::uint8_t, 8> buffer;
    buffer.fill(0x77);
    grab(0, buffer.data(), 7);
    EXPECT_NE(buffer[6], 0x77) << content;
    EXPECT_EQ(buffer[7], 0x77) << content;
  }
}

TEST_F(FakeControl, RampContentTellsEachByteOfEachFrame) {
  fake.Send("frame 200 2\ncontent ramp");
  std::vector<std::uint8_t> buffer(1200);
  grab(0, buffer.data(), 1200);
  EXPECT_EQ(buffer[0], 31);
  EXPECT_EQ(buffer[219], 250);
  EXPECT_EQ(buffer[220], 0);
  EXPECT_EQ(buffer[1199], RampByte(1, 1199));
}

TEST_F(FakeControl, ChangesTheFrameSizeBetweenFrames) {
  fake.Send("frame 4 2\nframe_after 2 6 3 20\nframe_after 1 8 8");
  grab(0, nullptr, 0);
  EXPECT_EQ(width(0), 4);
  grab(0, nullptr, 0);
  EXPECT_EQ(width(0), 6);
  EXPECT_EQ(row(0), 20);
  grab(0, nullptr, 0);
  EXPECT_EQ(height(0), 8);
  EXPECT_EQ(row(0), 24);
}

TEST_F(FakeControl, AFailedGrabWritesAndCountsNothing) {
  fake.Send("frame 1 1\nanswer cnokhwa_grab_frame -7");
  std::array<std::uint8_t, 3> buffer = {1, 2, 3};
  EXPECT_EQ(grab(0, buffer.data(), 3), -7);
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 3>{1, 2, 3}));
  EXPECT_EQ(fake.Send("frames"), "ok 0");
}

int (*g_lateCall)() = nullptr;

TEST(FakeStaticDestructor, AnswersMinusOneAfterTheLibraryHasTornItselfDown) {
  const std::string log = testing::TempDir() + "/fake_exit_" + std::to_string(getpid());
  EXPECT_EXIT(
      {
        // Registered before the library is opened, so run after its destructors.
        std::atexit([] { _exit(g_lateCall() == -1 ? 3 : 4); });
        const FakeLibrary fake(FakePath("static_destructor/libcnokhwa.so"));
        g_lateCall = fake.Symbol<int (*)()>("cnokhwa_devices_count");
        fake.Send("default cnokhwa_devices_count 2\nlog_file " + log);
        g_lateCall();
        std::exit(0);
      },
      testing::ExitedWithCode(3), "");
  std::ifstream file(log);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text,
            "cnokhwa_devices_count()\nstatic_destructor\n"
            "cnokhwa_devices_count() after static_destructor\n");
  unlink(log.c_str());
}

TEST_F(FakeControl, ThrowsWhatItIsToldAndCountsTheCallAsFinished) {
  fake.Send("throw cnokhwa_devices_count out of order");
  try {
    count();
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "out of order");
  }
  EXPECT_TRUE(fake.Calls().at(0).finished);
  fake.Send("throw_number cnokhwa_devices_count\nwait_finished cnokhwa_devices_count 1");
  EXPECT_THROW(count(), int);
  fake.Send("reset");
  EXPECT_EQ(count(), 0);
}

}  // namespace
}  // namespace ostrel_native

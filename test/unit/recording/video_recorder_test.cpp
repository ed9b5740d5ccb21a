#include "recording/video_recorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <latch>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "unit/support/video_recorder_session.h"

namespace ostrel_native {

namespace {

using Frame = VideoRecorder::Frame;
using State = VideoRecorder::State;
using test::BlockedEncoder;
using test::kHeight;
using test::kWidth;
using test::VideoRecorderSession;

TEST_F(VideoRecorderSession, AnUnusedRecorderIsIdleAndStopsCleanly) {
  const VideoRecorder::Status status = recorder->GetStatus();
  EXPECT_TRUE(status.available);
  EXPECT_FALSE(status.recording);
  EXPECT_EQ(status.outputPath, "");
  EXPECT_EQ(status.error, "");
  EXPECT_EQ(status.framesWritten, 0u);
  EXPECT_EQ(status.framesDropped, 0u);
  EXPECT_EQ(status.durationMs, 0u);
  EXPECT_EQ(status.width, 0);
  EXPECT_EQ(status.bitrate, 0);
  EXPECT_EQ(recorder->state, State::Idle);
  EXPECT_EQ(recorder->Stop(), 0);
}

TEST_F(VideoRecorderSession, StartHandsTheConfigurationToTheBackend) {
  ASSERT_EQ(recorder->Start("/videos/größe 1.mp4", 640, 480, 25, 2500000), 0);
  const VideoRecorder::Status status = recorder->GetStatus();
  EXPECT_TRUE(status.recording);
  EXPECT_EQ(status.outputPath, "/videos/größe 1.mp4");
  EXPECT_EQ(status.width, 640);
  EXPECT_EQ(status.height, 480);
  EXPECT_EQ(status.frameRate, 25);
  EXPECT_EQ(status.bitrate, 2500000);
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(script.outputPath, "/videos/größe 1.mp4");
  EXPECT_EQ(script.width, 640);
  EXPECT_EQ(script.height, 480);
  EXPECT_EQ(script.frameRate, 25);
  EXPECT_EQ(script.bitrate, 2500000);
  EXPECT_EQ(script.startCalls, 1);
  EXPECT_EQ(script.finalizeCalls, 1);
  EXPECT_EQ(script.destroyed, 1);
  EXPECT_FALSE(recorder->GetStatus().recording);
  EXPECT_EQ(recorder->state, State::Idle);
}

TEST_F(VideoRecorderSession, StartAcceptsTheLimitsOfTheConfiguration) {
  EXPECT_EQ(recorder->Start("a", 8192, 8192, 120, 100000000), 0);
  EXPECT_EQ(recorder->Start("a", 2, 2, 1, 100000), 0);
  EXPECT_EQ(recorder->Stop(), 0);
}

TEST_F(VideoRecorderSession, StartRefusesAConfigurationBeyondTheLimits) {
  constexpr int kMin = std::numeric_limits<int>::min();
  const struct {
    const char* path;
    int width, height, frameRate, bitrate;
  } refused[] = {
      {"", 4, 2, 30, 4000000},     {"a", 8193, 2, 30, 4000000},    {"a", 8194, 2, 30, 4000000},
      {"a", 4, 8193, 30, 4000000}, {"a", 4, 8194, 30, 4000000},    {"a", 3, 2, 30, 4000000},
      {"a", 4, 3, 30, 4000000},    {"a", 0, 2, 30, 4000000},       {"a", 4, 0, 30, 4000000},
      {"a", -4, 2, 30, 4000000},   {"a", kMin, kMin, 30, 4000000}, {"a", 4, 2, 121, 4000000},
      {"a", 4, 2, 0, 4000000},     {"a", 4, 2, kMin, 4000000},     {"a", 4, 2, 30, 99999},
      {"a", 4, 2, 30, 100000001},
  };
  for (const auto& c : refused) {
    SCOPED_TRACE(testing::Message() << c.path << ' ' << c.width << ' ' << c.height << ' '
                                    << c.frameRate << ' ' << c.bitrate);
    EXPECT_EQ(recorder->Start(c.path, c.width, c.height, c.frameRate, c.bitrate), -1);
    EXPECT_EQ(LastError(), "Invalid video recording configuration");
    EXPECT_EQ(recorder->state, State::Failed);
    EXPECT_EQ(recorder->Stop(), -3);
  }
  EXPECT_EQ(script.startCalls, 0);
}

TEST_F(VideoRecorderSession, ARefusedStartEndsTheRunningSessionAndKeepsItsNumbers) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(10000));
  ASSERT_TRUE(Offer(60000));
  EXPECT_EQ(recorder->Start("/videos/two.mp4", 5, 2, 25, 100000), -1);
  EXPECT_EQ(script.finalizeCalls, 1);
  const VideoRecorder::Status status = recorder->GetStatus();
  EXPECT_FALSE(status.recording);
  EXPECT_EQ(status.outputPath, "/videos/one.mp4");
  EXPECT_EQ(status.framesWritten, 2u);
  EXPECT_EQ(status.durationMs, 5u);
  EXPECT_EQ(status.width, kWidth);
  EXPECT_EQ(status.frameRate, 30);
  EXPECT_EQ(status.bitrate, 4000000);
}

TEST_F(VideoRecorderSession, StartWithoutAnEncoderChangesNothing) {
  ASSERT_EQ(Start(), 0);
  test::g_available = false;
  EXPECT_EQ(recorder->Start("", 0, 0, 0, 0), -13);
  EXPECT_EQ(LastError(), "");
  EXPECT_FALSE(recorder->GetStatus().available);
  EXPECT_TRUE(recorder->GetStatus().recording) << "the running session goes on";
  EXPECT_TRUE(Offer(1));
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(script.written.size(), 1u);
}

TEST_F(VideoRecorderSession, StartReplacesARunningSession) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(10000));
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(script.finalizeCalls, 1);
  EXPECT_EQ(script.written.size(), 1u);
  EXPECT_EQ(recorder->GetStatus().framesWritten, 0u);
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(script.finalizeCalls, 2);
}

TEST_F(VideoRecorderSession, OneStampedFrameIsWrittenAtZeroAndLastsOneFrame) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(123456789));
  EXPECT_EQ(recorder->Stop(), 0);
  ASSERT_EQ(script.written.size(), 1u);
  EXPECT_EQ(script.written[0].pts, 0);
  EXPECT_EQ(script.written[0].duration, 333333);
  const VideoRecorder::Status status = recorder->GetStatus();
  EXPECT_EQ(status.framesWritten, 1u);
  EXPECT_EQ(status.durationMs, 0u);
}

TEST_F(VideoRecorderSession, AFrameLastsUntilItsSuccessorAndTheLastAsLongAsTheOneBefore) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1000000));
  ASSERT_TRUE(Offer(1400000));
  ASSERT_TRUE(Offer(2000000));
  EXPECT_EQ(recorder->Stop(), 0);
  ASSERT_EQ(script.written.size(), 3u);
  EXPECT_EQ(script.written[0].pts, 0);
  EXPECT_EQ(script.written[0].duration, 400000);
  EXPECT_EQ(script.written[1].pts, 400000);
  EXPECT_EQ(script.written[1].duration, 600000);
  EXPECT_EQ(script.written[2].pts, 1000000);
  EXPECT_EQ(script.written[2].duration, 600000);
  EXPECT_EQ(recorder->GetStatus().durationMs, 100u);
}

TEST_F(VideoRecorderSession, FramesWithTheSameStampGetRisingTimes) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1000000));
  ASSERT_TRUE(Offer(1000000));
  EXPECT_EQ(recorder->Stop(), 0);
  ASSERT_EQ(script.written.size(), 2u);
  EXPECT_EQ(script.written[1].pts, 333333);
  EXPECT_EQ(script.written[1].duration, 333333);
  EXPECT_EQ(recorder->GetStatus().durationMs, 0u);
}

TEST_F(VideoRecorderSession, FramesWithoutAStampAreOneFrameApartAndHaveNoDuration) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(0));
  ASSERT_TRUE(Offer(-1));
  ASSERT_TRUE(Offer(0));
  EXPECT_EQ(recorder->Stop(), 0);
  ASSERT_EQ(script.written.size(), 3u);
  EXPECT_EQ(script.written[1].pts, 333333);
  EXPECT_EQ(script.written[2].pts, 666666);
  EXPECT_EQ(recorder->GetStatus().durationMs, 0u);
}

TEST_F(VideoRecorderSession, TheDurationRunsFromTheFirstToTheLargestPositiveStamp) {
  ASSERT_EQ(Start(), 0);
  for (const std::int64_t timestamp : {-7, 1000000, 3019999, 2000000}) {
    ASSERT_TRUE(Offer(timestamp));
  }
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(recorder->GetStatus().durationMs, 201u) << "whole milliseconds of 2019999 ticks";
}

TEST_F(VideoRecorderSession, StampsAtTheEndOfInt64AreWritten) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1));
  ASSERT_TRUE(Offer(std::numeric_limits<std::int64_t>::max()));
  ASSERT_TRUE(Offer(0));
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(script.written.size(), 3u);
  EXPECT_EQ(recorder->GetStatus().durationMs, 922337203685477u);
}

TEST_F(VideoRecorderSession, ASeventhWaitingFrameIsRefusedAndCounted) {
  BlockedEncoder encoder(script);
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1));
  ASSERT_TRUE(Offer(2));
  encoder.entered.wait();
  for (std::int64_t timestamp = 3; timestamp <= 8; ++timestamp) {
    EXPECT_TRUE(Offer(timestamp)) << timestamp;
  }
  EXPECT_FALSE(Offer(9));
  EXPECT_EQ(recorder->GetStatus().framesDropped, 1u);
  EXPECT_FALSE(Offer(10));
  EXPECT_EQ(recorder->GetStatus().framesDropped, 2u);
  encoder.released.count_down();
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(WrittenTimestamps(), (std::vector<std::int64_t>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(recorder->GetStatus().framesWritten, 8u);
  EXPECT_EQ(recorder->GetStatus().framesDropped, 2u);
}

TEST_F(VideoRecorderSession, AFrameOfAnotherSizeIsRefusedButNotCounted) {
  ASSERT_EQ(Start(), 0);
  const std::uint8_t pixel = 1;
  EXPECT_FALSE(recorder->TryEnqueue(&pixel, 1, kWidth + 2, kHeight, 2, 1, nullptr, nullptr, 1));
  EXPECT_FALSE(recorder->TryEnqueue(&pixel, 1, kWidth, kHeight + 2, 2, 1, nullptr, nullptr, 1));
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(recorder->GetStatus().framesDropped, 0u);
  EXPECT_TRUE(script.written.empty());
}

TEST_F(VideoRecorderSession, AFrameWithoutBytesIsRefused) {
  ASSERT_EQ(Start(), 0);
  const std::uint8_t pixel = 1;
  EXPECT_FALSE(recorder->TryEnqueue(nullptr, 1, kWidth, kHeight, 2, 1, nullptr, nullptr, 1));
  EXPECT_FALSE(recorder->TryEnqueue(&pixel, 0, kWidth, kHeight, 2, 1, nullptr, nullptr, 1));
}

TEST_F(VideoRecorderSession, WithoutASessionNoFrameIsTaken) {
  EXPECT_FALSE(Offer(1));
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_FALSE(Offer(1));
  EXPECT_EQ(recorder->GetStatus().framesDropped, 0u);
}

TEST_F(VideoRecorderSession, AFrameIsCopiedWithItsPlanes) {
  ASSERT_EQ(Start(), 0);
  std::vector<std::uint8_t> pixels = {9, 8, 7, 6};
  std::int32_t offsets[] = {1, -2, 3};
  std::int32_t strides[] = {4, 5, -6};
  ASSERT_TRUE(recorder->TryEnqueue(pixels.data(), 4, kWidth, kHeight, 77, 2, offsets, strides, 1));
  pixels.assign(4, 0);
  offsets[0] = strides[0] = 0;
  EXPECT_EQ(recorder->Stop(), 0);
  ASSERT_EQ(script.written.size(), 1u);
  const Frame& frame = script.written[0].frame;
  EXPECT_EQ(frame.data, (std::vector<std::uint8_t>{9, 8, 7, 6}));
  EXPECT_EQ(frame.width, kWidth);
  EXPECT_EQ(frame.height, kHeight);
  EXPECT_EQ(frame.format, 77);
  EXPECT_EQ(frame.planeCount, 2);
  EXPECT_EQ(std::vector<std::int32_t>(frame.planeOffsets, frame.planeOffsets + 3),
            (std::vector<std::int32_t>{1, -2, 3}));
  EXPECT_EQ(std::vector<std::int32_t>(frame.planeStrides, frame.planeStrides + 3),
            (std::vector<std::int32_t>{4, 5, -6}));
}

TEST_F(VideoRecorderSession, AbsentPlanesAreZeroAndTheirCountIsClamped) {
  ASSERT_EQ(Start(), 0);
  const std::uint8_t pixel = 1;
  for (const int planeCount : {std::numeric_limits<int>::min(), 0, 1, 3, 4}) {
    ASSERT_TRUE(
        recorder->TryEnqueue(&pixel, 1, kWidth, kHeight, 2, planeCount, nullptr, nullptr, 1));
  }
  EXPECT_EQ(recorder->Stop(), 0);
  ASSERT_EQ(script.written.size(), 5u);
  const int clamped[] = {1, 1, 1, 3, 3};
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(script.written[i].frame.planeCount, clamped[i]);
    EXPECT_EQ(script.written[i].frame.planeOffsets[2], 0);
    EXPECT_EQ(script.written[i].frame.planeStrides[0], 0);
  }
}

TEST_F(VideoRecorderSession, AStopWritesWhatIsQueuedAndRefusesMore) {
  BlockedEncoder encoder(script);
  ASSERT_EQ(Start(), 0);
  for (std::int64_t timestamp = 1; timestamp <= 2; ++timestamp) {
    ASSERT_TRUE(Offer(timestamp));
  }
  encoder.entered.wait();
  ASSERT_TRUE(Offer(3));
  ASSERT_TRUE(Offer(4));
  int stopped = -100;
  std::thread stopper([&] { stopped = recorder->Stop(); });
  AwaitState(State::Stopping);
  EXPECT_TRUE(recorder->GetStatus().recording);
  EXPECT_FALSE(Offer(5));
  encoder.released.count_down();
  stopper.join();
  EXPECT_EQ(stopped, 0);
  EXPECT_EQ(WrittenTimestamps(), (std::vector<std::int64_t>{1, 2, 3, 4}));
  EXPECT_EQ(recorder->GetStatus().framesDropped, 0u);
}

TEST_F(VideoRecorderSession, AStopWhileStartingFinishesAnEmptyFile) {
  std::latch entered{1};
  std::latch released{1};
  script.onStart = [&] {
    entered.count_down();
    released.wait();
    return std::string();
  };
  State stateAtEnd = State::Idle;
  script.onFinalize = [&] {
    const std::lock_guard lock(recorder->mutex);
    stateAtEnd = recorder->state;
    return std::string();
  };
  int started = -100;
  std::thread starter([&] { started = Start(); });
  entered.wait();
  EXPECT_EQ(recorder->GetStatus().recording, true);
  int stopped = -100;
  std::thread stopper([&] { stopped = recorder->Stop(); });
  AwaitState(State::Stopping);
  starter.join();
  EXPECT_EQ(started, -3) << "the session left Starting, but not for Recording";
  released.count_down();
  stopper.join();
  EXPECT_EQ(stopped, 0);
  EXPECT_EQ(LastError(), "");
  EXPECT_EQ(script.finalizeCalls, 1);
  EXPECT_EQ(script.encodeCalls, 0);
  EXPECT_EQ(stateAtEnd, State::Stopping) << "the worker did not report Recording";
  EXPECT_EQ(recorder->state, State::Idle);
}

TEST_F(VideoRecorderSession, ManyThreadsMayStopAtOnceAndEachWaitsForTheFile) {
  std::latch finalizing{1};
  std::latch released{1};
  std::atomic<bool> finished{false};
  script.onFinalize = [&] {
    finalizing.count_down();
    released.wait();
    finished = true;
    return std::string();
  };
  ASSERT_EQ(Start(), 0);
  std::vector<std::jthread> stoppers;
  for (int i = 0; i < 4; ++i) {
    stoppers.emplace_back([&] {
      EXPECT_EQ(recorder->Stop(), 0);
      EXPECT_TRUE(finished);
    });
  }
  finalizing.wait();
  released.count_down();
  stoppers.clear();
  EXPECT_EQ(script.finalizeCalls, 1);
  EXPECT_EQ(script.destroyed, 1);
}

TEST_F(VideoRecorderSession, ThreadsThatStartAndStopAcrossOneAnotherNeverRunTwoSessions) {
  // Plain memory on purpose: only one worker at a time touches it, which ThreadSanitizer checks.
  int running = 0;
  int overlaps = 0;
  script.onStart = [&] {
    overlaps += ++running == 1 ? 0 : 1;
    return std::string();
  };
  script.onFinalize = [&] {
    --running;
    return std::string();
  };
  {
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < 4; ++caller) {
      callers.emplace_back([this] {
        for (int i = 0; i < 50; ++i) {
          Start();
          recorder->Stop();
        }
      });
    }
  }
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(running, 0);
  EXPECT_EQ(script.startCalls, script.finalizeCalls);
  EXPECT_EQ(script.destroyed, script.startCalls);
  EXPECT_EQ(recorder->state, State::Idle);
}

TEST_F(VideoRecorderSession, AStartWhoseSessionAnotherThreadReplacesFails) {
  std::latch entered{1};
  std::latch released{1};
  script.onStart = [&] {
    entered.count_down();
    released.wait();
    return std::string();
  };
  int replaced = -100;
  std::thread starter([&] { replaced = Start(); });
  entered.wait();
  {
    // What the starter finds if it wakes only once another thread has ended its session and has
    // started one of its own.
    const std::lock_guard lock(recorder->mutex);
    ++recorder->session;
    recorder->state = State::Recording;
  }
  recorder->condition.notify_all();
  starter.join();
  EXPECT_EQ(replaced, -3);
  EXPECT_EQ(LastError(), "");
  released.count_down();
  EXPECT_EQ(recorder->Stop(), 0);
}

TEST_F(VideoRecorderSession, ThreadsThatReplaceOneAnothersSessionsLeaveTheLastOneRunning) {
  std::atomic<int> failed{0};
  {
    std::vector<std::jthread> starters;
    for (int starter = 0; starter < 4; ++starter) {
      starters.emplace_back([&] {
        for (int i = 0; i < 50; ++i) {
          const int answer = Start();
          failed += answer == -3 ? 1 : 0;
          EXPECT_TRUE(answer == 0 || answer == -3) << answer;
        }
      });
    }
  }
  EXPECT_LT(failed, 200);
  EXPECT_EQ(recorder->state, State::Recording);
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(script.startCalls, 200);
  EXPECT_EQ(script.destroyed, 200);
}

TEST_F(VideoRecorderSession, TheDestructorFinishesTheFile) {
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1));
  ASSERT_TRUE(Offer(2));
  ASSERT_TRUE(Offer(3));
  recorder.reset();
  EXPECT_EQ(WrittenTimestamps(), (std::vector<std::int64_t>{1, 2, 3}));
  EXPECT_EQ(script.finalizeCalls, 1);
  EXPECT_EQ(script.destroyed, 1);
}

TEST_F(VideoRecorderSession, EveryFrameThatWasTakenFromAnyThreadIsWritten) {
  for (int session = 0; session < 20; ++session) {
    script.written.clear();
    ASSERT_EQ(Start(), 0);
    std::atomic<bool> stop = false;
    std::atomic<std::uint64_t> taken = 0;
    const auto offerFrames = [&] {
      for (std::int64_t timestamp = 1; !stop; ++timestamp) {
        taken += Offer(timestamp) ? 1u : 0u;
      }
    };
    std::thread first(offerFrames);
    std::thread second(offerFrames);
    std::uint64_t seen = 0;
    while (seen < 50) {
      const std::uint64_t now = recorder->GetStatus().framesWritten;
      ASSERT_GE(now, seen);
      seen = now;
    }
    EXPECT_EQ(recorder->Stop(), 0);
    stop = true;
    first.join();
    second.join();
    EXPECT_EQ(script.written.size(), taken.load());
    EXPECT_EQ(recorder->GetStatus().framesWritten, taken.load());
  }
}

}  // namespace

}  // namespace ostrel_native

// What a recording session does when its backend, a thread or memory fails.
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <cstdint>
#include <latch>
#include <limits>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "recording/video_recorder.h"
#include "unit/support/allocation_spy.h"
#include "unit/support/video_recorder_session.h"

namespace ostrel_native {

namespace {

using Frame = VideoRecorder::Frame;
using State = VideoRecorder::State;
using test::BlockedEncoder;
using test::kHeight;
using test::kWidth;
using VideoRecorderFailure = test::VideoRecorderSession;

TEST_F(VideoRecorderFailure, ABackendThatCannotStartEndsTheSessionWithItsText) {
  script.onStart = [] { return std::string("Opening the file failed: No such directory"); };
  EXPECT_EQ(Start(), -3);
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(LastError(), "Opening the file failed: No such directory");
  EXPECT_EQ(recorder->state, State::Failed);
  EXPECT_EQ(script.finalizeCalls, 0);
  EXPECT_EQ(script.destroyed, 1);
}

TEST_F(VideoRecorderFailure, APlatformWithoutABackendIsReported) {
  script.missing = true;
  EXPECT_EQ(Start(), -3);
  EXPECT_EQ(LastError(), "Video recording is not supported on this platform");
}

TEST_F(VideoRecorderFailure, TheLastErrorSurvivesStopUntilAStartThatPassesValidation) {
  script.missing = true;
  ASSERT_EQ(Start(), -3);
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(recorder->Stop(), -3);
  script.missing = false;
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(LastError(), "");
  EXPECT_EQ(recorder->Stop(), 0);
}

TEST_F(VideoRecorderFailure, AThreadThatCannotBeMadeIsAFailedStart) {
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t impossible;
  ASSERT_EQ(pthread_attr_init(&impossible), 0);
  // More stack than the processor can address.
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, std::size_t{1} << 60), 0);
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  const int result = Start();
  ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
  pthread_attr_destroy(&impossible);
  pthread_attr_destroy(&usual);
  EXPECT_EQ(result, -3);
  EXPECT_EQ(LastError(), "Resource temporarily unavailable");
  EXPECT_FALSE(recorder->GetStatus().recording);
  EXPECT_EQ(Start(), 0);
}

TEST_F(VideoRecorderFailure, AThreadThatHasNoMemoryIsAFailedStart) {
  const std::string path = "/a.mp4";
  ASSERT_EQ(recorder->Start(path, kWidth, kHeight, 30, 4'000'000), 0);
  ASSERT_EQ(recorder->Stop(), 0);
  int result = 0;
  {
    const test::FailingAllocations none(1);
    result = recorder->Start(path, kWidth, kHeight, 30, 4'000'000);
  }
  EXPECT_EQ(result, -3);
  EXPECT_EQ(LastError(), "std::bad_alloc");
  EXPECT_FALSE(recorder->GetStatus().recording);
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(Start(), 0);
}

TEST_F(VideoRecorderFailure, AFrameTooLargeForMemoryThrowsAndTheSessionGoesOn) {
  ASSERT_EQ(Start(), 0);
  const std::uint8_t pixel = 1;
  EXPECT_THROW(recorder->TryEnqueue(&pixel, std::numeric_limits<std::size_t>::max(), kWidth,
                                    kHeight, 2, 1, nullptr, nullptr, 1),
               std::length_error);
// The sanitizers end the process where the allocator would refuse.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_THROW(recorder->TryEnqueue(&pixel, std::size_t{1} << 60, kWidth, kHeight, 2, 1, nullptr,
                                    nullptr, 1),
               std::bad_alloc);
#endif
  EXPECT_TRUE(Offer(5));
  EXPECT_EQ(recorder->Stop(), 0);
  EXPECT_EQ(WrittenTimestamps(), (std::vector<std::int64_t>{5}));
  EXPECT_EQ(recorder->GetStatus().framesDropped, 0u);
}

TEST_F(VideoRecorderFailure, AStartThatTakesTenSecondsEndsWithItsWorkerAndKeepsItsText) {
  std::latch released{1};
  script.onStart = [&] {
    released.wait();
    return std::string();
  };
  script.onFinalize = [] { return std::string("Writing the trailer failed"); };
  bool offered = true;
  std::thread releaser([&] {
    AwaitState(State::Failed);
    offered = Offer(1);
    released.count_down();
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Start(), -2);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  releaser.join();
  EXPECT_FALSE(offered);
  EXPECT_EQ(LastError(), "Timed out while starting the video recorder");
  EXPECT_FALSE(recorder->worker.joinable());
  EXPECT_EQ(script.finalizeCalls, 1) << "the worker has ended";
  EXPECT_EQ(script.destroyed, 1);
  EXPECT_EQ(recorder->state, State::Failed);
  EXPECT_FALSE(recorder->GetStatus().recording);
  EXPECT_EQ(recorder->Stop(), -3);
}

TEST_F(VideoRecorderFailure, AFrameThatCannotBeWrittenEndsTheSessionButNotTheFile) {
  BlockedEncoder encoder(script);
  std::latch finalizing{1};
  std::latch finalized{1};
  const auto blockedFirst = script.onEncode;
  script.onEncode = [&](const Frame& frame) {
    blockedFirst(frame);
    return frame.timestamp == 2 ? std::string("Unsupported or invalid camera frame format")
                                : std::string();
  };
  script.onFinalize = [&] {
    finalizing.count_down();
    finalized.wait();
    return std::string("Writing the trailer failed");
  };
  ASSERT_EQ(Start(), 0);
  for (std::int64_t timestamp = 1; timestamp <= 2; ++timestamp) {
    ASSERT_TRUE(Offer(timestamp));
  }
  encoder.entered.wait();
  for (std::int64_t timestamp = 3; timestamp <= 6; ++timestamp) {
    ASSERT_TRUE(Offer(timestamp));
  }
  encoder.released.count_down();
  finalizing.wait();
  EXPECT_FALSE(Offer(7));
  EXPECT_FALSE(recorder->GetStatus().recording);
  EXPECT_EQ(LastError(), "Unsupported or invalid camera frame format");
  EXPECT_EQ(recorder->GetStatus().framesDropped, 0u);
  finalized.count_down();
  {
    ConditionLock lock(recorder->mutex);
    recorder->condition.wait(lock.held, [&] { return !recorder->stopRequested; });
  }
  EXPECT_EQ(recorder->Stop(), -3) << "also of a worker that ended by itself";
  EXPECT_TRUE(recorder->stopRequested) << "only the next start withdraws it";
  EXPECT_EQ(LastError(), "Unsupported or invalid camera frame format") << "the first error wins";
  EXPECT_EQ(script.encodeCalls, 2) << "no frame is tried after the failed one";
  EXPECT_EQ(recorder->GetStatus().framesWritten, 1u);
  EXPECT_EQ(script.finalizeCalls, 1);
  EXPECT_EQ(script.destroyed, 1);
  EXPECT_TRUE(recorder->queue.empty());
  EXPECT_EQ(recorder->state, State::Failed);
}

TEST_F(VideoRecorderFailure, OnlyTheFirstErrorOfTheWorkerIsKept) {
  recorder->SetWorkerError("first");
  recorder->SetWorkerError("second");
  EXPECT_EQ(LastError(), "first");
  EXPECT_EQ(recorder->state, State::Failed);
  EXPECT_TRUE(recorder->stopRequested);
}

TEST_F(VideoRecorderFailure, AnErrorOfTheVeryLastFrameIsReported) {
  script.onEncode = [](const Frame&) { return std::string("Writing an H.264 packet failed"); };
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1));
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(LastError(), "Writing an H.264 packet failed");
  EXPECT_EQ(recorder->GetStatus().framesWritten, 0u);
  EXPECT_EQ(script.finalizeCalls, 1);
}

TEST_F(VideoRecorderFailure, AFileThatCannotBeFinishedIsAFailedSession) {
  script.onFinalize = [] { return std::string("Writing the trailer failed"); };
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1));
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(LastError(), "Writing the trailer failed");
  EXPECT_EQ(recorder->state, State::Failed);
  EXPECT_EQ(recorder->GetStatus().framesWritten, 1u);
}

TEST_F(VideoRecorderFailure, AnExceptionWhileMakingTheBackendIsAnError) {
  script.onCreate = [] { throw std::runtime_error("no backend today"); };
  EXPECT_EQ(Start(), -3);
  EXPECT_EQ(LastError(), "no backend today");
}

TEST_F(VideoRecorderFailure, AnExceptionWhileStartingTheBackendIsAnError) {
  script.onStart = []() -> std::string { throw std::bad_alloc(); };
  EXPECT_EQ(Start(), -3);
  EXPECT_EQ(LastError(), "std::bad_alloc");
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(script.finalizeCalls, 0);
  EXPECT_EQ(script.destroyed, 1);
}

TEST_F(VideoRecorderFailure, AnExceptionWhileEncodingIsAnErrorAndFinishesTheFile) {
  script.onEncode = [](const Frame&) -> std::string { throw 7; };
  ASSERT_EQ(Start(), 0);
  ASSERT_TRUE(Offer(1));
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(LastError(), "Video recording failed for an unknown reason");
  EXPECT_EQ(script.finalizeCalls, 1);
}

TEST_F(VideoRecorderFailure, AnExceptionWithoutWordsIsStillAnError) {
  script.onFinalize = []() -> std::string { throw std::runtime_error(""); };
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(recorder->Stop(), -3);
  EXPECT_EQ(LastError(), "Video recording failed for an unknown reason");
  EXPECT_EQ(script.destroyed, 1);
}

}  // namespace

}  // namespace ostrel_native
